// What every test of the library starts from: a process that has started its subsystems once, and
// an empty record store. Databases cannot be destroyed: a program has two, and tests create their
// configuration anew.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "kivo/kivo.h"

namespace kivo_test {

// Runs subsys_start() at the first call.
void start_process();

// Deletes every record, clears the old value and switches every debug flag off.
void reset_process();

// Creates (anew) the database of a client. Aborts the test program when that fails.
kivo_db *create_database(uint32_t client_id, std::initializer_list<kivo_attr_config> rows,
                         kivo_notify_cb notify_cb = nullptr,
                         kivo_handle_name_cb handle_name_cb = nullptr,
                         const char *db_name = "ATTR_DB", const char *owner_name = "owner");

// The record of a label, null when there is none.
attrdb_record *find_record(uint32_t label);

// The stored bytes of an attribute, empty when absent.
std::vector<uint8_t> stored_bytes(uint32_t label, uint32_t type);

// An attribute list that is freed at the end of its scope.
class AttrList {
 public:
  AttrList();
  ~AttrList();
  AttrList(const AttrList &) = delete;
  AttrList &operator=(const AttrList &) = delete;

  AttrList &add(uint32_t type, const void *value, uint32_t size);
  AttrList &add(uint32_t type, const char *text);
  AttrList &add_u32(uint32_t type, uint32_t value);
  [[nodiscard]] uint32_t handle() const { return handle_; }

 private:
  uint32_t handle_ = 0;
};

}  // namespace kivo_test
