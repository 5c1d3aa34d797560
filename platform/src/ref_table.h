// Hash table of small payloads under 32-bit hashes: the table below the label directory and the
// value indexes. It holds no keys but what the payload has of them for the caller's match function.
// Linear hashing over buckets of one to four cache lines: the table grows by one bucket at a time,
// so no insertion ever rebuilds it, and a bucket that cannot be had only makes others fuller for a
// while.
// Invariants: (1) of a bucket's lines all but the last are full; (2) equal entries may repeat; (3)
// insert() after a successful reserve(), find(), erase() cannot fail.
// Threads: none; the process serialises all calls.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "chunked_array.h"
#include "prefetch.h"

namespace kivo_platform {

// kLineBytes is 64, 128 or 256. The longer line holds larger payloads at less cost: of more entries
// a smaller share does not fit.
template <typename Payload, std::size_t kLineBytes>
class RefTable {
 public:
  constexpr RefTable() noexcept = default;

  // Makes sure that the next insert() has the memory it may need.
  [[nodiscard]] bool reserve() noexcept;
  void insert(std::uint32_t hash, Payload payload) noexcept;

  // Where an entry lies: until the next insertion or removal. The payload may be overwritten, and
  // the entry has a mark for its user's purposes, not set at first.
  class Place {
   public:
    Place() noexcept = default;
    explicit operator bool() const noexcept { return payload_ != nullptr; }
    Payload &operator*() const noexcept { return *payload_; }
    Payload *operator->() const noexcept { return payload_; }
    bool marked() const noexcept { return (*hash_ & kMark) != 0; }
    void mark(bool set) const noexcept { *hash_ = (*hash_ & ~kMark) | (set ? kMark : 0); }

   private:
    friend RefTable;
    Place(std::uint32_t *hash, Payload *payload) noexcept : hash_(hash), payload_(payload) {}

    std::uint32_t *hash_ = nullptr;
    Payload *payload_ = nullptr;
  };

  // The first entry under this hash whose payload match() accepts; false when there is none.
  template <typename Match>
  [[gnu::always_inline]] Place find(std::uint32_t hash, Match &&match) noexcept {
    if (bucket_count_ == 0) return {};
    for (Line *line = &buckets_[bucket_of(hash)];; line = &overflow_[line->next - 1]) {
      fetch_ahead(line);
      for (std::uint32_t left = line->entries_with(hash); left != 0; left &= left - 1) {
        const int at = std::countr_zero(left);
        if (match(std::as_const(line->payload[at]))) return {&line->hash[at], &line->payload[at]};
      }
      if (line->next == 0) return {};
    }
  }

  // Removes an entry that find() led to with this hash.
  void erase(std::uint32_t hash, Place place) noexcept;

  // Has the memory fetched that find(), insert() or erase() will read first.
  void prefetch(std::uint32_t hash) const noexcept {
    if (bucket_count_ != 0) fetch_ahead(&buckets_[bucket_of(hash)]);
  }

  std::uint32_t size() const noexcept { return size_; }

  void release() noexcept;

 private:
  // A bucket's first line, or one of the lines chained behind it.
  static constexpr std::uint32_t kLineEntries =
      (kLineBytes - 2 * sizeof(std::uint32_t)) / (sizeof(std::uint32_t) + sizeof(Payload));
  using Four = std::uint32_t __attribute__((vector_size(16)));
  struct alignas(kChunkAlignment) Line {
    std::uint32_t count;
    std::uint32_t next;  // number of the next line in overflow_, plus 1; 0 at the end
    std::uint32_t hash[kLineEntries];
    Payload payload[kLineEntries];

    // A bit for each entry with this hash, marked or not. All are compared, four at a time: where a
    // search would end cannot be foreseen, and a wrong guess costs more than the comparisons.
    std::uint32_t entries_with(std::uint32_t wanted) const noexcept {
      Four found{};
      for (std::uint32_t i = 0; i < kLineEntries; i += 4) {
        const std::uint32_t at = std::min(i, kLineEntries - 4);
        Four four;
        std::memcpy(&four, hash + at, sizeof four);
        found |= ((four | kMark) == (wanted | kMark)) & (Four{1, 2, 4, 8} << at);
      }
      std::uint64_t halves[2];
      std::memcpy(halves, &found, sizeof halves);
      const std::uint64_t bits = halves[0] | halves[1];
      return static_cast<std::uint32_t>(bits | bits >> 32) & ((1u << count) - 1);
    }
  };
  static_assert(sizeof(Line) == kLineBytes);

  static constexpr std::uint32_t kFirstBuckets = 8192 / kLineBytes;
  // The hashes of a bucket agree in their lowest bits, so one bit of those stored is free.
  static constexpr std::uint32_t kMark = 1;
  // Entries for each bucket, in thirds. While some buckets are divided and some are not, the latter
  // hold half as many again: then they are full on average.
  static constexpr std::uint32_t kFillThirds = kLineEntries * 2;

