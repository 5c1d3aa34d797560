// How many of something, as a person says it.
#pragma once

#include <cstdint>
#include <string>

namespace host_text {

// "1 session", "2 sessions".
inline std::string counted(uint64_t n, const char *noun) {
  return std::to_string(n) + ' ' + noun + (n == 1 ? "" : "s");
}

}  // namespace host_text
