// Slabs and the chunks that are cut from them; see slabs.h.
// Threads: none; the process serialises all calls.
#include "slabs.h"

#include <algorithm>
#include <array>
#include <new>

#include "pages.h"

namespace kivo_platform {
namespace {

constexpr std::size_t kSmallestSlab = std::size_t{64} << 10;
constexpr std::size_t kLargestSlab = std::size_t{2} << 20;

// In front of a chunk that waits.
struct FreeChunk {
  FreeChunk *next;
  std::size_t bytes;
};

class Slabs {
 public:
  void *take(std::size_t bytes) noexcept {
    if (void *chunk = take_waiting(bytes); chunk != nullptr) return chunk;
    if (static_cast<std::size_t>(end_ - fresh_) < bytes && !open_slab(bytes)) return nullptr;
    void *chunk = fresh_;
    fresh_ += bytes;
    return chunk;
  }

  void give(void *chunk, std::size_t bytes) noexcept {
    waiting_ = ::new (chunk) FreeChunk{waiting_, bytes};
  }

 private:
  // Chunks come back when an index could not be built; there are few and they are soon used up.
  void *take_waiting(std::size_t bytes) noexcept {
    for (FreeChunk **link = &waiting_; *link != nullptr; link = &(*link)->next) {
      if ((*link)->bytes != bytes) continue;
      FreeChunk *chunk = *link;
      *link = chunk->next;
      return chunk;
    }
    return nullptr;
  }

  // As large as all slabs so far, or what the system still has. What is left of the last one stays
  // unused: less than a chunk, and nothing where all chunks have one size.
  bool open_slab(std::size_t least) noexcept {
    for (std::size_t size = std::clamp(total_, kSmallestSlab, kLargestSlab);; size /= 2) {
      if (size < least) return false;
      void *slab = take_pages(size, kChunkAlignment);
      if (slab == nullptr) continue;
      fresh_ = static_cast<std::byte *>(slab);
      end_ = fresh_ + size;
      total_ += size;
      return true;
    }
  }

  FreeChunk *waiting_ = nullptr;
  std::byte *fresh_ = nullptr;
  std::byte *end_ = nullptr;
  std::size_t total_ = 0;
};

// Large chunks have slabs of their own: beside small ones they would leave more unused.
constinit std::array<Slabs, 2> slabs;

Slabs &slabs_for(std::size_t bytes) noexcept { return slabs[bytes < kSmallestSlab ? 0 : 1]; }

}  // namespace

void *take_chunk(std::size_t bytes) noexcept { return slabs_for(bytes).take(bytes); }
void give_chunk(void *chunk, std::size_t bytes) noexcept { slabs_for(bytes).give(chunk, bytes); }

}  // namespace kivo_platform
