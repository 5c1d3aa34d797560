// ValueIndex: entering and removing sessions, and the change between one session and several.
// Threads: none; the process serialises all calls.
#include "value_index.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "absl/hash/hash.h"
#include "absl/strings/string_view.h"
#include "address_list.h"
#include "platform/aaa_dictionary.h"
#include "prefetch.h"
#include "session_slots.h"

namespace kivo_platform {
namespace {

constexpr std::uint32_t kNoPosting = 0;  // as a reference: it lacks the mark of a posting

// The bytes of a short value as a number. Values of one size differ in it.
std::uint64_t word_of(Bytes value) noexcept {
  const std::size_t size = value.size();
  std::uint32_t low = 0;
  std::uint32_t high = 0;
  if (size >= 4) {
    std::memcpy(&low, value.data(), 4);
    std::memcpy(&high, value.data() + size - 4, 4);
  } else {
    std::memcpy(&low, value.data(), size);
  }
  return std::uint64_t{high} << 32 | low;
}

// Seeded for each process, so that peers cannot choose values which meet in one bucket. For that it
// must be the hash library's own string view: the standard one may go through std::hash, which has
// one seed everywhere. Addresses and numbers, the most frequent keys, are hashed as numbers, which
// takes half the instructions.
std::uint32_t hash_value(Bytes value) noexcept {
  const std::uint64_t h =
      value.size() <= 8
          ? absl::HashOf(word_of(value), value.size())
          : absl::Hash<absl::string_view>()(absl::string_view(value.data(), value.size()));
  return static_cast<std::uint32_t>(h ^ (h >> 32));
}

bool session_holds(std::uint32_t slot, std::uint32_t type, Bytes value) noexcept {
  fetch_ahead(&sessions.at(slot));
  const StoredValue stored = sessions.at(slot).attributes.find(type);
  if (!stored.found) return false;
  if (type != AAA_ATTR_IPV6_ADDRESSES) return same_bytes(stored.bytes, value);
  return holds_address(stored.bytes, value);
}

}  // namespace

ValueIndex::~ValueIndex() {
  table_.release();
  postings_.release();
}

ValueIndex::Key::Key(Bytes bytes) noexcept : value(bytes), hash(hash_value(bytes)) {}

bool ValueIndex::add(std::uint32_t slot, std::uint32_t label, const Key &key) noexcept {
  Entry *entry = find_entry(key, slot);
  if (entry == nullptr) {
    if (!table_.reserve() || (numeric_ && !LabelSet::reserve())) return false;
    table_.insert(key.hash, {slot, label});
    if (numeric_) number_came(key.value);
    return true;
  }
  if (!LabelSet::reserve()) return false;
  if ((entry->ref & kShared) != 0) {
    posting_of(entry->ref).labels.insert(label);
    return true;
  }
  const std::uint32_t posting = take_posting(key.value);
  if (posting == kNoPosting) return false;
  LabelSet &labels = posting_of(posting).labels;
  labels.insert(entry->label);
  labels.insert(label);
  *entry = {posting, 0};
  return true;
}

void ValueIndex::remove(std::uint32_t slot, std::uint32_t label, const Key &key) noexcept {
  Entry *entry = find_shared(key);
  if (entry == nullptr) {
    table_.erase(key.hash, [&](const Entry &found) { return found.ref == slot; });
    if (numeric_) number_went(key.value);
    return;
  }
  LabelSet &labels = posting_of(entry->ref).labels;
  labels.erase(label);
  if (labels.size() > 1) return;
  const std::uint32_t posting = entry->ref;
  *entry = {sessions.find(labels.lowest())->slot, labels.lowest()};
  give_posting(posting);
}

ValueIndex::Found ValueIndex::find(Bytes value) noexcept {
  const Key key(value);
  const Entry *entry = find_entry(key, kNoSlot);
  if (entry == nullptr) return {};
  if ((entry->ref & kShared) != 0) return {0, &posting_of(entry->ref).labels};
  return {entry->label, nullptr};
}

void ValueIndex::prefetch_label(const Key &key, std::uint32_t label) noexcept {
  const Entry *entry = find_shared(key);
  if (entry != nullptr) posting_of(entry->ref).labels.prefetch(label);
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

bool ValueIndex::posting_is_for(std::uint32_t ref, Bytes value) noexcept {
  if ((ref & kShared) == 0) return false;
  return same_bytes(posting_of(ref).key(), value);
}

// An entry of except_slot does not count: of a session that is being entered, another address of
// the same hash may have led there, and its stored bytes would match this one too.
inline ValueIndex::Entry *ValueIndex::find_entry(const Key &key,
                                                 std::uint32_t except_slot) noexcept {
  return table_.find(key.hash, [&](const Entry &entry) {
    if ((entry.ref & kShared) != 0) return posting_is_for(entry.ref, key.value);
    return entry.ref != except_slot && session_holds(entry.ref, type_, key.value);
  });
}

ValueIndex::Entry *ValueIndex::find_shared(const Key &key) noexcept {
  return table_.find(key.hash,
                     [&](const Entry &entry) { return posting_is_for(entry.ref, key.value); });
}

bool ValueIndex::Posting::take_key(Bytes value) noexcept {
  char *to = short_key;
  if (value.size() > kShortKey) {
    to = long_key = static_cast<char *>(::operator new(value.size(), std::nothrow));
    if (to == nullptr) return false;
  }
  value.copy(to, value.size());
  key_size = static_cast<std::uint32_t>(value.size());
  return true;
}

void ValueIndex::Posting::drop_key() noexcept {
  if (key_size > kShortKey) ::operator delete(long_key);
  key_size = 0;
}

std::uint32_t ValueIndex::take_posting(Bytes value) noexcept {
  if (free_posting_ == 0) {
    if (postings_used_ == postings_.capacity() && !postings_.grow()) return kNoPosting;
    free_posting_ = ++postings_used_;
  }
  const std::uint32_t number = free_posting_ - 1;
  Posting &posting = postings_[number];
  const std::uint32_t next_free = posting.next_free;
  if (!posting.take_key(value)) return kNoPosting;
  free_posting_ = next_free;
  ++postings_live_;
  return number | kShared;
}

void ValueIndex::give_posting(std::uint32_t ref) noexcept {
  Posting &posting = posting_of(ref);
  posting.labels.clear();
  posting.drop_key();
  posting.next_free = free_posting_;
  free_posting_ = (ref & ~kShared) + 1;
  --postings_live_;
}

}  // namespace kivo_platform
