// Chunk pools of one element size; see chunk_pool.h for the layout of a slab and the invariants.
// Slabs are cut from arenas that double in size, so that a million blocks are some twenty requests
// to the system. Blocks of a fresh slab are handed out in ascending order without touching memory
// ahead; released ones go first, the last one released at the head.
// Threads: none; the process serialises all calls.
#include "platform/chunk.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "chunk_pool.h"
#include "internal.h"
#include "pages.h"

struct chunk_pool {
  char *free_head;   // released blocks, linked at kLinkOffset
  char *fresh_next;  // blocks of the newest slab that were never out
  char *fresh_end;
  uint64_t n_live;
  uint32_t size;          // of an element, rounded up
  uint32_t size_shift;    // when the size is a power of two, else 0
  uint32_t slab_bytes;    // a power of two
  uint32_t first_offset;  // of a slab's first element

  uint32_t slab_capacity;  // elements that fit a slab
  uint64_t n_made;         // elements in all slabs
  uint64_t n_limit;        // elements that the pool may have
  kivo_platform::Slab *newest;
  char *arena_next;  // of the newest arena, what was not cut yet
  char *arena_end;
  uint32_t next_arena_slabs;
  kivo_platform::pool_options options;
  chunk_pool *older;
};

namespace kivo_platform {
namespace {

constexpr std::uint32_t kFlagMayGrow = 1U << 0;
constexpr std::uint32_t kFlagLineAligned = 1U << 4;
constexpr std::uint32_t kSizeMax = 65'536;
constexpr std::uint32_t kPerSlabMax = 65'535;
constexpr std::uint32_t kSlabBytesMin = 4096;
constexpr std::uint32_t kArenaBytesMax = 4 * 1024 * 1024;
constexpr std::uint32_t kLinkOffset = 8;
constexpr std::uint32_t kNumberBadBlock = 10;

// Keeps every pool, and through it every slab, in reach of debuggers and leak checkers.
constinit chunk_pool *g_newest_pool = nullptr;

std::uint32_t round_up(std::uint32_t value, std::uint32_t step) noexcept {
  return (value + step - 1) / step * step;
}

std::uint32_t header_bytes(std::uint32_t n_elements) noexcept {
  const auto map_offset = static_cast<std::uint32_t>(offsetof(Slab, live));
  return std::max(round_up(map_offset + round_up(n_elements, 64) / 8, 64), 64U);
}

std::uint32_t capacity_of(std::uint32_t slab_bytes, std::uint32_t size) noexcept {
  std::uint32_t n = (slab_bytes - header_bytes(1)) / size;
  while (header_bytes(n) + n * size > slab_bytes) --n;
  return n;
}

void choose_slab(chunk_pool &pool, const pool_options &options) noexcept {
  pool.slab_bytes = std::max(kSlabBytesMin, options.slab_bytes_min);
  while (pool.slab_bytes < kSlabBytesMax &&
         (pool.slab_bytes < 2 * pool.size ||
          capacity_of(pool.slab_bytes, pool.size) < options.per_slab)) {
    pool.slab_bytes *= 2;
  }
  pool.slab_capacity = capacity_of(pool.slab_bytes, pool.size);
  pool.first_offset = header_bytes(pool.slab_capacity);
}

bool take_arena(chunk_pool &pool) noexcept {
  const std::uint64_t n_needed =
      (pool.n_limit - pool.n_made + pool.slab_capacity - 1) / pool.slab_capacity;
  const std::uint64_t n_slabs = std::min<std::uint64_t>(pool.next_arena_slabs, n_needed);
  const std::size_t bytes = n_slabs * pool.slab_bytes;
  void *memory = take_pages(bytes, pool.slab_bytes);
  if (memory == nullptr) return false;
  pool.arena_next = static_cast<char *>(memory);
  pool.arena_end = pool.arena_next + bytes;
  pool.next_arena_slabs =
      std::min(pool.next_arena_slabs * 2, std::max(kArenaBytesMax / pool.slab_bytes, 1U));
  return true;
}

// Puts another slab to use; on failure nothing changes, except that an arena may lie ready.
bool grow(chunk_pool &pool) noexcept {
  if (pool.n_made >= pool.n_limit) return false;
  if (pool.arena_next == pool.arena_end && !take_arena(pool)) return false;
  char *memory = pool.arena_next;
  const auto n_elements = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(pool.slab_capacity, pool.n_limit - pool.n_made));
  auto *slab = ::new (memory) Slab{&pool, pool.newest, n_elements, 0, 0, {}};
  std::memset(memory + sizeof(Slab), 0, pool.first_offset - sizeof(Slab));
  if (pool.options.admit != nullptr && !pool.options.admit(pool.options.admit_arg, slab)) {
    return false;
  }
  pool.arena_next += pool.slab_bytes;
  pool.newest = slab;
  pool.n_made += n_elements;
  pool.fresh_next = memory + pool.first_offset;
  pool.fresh_end = pool.fresh_next + std::size_t{n_elements} * pool.size;
  return true;
}

[[noreturn]] void stop_for_block(const chunk_pool *pool, const void *block,
                                 const char *condition) noexcept {
  trace(TRACE_MODULE_PLATFORM, 0, kNumberBadBlock, "chunk pool \"%s\": bad block %p",
        pool == nullptr ? "(null)" : pool->options.name, block);
  stop(condition, __FILE__, __LINE__);
}

Slab *slab_of(const chunk_pool &pool, const char *block) noexcept {
  const auto offset = reinterpret_cast<std::uintptr_t>(block) & (pool.slab_bytes - 1);
  return reinterpret_cast<Slab *>(const_cast<char *>(block) - offset);
}

// A block's bit in the map of live blocks.
struct LiveBit {
  std::uint64_t *word;
  std::uint64_t mask;
};

LiveBit live_bit(Slab *slab, std::uint32_t element) noexcept {
  char *map = reinterpret_cast<char *>(slab) + offsetof(Slab, live);
  return {reinterpret_cast<std::uint64_t *>(map) + element / 64, std::uint64_t{1} << element % 64};
}

// The number of the element that lies at this offset behind the slab's first one.
std::uint32_t element_at(const chunk_pool &pool, std::uint32_t offset) noexcept {
  return pool.size_shift != 0 ? offset >> pool.size_shift : offset / pool.size;
}

LiveBit live_bit_of(const chunk_pool *pool, const void *block) noexcept {
  const char *address = static_cast<const char *>(block);
  Slab *slab = slab_of(*pool, address);
  if (slab->pool != pool) stop_for_block(pool, block, "chunk pool: the block is of this pool");
  const auto offset = static_cast<std::uint32_t>(address - reinterpret_cast<char *>(slab));
  const std::uint32_t element = element_at(*pool, offset - pool->first_offset);
  if (offset < pool->first_offset || element >= slab->n_elements ||
      pool->first_offset + element * pool->size != offset) {
    stop_for_block(pool, block, "chunk pool: the address is that of a block");
  }
  return live_bit(slab, element);
}

}  // namespace

