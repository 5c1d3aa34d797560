// The process's table of databases, and the names of value kinds. Written by database.cpp only.
#pragma once

#include <array>
#include <cstdint>

#include "kivo/database.h"

namespace kivo {

// client_info: two entries, zero at load; their addresses are the database handles.
extern kivo_db client_info[KIVO_CLIENTS_PER_PROCESS];

// Display names by kivo_data_type.
inline constexpr std::array<const char *, KIVO_DATA_TYPE_MAX + 1> kivo_data_type_names = {
    KIVO_DATA_TYPE_NAMES};

// The name of a kind, also of a number that is none.
inline const char *data_type_name(kivo_data_type data_type) noexcept {
  return data_type < kivo_data_type_names.size() ? kivo_data_type_names[data_type] : "UNKNOWN  ";
}

// The rows of a database's configuration; none when a failed creation left it without one.
struct ConfigRows {
  const kivo_attr_config *rows;
  uint32_t n_rows;
  [[nodiscard]] const kivo_attr_config *begin() const noexcept { return rows; }
  [[nodiscard]] const kivo_attr_config *end() const noexcept { return rows + n_rows; }
  [[nodiscard]] bool empty() const noexcept { return n_rows == 0; }
};

inline ConfigRows config_rows(const kivo_db &db) noexcept {
  if (db.attr_cfg == nullptr) return {nullptr, 0};
  return {db.attr_cfg, db.indexed_count + db.unindexed_count};
}

}  // namespace kivo
