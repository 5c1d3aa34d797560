// What the fault tests start from, made anew for every row: two databases, whose configurations and
// registrations replace the last ones, and one session with attributes and an external identity.
// Also what is alive in the process: a fault that leaks shows there once the next World stands.
#pragma once

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/named_alloc.h"
#include "support/console_capture.h"
#include "support/faults.h"
#include "support/process.h"

namespace kivo_test {

constexpr uint32_t kSession = 7;    // the label of the session
constexpr uint32_t kNoSession = 8;  // a label without a record
constexpr const char *kAuditId = "0a0b0c0d0000000112345678";
constexpr uint32_t kAddress = 0x010200c0;  // 192.0.2.1 as it lies in memory

// "type/action" of every callback of the first database, in order.
inline std::string notified;

inline void note_change(kivo_db *, uint32_t, uint32_t, const kivo_attr_value *value,
                        const kivo_attr_value *, uint32_t action, platform_queue *) {
  notified += std::to_string(value->aaa_type) + "/" + std::to_string(action) + " ";
}

// An external identity's value: its subtype, then text.
inline std::string identity(uint16_t subtype, const std::string &text) {
  return std::string(reinterpret_cast<const char *>(&subtype), sizeof(subtype)) + text;
}

// A label set of these labels.
class LabelSet {
 public:
  explicit LabelSet(const std::vector<uint32_t> &labels) {
    if (kivo_index_list_create(&list) != KIVO_INDEX_LIST_OK) return;
    kivo_index_list_add_many(&list, labels.data(), static_cast<uint32_t>(labels.size()));
  }
  ~LabelSet() { kivo_index_list_free(list); }
  LabelSet(const LabelSet &) = delete;
  LabelSet &operator=(const LabelSet &) = delete;

  [[nodiscard]] std::vector<uint32_t> labels() const {
    std::vector<uint32_t> found;
    uint32_t cursor = 0;
    while (const uint32_t label = kivo_index_list_next(list, &cursor)) found.push_back(label);
    return found;
  }

  kivo_index_list *list = nullptr;
};

// The labels 1 to n.
inline std::vector<uint32_t> first_labels(uint32_t n) {
  std::vector<uint32_t> labels;
  for (uint32_t label = 1; label <= n; ++label) labels.push_back(label);
  return labels;
}

class World {
 public:
  World() {
    reset_process();
    notified.clear();
    db = create_database(1,
                         {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR},       // slot 0
                          {AAA_ATTR_IPV4_ADDRESS, 1, KIVO_DATA_TYPE_IPV4_ADDR},  // slot 1
                          {AAA_ATTR_SESSION_ID, 6, KIVO_DATA_TYPE_VAR_STR},      // slot 2
                          {AAA_ATTR_EXT_DEVICE, 6, KIVO_DATA_TYPE_VAR_BIN},      // slot 3
                          {AAA_ATTR_START_TIME, 6, KIVO_DATA_TYPE_INT64}},       // slot 4
                         note_change);
    create_database(2, {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr, nullptr,
                    "OTHER");
    static void *handles[4][1];
    uint32_t i = 0;
    for (uint32_t type :
         {AAA_ATTR_USER_NAME, AAA_ATTR_IPV4_ADDRESS, AAA_ATTR_SESSION_ID, AAA_ATTR_EXT_DEVICE}) {
      kivo_register_attr_change_notification(db, type, KIVO_ACTION_ADD_OR_UPDATE, handles[i++]);
    }
    kivo_create_record(db, kSession, nullptr);
    record = find_record(kSession);
    shadow = auth_mgr_idc_get_shadow_record_in_ctxt(record->ctxt);
    fresh_shadow = shadowdb_alloc_record(9);
    write(AAA_ATTR_USER_NAME, "ann");
    write(AAA_ATTR_AUDIT_SESSION_ID, kAuditId);
    write_identity(5, "x");
    old_table = db->accel_tbl;
  }
  ~World() { shadowdb_destroy_record(fresh_shadow); }
  World(const World &) = delete;
  World &operator=(const World &) = delete;

  // Straight into the record: nobody is told.
  void write(uint32_t type, const std::string &value) {
    auth_mgr_idc_add_or_update_attr(record->ctxt, type, value.data(),
                                    static_cast<uint32_t>(value.size()), nullptr);
  }
  uint32_t write_identity(uint16_t subtype, const std::string &text, uint32_t *changed = nullptr) {
    const std::string value = identity(subtype, text);
    uint32_t ignored = 0;
    return shadowdb_add_or_update_attr(shadow, 2, AAA_ATTR_EXT_DEVICE, value.data(),
                                       static_cast<uint32_t>(value.size()),
                                       changed != nullptr ? changed : &ignored);
  }

  // The session's stored value as text, and its identities by subtype.
  static std::string stored(uint32_t type) {
    const std::vector<uint8_t> bytes = stored_bytes(kSession, type);
    return {bytes.begin(), bytes.end()};
  }
  static bool holds(uint32_t type) {
    const void *value = nullptr;
    uint32_t size = 0;
    uint32_t count = 0;
    auth_mgr_idc_get_attr(find_record(kSession)->ctxt, type, &value, &size, &count);
    return count != 0;
  }
  [[nodiscard]] std::map<int, std::string> identities() const {
    std::map<int, std::string> found;
    for (auto *entry = shadow->attr_lists[2]; entry != nullptr; entry = entry->next) {
      found[entry->subtype].assign(reinterpret_cast<char *>(entry->value) + 2, entry->length - 2u);
    }
    return found;
  }

  // The values of a type in `list`, one behind the other.
  [[nodiscard]] std::string listed(uint32_t type) const {
    std::string values;
    aaa_cursor *cursor = nullptr;
    aaa_cursor_alloc(&cursor, list.handle());
    for (uint32_t at = 0; aaa_cursor_get_next(cursor, &at) == 0 && at != 0;) {
      const void *value = nullptr;
      uint32_t size = 0;
      aaa_cursor_get_value(cursor, &size, &value);
      if (at == type) values.append(static_cast<const char *>(value), size);
    }
    aaa_cursor_free(cursor);
    return values;
  }

  kivo_db *db = nullptr;
  attrdb_record *record = nullptr;
  shadowdb_rec *shadow = nullptr;        // of the session
  shadowdb_rec *fresh_shadow = nullptr;  // of nobody; nothing was ever written to it
  kivo_accel_entry *old_table = nullptr;
  AttrList list;  // empty
  LabelSet none{{}};
  LabelSet twelve{first_labels(12)};
  LabelSet thirteen{first_labels(13)};
  ConsoleCapture console;
};

// What is alive in the process, by kind.
inline std::map<std::string, uint64_t> live_things() {
  return {{"blocks", named_live_blocks()},
          {"bytes", named_live_bytes()},
          {"shadow values", variable_chunk_live_blocks(shadow_attr_chunk)},
          {"label blocks", chunk_live_blocks(label_block_pool)},
          {"hashed labels", htItems(label_table)},
          {"lists", aaa_live_lists()},
          {"cursors", aaa_live_cursors()},
          {"contexts", auth_mgr_idc_live_ctxts()},
          {"records", attrdb_get_total_sessions()}};
}

}  // namespace kivo_test
