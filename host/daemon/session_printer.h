// Sessions in full for a person: a block each, with every attribute that the session has, a line a
// value, and how many there were behind them. What a peer sent stands there as text that no
// terminal obeys.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "conditions.h"
#include "kivo/database.h"

namespace kivod {

// What a question came to.
enum class Answer : uint8_t { kFound, kNone, kNotIndexed, kFailed };

// Prints every session, also when there is none: kFound or kFailed.
Answer print_all_sessions(kivo_db *db);

// Prints the sessions that meet one condition, which is on an indexed type.
Answer print_sessions(kivo_db *db, const AttrCondition &condition);

// Prints the sessions with this audit-session-id, else those with this session-id.
Answer print_sessions_of_id(kivo_db *db, const std::string &id);

}  // namespace kivod
