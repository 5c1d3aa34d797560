// Named allocator: general memory with a 16-byte header in front of every block, counted under the
// call site that took it. The smallest of the memory services; chunk pools count through it too.
// Invariants: (1) a site is in the list of sites from its first block on; (2) the totals are the
// sums over the list; (3) a block's header carries kLive from taking to giving back and never else.
// Threads: none; the process serialises all calls.
#include "platform/named_alloc.h"

#include <cstring>
#include <new>

#include "internal.h"

namespace kivo_platform {
namespace {

// The word behind the site holds the size in its low 48 bits and the state of the block above.
struct Header {
  named_site *site;
  std::uint64_t state_and_size;
};
static_assert(sizeof(Header) == 16 && alignof(std::max_align_t) <= 16);

constexpr unsigned kSizeBits = 48;
constexpr std::uint64_t kSizeMask = (std::uint64_t{1} << kSizeBits) - 1;
constexpr std::uint64_t kLive = std::uint64_t{0x6e61} << kSizeBits;
constexpr std::uint64_t kDead = std::uint64_t{0x64ed} << kSizeBits;

struct Sites {
  named_site *first;
  named_site *last;
  std::uint64_t live_blocks;
  std::uint64_t live_bytes;
};
constinit Sites g_sites{};
constinit named_site g_unnamed = NAMED_SITE("unnamed", 0);

void enrol(named_site *site) noexcept {
  if (site->enrolled != 0) return;
  site->enrolled = 1;
  site->next = nullptr;
  (g_sites.last == nullptr ? g_sites.first : g_sites.last->next) = site;
  g_sites.last = site;
}

Header *header_of(void *block) noexcept { return static_cast<Header *>(block) - 1; }

}  // namespace

void count_taken(named_site *site, std::uint64_t bytes) noexcept {
  enrol(site);
  ++site->live_blocks;
  ++site->total_blocks;
  site->live_bytes += bytes;
  ++g_sites.live_blocks;
  g_sites.live_bytes += bytes;
}

void count_released(named_site *site, std::uint64_t bytes) noexcept {
  --site->live_blocks;
  site->live_bytes -= bytes;
  --g_sites.live_blocks;
  g_sites.live_bytes -= bytes;
}

void *alloc(named_site *site, std::size_t size) noexcept {
  if (size > kSizeMask) return nullptr;
  void *memory = ::operator new(sizeof(Header) + size, std::nothrow);
  if (memory == nullptr) return nullptr;
  auto *header = ::new (memory) Header{site == nullptr ? &g_unnamed : site, kLive | size};
  count_taken(header->site, size);
  return header + 1;
}

void *zalloc(named_site *site, std::size_t size) noexcept {
  void *block = alloc(site, size);
  if (block != nullptr) std::memset(block, 0, size);
  return block;
}

const named_site *site_of(const void *block) noexcept {
  Header header;
  std::memcpy(&header, static_cast<const char *>(block) - sizeof header, sizeof header);
  return (header.state_and_size & ~kSizeMask) == kLive ? header.site : nullptr;
}

void release(void *block) noexcept {
  if (block == nullptr) return;
  if (site_of(block) == nullptr) stop("named_free: the block is live", __FILE__, __LINE__);
  Header *header = header_of(block);
  count_released(header->site, header->state_and_size & kSizeMask);
  // Volatile, or the compiler drops a write to memory that is released next.
  volatile std::uint64_t *state = &header->state_and_size;
  *state = kDead;
  ::operator delete(header);
}

}  // namespace kivo_platform

void *named_zalloc(named_site *site, size_t size) noexcept {
  return kivo_platform::zalloc(site, size);
}

void *named_alloc(named_site *site, size_t size) noexcept {
  return kivo_platform::alloc(site, size);
}

void named_free(void *block) noexcept { kivo_platform::release(block); }

uint64_t named_live_blocks(void) noexcept { return kivo_platform::g_sites.live_blocks; }

uint64_t named_live_bytes(void) noexcept { return kivo_platform::g_sites.live_bytes; }

void named_walk_sites(void (*fn)(const named_site *site, void *arg), void *arg) noexcept {
  for (const named_site *site = kivo_platform::g_sites.first; site != nullptr; site = site->next) {
    fn(site, arg);
  }
}
