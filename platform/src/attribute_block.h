// The attributes of one session, packed: header, a directory of {type, size} in the order of
// adding, and the value bytes behind it in the same order. Pure data, under the attribute context;
// knows no record, no index and no kind. A session without attributes has no block.
// Invariants: (1) a type occurs once; (2) used covers header, directory and values; (3) writes are
// prepared, which may fail and changes nothing, and then committed, which cannot fail.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kivo_platform {

// Bytes of a value; not text.
using Bytes = std::string_view;

inline Bytes as_bytes(const void *data, std::uint32_t size) noexcept {
  return {data != nullptr ? static_cast<const char *>(data) : "", size};
}

struct AttributeEntry {
  std::uint16_t type;
  std::uint16_t size;
};

struct AttributeBlock {
  std::uint32_t capacity;  // bytes, all told
  std::uint32_t used;
  std::uint16_t count;  // of directory entries
  std::uint16_t reserved;

  AttributeEntry *directory() noexcept { return reinterpret_cast<AttributeEntry *>(this + 1); }
  const AttributeEntry *directory() const noexcept {
    return reinterpret_cast<const AttributeEntry *>(this + 1);
  }
  char *values() noexcept { return reinterpret_cast<char *>(directory() + count); }
  const char *values() const noexcept {
    return reinterpret_cast<const char *>(directory() + count);
  }
  char *end() noexcept { return reinterpret_cast<char *>(this) + used; }
  const char *end() const noexcept { return reinterpret_cast<const char *>(this) + used; }
};
static_assert(sizeof(AttributeBlock) == 12);

// Where a type's value lies; bytes is empty and index is the count when the type is absent.
struct StoredValue {
  bool found = false;
  std::uint32_t index = 0;
  Bytes bytes;
};

// block may be null.
StoredValue find_value(const AttributeBlock *block, std::uint32_t type) noexcept;

// Calls fn(type, bytes) for every attribute in the order of the directory, while fn returns true.
// Returns whether it always did. fn must not write to the block.
template <typename Fn>
bool for_each_value(const AttributeBlock *block, Fn &&fn) noexcept {
  if (block == nullptr) return true;
  const char *value = block->values();
  for (std::uint32_t i = 0; i < block->count; ++i) {
    const AttributeEntry entry = block->directory()[i];
    if (!fn(std::uint32_t{entry.type}, Bytes{value, entry.size})) return false;
    value += entry.size;
  }
  return true;
}

// One pending write: the value of a type becomes the first `keep` bytes of the old one and `tail`.
// The tail may lie in the same block. A write that is not committed changes nothing.
class BlockWrite {
 public:
  // keep is not above the size of the old value, keep and tail together not above 65,535.
  BlockWrite(AttributeBlock *&block, std::uint32_t type, std::uint32_t keep, Bytes tail) noexcept;
  ~BlockWrite();
  BlockWrite(const BlockWrite &) = delete;
  BlockWrite &operator=(const BlockWrite &) = delete;

  [[nodiscard]] bool prepare() noexcept;
  void commit() noexcept;

  const StoredValue &old_value() const noexcept { return old_; }

 private:
  bool tail_lies_in_block() const noexcept;
  void build_fresh() noexcept;
  void write_in_place() noexcept;

  AttributeBlock *&block_;
  AttributeBlock *fresh_ = nullptr;  // complete, takes the block's place at the commit
  StoredValue old_;
  std::uint32_t type_;
  std::uint32_t keep_;
  std::uint32_t new_size_;
  Bytes tail_;
};

// Removes `size` bytes at `offset` of a stored value that keeps at least one byte.
void cut_value(AttributeBlock *&block, const StoredValue &value, std::uint32_t offset,
               std::uint32_t size) noexcept;

// Removes an attribute; the last one takes the block with it.
void erase_value(AttributeBlock *&block, const StoredValue &value) noexcept;

void free_block(AttributeBlock *&block) noexcept;

}  // namespace kivo_platform
