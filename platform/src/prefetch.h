// Has memory fetched into the caches that will be read soon.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>

namespace kivo_platform {

inline constexpr std::size_t kCacheLine = 64;

// Of an object that begins with a cache line. g++ takes a function that does nothing else for one
// without effect and drops its calls; the empty statement keeps them.
template <typename T>
void fetch_ahead(const T *object) noexcept {
  for (std::size_t at = 0; at < sizeof(T); at += kCacheLine) {
    __builtin_prefetch(reinterpret_cast<const char *>(object) + at);
  }
  asm volatile("");
}

}  // namespace kivo_platform
