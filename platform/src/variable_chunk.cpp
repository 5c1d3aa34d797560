// Variable pools: a chunk pool for each size class, and general memory behind them. All slabs of a
// variable pool have one size; the addresses of its slabs are kept in a set, so that giving a block
// back finds its class by masking and one look-up, and a block of general memory by the miss.
// Invariants: (1) a slab in use is in the set; (2) each class is a call site of the named
// allocator, whose counts are the class's blocks (fixed classes count the element size).
// Threads: none; the process serialises all calls.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "chunk_pool.h"
#include "internal.h"
#include "pages.h"
#include "platform/chunk.h"

namespace kivo_platform {
namespace {

constexpr std::uint32_t kClassesMax = 16;
constexpr std::uint32_t kNumberBadBlock = 11;

// Set of slab addresses, open addressing, at most half full. Slabs never go away, so nothing is
// removed.
class SlabSet {
 public:
  bool insert(const Slab *slab) noexcept {
    if (2 * (n_used_ + 1) > n_places_ && !grow()) return false;
    places_[place_of(slab)] = slab;
    ++n_used_;
    return true;
  }

  bool contains(const Slab *slab) const noexcept {
    return n_places_ != 0 && places_[place_of(slab)] == slab;
  }

 private:
  // The slab's place, or the free one where it would go.
  std::size_t place_of(const Slab *slab) const noexcept {
    const std::uint64_t number = reinterpret_cast<std::uintptr_t>(slab) / kSlabBytesMax;
    std::size_t place = (number * 0x9e3779b97f4a7c15U >> 32) & (n_places_ - 1);
    while (places_[place] != nullptr && places_[place] != slab) {
      place = (place + 1) & (n_places_ - 1);
    }
    return place;
  }

  bool grow() noexcept {
    const std::size_t n_places = std::max<std::size_t>(16, n_places_ * 2);
    PageArray<const Slab *> places = make_page_array<const Slab *>(n_places);
    if (places == nullptr) return false;
    const PageArray<const Slab *> old = std::exchange(places_, std::move(places));
    const std::size_t n_old = n_places_;
    n_places_ = n_places;
    for (std::size_t i = 0; i < n_old; ++i) {
      if (old[i] != nullptr) places_[place_of(old[i])] = old[i];
    }
    return true;
  }

  PageArray<const Slab *> places_;
  std::size_t n_places_ = 0;
  std::size_t n_used_ = 0;
};

// A fixed class has a pool; the class of general memory, always the last, has none.
struct SizeClass {
  chunk_pool *pool;
  std::uint32_t size;
  named_site site;
};

}  // namespace
}  // namespace kivo_platform

struct variable_chunk_pool {
  uint32_t n_fixed = 0;
  bool has_general = false;
  uint64_t n_live = 0;
  kivo_platform::SlabSet slabs;
  kivo_platform::SizeClass classes[kivo_platform::kClassesMax] = {};
  variable_chunk_pool *older = nullptr;
};

