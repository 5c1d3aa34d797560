// Everything that the store keeps about attribute values beside the records: an index for each
// declared type, always one for interface ids, which keeps them in numeric order, and for every
// type how many records hold it. Between the attribute service, which reports each change of a
// record's value, and ValueIndex. Invariants: (1) enter() and change() happen whole or not at all;
// leave(), gained() and lost() cannot fail; (2) type 10 is entered address by address. Threads:
// none; the process serialises all calls.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "platform/aaa_dictionary.h"
#include "stored_attributes.h"
#include "value_index.h"

namespace kivo_platform {

// The sets that a label is about to enter or to leave. What this will read is fetched in two steps,
// of all sets together: the sets themselves, then the places in them. A full one takes no more.
class TouchedSets {
 public:
  void add(ValueIndex &index, const ValueIndex::Key &key) noexcept {
    if (full() || !index.mostly_shared()) return;
    if (const LabelSet *set = index.prefetch_labels(key); set != nullptr) sets_[count_++] = set;
  }
  bool full() const noexcept { return count_ == sets_.size(); }
  // Backwards, so that the first has had the most time: of the usual attributes that is the
  // interface, whose set is hardly ever in the caches.
  void prefetch(std::uint32_t label) const noexcept {
    for (std::size_t i = count_; i-- != 0;) sets_[i]->prefetch(label);
  }

 private:
  std::size_t count_ = 0;
  std::array<const LabelSet *, 8> sets_;
};

class RecordIndexes {
 public:
  // Null without memory, or without random numbers for the digests of values.
  static std::unique_ptr<RecordIndexes> make() noexcept;

  // The index of a type; built by a walk over all records when there is none. Null without memory.
  // The type is one of the dictionary.
  ValueIndex *index_of(std::uint32_t type) noexcept {
    return indexes_[type] != nullptr ? indexes_[type] : build_index(type);
  }

  bool has_index(std::uint32_t type) const noexcept {
    return type <= AAA_ATTR_TYPE_MAX && indexes_[type] != nullptr;
  }

  // Enters a value, or the addresses of a value of type 10, that the record did not hold so far.
  [[nodiscard]] bool enter(std::uint32_t label, std::uint32_t type, Bytes value) noexcept {
    return indexes_[type] == nullptr || enter_indexed(label, type, value);
  }
  // From one value to another, of any type but 10. Whole or not at all.
  [[nodiscard]] bool change(std::uint32_t label, std::uint32_t type, Bytes from,
                            Bytes to) noexcept {
    return indexes_[type] == nullptr ||
           indexes_[type]->change(label, ValueIndex::Key(from), ValueIndex::Key(to));
  }
  void leave(std::uint32_t label, std::uint32_t type, Bytes value) noexcept;

  // A value is probably about to be entered: has the memory fetched that this will read of its
  // index, and, some time later, of the labels that share it. Of type 10 that is one address; of a
  // value with several nothing useful is fetched.
  void prefetch(std::uint32_t type, Bytes value) noexcept {
    if (has_index(type)) indexes_[type]->prefetch(ValueIndex::Key(value));
  }
  void prefetch_labels(std::uint32_t type, Bytes value, TouchedSets &sets) noexcept {
    if (has_index(type) && indexes_[type]->mostly_shared()) {
      sets.add(*indexes_[type], ValueIndex::Key(value));
    }
  }

  // All attributes of a record at once.
  [[nodiscard]] bool enter_all(std::uint32_t label, const StoredAttributes &attributes) noexcept;
  void leave_all(std::uint32_t label, const StoredAttributes &attributes) noexcept;

  // A record has its first value of the type, or has no longer any.
  void gained(std::uint32_t type) noexcept { ++holders_[type]; }
  void lost(std::uint32_t type) noexcept { --holders_[type]; }
  std::uint32_t holders(std::uint32_t type) const noexcept { return holders_[type]; }

  // The smallest interface id above `after`, 0 when there is none.
  std::uint32_t next_interface_id(std::uint32_t after) const noexcept {
    return indexes_[AAA_ATTR_INTERFACE_ID]->next_number(after);
  }

 private:
  ValueIndex *build_index(std::uint32_t type) noexcept;
  [[nodiscard]] bool enter_indexed(std::uint32_t label, std::uint32_t type, Bytes value) noexcept;

  std::array<ValueIndex *, AAA_ATTR_TYPE_MAX + 1> indexes_{};
  std::array<std::uint32_t, AAA_ATTR_TYPE_MAX + 1> holders_{};
};

// The indexes of the one store; null until attrdb_init() has had the memory for them. They live as
// long as the process.
extern RecordIndexes *indexes_of_store;
inline RecordIndexes *record_indexes() noexcept { return indexes_of_store; }

}  // namespace kivo_platform
