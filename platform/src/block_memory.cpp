// Size classes of attribute blocks; see the header.
// Threads: none; the process serialises all calls.
#include "block_memory.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <new>

#include "slabs.h"

#if defined(__SANITIZE_ADDRESS__)
#define BLOCK_MEMORY_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BLOCK_MEMORY_POISONS 1
#endif
#endif
#ifdef BLOCK_MEMORY_POISONS
#include <sanitizer/asan_interface.h>
#endif

namespace kivo_platform {
namespace {

constexpr std::uint32_t kStep = 32;
constexpr std::uint32_t kFineLimit = 512;
constexpr std::uint32_t kFineClasses = kFineLimit / kStep;
constexpr std::uint32_t kCoarseSizes[] = {640, 768, 1024, 1280, 1536, 2048, 2560, 3072, 4096};
constexpr std::uint32_t kPooledLimit = 4096;
constexpr std::size_t kChunkBytes = 64 * 1024;

struct FreeBlock {
  FreeBlock *next;
};

// Blocks of one size: those given back, then what is left of the newest chunk.
struct SizeClass {
  FreeBlock *free;
  std::byte *fresh;
  std::byte *fresh_end;
};

constinit std::array<SizeClass, kFineClasses + std::size(kCoarseSizes)> classes{};

std::uint32_t class_of(std::uint32_t size) noexcept {
  if (size <= kFineLimit) return (size + kStep - 1) / kStep - 1;
  const auto *coarse = std::lower_bound(std::begin(kCoarseSizes), std::end(kCoarseSizes), size);
  return kFineClasses + static_cast<std::uint32_t>(coarse - std::begin(kCoarseSizes));
}

// A block that is not out is unreadable under the address sanitizer: a value pointer that is used
// after the next write is found although the memory stays with the pool. The link of the free list
// stays readable, or the leak check would not follow it.
void poison([[maybe_unused]] void *block, [[maybe_unused]] std::uint32_t size) noexcept {
#ifdef BLOCK_MEMORY_POISONS
  __asan_poison_memory_region(static_cast<std::byte *>(block) + sizeof(FreeBlock),
                              size - sizeof(FreeBlock));
#endif
}

void unpoison([[maybe_unused]] void *block, [[maybe_unused]] std::uint32_t size) noexcept {
#ifdef BLOCK_MEMORY_POISONS
  __asan_unpoison_memory_region(block, size);
#endif
}

}  // namespace

std::uint32_t block_memory_size(std::uint32_t bytes) noexcept {
  if (bytes <= kFineLimit) return std::max(kStep, (bytes + kStep - 1) / kStep * kStep);
  if (bytes <= kPooledLimit) return kCoarseSizes[class_of(bytes) - kFineClasses];
  // A quarter more than asked for: appending addresses one by one copies a constant share of each.
  return (bytes + bytes / 4 + 15) / 16 * 16;
}

void *take_block_memory(std::uint32_t size) noexcept {
  if (size > kPooledLimit) return ::operator new(size, std::nothrow);
  SizeClass &pool = classes[class_of(size)];
  void *block = pool.free;
  if (block != nullptr) {
    unpoison(block, size);
    pool.free = pool.free->next;
    return block;
  }
  if (static_cast<std::size_t>(pool.fresh_end - pool.fresh) < size) {
    void *chunk = take_chunk(kChunkBytes);
    if (chunk == nullptr) return nullptr;
    pool.fresh = static_cast<std::byte *>(chunk);
    pool.fresh_end = pool.fresh + kChunkBytes;
    poison(chunk, kChunkBytes);
  }
  block = pool.fresh;
  pool.fresh += size;
  unpoison(block, size);
  return block;
}

void give_block_memory(void *block, std::uint32_t size) noexcept {
  if (block == nullptr) return;
  if (size > kPooledLimit) {
    ::operator delete(block);
    return;
  }
  SizeClass &pool = classes[class_of(size)];
  pool.free = ::new (block) FreeBlock{pool.free};
  poison(block, size);
}

}  // namespace kivo_platform
