// The clock that the channel's bounds are measured by.
#pragma once

#include <cstdint>
#include <ctime>

namespace kivo_platform {

// Nobody sets it; it moves on every few milliseconds.
inline std::int64_t monotonic_ms() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

inline std::time_t monotonic_seconds() noexcept {
  return static_cast<std::time_t>(monotonic_ms() / 1000);
}

}  // namespace kivo_platform
