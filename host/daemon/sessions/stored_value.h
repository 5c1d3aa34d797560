// One stored attribute of a session, as bytes.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/attrdb.h"

namespace kivod {

// The bytes that a record stores for a type, all addresses for IPv6; empty when it has none. They
// hold until the record is next written or deleted.
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

}  // namespace kivod
