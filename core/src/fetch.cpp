// Fetches for replies: see kivo/fetch.h. All but the attribute fetch read a snapshot of the
// database that they refresh first.
#include "kivo/fetch.h"

#include <algorithm>
#include <cstdio>

#include "database.h"
#include "shown_database.h"
#include "value_rendering.h"

kivo_db client_info_show;

namespace kivo {
namespace {

void refresh_snapshot() noexcept {
  client_info_show = kivo_db{};
  for (const kivo_db &db : client_info) {
    if (is_shown(db)) client_info_show = db;
  }
}

void kivo_fetch_record_values(uint32_t *indexes, kivo_value_slot *slots, uint32_t label) noexcept {
  const ConfigRows rows = config_rows(client_info_show);
  const uint32_t n = std::min(rows.n_rows, KIVO_REPLY_SLOTS);
  for (uint32_t i = 0; i < n; ++i) {
    const kivo_attr_config &row = rows.rows[i];
    const StoredValue value = read_value(client_info_show, label, row.aaa_type);
    indexes[i] = i;
    render_in_slot(client_info_show, row.data_type, value, slots[i]);
  }
}

// Fetches the record that has this key.
void fetch_by_key(uint32_t type, const void *key, uint32_t key_size, uint32_t *found,
                  uint32_t *indexes, kivo_value_slot *slots) noexcept {
  refresh_snapshot();
  const uint32_t label = find_shown_label(&client_info_show, type, key, key_size);
  if (label != 0) {
    kivo_fetch_record_values(indexes, slots, label);
  } else {
    *found = 0;
  }
}

bool all_given(const void *key, const uint32_t *found, const uint32_t *indexes,
               const kivo_value_slot *slots) noexcept {
  return key != nullptr && found != nullptr && indexes != nullptr && slots != nullptr;
}

}  // namespace
}  // namespace kivo

using namespace kivo;

void kivo_fetch_common_header(char *name, char *owner, uint32_t *records) noexcept {
  refresh_snapshot();
  for (const kivo_db &db : client_info) {
    if (!is_shown(db)) continue;
    if (name != nullptr) std::snprintf(name, KIVO_NAME_SIZE, "%s", db.db_name);
    if (owner != nullptr) std::snprintf(owner, KIVO_NAME_SIZE, "%s", db.owner_name);
    if (records != nullptr) *records = attrdb_get_total_sessions();
  }
}

void kivo_fetch_attr_name_type_data(uint32_t *indexes, kivo_data_type *types) noexcept {
  if (indexes == nullptr || types == nullptr) return;
  uint32_t position = 0;
  for (const kivo_db &db : client_info) {
    if (!is_shown(db)) continue;
    for (const kivo_attr_config &row : config_rows(db)) {
      if (position == KIVO_REPLY_SLOTS) return;
      indexes[position] = position;
      types[position] = row.data_type;
      ++position;
    }
  }
}

void kivo_fetch_show_records_filter_by_session_id(const char *session_id, uint32_t *found,
                                                  uint32_t *indexes,
                                                  kivo_value_slot *slots) noexcept {
  if (!all_given(session_id, found, indexes, slots)) return;
  const AuditSessionKey key(session_id);
  fetch_by_key(AAA_ATTR_AUDIT_SESSION_ID, key.bytes, sizeof(key.bytes), found, indexes, slots);
}

void kivo_fetch_show_records_filter_by_mac_addr(const void *mac, uint32_t *found, uint32_t *indexes,
                                                kivo_value_slot *slots) noexcept {
  if (!all_given(mac, found, indexes, slots)) return;
  fetch_by_key(AAA_ATTR_MAC_ADDRESS, mac, kMacKeySize, found, indexes, slots);
}

void kivo_fetch_show_records_filter_by_ipv4_addr(const void *address, uint32_t *found,
                                                 uint32_t *indexes,
                                                 kivo_value_slot *slots) noexcept {
  if (!all_given(address, found, indexes, slots)) return;
  fetch_by_key(AAA_ATTR_IPV4_ADDRESS, address, kIpv4KeySize, found, indexes, slots);
}
