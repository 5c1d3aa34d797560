// ValueIndex: entering and removing sessions, and the change between one session and several.
// Threads: none; the process serialises all calls.
#include "value_index.h"

#include <algorithm>
#include <cstring>

namespace kivo_platform {
namespace {

auto of(const ValueDigest &digest) noexcept {
  return [&digest](const auto &entry) { return entry.is_of(digest); };
}

}  // namespace

ValueIndex::~ValueIndex() {
  four_bytes_.release();
  six_bytes_.release();
  any_.release();
  postings_.release();
}

bool ValueIndex::add(std::uint32_t label, const Key &key) noexcept {
  return with_table(key.digest.width, [&](auto &table) { return add_to(table, label, key); });
}

template <typename Table>
bool ValueIndex::add_to(Table &table, std::uint32_t label, const Key &key) noexcept {
  const auto entry = table.find(key.digest.hash, of(key.digest));
  if (!entry) {
    if (!table.reserve() || (numeric_ && !LabelSet::reserve())) return false;
    table.insert(key.digest.hash, {key.digest, label});
    if (numeric_) number_came(key.value);
    return true;
  }
  if (!LabelSet::reserve()) return false;
  if (entry.marked()) {
    postings_[entry->ref()].labels.insert(label);
    return true;
  }
  if (!reserve_posting()) return false;
  const std::uint32_t posting = take_posting();
  LabelSet &labels = postings_[posting].labels;
  labels.insert(entry->ref());
  labels.insert(label);
  *entry = {key.digest, posting};
  entry.mark(true);
  return true;
}

void ValueIndex::remove(std::uint32_t label, const Key &key) noexcept {
  with_table(key.digest.width, [&](auto &table) { remove_from(table, label, key); });
}

template <typename Table>
void ValueIndex::remove_from(Table &table, std::uint32_t label, const Key &key) noexcept {
  const auto entry = table.find(key.digest.hash, of(key.digest));
  if (!entry) return;
  if (!entry.marked()) {
    table.erase(key.digest.hash, entry);
    if (numeric_) number_went(key.value);
    return;
  }
  const std::uint32_t posting = entry->ref();
  LabelSet &labels = postings_[posting].labels;
  labels.erase(label);
  if (labels.size() > 1) return;
  *entry = {key.digest, labels.lowest()};
  entry.mark(false);
  give_posting(posting);
}

bool ValueIndex::change(std::uint32_t label, const Key &from, const Key &to) noexcept {
  LabelSet *const left = labels_of(from);
  LabelSet *const entered = labels_of(to);
  if (left != nullptr) left->prefetch(label);
  if (entered != nullptr) entered->prefetch(label);
  if (left == nullptr || left->size() == 2 || entered == nullptr) {
    if (!add(label, to)) return false;
    remove(label, from);
    return true;
  }
  // Both postings stay.
  if (!LabelSet::reserve()) return false;
  entered->insert(label);
  left->erase(label);
  return true;
}

ValueIndex::Found ValueIndex::find(Bytes value) noexcept {
  const ValueDigest digest = digest_of(value);
  return with_table(digest.width, [&](auto &table) { return find_in(table, digest); });
}

template <typename Table>
ValueIndex::Found ValueIndex::find_in(Table &table, const ValueDigest &digest) noexcept {
  const auto entry = table.find(digest.hash, of(digest));
  if (!entry) return {};
  if (entry.marked()) return {0, &postings_[entry->ref()].labels};
  return {entry->ref(), nullptr};
}

void ValueIndex::prefetch(const Key &key) noexcept {
  with_table(key.digest.width, [&](auto &table) { table.prefetch(key.digest.hash); });
}

LabelSet *ValueIndex::labels_of(const Key &key) noexcept {
  return with_table(key.digest.width, [&](auto &table) { return find_in(table, key.digest); })
      .shared;
}

static std::uint32_t number_in(Bytes value) noexcept {
  std::uint32_t number = 0;
  std::memcpy(&number, value.data(), sizeof number);
  return number;
}

void ValueIndex::number_came(Bytes value) noexcept {
  if (value.size() == sizeof(std::uint32_t)) numbers_.insert(number_in(value));
}

void ValueIndex::number_went(Bytes value) noexcept {
  if (value.size() == sizeof(std::uint32_t)) numbers_.erase(number_in(value));
}

std::uint32_t ValueIndex::next_number(std::uint32_t above) const noexcept {
  if (above == UINT32_MAX) return 0;
  for (LabelSet::Runs runs(numbers_, above + 1); !runs.run().empty(); runs.next()) {
    const auto next = std::ranges::upper_bound(runs.run(), above);
    if (next != runs.run().end()) return *next;
  }
  return 0;
}

// ---- Postings

// Makes sure that the next take_posting() has the memory it may need.
bool ValueIndex::reserve_posting() noexcept {
  return free_posting_ != 0 || postings_used_ < postings_.capacity() || postings_.grow();
}

std::uint32_t ValueIndex::take_posting() noexcept {
  ++postings_live_;
  if (free_posting_ == 0) return postings_used_++;
  const std::uint32_t number = free_posting_ - 1;
  free_posting_ = postings_[number].next_free;
  return number;
}

void ValueIndex::give_posting(std::uint32_t number) noexcept {
  Posting &posting = postings_[number];
  posting.labels.clear();
  posting.next_free = free_posting_;
  free_posting_ = number + 1;
  --postings_live_;
}

}  // namespace kivo_platform
