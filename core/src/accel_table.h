// Building a database's acceleration table, and looking into it without checks and traces;
// kivo/database.h has the look-ups with them.
#pragma once

#include <cstdint>

#include "kivo/database.h"
#include "platform/aaa_dictionary.h"

namespace kivo {

// Builds the table of db's configuration in place of the one that it has, which is abandoned.
// Returns 0, or the status after tracing the reason. On failure the table is gone, except when no
// row is indexed: then everything is as before.
uint32_t build_accel_table(kivo_db &db) noexcept;

inline constexpr int32_t kNoSlot = -1;

inline int32_t slot_of(const kivo_db &db, uint32_t type) noexcept {
  return type <= AAA_ATTR_TYPE_MAX ? db.accel_slot[type] : kNoSlot;
}

// The entry of a type's slot, which may be another type's; null without one, or when the table
// lacks it.
inline kivo_accel_entry *entry_at_slot(const kivo_db &db, uint32_t type) noexcept {
  const auto slot = static_cast<uint32_t>(slot_of(db, type));
  return slot < db.accel_count ? &db.accel_tbl[slot] : nullptr;
}

// The entry of a type; null without one. kivo_get_accel_from_type() without its checks and traces.
inline kivo_accel_entry *entry_of(const kivo_db &db, uint32_t type) noexcept {
  kivo_accel_entry *const entry = entry_at_slot(db, type);
  return entry != nullptr && entry->aaa_type == type ? entry : nullptr;
}

}  // namespace kivo
