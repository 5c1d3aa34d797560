// Replaces operator new in a test program: counts blocks, and fails the n-th call, or all from the
// n-th on, when armed. Include it in one file of the program. Requests that would throw neither
// fail nor count where the test's own code runs meanwhile and must go on: only_nothrow.
#pragma once

#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace memory_faults {

inline std::int64_t live_blocks = 0;
inline std::size_t live_bytes = 0;
inline std::uint64_t calls_until_failure = 0;  // 0: not armed
inline bool failing_on = false;                // also after the first failure
inline bool failed = false;
inline bool only_nothrow = false;

inline void arm(std::uint64_t nth, bool and_on = false) {
  calls_until_failure = nth;
  failing_on = and_on;
  failed = false;
}

// Returns whether an allocation has failed since arm().
inline bool disarm() {
  calls_until_failure = 0;
  return failed;
}

__attribute__((noinline)) inline void *allocate(std::size_t size, std::size_t alignment,
                                                bool may_fail = true) {
  if (may_fail && calls_until_failure != 0 &&
      (calls_until_failure == 1 || --calls_until_failure == 0)) {
    const bool fails = !failed || failing_on;
    calls_until_failure = failing_on ? 1 : 0;
    failed = true;
    if (fails) return nullptr;
  }
  const std::size_t rounded = (size + alignment - 1) / alignment * alignment;
  void *block = std::aligned_alloc(alignment, rounded != 0 ? rounded : alignment);
  if (block != nullptr) ++live_blocks;
  live_bytes += malloc_usable_size(block);
  return block;
}

__attribute__((noinline)) inline void release(void *block) {
  if (block != nullptr) --live_blocks;
  live_bytes -= malloc_usable_size(block);
  std::free(block);
}

}  // namespace memory_faults

void *operator new(std::size_t size) {
  void *block =
      memory_faults::allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__, !memory_faults::only_nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void *operator new[](std::size_t size) { return operator new(size); }
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  return memory_faults::allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void *operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t &) noexcept {
  return memory_faults::allocate(size, static_cast<std::size_t>(alignment));
}
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
  return memory_faults::allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void operator delete(void *block) noexcept { memory_faults::release(block); }
void operator delete(void *block, std::size_t) noexcept { memory_faults::release(block); }
void operator delete(void *block, std::align_val_t) noexcept { memory_faults::release(block); }
void operator delete[](void *block) noexcept { memory_faults::release(block); }
void operator delete[](void *block, std::size_t) noexcept { memory_faults::release(block); }
