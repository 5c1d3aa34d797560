// Building a database's acceleration table; kivo/database.h has its look-ups.
#pragma once

#include <cstdint>

#include "kivo/database.h"

namespace kivo {

// Builds the table of db's configuration in place of the one that it has, which is abandoned.
// Returns 0, or the status after tracing the reason. On failure the table is gone, except when no
// row is indexed: then everything is as before.
uint32_t build_accel_table(kivo_db &db) noexcept;

}  // namespace kivo
