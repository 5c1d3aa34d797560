// Blocks of a database that a repeated creation abandons: configurations and acceleration tables
// with their registrations. A dispatch or display that walks them holds a WalkPin; what is
// abandoned under a pin is released when the last pin of that database goes, anything else at once.
// Abandoning allocates nothing: each block carries its link in front of its payload.
#pragma once

#include <cstdint>

#include "kivo/database.h"

namespace kivo {

// Zero-filled blocks for `n` rows or entries; null without memory.
kivo_attr_config *allocate_config(uint32_t n) noexcept;
kivo_accel_entry *allocate_accel_table(uint32_t n) noexcept;

// Abandon a block that this database does not refer to any more; null is accepted.
void abandon_config(kivo_db &db, kivo_attr_config *rows) noexcept;
void abandon_accel_table(kivo_db &db, kivo_accel_entry *entries) noexcept;

// Keeps everything that the database holds now readable while it lives.
class WalkPin {
 public:
  explicit WalkPin(kivo_db &db) noexcept : db_(db) { ++db_.walks; }
  ~WalkPin();
  WalkPin(const WalkPin &) = delete;
  WalkPin &operator=(const WalkPin &) = delete;

 private:
  kivo_db &db_;
};

}  // namespace kivo
