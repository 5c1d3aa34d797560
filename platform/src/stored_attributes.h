// The attributes of one session, in the order of adding. The first of them lie inside the object,
// which lies inside the session's context: a session of ordinary size is one piece of memory. From
// the first one on that does not fit, they lie in a block of its own.
// Either place holds the values from its front and a directory from its back, two bytes for each
// attribute: type and size. A value of kLongSize bytes or more has its size in front of it. The
// directory is searched eight entries at a time.
// Pure data, under the attribute context; knows no record, no index and no kind.
// Invariants: (1) a type occurs once; (2) writes are prepared, which may fail and changes nothing,
// and then committed, which cannot fail; (3) there is no block without attributes.
// Threads: none; the process serialises all calls.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/aaa_dictionary.h"

namespace kivo_platform {

// Bytes of a value; not text.
using Bytes = std::string_view;

inline Bytes as_bytes(const void *data, std::uint32_t size) noexcept {
  return {data != nullptr ? static_cast<const char *>(data) : "", size};
}

// Whether two values are the same, without a call for the short ones that most are.
inline bool same_bytes(Bytes a, Bytes b) noexcept {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  const auto same_at = [&]<typename Word>(Word, std::size_t at) {
    Word in_a;
    Word in_b;
    std::memcpy(&in_a, a.data() + at, sizeof(Word));
    std::memcpy(&in_b, b.data() + at, sizeof(Word));
    return in_a == in_b;
  };
  if (size > 32) return std::memcmp(a.data(), b.data(), size) == 0;
  if (size >= 8) {
    bool same = same_at(std::uint64_t{}, size - 8);
    for (std::size_t at = 0; at + 8 < size; at += 8) same &= same_at(std::uint64_t{}, at);
    return same;
  }
  if (size >= 4) return same_at(std::uint32_t{}, 0) && same_at(std::uint32_t{}, size - 4);
  for (std::size_t at = 0; at < size; ++at) {
    if (a[at] != b[at]) return false;
  }
  return true;
}

// Copies a value to where it does not lie, without a call for the short ones. Both ends are loaded
// before either is stored.
inline void copy_bytes(char *to, Bytes value) noexcept {
  const char *const from = value.data();
  const std::size_t size = value.size();
  const auto copy_ends = [&]<typename Word>(Word) {
    Word first;
    Word last;
    std::memcpy(&first, from, sizeof(Word));
    std::memcpy(&last, from + size - sizeof(Word), sizeof(Word));
    std::memcpy(to, &first, sizeof(Word));
    std::memcpy(to + size - sizeof(Word), &last, sizeof(Word));
  };
  struct SixteenBytes {
    std::uint64_t words[2];
  };
  if (size > 2 * sizeof(SixteenBytes)) {
    std::memcpy(to, from, size);
  } else if (size >= sizeof(SixteenBytes)) {
    copy_ends(SixteenBytes{});
  } else if (size >= sizeof(std::uint64_t)) {
    copy_ends(std::uint64_t{});
  } else if (size >= sizeof(std::uint32_t)) {
    copy_ends(std::uint32_t{});
  } else {
    for (std::size_t at = 0; at < size; ++at) to[at] = from[at];
  }
}

// Attributes that follow one another in one piece of memory, which it does not own. In front of it
// lie kSlack bytes more that may be read.
class Segment {
 public:
  static constexpr std::uint32_t kEntryBytes = 2;
  static constexpr std::uint32_t kLongSize = 31;
  static constexpr std::uint32_t kSlack = 14;

  // An attribute, or the end.
  struct Item {
    std::uint32_t index;
    std::uint32_t offset;  // of what is stored, the size of a long value included
    std::uint32_t type;    // 0 at the end
    std::uint32_t size;

    std::uint32_t prefix() const noexcept { return prefix_for(size); }
    std::uint32_t stored() const noexcept { return stored_size(size); }
  };

  Segment(char *bytes, std::uint32_t capacity, std::uint32_t count,
          std::uint32_t value_bytes) noexcept
      : bytes_(bytes), capacity_(capacity), count_(count), value_bytes_(value_bytes) {}

  static std::uint32_t stored_size(std::uint32_t size) noexcept { return prefix_for(size) + size; }

  Item first() const noexcept { return at(0, 0); }
  Item after(const Item &item) const noexcept {
    return at(item.index + 1, item.offset + item.stored());
  }
  Item end() const noexcept { return {count_, value_bytes_, 0, 0}; }
  bool holds(std::uint32_t type) const noexcept { return index_of(type) < count_; }
  // The attribute of a type, or the end.
  Item find(std::uint32_t type) const noexcept {
    const std::uint32_t index = index_of(type);
    if (index >= count_) return end();
    std::uint32_t offset = 0;
    for (std::uint32_t i = 0; i < index; ++i) offset += stored_size(size_of(entry_at(i), offset));
    return {index, offset, type, size_of(entry_at(index), offset)};
  }
  Bytes value(const Item &item) const noexcept {
    return {bytes_ + item.offset + item.prefix(), item.size};
  }

