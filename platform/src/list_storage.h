// What an attribute list holds: its values in chained chunks, so that none ever moves. Under the
// list handles and the cursors of attribute_list.cpp, which share a storage by count.
// Invariants: (1) a chunk in front of the last one is full for good; (2) values are aligned to 8
// bytes; (3) append() either adds the whole attribute or changes nothing.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>
#include <new>

#include "stored_attributes.h"

namespace kivo_platform {

struct ListChunk {
  ListChunk *next;
  std::uint32_t used;      // bytes of attributes behind this header
  std::uint32_t capacity;  // bytes behind this header

  char *bytes() noexcept { return reinterpret_cast<char *>(this + 1); }
};

// In front of each value.
struct ListAttribute {
  std::uint32_t type;
  std::uint32_t size;

  // Of an attribute with a value of this size.
  static constexpr std::uint32_t bytes_for(std::uint32_t size) noexcept {
    return static_cast<std::uint32_t>(sizeof(ListAttribute)) + ((size + 7) & ~UINT32_C(7));
  }
  char *value() noexcept { return reinterpret_cast<char *>(this + 1); }
  const char *value() const noexcept { return reinterpret_cast<const char *>(this + 1); }
};

// The first chunk lies behind the storage in the same allocation: a small list takes one.
struct ListStorage {
  std::uint32_t pins;   // the list, while it lives, and each cursor
  std::uint32_t count;  // of attributes
  ListChunk *last;
  ListChunk first;
};

// Walks the attributes that a storage held when the walk began.
class ListWalk {
 public:
  explicit ListWalk(ListStorage &storage) noexcept
      : chunk_(&storage.first), remaining_(storage.count) {}

  // The next attribute, null at the end.
  ListAttribute *next() noexcept {
    if (remaining_ == 0) return nullptr;
    --remaining_;
    while (offset_ == chunk_->used) {
      chunk_ = chunk_->next;
      offset_ = 0;
    }
    auto *attribute = reinterpret_cast<ListAttribute *>(chunk_->bytes() + offset_);
    offset_ += ListAttribute::bytes_for(attribute->size);
    return attribute;
  }

 private:
  ListChunk *chunk_;
  std::uint32_t offset_ = 0;
  std::uint32_t remaining_;
};

// An empty storage with one pin; null without memory. A few freed ones are kept for reuse.
ListStorage *new_list_storage() noexcept;
void unpin_list_storage(ListStorage *storage) noexcept;

// Adds a chunk with room for so many bytes of attributes; false without memory.
[[nodiscard]] bool add_list_chunk(ListStorage &storage, std::uint32_t needed) noexcept;

[[nodiscard]] inline bool append(ListStorage &storage, std::uint32_t type, Bytes value) noexcept {
  const auto size = static_cast<std::uint32_t>(value.size());
  const std::uint32_t needed = ListAttribute::bytes_for(size);
  if (storage.last->capacity - storage.last->used < needed && !add_list_chunk(storage, needed)) {
    return false;
  }
  ListChunk &chunk = *storage.last;
  auto *attribute = ::new (chunk.bytes() + chunk.used) ListAttribute{type, size};
  copy_bytes(attribute->value(), value);
  chunk.used += needed;
  ++storage.count;
  return true;
}

}  // namespace kivo_platform