  std::uint32_t bucket_of(std::uint32_t hash) const noexcept {
    const std::uint32_t bucket = hash & (2 * round_buckets_ - 1);
    return bucket < bucket_count_ ? bucket : bucket & (round_buckets_ - 1);
  }
  Line *append(Line *last, std::uint32_t hash, Payload payload) noexcept;
  void split_next_bucket() noexcept;
  std::uint32_t take_overflow_line() noexcept;
  void give_overflow_line(std::uint32_t number) noexcept;

  ChunkedArray<Line, kFirstBuckets> buckets_;
  ChunkedArray<Line, kFirstBuckets / 2> overflow_;
  std::uint32_t free_overflow_ = 0;   // first free line plus 1, chained through Line::next
  std::uint32_t fresh_overflow_ = 0;  // lines of overflow_ from here on were never used
  std::uint32_t bucket_count_ = 0;    // round_buckets_ <= bucket_count_ < 2 * round_buckets_
  std::uint32_t round_buckets_ = kFirstBuckets;
  std::uint32_t size_ = 0;
};

template <typename Payload, std::size_t kLineBytes>
bool RefTable<Payload, kLineBytes>::reserve() noexcept {
  if (bucket_count_ == 0) {
    if (!buckets_.grow()) return false;
    bucket_count_ = round_buckets_ = kFirstBuckets;
  }
  return free_overflow_ != 0 || fresh_overflow_ < overflow_.capacity() || overflow_.grow();
}

template <typename Payload, std::size_t kLineBytes>
void RefTable<Payload, kLineBytes>::insert(std::uint32_t hash, Payload payload) noexcept {
  Line *last = &buckets_[bucket_of(hash)];
  while (last->next != 0) last = &overflow_[last->next - 1];
  append(last, hash & ~kMark, payload);
  ++size_;
  if (std::uint64_t{size_} * 3 > std::uint64_t{bucket_count_} * kFillThirds) split_next_bucket();
}

// The last entry of the bucket takes the place.
template <typename Payload, std::size_t kLineBytes>
void RefTable<Payload, kLineBytes>::erase(std::uint32_t hash, Place place) noexcept {
  Line *before_last = nullptr;
  Line *last = &buckets_[bucket_of(hash)];
  while (last->next != 0) {
    before_last = last;
    last = &overflow_[last->next - 1];
  }
  --last->count;
  *place.hash_ = last->hash[last->count];
  *place.payload_ = last->payload[last->count];
  if (last->count == 0 && before_last != nullptr) {
    give_overflow_line(before_last->next);
    before_last->next = 0;
  }
  --size_;
}

template <typename Payload, std::size_t kLineBytes>
void RefTable<Payload, kLineBytes>::release() noexcept {
  buckets_.release();
  overflow_.release();
  free_overflow_ = fresh_overflow_ = bucket_count_ = size_ = 0;
}

// Puts an entry behind the last one of a chain; returns the chain's last line.
template <typename Payload, std::size_t kLineBytes>
auto RefTable<Payload, kLineBytes>::append(Line *last, std::uint32_t hash, Payload payload) noexcept
    -> Line * {
  if (last->count == kLineEntries) {
    last->next = take_overflow_line();
    last = &overflow_[last->next - 1];
  }
  last->hash[last->count] = hash;
  last->payload[last->count] = payload;
  ++last->count;
  return last;
}

// Divides the entries of the oldest bucket of this round between itself and a new bucket. Each line
// is copied and freed before its entries are dealt out: two chains of n j entries (n to a line)
// need at most j - 1 overflow lines, as many as were freed by then, so nothing is allocated but the
// new bucket.
template <typename Payload, std::size_t kLineBytes>
void RefTable<Payload, kLineBytes>::split_next_bucket() noexcept {
  if (bucket_count_ == buckets_.capacity() && !buckets_.grow()) return;
  const std::uint32_t old_bucket = bucket_count_ - round_buckets_;
  Line *to[2] = {&buckets_[old_bucket], &buckets_[bucket_count_]};
  const std::uint32_t deciding_bit = round_buckets_;
  if (++bucket_count_ == 2 * round_buckets_) round_buckets_ *= 2;

  Line line = *to[0];
  to[0]->count = to[0]->next = 0;
  for (;;) {
    for (std::uint32_t i = 0; i < line.count; ++i) {
      Line *&last = to[(line.hash[i] & deciding_bit) != 0 ? 1 : 0];
      last = append(last, line.hash[i], line.payload[i]);
    }
    if (line.next == 0) return;
    const std::uint32_t number = line.next;
    line = overflow_[number - 1];
    give_overflow_line(number);
  }
}

template <typename Payload, std::size_t kLineBytes>
std::uint32_t RefTable<Payload, kLineBytes>::take_overflow_line() noexcept {
  std::uint32_t number = free_overflow_;
  if (number != 0) {
    free_overflow_ = overflow_[number - 1].next;
  } else {
    number = ++fresh_overflow_;
  }
  overflow_[number - 1].count = overflow_[number - 1].next = 0;
  return number;
}

template <typename Payload, std::size_t kLineBytes>
void RefTable<Payload, kLineBytes>::give_overflow_line(std::uint32_t number) noexcept {
  overflow_[number - 1].next = free_overflow_;
  free_overflow_ = number;
}

}  // namespace kivo_platform