  // Bytes of values and directory.
  std::uint32_t used() const noexcept { return value_bytes_ + kEntryBytes * count_; }
  std::uint32_t capacity() const noexcept { return capacity_; }
  std::uint32_t count() const noexcept { return count_; }
  std::uint32_t value_bytes() const noexcept { return value_bytes_; }

  // There is room for each of these. The bytes may be those of a stored value.
  void append(std::uint32_t type, Bytes value) noexcept {
    copy_bytes(add(type, static_cast<std::uint32_t>(value.size())), value);
  }
  // Adds a value in two pieces.
  void append(std::uint32_t type, Bytes head, Bytes tail) noexcept;
  // Makes a value its first `keep` bytes and `tail`. With keep, the tail lies elsewhere.
  void replace(const Item &item, std::uint32_t keep, Bytes tail) noexcept;
  void cut(const Item &item, std::uint32_t offset, std::uint32_t size) noexcept;
  void erase(const Item &item) noexcept;

 private:
  static constexpr std::uint32_t kTypeBits = 11;
  static constexpr std::uint16_t kTypeMask = (1 << kTypeBits) - 1;
  static_assert(AAA_ATTR_TYPE_MAX <= kTypeMask);

  using Entries = std::uint16_t __attribute__((vector_size(16)));
  static constexpr std::uint32_t kTogether = sizeof(Entries) / kEntryBytes;
  static_assert(kSlack == sizeof(Entries) - kEntryBytes);

  static std::uint32_t prefix_for(std::uint32_t size) noexcept { return size < kLongSize ? 0 : 2; }
  // Where a type stands in the directory; count_ or more when it does not.
  std::uint32_t index_of(std::uint32_t type) const noexcept {
    const char *place = bytes_ + capacity_;
    for (std::uint32_t i = 0; i < count_; i += kTogether) {
      place -= sizeof(Entries);
      Entries entries;
      std::memcpy(&entries, place, sizeof entries);
      const auto found = (entries & kTypeMask) == static_cast<std::uint16_t>(type);
      std::uint64_t lanes[2];  // the directory grows downwards: the last lane comes first
      std::memcpy(lanes, &found, sizeof lanes);
      if ((lanes[0] | lanes[1]) == 0) continue;
      return i + static_cast<std::uint32_t>(lanes[1] != 0 ? std::countl_zero(lanes[1])
                                                          : 64 + std::countl_zero(lanes[0])) /
                     16;
    }
    return count_;
  }
  const char *place_of(std::uint32_t i) const noexcept {
    return bytes_ + capacity_ - kEntryBytes * (i + 1);
  }
  std::uint32_t entry_at(std::uint32_t i) const noexcept {
    std::uint16_t entry = 0;
    std::memcpy(&entry, place_of(i), sizeof entry);
    return entry;
  }
  std::uint32_t size_of(std::uint32_t entry, std::uint32_t offset) const noexcept {
    if (entry >> kTypeBits != kLongSize) return entry >> kTypeBits;
    std::uint16_t size = 0;
    std::memcpy(&size, bytes_ + offset, sizeof size);
    return size;
  }
  Item at(std::uint32_t index, std::uint32_t offset) const noexcept {
    if (index == count_) return {index, offset, 0, 0};
    const std::uint32_t entry = entry_at(index);
    return {index, offset, entry & kTypeMask, size_of(entry, offset)};
  }
  void put_size(const Item &item) noexcept {
    const std::uint32_t code = item.size < kLongSize ? item.size : kLongSize;
    const auto entry = static_cast<std::uint16_t>(item.type | code << kTypeBits);
    std::memcpy(bytes_ + capacity_ - kEntryBytes * (item.index + 1), &entry, sizeof entry);
    if (code != kLongSize) return;
    const auto size = static_cast<std::uint16_t>(item.size);
    std::memcpy(bytes_ + item.offset, &size, sizeof size);
  }
  // Adds an attribute at the end; returns the place of its value.
  char *add(std::uint32_t type, std::uint32_t size) noexcept {
    const Item added{count_, value_bytes_, type, size};
    ++count_;
    value_bytes_ += added.stored();
    put_size(added);
    return bytes_ + added.offset + added.prefix();
  }
  void move_rest(const Item &item, std::uint32_t new_offset) noexcept;

  char *bytes_;
  std::uint32_t capacity_;
  std::uint32_t count_;
  std::uint32_t value_bytes_;
};

struct AttributeBlock;

// Where a type's value lies; when the type is absent, where it would be added.
struct StoredValue {
  bool found = false;
  bool in_block = false;
  Segment::Item item{};
  Bytes bytes;
};

class StoredAttributes {
 public:
  static constexpr std::uint32_t kInlineBytes = 188;

