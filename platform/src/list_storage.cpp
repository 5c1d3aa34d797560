// ListStorage: its chunks, and the store of freed storages.
// Threads: none; the process serialises all calls.
#include "list_storage.h"

#include <algorithm>
#include <array>
#include <new>

namespace kivo_platform {
namespace {

constexpr std::uint32_t kStorageBytes = 1024;
constexpr std::uint32_t kFirstCapacity = kStorageBytes - std::uint32_t{sizeof(ListStorage)};
constexpr std::uint32_t kLargestStep = 16 * 1024;
constexpr std::uint32_t kKeptStorages = 32;

constinit std::array<ListStorage *, kKeptStorages> kept{};
constinit std::uint32_t kept_count = 0;

// Chunks double up to kLargestStep; a larger value gets a chunk of its own size.
ListChunk *new_chunk(std::uint32_t capacity_before, std::uint32_t needed) noexcept {
  const std::uint32_t capacity = std::max(std::min(capacity_before * 2, kLargestStep), needed);
  void *memory = ::operator new(sizeof(ListChunk) + capacity, std::nothrow);
  return memory != nullptr ? ::new (memory) ListChunk{nullptr, 0, capacity} : nullptr;
}

}  // namespace

ListStorage *new_list_storage() noexcept {
  void *memory = kept_count != 0 ? kept[--kept_count] : ::operator new(kStorageBytes, std::nothrow);
  if (memory == nullptr) return nullptr;
  auto *storage = ::new (memory) ListStorage{1, 0, nullptr, {nullptr, 0, kFirstCapacity}};
  storage->last = &storage->first;
  return storage;
}

void unpin_list_storage(ListStorage *storage) noexcept {
  if (--storage->pins != 0) return;
  for (ListChunk *chunk = storage->first.next; chunk != nullptr;) {
    ListChunk *next = chunk->next;
    ::operator delete(chunk);
    chunk = next;
  }
  if (kept_count < kKeptStorages) {
    kept[kept_count++] = storage;
  } else {
    ::operator delete(storage);
  }
}

bool add_list_chunk(ListStorage &storage, std::uint32_t needed) noexcept {
  ListChunk *fresh = new_chunk(storage.last->capacity, needed);
  if (fresh == nullptr) return false;
  storage.last = storage.last->next = fresh;
  return true;
}

}  // namespace kivo_platform
