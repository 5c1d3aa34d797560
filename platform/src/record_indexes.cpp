// RecordIndexes: spreading a value over its indexes, undoing it half-way, building an index late.
// Threads: none; the process serialises all calls.
#include "record_indexes.h"

#include <memory>
#include <new>
#include <span>

#include "address_list.h"
#include "session_slots.h"

namespace kivo_platform {
namespace {

// Calls fn(bytes) for each value that an index sees in a stored one, while fn returns true. Returns
// the bytes in front of the value at which fn stopped, all of them when it never did.
template <typename Fn>
Bytes for_each_indexed(std::uint32_t type, Bytes value, Fn &&fn) noexcept {
  if (type != AAA_ATTR_IPV6_ADDRESSES) return fn(value) ? value : Bytes{};
  for (std::size_t at = 0; at < value.size(); at += kAddressBytes) {
    if (!fn(value.substr(at, kAddressBytes))) return value.substr(0, at);
  }
  return value;
}

void remove_from(ValueIndex &index, std::uint32_t label, std::uint32_t type, Bytes value) noexcept {
  for_each_indexed(type, value, [&](Bytes one) {
    index.remove(label, ValueIndex::Key(one));
    return true;
  });
}

bool add_to(ValueIndex &index, std::uint32_t label, std::uint32_t type, Bytes value) noexcept {
  bool added = true;
  const Bytes done = for_each_indexed(
      type, value, [&](Bytes one) { return added = index.add(label, ValueIndex::Key(one)); });
  if (!added && !done.empty()) remove_from(index, label, type, done);
  return added;
}

// Removals from several indexes, made together: each goes through two or three places that are not
// in the caches, so all of the first places are fetched, then all of the next.
class Removals {
 public:
  explicit Removals(std::uint32_t label) noexcept : label_(label) {}
  ~Removals() { make(); }
  Removals(const Removals &) = delete;
  Removals &operator=(const Removals &) = delete;

  void add(ValueIndex &index, Bytes value) noexcept {
    if (count_ == removals_.size()) make();
    Removal &removal = removals_[count_++];
    removal = {&index, ValueIndex::Key(value)};
    index.prefetch(removal.key);
  }

 private:
  struct Removal {
    ValueIndex *index;
    ValueIndex::Key key;
  };

  void make() noexcept {
    const std::span<const Removal> removals(removals_.data(), count_);
    TouchedSets sets;
    for (const Removal &removal : removals) sets.add(*removal.index, removal.key);
    sets.prefetch(label_);
    for (const Removal &removal : removals) removal.index->remove(label_, removal.key);
    count_ = 0;
  }

  std::uint32_t label_;
  std::size_t count_ = 0;
  std::array<Removal, 16> removals_;
};

bool fill_from_records(ValueIndex &index, std::uint32_t type) noexcept {
  for (std::uint32_t slot = 0; slot < sessions.slots_used(); ++slot) {
    const std::uint32_t label = sessions.label_at(slot);
    if (label == 0) continue;
    const StoredValue stored = sessions.at(slot).attributes.find(type);
    if (stored.found && !add_to(index, label, type, stored.bytes)) return false;
  }
  return true;
}

}  // namespace

std::unique_ptr<RecordIndexes> RecordIndexes::make() noexcept {
  if (!draw_digest_keys()) return nullptr;
  std::unique_ptr<RecordIndexes> indexes(new (std::nothrow) RecordIndexes);
  if (indexes != nullptr && indexes->index_of(AAA_ATTR_INTERFACE_ID) == nullptr) return nullptr;
  return indexes;
}

ValueIndex *RecordIndexes::build_index(std::uint32_t type) noexcept {
  std::unique_ptr<ValueIndex> index(new (std::nothrow) ValueIndex(type == AAA_ATTR_INTERFACE_ID));
  if (index == nullptr) return nullptr;
  if (holders_[type] != 0 && !fill_from_records(*index, type)) return nullptr;
  return indexes_[type] = index.release();
}

bool RecordIndexes::enter_indexed(std::uint32_t label, std::uint32_t type, Bytes value) noexcept {
  return add_to(*indexes_[type], label, type, value);
}

void RecordIndexes::leave(std::uint32_t label, std::uint32_t type, Bytes value) noexcept {
  if (indexes_[type] != nullptr) remove_from(*indexes_[type], label, type, value);
}

bool RecordIndexes::enter_all(std::uint32_t label, const StoredAttributes &attributes) noexcept {
  std::uint32_t entered = 0;
  const bool complete = attributes.for_each([&](std::uint32_t type, Bytes value) {
    if (!enter(label, type, value)) return false;
    gained(type);
    ++entered;
    return true;
  });
  if (complete) return true;
  attributes.for_each([&](std::uint32_t type, Bytes value) {
    if (entered-- == 0) return false;
    leave(label, type, value);
    lost(type);
    return true;
  });
  return false;
}

void RecordIndexes::leave_all(std::uint32_t label, const StoredAttributes &attributes) noexcept {
  Removals removals(label);
  attributes.for_each([&](std::uint32_t type, Bytes value) {
    lost(type);
    ValueIndex *index = indexes_[type];
    if (index == nullptr) return true;
    for_each_indexed(type, value, [&](Bytes one) {
      removals.add(*index, one);
      return true;
    });
    return true;
  });
}

}  // namespace kivo_platform
