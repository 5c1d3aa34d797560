// The gate of the fault tests: replaced platform operations (support/faults/*.cpp, linked into
// fault tests only) ask it before they forward to the real ones.
#pragma once

#include <cstdint>
#include <string>

namespace kivo_test {

// Lets the n-th call (1 is the next) of a named operation fail, or of any operation when the name
// is empty, with the given status where the operation returns one. Further calls go through.
void arm_fault(const std::string &operation, uint32_t nth, uint32_t status = 0xdead);

// Switches the gate off. Returns whether the armed fault was reached.
bool disarm_fault();

// For the replacements: whether this call is to fail, and with which status.
bool fault_is_due(const char *operation);
uint32_t fault_status();

}  // namespace kivo_test