bool pool_accepts(std::uint32_t size, std::uint32_t per_slab) noexcept {
  return size != 0 && size <= kSizeMax && per_slab != 0 && per_slab <= kPerSlabMax;
}

chunk_pool *pool_create(const pool_options &options) noexcept {
  if (!pool_accepts(options.size, options.per_slab)) return nullptr;
  void *memory = ::operator new(sizeof(chunk_pool), std::nothrow);
  if (memory == nullptr) return nullptr;
  auto *pool = ::new (memory) chunk_pool{};
  pool->options = options;
  if (options.name == nullptr) pool->options.name = "unnamed";
  pool->size = round_up(options.size, (options.flags & kFlagLineAligned) != 0 ? 64 : 16);
  if (std::has_single_bit(pool->size)) {
    pool->size_shift = static_cast<std::uint32_t>(std::countr_zero(pool->size));
  }
  choose_slab(*pool, options);
  pool->n_limit = (options.flags & kFlagMayGrow) != 0 ? UINT64_MAX / 2 : options.per_slab;
  pool->next_arena_slabs = 1;
  pool->older = g_newest_pool;
  g_newest_pool = pool;
  return pool;
}

void *pool_take(chunk_pool *pool) noexcept {
  if (pool == nullptr) return nullptr;
  char *block = pool->free_head;
  if (block == nullptr) {
    if (pool->fresh_next == pool->fresh_end && !grow(*pool)) return nullptr;
    block = pool->fresh_next;
  }
  const LiveBit bit = live_bit_of(pool, block);
  if ((*bit.word & bit.mask) != 0) {
    stop_for_block(pool, block, "chunk pool: the free list is intact");
  }
  *bit.word |= bit.mask;
  if (block == pool->free_head) {
    std::memcpy(&pool->free_head, block + kLinkOffset, sizeof pool->free_head);
  } else {
    pool->fresh_next += pool->size;
  }
  ++pool->n_live;
  return block;
}

void pool_give_back(chunk_pool *pool, void *block) noexcept {
  if (block == nullptr) return;
  if (pool == nullptr) stop_for_block(pool, block, "chunk pool: there is a pool");
  const LiveBit bit = live_bit_of(pool, block);
  if ((*bit.word & bit.mask) == 0) stop_for_block(pool, block, "chunk pool: the block is out");
  *bit.word &= ~bit.mask;
  char *released = static_cast<char *>(block);
  std::memcpy(released + kLinkOffset, &pool->free_head, sizeof pool->free_head);
  pool->free_head = released;
  --pool->n_live;
}

void pool_discard(chunk_pool *pool) noexcept {
  if (pool == nullptr) return;
  chunk_pool **link = &g_newest_pool;
  while (*link != pool) link = &(*link)->older;
  *link = pool->older;
  ::operator delete(static_cast<void *>(pool));
}

void *pool_owner(const chunk_pool *pool) noexcept { return pool->options.owner; }

}  // namespace kivo_platform

chunk_pool *chunk_create(const char *name, uint32_t size, uint32_t per_slab, uint32_t flags,
                         uint32_t, uint32_t) noexcept {
  return kivo_platform::pool_create(
      {.name = name, .size = size, .per_slab = per_slab, .flags = flags});
}

void *chunk_malloc(chunk_pool *pool) noexcept { return kivo_platform::pool_take(pool); }

void chunk_free(chunk_pool *pool, void *block) noexcept {
  kivo_platform::pool_give_back(pool, block);
}

uint64_t chunk_live_blocks(const chunk_pool *pool) noexcept {
  return pool == nullptr ? 0 : pool->n_live;
}
