// Large memory on huge pages; see pages.h. The system's answer is not examined: ordinary pages do
// the same work, only slower.
// Threads: none; the process serialises all calls.
#include "pages.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

namespace kivo_platform {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

std::align_val_t alignment_for(std::size_t bytes, std::size_t align) noexcept {
  return std::align_val_t{bytes < kHugePage ? align : std::max(align, kHugePage)};
}

// From one huge page on up to whole ones.
std::size_t rounded(std::size_t bytes) noexcept {
  return bytes < kHugePage ? bytes : (bytes + kHugePage - 1) / kHugePage * kHugePage;
}

}  // namespace

void *take_pages(std::size_t bytes, std::size_t align) noexcept {
  void *memory = ::operator new(rounded(bytes), alignment_for(bytes, align), std::nothrow);
  if (memory != nullptr && bytes >= kHugePage) madvise(memory, rounded(bytes), MADV_HUGEPAGE);
  return memory;
}

void give_pages_back(void *memory, std::size_t bytes, std::size_t align) noexcept {
  ::operator delete(memory, alignment_for(bytes, align));
}

}  // namespace kivo_platform
