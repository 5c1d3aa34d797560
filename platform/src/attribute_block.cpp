// AttributeBlock: look-up, the two halves of a write, and removal.
// Threads: none; the process serialises all calls.
#include "attribute_block.h"

#include <cstring>
#include <functional>
#include <new>

#include "block_memory.h"

namespace kivo_platform {
namespace {

// A block that would be filled to a quarter or less goes into a smaller one, if there is memory:
// one oversized value must not cost its session that much for good.
bool too_large(std::uint32_t capacity, std::uint32_t used) noexcept {
  return capacity > 256 && used <= capacity / 4;
}

AttributeBlock *new_block(std::uint32_t used) noexcept {
  const std::uint32_t capacity = block_memory_size(used);
  void *memory = take_block_memory(capacity);
  if (memory == nullptr) return nullptr;
  return ::new (memory) AttributeBlock{capacity, used, 0, 0};
}

void shrink_to_fit(AttributeBlock *&block) noexcept {
  if (!too_large(block->capacity, block->used)) return;
  AttributeBlock *smaller = new_block(block->used);
  if (smaller == nullptr) return;
  const std::uint32_t capacity = smaller->capacity;
  std::memcpy(static_cast<void *>(smaller), block, block->used);
  smaller->capacity = capacity;
  free_block(block);
  block = smaller;
}

char *put(char *to, Bytes bytes) noexcept {
  if (!bytes.empty()) std::memmove(to, bytes.data(), bytes.size());
  return to + bytes.size();
}

Bytes range(const char *from, const char *to) noexcept {
  return {from, static_cast<std::size_t>(to - from)};
}

}  // namespace

StoredValue find_value(const AttributeBlock *block, std::uint32_t type) noexcept {
  if (block == nullptr) return {};
  const AttributeEntry *directory = block->directory();
  std::uint32_t offset = 0;
  for (std::uint32_t i = 0; i < block->count; ++i) {
    if (directory[i].type == type) {
      return {true, i, Bytes{block->values() + offset, directory[i].size}};
    }
    offset += directory[i].size;
  }
  return {false, block->count, Bytes{block->end(), 0}};
}

BlockWrite::BlockWrite(AttributeBlock *&block, std::uint32_t type, std::uint32_t keep,
                       Bytes tail) noexcept
    : block_(block),
      old_(find_value(block, type)),
      type_(type),
      keep_(keep),
      new_size_(keep + static_cast<std::uint32_t>(tail.size())),
      tail_(tail) {}

BlockWrite::~BlockWrite() { free_block(fresh_); }

bool BlockWrite::prepare() noexcept {
  const std::uint32_t old_used =
      block_ != nullptr ? block_->used : std::uint32_t{sizeof(AttributeBlock)};
  const std::uint32_t used = old_used - static_cast<std::uint32_t>(old_.bytes.size()) + new_size_ +
                             (old_.found ? 0 : std::uint32_t{sizeof(AttributeEntry)});
  const bool same_place = old_.found && old_.bytes.size() == new_size_;
  const bool must_move =
      block_ == nullptr || used > block_->capacity || (!same_place && tail_lies_in_block());
  if (!must_move && !too_large(block_->capacity, used)) return true;

  fresh_ = new_block(used);
  if (fresh_ == nullptr) return !must_move;
  build_fresh();
  return true;
}

void BlockWrite::commit() noexcept {
  if (fresh_ == nullptr) {
    write_in_place();
    return;
  }
  free_block(block_);
  block_ = fresh_;
  fresh_ = nullptr;
}

bool BlockWrite::tail_lies_in_block() const noexcept {
  const char *first = reinterpret_cast<const char *>(block_);
  return std::less_equal<>()(first, tail_.data()) &&
         std::less<>()(tail_.data(), first + block_->capacity);
}

void BlockWrite::build_fresh() noexcept {
  AttributeEntry *directory = fresh_->directory();
  Bytes before;
  Bytes after;
  if (block_ != nullptr) {
    std::memcpy(directory, block_->directory(), block_->count * sizeof(AttributeEntry));
    before = range(block_->values(), old_.bytes.data());
    after = range(old_.bytes.data() + old_.bytes.size(), block_->end());
    fresh_->count = block_->count;
  }
  if (!old_.found) ++fresh_->count;
  directory[old_.index] = {static_cast<std::uint16_t>(type_),
                           static_cast<std::uint16_t>(new_size_)};
  char *to = put(fresh_->values(), before);
  to = put(to, old_.bytes.substr(0, keep_));
  to = put(to, tail_);
  put(to, after);
}

void BlockWrite::write_in_place() noexcept {
  if (!old_.found) {
    // The directory's new entry takes the first bytes of the values, which move up by its size.
    const Bytes values = range(block_->values(), block_->end());
    put(block_->values() + sizeof(AttributeEntry), values);
    block_->directory()[block_->count++] = {static_cast<std::uint16_t>(type_),
                                            static_cast<std::uint16_t>(new_size_)};
    block_->used += std::uint32_t{sizeof(AttributeEntry)};
    put(block_->end(), tail_);
    block_->used += new_size_;
    return;
  }
  char *value = block_->values() + (old_.bytes.data() - block_->values());
  const Bytes after = range(value + old_.bytes.size(), block_->end());
  if (new_size_ != old_.bytes.size()) put(value + new_size_, after);
  put(value + keep_, tail_);
  block_->directory()[old_.index].size = static_cast<std::uint16_t>(new_size_);
  block_->used = block_->used - static_cast<std::uint32_t>(old_.bytes.size()) + new_size_;
}

void cut_value(AttributeBlock *&block, const StoredValue &value, std::uint32_t offset,
               std::uint32_t size) noexcept {
  char *hole = block->values() + (value.bytes.data() - block->values()) + offset;
  put(hole, range(hole + size, block->end()));
  AttributeEntry &entry = block->directory()[value.index];
  entry.size = static_cast<std::uint16_t>(entry.size - size);
  block->used -= size;
  shrink_to_fit(block);
}

void erase_value(AttributeBlock *&block, const StoredValue &value) noexcept {
  if (block->count == 1) {
    free_block(block);
    return;
  }
  const Bytes after = range(value.bytes.data() + value.bytes.size(), block->end());
  const Bytes before = range(block->values(), value.bytes.data());
  AttributeEntry *entry = block->directory() + value.index;
  std::memmove(entry, entry + 1, (block->count - value.index - 1) * sizeof(AttributeEntry));
  --block->count;
  // The values begin one directory entry earlier now.
  put(put(block->values(), before), after);
  block->used -= static_cast<std::uint32_t>(sizeof(AttributeEntry) + value.bytes.size());
  shrink_to_fit(block);
}

void free_block(AttributeBlock *&block) noexcept {
  if (block == nullptr) return;
  give_block_memory(block, block->capacity);
  block = nullptr;
}

}  // namespace kivo_platform
