// The attribute contexts of the process, each in a numbered slot, and the directory from labels to
// slots. A session of ordinary size is one object of 256 bytes, four cache lines: the record that
// users see and the attributes lie inside its context, so adopting a context sets a label and moves
// nothing. Under the attribute service and the record
// store.
// Invariants: (1) a slot's address never changes; (2) label_at() is not 0 exactly for the slots
// whose context is a record; (3) free slots are reused, the one freed last first, and all of them
// in their order once none is taken.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>

#include "chunked_array.h"
#include "platform/attrdb.h"
#include "ref_table.h"
#include "stored_attributes.h"

struct shadowdb_rec;

struct auth_ctxt {
  attrdb_record record;  // label 0 while no record owns the context
  shadowdb_rec *shadow;
  std::uint32_t slot;
  std::uint32_t next_free;  // of a free slot: the next free one, plus 1
  kivo_platform::StoredAttributes attributes;
};
static_assert(sizeof(auth_ctxt) == 256);
static_assert(offsetof(attrdb_record, label) == 24 && offsetof(attrdb_record, ctxt) == 32);

namespace kivo_platform {

class SessionSlots {
 public:
  constexpr SessionSlots() noexcept = default;

  // An empty context that no record owns; null without memory.
  auth_ctxt *take() noexcept;
  void give_back(auth_ctxt *ctxt) noexcept;

  // Makes sure that the next bind() has the memory it may need.
  [[nodiscard]] bool reserve_label() noexcept { return labels_to_slots_.reserve(); }
  void bind(auth_ctxt *ctxt, std::uint32_t label) noexcept;
  void unbind(auth_ctxt *ctxt) noexcept;

  // The context of a label's record; null when there is none.
  auth_ctxt *find(std::uint32_t label) noexcept;

  // The label that find() was asked for last: a guess at what will be written next.
  std::uint32_t found_last() const noexcept { return found_last_; }

  auth_ctxt &at(std::uint32_t slot) noexcept { return contexts_[slot]; }
  std::uint32_t label_at(std::uint32_t slot) const noexcept { return labels_[slot]; }

  std::uint32_t slots_used() const noexcept { return slots_used_; }  // slots above were never used
  std::uint32_t live_contexts() const noexcept { return live_; }
  std::uint32_t records() const noexcept { return labels_to_slots_.size(); }

 private:
  ChunkedArray<auth_ctxt, 256> contexts_;
  ChunkedArray<std::uint32_t, 4096> labels_;  // dense, for walks over all records
  RefTable<std::uint32_t, 64> labels_to_slots_;
  std::uint32_t slots_used_ = 0;
  std::uint32_t free_slot_ = 0;  // plus 1
  std::uint32_t live_ = 0;
  std::uint32_t found_last_ = 0;
};

extern SessionSlots sessions;

}  // namespace kivo_platform
