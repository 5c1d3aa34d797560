// Hash table of 32-bit references under 32-bit hashes: the table below the label directory and the
// value indexes. It holds no keys; the caller's match function compares them where they are stored.
// Linear hashing over buckets of one cache line: the table grows by one bucket at a time, so no
// insertion ever rebuilds it, and a bucket that cannot be had only makes others fuller for a while.
// Invariants: (1) of a bucket's lines all but the last are full; (2) equal entries may repeat; (3)
// insert() after a successful reserve(), find(), erase() cannot fail.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>

#include "chunked_array.h"

namespace kivo_platform {

class RefTable {
 public:
  constexpr RefTable() noexcept = default;

  // Makes sure that the next insert() has the memory it may need.
  [[nodiscard]] bool reserve() noexcept;
  void insert(std::uint32_t hash, std::uint32_t ref) noexcept;

  // Removes one entry with this hash and reference; false when there is none.
  bool erase(std::uint32_t hash, std::uint32_t ref) noexcept;

  // The first reference under this hash that match(reference) accepts, null when there is none. It
  // may be overwritten in place; the address holds until the next insertion or removal.
  template <typename Match>
  std::uint32_t *find(std::uint32_t hash, Match &&match) noexcept {
    if (bucket_count_ == 0) return nullptr;
    for (Line *line = &buckets_[bucket_of(hash)];; line = &overflow_[line->next - 1]) {
      for (std::uint32_t i = 0; i < line->count; ++i) {
        if (line->hash[i] == hash && match(line->ref[i])) return &line->ref[i];
      }
      if (line->next == 0) return nullptr;
    }
  }

  std::uint32_t size() const noexcept { return size_; }

  void release() noexcept;

 private:
  static constexpr std::uint32_t kLineEntries = 7;
  static constexpr std::uint32_t kEntriesPerBucket = 5;  // average; more costs second lines
  static constexpr std::uint32_t kFirstBuckets = 128;

  // A bucket's first line, or one of the lines chained behind it.
  struct alignas(64) Line {
    std::uint32_t hash[kLineEntries];
    std::uint32_t ref[kLineEntries];
    std::uint32_t count;
    std::uint32_t next;  // number of the next line in overflow_, plus 1; 0 at the end
  };
  static_assert(sizeof(Line) == 64);

  std::uint32_t bucket_of(std::uint32_t hash) const noexcept {
    const std::uint32_t bucket = hash & (2 * round_buckets_ - 1);
    return bucket < bucket_count_ ? bucket : bucket & (round_buckets_ - 1);
  }
  Line *append(Line *last, std::uint32_t hash, std::uint32_t ref) noexcept;
  void split_next_bucket() noexcept;
  std::uint32_t take_overflow_line() noexcept;
  void give_overflow_line(std::uint32_t number) noexcept;

  ChunkedArray<Line, kFirstBuckets> buckets_;
  ChunkedArray<Line, 64> overflow_;
  std::uint32_t free_overflow_ = 0;   // first free line plus 1, chained through Line::next
  std::uint32_t fresh_overflow_ = 0;  // lines of overflow_ from here on were never used
  std::uint32_t bucket_count_ = 0;    // round_buckets_ <= bucket_count_ < 2 * round_buckets_
  std::uint32_t round_buckets_ = kFirstBuckets;
  std::uint32_t size_ = 0;
};

}  // namespace kivo_platform
