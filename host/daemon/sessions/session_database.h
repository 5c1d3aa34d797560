// The daemon's database: its attribute rows, the indexes that the record store keeps for it, and
// the daemon's own registrations for changes, which count what was announced.
#pragma once

#include <cstdint>
#include <span>

#include "kivo/database.h"

namespace kivod {

// Starts the library's subsystems and creates ATTR_DB; called once, first of all.
// Null, after a trace, when that fails.
kivo_db *open_session_database();

// The attributes of a session, in the order of their positions.
std::span<const kivo_attr_config> session_attributes() noexcept;

// Changes announced to the daemon since the database was opened, by kind.
struct ChangeCounts {
  uint64_t added_or_updated;
  uint64_t removed;
};
ChangeCounts announced_changes() noexcept;

}  // namespace kivod
