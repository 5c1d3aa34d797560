// The database of the workload: opened, and filled through the exported interface.
#pragma once

#include <cstdint>

#include "kivo/kivo.h"
#include "workload/data.h"

namespace workload {

// The database, its indexes declared on the empty store; null when that fails.
kivo_db *open_database();

// A creation as a client does it: a record, and one attribute list, built here, written into it.
bool create_session(kivo_db *db, uint32_t label, const Session &session);

}  // namespace workload
