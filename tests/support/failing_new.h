// Memory that runs out on demand: replaces operator new and delete for the whole test program, the
// platform's own calls included. Include it in one file of a program only.
// Not inlined: the compiler would compare malloc with delete across the replacements.
// Only nothrow requests fail, which are all that the platform makes: GoogleTest goes on unharmed.
#pragma once

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace failing_new {

inline int g_until_failure = 0;  // 0: not armed
inline std::size_t g_live_bytes = 0;

// The n-th request from now on fails, once; pending() tells whether that is still to come.
inline void fail_nth(int n) { g_until_failure = n; }
inline bool pending() { return g_until_failure != 0; }
inline void disarm() { g_until_failure = 0; }
inline std::size_t live_bytes() { return g_live_bytes; }

// Runs scenario(nth) with the first, second, ... request failing, until it gets by without reaching
// the failure. Returns how many requests were failed.
template <typename Scenario>
int sweep(Scenario scenario) {
  int nth = 0;
  do {
    fail_nth(++nth);
    scenario(nth);
  } while (!pending());
  disarm();
  return nth - 1;
}

__attribute__((noinline)) inline void *take(std::size_t size,
                                            std::align_val_t align = std::align_val_t{16}) {
  const auto step = static_cast<std::size_t>(align);
  void *memory = std::aligned_alloc(step, (size + step - 1) / step * step + (size == 0 ? step : 0));
  g_live_bytes += malloc_usable_size(memory);
  return memory;
}

inline bool should_fail() { return g_until_failure != 0 && --g_until_failure == 0; }

__attribute__((noinline)) inline void give_back(void *memory) {
  g_live_bytes -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace failing_new

// clang-format off
void *operator new(std::size_t n) {
  if (void *memory = failing_new::take(n)) return memory;
  throw std::bad_alloc();
}
void *operator new(std::size_t n, const std::nothrow_t &) noexcept {
  return failing_new::should_fail() ? nullptr : failing_new::take(n);
}
void *operator new(std::size_t n, std::align_val_t a, const std::nothrow_t &) noexcept {
  return failing_new::should_fail() ? nullptr : failing_new::take(n, a);
}
void operator delete(void *p) noexcept { failing_new::give_back(p); }
void operator delete(void *p, std::size_t) noexcept { failing_new::give_back(p); }
void operator delete(void *p, std::align_val_t) noexcept { failing_new::give_back(p); }
// clang-format on
