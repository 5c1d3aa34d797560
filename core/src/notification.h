// Dispatch of attribute changes, called by every write path, and the names of actions.
#pragma once

#include <array>
#include <cstdint>

#include "kivo/notification.h"

// Calls the callbacks registered for a change.
// db      the database written to.
// type    of the attribute; one without an acceleration entry is nobody's concern (status 0).
// size    of the value, 1 to 255 bytes.
// value   as the writer was given it; named in traces.
// bytes   the same value where it can be read now: the write may have moved it. Read before the
//         first callback runs and not afterwards.
// label   as the writer names the record.
// action  0, 1 or 2.
// Returns 0; KIVO_ERR_INVALID_ARG for a null handle, a size outside 1..255, a null value, type 0.
// Allocates nothing.
uint32_t kivo_attr_change_notification(kivo_db *db, uint32_t type, uint32_t size, const void *value,
                                       const void *bytes, uint32_t label, uint32_t action) noexcept;

namespace kivo {

// Whether anybody is registered for changes of a type.
bool is_announced(const kivo_db *db, uint32_t type) noexcept;

// Display names of the actions 0 to 4; other combinations have none.
inline constexpr std::array<const char *, 5> kivo_notify_action_names = {"ERR", "A/U", "REM", "AUR",
                                                                         "UNC"};

}  // namespace kivo
