// RefTable: insertion, removal and the splitting of buckets.
// Threads: none; the process serialises all calls.
#include "ref_table.h"

namespace kivo_platform {

bool RefTable::reserve() noexcept {
  if (bucket_count_ == 0) {
    if (!buckets_.grow()) return false;
    bucket_count_ = round_buckets_ = kFirstBuckets;
  }
  return free_overflow_ != 0 || fresh_overflow_ < overflow_.capacity() || overflow_.grow();
}

void RefTable::insert(std::uint32_t hash, std::uint32_t ref) noexcept {
  Line *last = &buckets_[bucket_of(hash)];
  while (last->next != 0) last = &overflow_[last->next - 1];
  append(last, hash, ref);
  ++size_;
  if (size_ / kEntriesPerBucket > bucket_count_) split_next_bucket();
}

bool RefTable::erase(std::uint32_t hash, std::uint32_t ref) noexcept {
  if (bucket_count_ == 0) return false;
  Line *hole_line = nullptr;
  std::uint32_t hole = 0;
  Line *before_last = nullptr;
  Line *last = &buckets_[bucket_of(hash)];
  for (;;) {
    for (std::uint32_t i = 0; hole_line == nullptr && i < last->count; ++i) {
      if (last->hash[i] == hash && last->ref[i] == ref) {
        hole_line = last;
        hole = i;
      }
    }
    if (last->next == 0) break;
    before_last = last;
    last = &overflow_[last->next - 1];
  }
  if (hole_line == nullptr) return false;

  --last->count;
  hole_line->hash[hole] = last->hash[last->count];
  hole_line->ref[hole] = last->ref[last->count];
  if (last->count == 0 && before_last != nullptr) {
    give_overflow_line(before_last->next);
    before_last->next = 0;
  }
  --size_;
  return true;
}

void RefTable::release() noexcept {
  buckets_.release();
  overflow_.release();
  free_overflow_ = fresh_overflow_ = bucket_count_ = size_ = 0;
}

// Puts an entry behind the last one of a chain; returns the chain's last line.
RefTable::Line *RefTable::append(Line *last, std::uint32_t hash, std::uint32_t ref) noexcept {
  if (last->count == kLineEntries) {
    last->next = take_overflow_line();
    last = &overflow_[last->next - 1];
  }
  last->hash[last->count] = hash;
  last->ref[last->count] = ref;
  ++last->count;
  return last;
}

// Divides the entries of the oldest bucket of this round between itself and a new bucket. Each line
// is copied and freed before its entries are dealt out: two chains of 7 j entries need at most j -
// 1 overflow lines, as many as were freed by then, so nothing is allocated but the new bucket.
void RefTable::split_next_bucket() noexcept {
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
      last = append(last, line.hash[i], line.ref[i]);
    }
    if (line.next == 0) return;
    const std::uint32_t number = line.next;
    line = overflow_[number - 1];
    give_overflow_line(number);
  }
}

std::uint32_t RefTable::take_overflow_line() noexcept {
  std::uint32_t number = free_overflow_;
  if (number != 0) {
    free_overflow_ = overflow_[number - 1].next;
  } else {
    number = ++fresh_overflow_;
  }
  overflow_[number - 1].count = overflow_[number - 1].next = 0;
  return number;
}

void RefTable::give_overflow_line(std::uint32_t number) noexcept {
  overflow_[number - 1].next = free_overflow_;
  free_overflow_ = number;
}

}  // namespace kivo_platform
