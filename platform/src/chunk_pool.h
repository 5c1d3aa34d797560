// Fixed-size block pool: slabs of a power-of-two size, aligned to it, so that the slab of a block
// is found by masking its address. Serves chunk.h directly and the classes of a variable pool.
// Layout of a slab: header, bitmap of live blocks, elements. With 64-byte elements the first 256
// bits of the map fit the 64-byte header: 255 elements and their header are exactly 16 KiB.
// Invariants: (1) a released block keeps its first 8 bytes, the link of the free list is behind
// them; (2) a bit is set while its block is out; (3) slabs and pools live as long as the process.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/chunk.h"

namespace kivo_platform {

// A slab's header. The bitmap begins in live[] and runs on behind the header when there are more
// than 256 elements.
struct alignas(64) Slab {
  chunk_pool *pool;
  Slab *older;
  std::uint32_t n_elements;
  std::uint32_t reserved32;
  std::uint64_t reserved64;
  std::uint64_t live[4];
};
static_assert(sizeof(Slab) == 64 && offsetof(Slab, live) == 32);

// No slab is larger; variable pools make all of theirs of this size.
constexpr std::uint32_t kSlabBytesMax = 256 * 1024;

// Asked before a slab of a variable pool is put to use; false refuses the slab.
using slab_admission = bool (*)(void *arg, const Slab *slab);

struct pool_options {
  const char *name = nullptr;
  std::uint32_t size = 0;
  std::uint32_t per_slab = 0;
  std::uint32_t flags = 0;
  std::uint32_t slab_bytes_min = 0;  // a power of two up to kSlabBytesMax, or 0
  slab_admission admit = nullptr;
  void *admit_arg = nullptr;
  void *owner = nullptr;  // see pool_owner()
};

// Twins of chunk_create(), chunk_malloc() and chunk_free(), with what a variable pool needs
// besides.
chunk_pool *pool_create(const pool_options &options) noexcept;
void *pool_take(chunk_pool *pool) noexcept;
void pool_give_back(chunk_pool *pool, void *block) noexcept;
void *pool_owner(const chunk_pool *pool) noexcept;

// Undoes the creation of a pool that never gave out a block; null is accepted.
void pool_discard(chunk_pool *pool) noexcept;

// Whether pool_create() takes this size and count.
bool pool_accepts(std::uint32_t size, std::uint32_t per_slab) noexcept;

}  // namespace kivo_platform
