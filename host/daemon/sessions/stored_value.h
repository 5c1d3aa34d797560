// What a record stores for an attribute, as bytes, which hold until the record is next written or
// deleted.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/attrdb.h"

namespace kivod {

// The bytes of a type, all addresses for IPv6; empty when the record has none.
inline std::string_view stored_value(const attrdb_record &record, uint32_t type) noexcept {
  const void *value = nullptr;
  uint32_t size = 0;
  uint32_t count = 0;
  if (auth_mgr_idc_get_attr(record.ctxt, type, &value, &size, &count) != PLATFORM_OK ||
      value == nullptr) {
    return {};
  }
  return {static_cast<const char *>(value), size};
}

// The values of a type one by one: each IPv6 address, each external identity without its subtype
// and in the order of the subtypes.
void get_stored_values(const attrdb_record &record, uint32_t type,
                       std::vector<std::string_view> &values);

}  // namespace kivod
