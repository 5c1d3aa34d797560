// StoredAttributes: changes within a segment, the two halves of a write, and what moves between the
// object and its block.
// Threads: none; the process serialises all calls.
#include "stored_attributes.h"

#include <functional>
#include <new>

#include "block_memory.h"

namespace kivo_platform {

struct AttributeBlock {
  std::uint32_t capacity;  // bytes, all told
  std::uint32_t count;     // of attributes
  std::uint32_t value_bytes;
  std::uint32_t unused;

  Segment segment() noexcept {
    return {reinterpret_cast<char *>(this + 1), capacity - std::uint32_t{sizeof(AttributeBlock)},
            count, value_bytes};
  }
  void update(const Segment &segment) noexcept {
    count = segment.count();
    value_bytes = segment.value_bytes();
  }
};
static_assert(sizeof(AttributeBlock) >= Segment::kSlack);

namespace {

// Attributes that would fill a block to a quarter or less go into a smaller one, if there is
// memory: one oversized value must not cost its session that much for good.
bool too_large(std::uint32_t capacity, std::uint32_t used) noexcept {
  return capacity > 256 && used <= capacity / 4;
}

// An empty block with room for `used` bytes of values and directory.
AttributeBlock *new_block(std::uint32_t used) noexcept {
  const std::uint32_t capacity = block_memory_size(used + std::uint32_t{sizeof(AttributeBlock)});
  void *memory = take_block_memory(capacity);
  return memory != nullptr ? ::new (memory) AttributeBlock{capacity, 0, 0, 0} : nullptr;
}

void free_block(AttributeBlock *block) noexcept {
  if (block != nullptr) give_block_memory(block, block->capacity);
}

void put(char *to, Bytes bytes) noexcept {
  if (!bytes.empty()) std::memmove(to, bytes.data(), bytes.size());
}

}  // namespace

// ---- Within a segment

// Moves what follows an attribute.
void Segment::move_rest(const Item &item, std::uint32_t new_offset) noexcept {
  const std::uint32_t offset = item.offset + item.stored();
  if (offset == new_offset) return;
  std::memmove(bytes_ + new_offset, bytes_ + offset, value_bytes_ - offset);
  value_bytes_ = value_bytes_ - offset + new_offset;
}

void Segment::append(std::uint32_t type, Bytes head, Bytes tail) noexcept {
  char *const value = add(type, static_cast<std::uint32_t>(head.size() + tail.size()));
  put(value, head);
  put(value + head.size(), tail);
}

void Segment::replace(const Item &item, std::uint32_t keep, Bytes tail) noexcept {
  Item changed = item;
  changed.size = keep + static_cast<std::uint32_t>(tail.size());
  char *const value = bytes_ + item.offset + item.prefix();
  char *const new_value = bytes_ + item.offset + changed.prefix();
  const char *const rest = value + item.size;
  if (changed.stored() > item.stored()) {
    // The rest makes room first, and takes along what it has of the tail.
    const std::uint32_t growth = changed.stored() - item.stored();
    const bool moves =
        std::less_equal<>()(rest, tail.data()) && std::less<>()(tail.data(), bytes_ + capacity_);
    move_rest(item, item.offset + changed.stored());
    if (moves) tail = {tail.data() + growth, tail.size()};
    put(new_value, {value, keep});
    put(new_value + keep, tail);
  } else {
    put(new_value, {value, keep});
    put(new_value + keep, tail);
    move_rest(item, item.offset + changed.stored());
  }
  put_size(changed);
}

void Segment::cut(const Item &item, std::uint32_t offset, std::uint32_t size) noexcept {
  const Bytes old = value(item);
  Item changed = item;
  changed.size = item.size - size;
  char *const new_value = bytes_ + item.offset + changed.prefix();
  put(new_value, old.substr(0, offset));
  put(new_value + offset, old.substr(offset + size));
  move_rest(item, item.offset + changed.stored());
  put_size(changed);
}

void Segment::erase(const Item &item) noexcept {
  move_rest(item, item.offset);
  char *const last = bytes_ + capacity_ - kEntryBytes * count_;
  std::memmove(last + kEntryBytes, last, kEntryBytes * (count_ - item.index - 1));
  --count_;
}

// ---- A session's attributes

Segment StoredAttributes::block() const noexcept { return block_->segment(); }

StoredValue StoredAttributes::find_in_block(std::uint32_t type) const noexcept {
  const Segment segment = block();
  const Segment::Item item = segment.find(type);
  return {item.type != 0, true, item, segment.value(item)};
}

void StoredAttributes::update(bool in_block, const Segment &segment) noexcept {
  if (in_block) {
    block_->update(segment);
  } else {
    update_inside(segment);
  }
}

void StoredAttributes::cut(const StoredValue &value, std::uint32_t offset,
                           std::uint32_t size) noexcept {
  Segment segment = segment_of(value);
  segment.cut(value.item, offset, size);
  update(value.in_block, segment);
  settle();
}

void StoredAttributes::erase(const StoredValue &value) noexcept {
  Segment segment = segment_of(value);
  segment.erase(value.item);
  update(value.in_block, segment);
  settle();
}

void StoredAttributes::clear() noexcept {
  free_block(block_);
  block_ = nullptr;
  inline_count_ = inline_value_bytes_ = 0;
}

// After bytes went: the block's attributes move inside when they fit there, or into a smaller
// block.
void StoredAttributes::settle() noexcept {
  if (block_ == nullptr) return;
  Segment within = inside();
  const Segment outside = block();
  if (within.used() + outside.used() <= kInlineBytes) {
    copy(outside, within);
    update_inside(within);
    free_block(block_);
    block_ = nullptr;
    return;
  }
  if (!too_large(block_->capacity, outside.used())) return;
  AttributeBlock *smaller = new_block(outside.used());
  if (smaller == nullptr) return;
  Segment to = smaller->segment();
  copy(outside, to);
  smaller->update(to);
  free_block(block_);
  block_ = smaller;
}

void StoredAttributes::copy(const Segment &from, Segment &to) noexcept {
  for_each_of(from, [&](std::uint32_t type, Bytes value) {
    to.append(type, value);
    return true;
  });
}

// ---- A write

void AttributeWrite::drop_fresh() noexcept { free_block(fresh_); }

bool AttributeWrite::prepare() noexcept {
  const Segment segment = attributes_.segment_of(old_);
  const std::uint32_t needed = Segment::stored_size(new_size_) + Segment::kEntryBytes;
  const std::uint32_t given_up = old_.found ? old_.item.stored() + Segment::kEntryBytes : 0;
  const std::uint32_t used = segment.used() - given_up + needed;
  if (used <= segment.capacity()) return true;

  // Inside stays what is in front of the value; a block has room for all the rest.
  kept_inline_ = attributes_.inline_count_;
  std::uint32_t moving = used;
  if (!old_.in_block) {
    kept_inline_ = old_.item.index;
    moving -= old_.item.offset + Segment::kEntryBytes * old_.item.index;
    if (attributes_.block_ != nullptr) moving += attributes_.block().used();
  }
  build_fresh(moving);
  return fresh_ != nullptr;
}

void AttributeWrite::commit() noexcept {
  if (fresh_ != nullptr) {
    if (!old_.in_block) {
      attributes_.inline_count_ = static_cast<std::uint16_t>(kept_inline_);
      attributes_.inline_value_bytes_ = static_cast<std::uint16_t>(old_.item.offset);
    }
    free_block(attributes_.block_);
    attributes_.block_ = fresh_;
    fresh_ = nullptr;
    return;
  }
  Segment segment = attributes_.segment_of(old_);
  if (old_.found) {
    segment.replace(old_.item, keep_, tail_);
  } else {
    segment.append(type_, tail_);
  }
  attributes_.update(old_.in_block, segment);
  if (new_size_ < old_.item.size) attributes_.settle();
}

void AttributeWrite::build_fresh(std::uint32_t used) noexcept {
  fresh_ = new_block(used);
  if (fresh_ == nullptr) return;
  Segment fresh = fresh_->segment();
  std::uint32_t index = 0;
  attributes_.for_each([&](std::uint32_t type, Bytes value) {
    if (index++ < kept_inline_) return true;
    const bool replaced = type == type_;
    fresh.append(type, replaced ? value.substr(0, keep_) : value, replaced ? tail_ : Bytes{});
    return true;
  });
  if (!old_.found) fresh.append(type_, tail_);
  fresh_->update(fresh);
}

}  // namespace kivo_platform
