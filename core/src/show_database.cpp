// The database show: the header of every database named ATTR_DB, then its attribute table or the
// records that a filter finds. Filters look records up through the record store's indexes.
#include "console.h"
#include "database.h"
#include "index_list.h"
#include "show_attributes.h"
#include "show_record.h"
#include "shown_database.h"
#include "trace.h"

FILE **kivo_devsh_printf_init(FILE *stream) noexcept {
  devShZelConsoleFd = stream;
  return &devShZelConsoleFd;
}

namespace kivo {
namespace {

void show_by_audit_session(kivo_db &db, const char *filter) noexcept {
  uint32_t label = 0;
  if (filter != nullptr) {
    const AuditSessionKey key(filter);
    label = find_shown_label(&db, AAA_ATTR_AUDIT_SESSION_ID, key.bytes, sizeof(key.bytes));
  }
  if (label == 0) {
    kivo_console_write("\n\nNo matching records found with supplied Audit Session ID: %s\n",
                       name_or_empty(filter));
    return;
  }
  kivo_trace_event(msg::kShowMatchAudit, filter);
  kivo_show_record(db, label);
}

void show_by_mac(kivo_db &db, const void *filter) noexcept {
  const uint32_t label =
      filter != nullptr ? find_shown_label(&db, AAA_ATTR_MAC_ADDRESS, filter, kMacKeySize) : 0;
  if (label == 0) {
    kivo_console_write("\n\nNo matching records found with supplied MAC Address: %s\n",
                       auth_mgr_safe_printable_mac(filter, kMacKeySize));
    return;
  }
  kivo_trace_event(msg::kShowMatchMac, auth_mgr_safe_printable_mac(filter, kMacKeySize));
  kivo_show_record(db, label);
}

void show_by_ipv4(kivo_db &db, uint32_t address) noexcept {
  kivo_index_list *found = nullptr;
  if (kivo_index_list_create(&found) != KIVO_INDEX_LIST_OK) {
    kivo_trace_error(msg::kShowListFailed, error_text(KIVO_ERR_NO_MEMORY));
    return;
  }
  uint32_t count = 0;
  const uint32_t status = kivo_match_labels_by_attr(&db, AAA_ATTR_IPV4_ADDRESS, &address,
                                                    sizeof(address), &found, &count);
  const IndexListPtr labels(found);
  kivo_console_write("\n Num matches: %d", static_cast<int>(count));
  if (status != PLATFORM_OK || count == 0) {
    kivo_console_write("\n\nNo matching records found with supplied IPV4 Address: %i",
                       static_cast<int>(address));
    return;
  }
  kivo_trace_event(msg::kShowMatchIpv4, static_cast<int>(address));
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t label = 0;
    kivo_index_list_get(labels.get(), i, &label);
    kivo_console_write("\n\nIPV4 match# %d, and its data:\n", static_cast<int>(i + 1));
    kivo_show_record(db, label);
  }
}

void show_slot(kivo_db &db, uint32_t command_type, uint64_t filter) noexcept {
  write_database_header(db);
  kivo_console_write("\nNUMBER OF RECORDS : %d", static_cast<int>(attrdb_get_total_sessions()));
  switch (command_type) {
    case KIVO_SHOW_BY_AUDIT_SESSION:
      show_by_audit_session(db, reinterpret_cast<const char *>(filter));
      break;
    case KIVO_SHOW_BY_MAC:
      show_by_mac(db, reinterpret_cast<const void *>(filter));
      break;
    case KIVO_SHOW_BY_IPV4:
      show_by_ipv4(db, static_cast<uint32_t>(filter));
      break;
    default:
      show_attribute_table(db, command_type == KIVO_SHOW_NOTIFICATIONS);
  }
}

}  // namespace
}  // namespace kivo

void kivo_show_db(uint32_t command_type, uint64_t filter) noexcept {
  bool found = false;
  for (kivo_db &db : kivo::client_info) {
    if (!kivo::is_shown(db)) continue;
    found = true;
    kivo::show_slot(db, command_type, filter);
  }
  if (!found) {
    kivo_console_write("\n\nNo database found with provided name : %s", KIVO_SHOW_DB_NAME);
  }
}