namespace kivo_platform {
namespace {

constinit variable_chunk_pool *g_newest_pool = nullptr;  // keeps every pool in reach

bool are_good(const variable_chunk_class *classes, std::uint32_t n_classes) noexcept {
  if (classes == nullptr || n_classes == 0 || n_classes > kClassesMax) return false;
  for (std::uint32_t i = 0; i < n_classes; ++i) {
    const std::uint32_t size = classes[i].element_size;
    const bool is_last = i + 1 == n_classes;
    if (size == 0 ? !is_last : !pool_accepts(size, classes[i].element_count)) return false;
    if (size != 0 && i != 0 && size <= classes[i - 1].element_size) return false;
  }
  return true;
}

bool admit_slab(void *arg, const Slab *slab) noexcept {
  return static_cast<variable_chunk_pool *>(arg)->slabs.insert(slab);
}

bool make_class(variable_chunk_pool &pool, SizeClass &made, const variable_chunk_class &row,
                variable_chunk_name_to_id name_to_id) noexcept {
  const char *name = row.name == nullptr ? "unnamed" : row.name;
  made.site = NAMED_SITE(name, 0);
  made.size = row.element_size;
  if (row.name != nullptr && name_to_id != nullptr) made.site.tag = name_to_id(row.name);
  if (row.element_size == 0) {
    pool.has_general = true;
    return true;
  }
  made.pool = pool_create({.name = name,
                           .size = row.element_size,
                           .per_slab = row.element_count,
                           .flags = row.flags,
                           .slab_bytes_min = kSlabBytesMax,
                           .admit = admit_slab,
                           .admit_arg = &pool,
                           .owner = &made});
  if (made.pool == nullptr) return false;
  ++pool.n_fixed;
  return true;
}

void *take(variable_chunk_pool *pool, std::size_t size) noexcept {
  void *block = nullptr;
  // A class that is full, or finds no memory for a slab, leaves the request to the next one.
  for (std::uint32_t i = 0; i < pool->n_fixed && block == nullptr; ++i) {
    SizeClass &fixed = pool->classes[i];
    if (size > fixed.size) continue;
    block = pool_take(fixed.pool);
    if (block != nullptr) count_taken(&fixed.site, fixed.size);
  }
  if (block == nullptr && pool->has_general) {
    block = alloc(&pool->classes[pool->n_fixed].site, size);
  }
  if (block != nullptr) ++pool->n_live;
  return block;
}

[[noreturn]] void stop_for_block(const void *block) noexcept {
  trace(TRACE_MODULE_PLATFORM, 0, kNumberBadBlock, "variable chunk pool: bad block %p", block);
  stop("variable chunk pool: the block is of this pool", __FILE__, __LINE__);
}

void give_back(variable_chunk_pool *pool, void *block) noexcept {
  if (pool == nullptr) stop_for_block(block);
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  const auto *slab = reinterpret_cast<const Slab *>(address & ~std::uintptr_t{kSlabBytesMax - 1});
  if (pool->slabs.contains(slab)) {
    auto *fixed = static_cast<SizeClass *>(pool_owner(slab->pool));
    pool_give_back(slab->pool, block);
    count_released(&fixed->site, fixed->size);
  } else {
    const named_site *general = &pool->classes[pool->n_fixed].site;
    if (!pool->has_general || site_of(block) != general) stop_for_block(block);
    release(block);
  }
  --pool->n_live;
}

}  // namespace
}  // namespace kivo_platform

variable_chunk_pool *variable_chunk_create_ext(const variable_chunk_class *classes,
                                               uint32_t n_classes, uint32_t,
                                               variable_chunk_name_to_id name_to_id) noexcept {
  if (!kivo_platform::are_good(classes, n_classes)) return nullptr;
  std::unique_ptr<variable_chunk_pool> pool{new (std::nothrow) variable_chunk_pool};
  if (pool == nullptr) return nullptr;
  for (uint32_t i = 0; i < n_classes; ++i) {
    if (kivo_platform::make_class(*pool, pool->classes[i], classes[i], name_to_id)) continue;
    for (const auto &made : pool->classes) kivo_platform::pool_discard(made.pool);
    return nullptr;
  }
  pool->older = kivo_platform::g_newest_pool;
  kivo_platform::g_newest_pool = pool.get();
  return pool.release();
}

void *variable_chunk_malloc(variable_chunk_pool *pool, size_t size) noexcept {
  return pool == nullptr ? nullptr : kivo_platform::take(pool, size);
}

void variable_chunk_free(variable_chunk_pool *pool, void *block) noexcept {
  if (block != nullptr) kivo_platform::give_back(pool, block);
}

uint64_t variable_chunk_live_blocks(const variable_chunk_pool *pool) noexcept {
  return pool == nullptr ? 0 : pool->n_live;
}