  StoredAttributes() noexcept {}

  StoredValue find(std::uint32_t type) const noexcept {
    // The directory's line, beside the one with the count.
    __builtin_prefetch(inline_ + kInlineBytes - 1);
    const Segment segment = inside();
    const Segment::Item item = segment.find(type);
    if (item.type == 0 && block_ != nullptr) return find_in_block(type);
    return {item.type != 0, false, item, segment.value(item)};
  }

  // Whether the type is absent, its value is not long and append() would have room for it. Most
  // values are written so, when a session begins; any other write takes an AttributeWrite.
  bool can_append(std::uint32_t type, std::uint32_t size) const noexcept {
    const Segment segment = inside();
    return block_ == nullptr && size < Segment::kLongSize &&
           segment.used() + size + Segment::kEntryBytes <= kInlineBytes && !segment.holds(type);
  }
  void append(std::uint32_t type, const void *value, std::uint32_t size) noexcept {
    if (size >= Segment::kLongSize) __builtin_unreachable();
    Segment segment = inside();
    segment.append(type, as_bytes(value, size));
    update_inside(segment);
  }

  // Calls fn(type, bytes) for every attribute in order, while fn returns true. Returns whether it
  // always did. fn must not write to the attributes.
  template <typename Fn>
  bool for_each(Fn &&fn) const noexcept {
    return for_each_of(inside(), fn) && (block_ == nullptr || for_each_of(block(), fn));
  }

  // With a value of the same size, which may be stored bytes too.
  void overwrite(const StoredValue &value, Bytes bytes) noexcept {
    std::memmove(const_cast<char *>(value.bytes.data()), bytes.data(), bytes.size());
  }
  // Removes `size` bytes at `offset` of a stored value that keeps at least one byte.
  void cut(const StoredValue &value, std::uint32_t offset, std::uint32_t size) noexcept;

  void erase(const StoredValue &value) noexcept;
  void clear() noexcept;

 private:
  friend class AttributeWrite;

  template <typename Fn>
  static bool for_each_of(const Segment &segment, Fn &&fn) noexcept {
    for (Segment::Item item = segment.first(); item.type != 0; item = segment.after(item)) {
      if (!fn(item.type, segment.value(item))) return false;
    }
    return true;
  }
  Segment inside() const noexcept {
    return {const_cast<char *>(inline_), kInlineBytes, inline_count_, inline_value_bytes_};
  }
  Segment block() const noexcept;
  StoredValue find_in_block(std::uint32_t type) const noexcept;
  Segment segment_of(const StoredValue &value) const noexcept {
    return value.in_block ? block() : inside();
  }
  void update_inside(const Segment &segment) noexcept {
    inline_count_ = static_cast<std::uint16_t>(segment.count());
    inline_value_bytes_ = static_cast<std::uint16_t>(segment.value_bytes());
  }
  void update(bool in_block, const Segment &segment) noexcept;
  void settle() noexcept;
  static void copy(const Segment &from, Segment &to) noexcept;

  AttributeBlock *block_ = nullptr;
  std::uint16_t inline_count_ = 0;
  std::uint16_t inline_value_bytes_ = 0;
  char inline_[kInlineBytes];
};
static_assert(sizeof(StoredAttributes) == 200);

// One pending write: the value of a type becomes the first `keep` bytes of the old one and `tail`.
// The tail may be stored bytes of the same session, unless bytes are kept. A write that is not
// committed changes nothing.
class AttributeWrite {
 public:
  // `old` is what the session stores of the type. keep is not above the size of the old value, keep
  // and tail together not above 65,535.
  AttributeWrite(StoredAttributes &attributes, std::uint32_t type, const StoredValue &old,
                 std::uint32_t keep, Bytes tail) noexcept
      : attributes_(attributes),
        old_(old),
        type_(type),
        keep_(keep),
        new_size_(keep + static_cast<std::uint32_t>(tail.size())),
        tail_(tail) {}
  ~AttributeWrite() {
    if (fresh_ != nullptr) drop_fresh();
  }
  AttributeWrite(const AttributeWrite &) = delete;
  AttributeWrite &operator=(const AttributeWrite &) = delete;

  [[nodiscard]] bool prepare() noexcept;
  void commit() noexcept;

 private:
  void build_fresh(std::uint32_t used) noexcept;
  void drop_fresh() noexcept;

  StoredAttributes &attributes_;
  AttributeBlock *fresh_ = nullptr;  // complete, takes the block's place at the commit
  std::uint32_t kept_inline_ = 0;    // attributes that stay inside beside it
  const StoredValue &old_;
  std::uint32_t type_;
  std::uint32_t keep_;
  std::uint32_t new_size_;
  Bytes tail_;
};

}  // namespace kivo_platform
