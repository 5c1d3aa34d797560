// Sessions that meet conditions, printed as a table.
#pragma once

#include <vector>

#include "conditions.h"
#include "kivo/database.h"
#include "session_printer.h"

namespace kivod {

// Runs a multi-attribute query over the conditions and prints the sessions that meet all of them.
// The query narrows by the indexed ones; the others are compared session by session. At least one
// must be indexed, else kNotIndexed and nothing is printed.
Answer print_matches(kivo_db *db, const std::vector<AttrCondition> &conditions);

}  // namespace kivod
