// Index of one attribute type: from a value to the labels of the sessions that hold it. Under
// RecordIndexes. Values are known by their digests: an entry has what of the digest tells values of
// its width apart, and the label of the one session, or, marked, the number of a posting, the
// labels of several sessions in ascending order. So a look-up ends in the table, whose entries have
// 8 bytes (of values of four bytes), 10 (of six) or 20; filled to two thirds, that is 13, 16 or 32
// bytes a session.
// Invariants: (1) a posting has two labels or more; (2) neither add() nor remove() reads anything
// of a session, so it does not matter whether the value is written into it before or after; (3)
// remove() cannot fail and allocates nothing. Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>

#include "label_set.h"
#include "ref_table.h"
#include "stored_attributes.h"
#include "value_digest.h"

namespace kivo_platform {

class ValueIndex {
 public:
  // With `numeric` the values of four bytes are also kept in the order of their numbers.
  explicit ValueIndex(bool numeric) noexcept : numeric_(numeric) {}
  ~ValueIndex();
  ValueIndex(const ValueIndex &) = delete;
  ValueIndex &operator=(const ValueIndex &) = delete;

  // A value and its digest, for what is done in steps.
  struct Key {
    explicit Key(Bytes bytes) noexcept : value(bytes), digest(digest_of(bytes)) {}
    Key() noexcept = default;

    Bytes value;
    ValueDigest digest;
  };

  // Enters a session under a value that it does not hold yet. False without memory, and nothing has
  // changed.
  [[nodiscard]] bool add(std::uint32_t label, const Key &key) noexcept;

  // Removes a session from a value that it was entered under.
  void remove(std::uint32_t label, const Key &key) noexcept;

  // Both, the addition first. False without memory, and nothing has changed.
  [[nodiscard]] bool change(std::uint32_t label, const Key &from, const Key &to) noexcept;

  // Has memory fetched that an addition or a removal will read: first the table's, and, some time
  // later, the labels that share the value, whose own prefetch() is the third step. Null when there
  // are none; not worth asking unless most values are shared.
  void prefetch(const Key &key) noexcept;
  const LabelSet *prefetch_labels(const Key &key) noexcept {
    LabelSet *const labels = labels_of(key);
    if (labels != nullptr) fetch_ahead(labels);
    return labels;
  }
  bool mostly_shared() const noexcept { return postings_live_ > values() / 2; }

  // The sessions of a value: shared is set when there are several, else label is the one or 0.
  struct Found {
    std::uint32_t label = 0;
    LabelSet *shared = nullptr;

    std::uint32_t count() const noexcept {
      return shared != nullptr ? shared->size() : label != 0 ? 1 : 0;
    }
    std::uint32_t lowest_label() const noexcept {
      return shared != nullptr ? shared->lowest() : label;
    }
  };
  Found find(Bytes value) noexcept;

  // The lowest number above one, 0 when there is none. Of a numeric index.
  std::uint32_t next_number(std::uint32_t above) const noexcept;

 private:
  // Entries by the width of their values; `ref` is a label or, of a marked entry, a posting.
  class FourByteEntry {
   public:
    FourByteEntry() noexcept = default;
    FourByteEntry(const ValueDigest &, std::uint32_t ref) noexcept : ref_(ref) {}
    bool is_of(const ValueDigest &) const noexcept { return true; }
    std::uint32_t ref() const noexcept { return ref_; }

   private:
    std::uint32_t ref_;
  };
  // In halves, so that six bytes are all it takes.
  class SixByteEntry {
   public:
    SixByteEntry() noexcept = default;
    SixByteEntry(const ValueDigest &digest, std::uint32_t ref) noexcept
        : ref_{half(ref), half(ref >> 16)}, tag_(half(digest.tag[0])) {}
    bool is_of(const ValueDigest &digest) const noexcept { return tag_ == half(digest.tag[0]); }
    std::uint32_t ref() const noexcept { return ref_[0] | std::uint32_t{ref_[1]} << 16; }

   private:
    static std::uint16_t half(std::uint32_t word) noexcept {
      return static_cast<std::uint16_t>(word);
    }
    std::uint16_t ref_[2];
    std::uint16_t tag_;
  };
  class AnyEntry {
   public:
    AnyEntry() noexcept = default;
    AnyEntry(const ValueDigest &digest, std::uint32_t ref) noexcept : ref_(ref), tag_(digest.tag) {}
    bool is_of(const ValueDigest &digest) const noexcept {
      std::uint32_t differences = 0;
      for (std::size_t i = 0; i < tag_.size(); ++i) differences |= tag_[i] ^ digest.tag[i];
      return differences == 0;
    }
    std::uint32_t ref() const noexcept { return ref_; }

   private:
    std::uint32_t ref_;
    std::array<std::uint32_t, 3> tag_;
  };

  struct Posting {
    LabelSet labels;
    std::uint32_t next_free = 0;  // number of the next free posting, plus 1
  };
  static_assert(sizeof(Posting) == 16);

  // fn(table) with the table for values of this width.
  template <typename Fn>
  auto with_table(ValueDigest::Width width, Fn &&fn) noexcept {
    switch (width) {
      case ValueDigest::Width::kFourBytes:
        return fn(four_bytes_);
      case ValueDigest::Width::kSixBytes:
        return fn(six_bytes_);
      case ValueDigest::Width::kAny:
        break;
    }
    return fn(any_);
  }
  std::uint32_t values() const noexcept {
    return four_bytes_.size() + six_bytes_.size() + any_.size();
  }

  // Of a value that several sessions share, else null.
  LabelSet *labels_of(const Key &key) noexcept;
  template <typename Table>
  bool add_to(Table &table, std::uint32_t label, const Key &key) noexcept;
  template <typename Table>
  void remove_from(Table &table, std::uint32_t label, const Key &key) noexcept;
  template <typename Table>
  Found find_in(Table &table, const ValueDigest &digest) noexcept;

  bool reserve_posting() noexcept;
  std::uint32_t take_posting() noexcept;
  void give_posting(std::uint32_t number) noexcept;

  void number_came(Bytes value) noexcept;
  void number_went(Bytes value) noexcept;

  bool numeric_;
  LabelSet numbers_;
  RefTable<FourByteEntry, 128> four_bytes_;
  RefTable<SixByteEntry, 128> six_bytes_;
  RefTable<AnyEntry, 256> any_;
  ChunkedArray<Posting, 64> postings_;
  std::uint32_t postings_used_ = 0;
  std::uint32_t postings_live_ = 0;
  std::uint32_t free_posting_ = 0;  // plus 1
};

}  // namespace kivo_platform
