// The clock that the channel's bounds are measured by.
#pragma once

#include <ctime>

namespace kivo_platform {

// Seconds that nobody sets.
inline std::time_t monotonic_seconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec;
}

}  // namespace kivo_platform
