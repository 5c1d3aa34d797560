// Memory for large arrays and arenas: from 2 MiB on it is aligned to huge pages and the system is
// asked to back it with them. A table of a million entries is then filled with a few dozen page
// faults instead of thousands, and random access to it misses the TLB less.
// Everything comes from the nothrow operator new, so running out of memory is a null.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace kivo_platform {

// `bytes` (at most PTRDIFF_MAX) of memory aligned to `align` (a power of two) at least, contents
// undefined; or null.
void *take_pages(std::size_t bytes, std::size_t align) noexcept;

// Gives it back; bytes and align as it was taken. Null is accepted.
void give_pages_back(void *memory, std::size_t bytes, std::size_t align) noexcept;

template <typename T>
struct GivePagesBack {
  std::size_t n = 0;
  void operator()(T *items) const noexcept { give_pages_back(items, n * sizeof(T), alignof(T)); }
};

// An array of plain items in such memory.
template <typename T>
using PageArray = std::unique_ptr<T[], GivePagesBack<T>>;

// n value-initialised items; null without memory.
template <typename T>
PageArray<T> make_page_array(std::size_t n) noexcept {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
  if (n > PTRDIFF_MAX / sizeof(T)) return nullptr;
  void *memory = take_pages(n * sizeof(T), alignof(T));
  if (memory == nullptr) return nullptr;
  T *items = static_cast<T *>(memory);
  std::uninitialized_value_construct_n(items, n);
  return PageArray<T>{items, GivePagesBack<T>{n}};
}

}  // namespace kivo_platform
