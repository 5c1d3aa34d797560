#include "support/process.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/subsys.h"
#include "platform/trace.h"

namespace kivo_test {
namespace {

void require(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "test set-up failed: %s\n", what);
  std::abort();
}

uint32_t delete_in_hand(attrdb_record *record, void *) {
  return attrdb_delete_record(record->label);
}

}  // namespace

void start_process() {
  static const uint32_t started = subsys_start();
  require(started >= 1, "the library enrolled itself");
}

void reset_process() {
  start_process();
  attrdb_walk_all_records(delete_in_hand, nullptr);
  require(attrdb_get_total_sessions() == 0, "every record is deleted");
  kivo_init_notify_old_attr();
  kivo_debug_level_all = kivo_debug_level_error = kivo_debug_level_event = 0;
}

kivo_db *create_database(uint32_t client_id, std::initializer_list<kivo_attr_config> rows,
                         kivo_notify_cb notify_cb, kivo_handle_name_cb handle_name_cb,
                         const char *db_name, const char *owner_name) {
  start_process();
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, client_id, notify_cb, handle_name_cb};
  kivo_db *db = nullptr;
  require(kivo_create_database(db_name, owner_name, &client, rows.begin(),
                               static_cast<uint32_t>(rows.size()), &db) == 0,
          "the database is created");
  return db;
}

attrdb_record *find_record(uint32_t label) {
  attrdb_record *record = nullptr;
  require(attrdb_get_record(label, &record) == 0, "the store answers");
  return record;
}

std::vector<uint8_t> stored_bytes(uint32_t label, uint32_t type) {
  const attrdb_record *record = find_record(label);
  const void *value = nullptr;
  uint32_t size = 0;
  uint32_t count = 0;
  if (record == nullptr || auth_mgr_idc_get_attr(record->ctxt, type, &value, &size, &count) != 0) {
    return {};
  }
  const auto *bytes = static_cast<const uint8_t *>(value);
  return bytes == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(bytes, bytes + size);
}

AttrList::AttrList() { require(aaa_list_alloc(&handle_) == 0, "a list is made"); }
AttrList::~AttrList() { aaa_list_free(handle_); }

AttrList &AttrList::add(uint32_t type, const void *value, uint32_t size) {
  require(aaa_attr_add(handle_, type, value, size, 0, 0) == 0, "an attribute is added");
  return *this;
}

AttrList &AttrList::add(uint32_t type, const char *text) {
  return add(type, text, static_cast<uint32_t>(std::strlen(text)));
}

AttrList &AttrList::add_u32(uint32_t type, uint32_t value) {
  return add(type, &value, sizeof(value));
}

}  // namespace kivo_test
