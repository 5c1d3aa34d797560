// Everything that the store keeps about attribute values beside the records: an index for each
// declared type, always one for interface ids, which keeps them in numeric order, and for every
// type how many records hold it. Between the attribute service, which reports each change of a
// record's value, and ValueIndex. Invariants: (1) enter() happens whole or not at all; leave(),
// gained() and lost() cannot fail; (2) type 10 is entered address by address. Threads: none; the
// process serialises all calls.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/aaa_dictionary.h"
#include "stored_attributes.h"
#include "value_index.h"

namespace kivo_platform {

struct TypedValue {
  std::uint32_t type;
  Bytes value;
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

  // Enters a value, or the addresses of a value of type 10, that the record did not hold so far.
  [[nodiscard]] bool enter(std::uint32_t label, std::uint32_t type, Bytes value) noexcept {
    return indexes_[type] == nullptr || enter_indexed(label, type, value);
  }
  void leave(std::uint32_t label, std::uint32_t type, Bytes value) noexcept;

  // These values, at most kPrefetched, of indexed types are probably about to be entered, perhaps
  // for this label.
  static constexpr std::size_t kPrefetched = 16;
  bool has_index(std::uint32_t type) const noexcept {
    return type <= AAA_ATTR_TYPE_MAX && indexes_[type] != nullptr;
  }
  void prefetch(std::span<const TypedValue> values, std::uint32_t label) noexcept;
  // A record is about to enter one value and leave the other.
  void prefetch_change(std::uint32_t label, std::uint32_t type, Bytes from, Bytes to) noexcept;

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
