// Hidden twins of the attribute service's operations on contexts, for the record store.
// Threads: none; the process serialises all calls.
#pragma once

#include "session_slots.h"

namespace kivo_platform {

// Frees what a context holds, its shadow record included, and its slot. No record owns it any
// longer.
void destroy_context(auth_ctxt *ctxt) noexcept;

}  // namespace kivo_platform
