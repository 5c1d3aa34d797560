// Attribute lists behind handles, and cursors over them.
// A handle is a slot number and the slot's generation, 1 to kGenerations - 1, so that none is 0.
// Freed slots queue up and wait until kMinWaiting of them do: a handle's number comes back only
// after some sixteen million lists, so a stale handle is found out.
// Invariant: a slot with a storage has its list alive; a storage outlives the list while a cursor
// pins it.
// Threads: none; the process serialises all calls.
#include "attribute_list.h"

#include <memory>
#include <new>

#include "chunked_array.h"
#include "list_storage.h"
#include "record_indexes.h"
#include "session_slots.h"

struct aaa_cursor {
  kivo_platform::ListStorage *storage;
  kivo_platform::ListWalk walk;
  kivo_platform::ListAttribute *current;  // null in front of the first and behind the last
};

namespace kivo_platform {
namespace {

constexpr std::uint32_t kSlotBits = 18;
constexpr std::uint32_t kSlots = UINT32_C(1) << kSlotBits;
constexpr std::uint32_t kGenerations = UINT32_C(1) << (32 - kSlotBits);
constexpr std::uint32_t kMinWaiting = 1024;
constexpr std::uint32_t kNone = UINT32_MAX;

struct ListSlot {
  ListStorage *storage;      // null: free
  std::uint32_t generation;  // of the list, or the next one's
  std::uint32_t next;        // in the queue of free slots
};

class ListSlots {
 public:
  // A handle for a storage; 0 without memory or room, told apart by full().
  std::uint32_t take(ListStorage *storage) noexcept {
    const std::uint32_t slot = take_slot();
    if (slot == kNone) return 0;
    slots_[slot].storage = storage;
    ++live_;
    return slots_[slot].generation << kSlotBits | slot;
  }

  bool full() const noexcept { return live_ == kSlots; }

  // The list of a handle, null for a stale one.
  ListSlot *find(std::uint32_t handle) noexcept {
    const std::uint32_t number = handle % kSlots;
    if (number >= used_) return nullptr;
    ListSlot &slot = slots_[number];
    const bool current = slot.storage != nullptr && slot.generation == handle >> kSlotBits;
    return current ? &slot : nullptr;
  }

  void give_back(std::uint32_t handle) noexcept {
    const std::uint32_t number = handle % kSlots;
    ListSlot &slot = slots_[number];
    slot.storage = nullptr;
    slot.generation = slot.generation == kGenerations - 1 ? 1 : slot.generation + 1;
    slot.next = kNone;
    if (waiting_ == 0) {
      first_free_ = number;
    } else {
      slots_[last_free_].next = number;
    }
    last_free_ = number;
    ++waiting_;
    --live_;
  }

  std::uint32_t live() const noexcept { return live_; }

 private:
  std::uint32_t take_slot() noexcept {
    const bool may_grow = used_ < kSlots;
    if (waiting_ >= kMinWaiting || (!may_grow && waiting_ != 0)) return take_waiting();
    if (!may_grow) return kNone;
    if (used_ == slots_.capacity() && !slots_.grow()) {
      return waiting_ != 0 ? take_waiting() : kNone;
    }
    slots_[used_].generation = 1;
    return used_++;
  }

  std::uint32_t take_waiting() noexcept {
    const std::uint32_t slot = first_free_;
    first_free_ = slots_[slot].next;
    --waiting_;
    return slot;
  }

  ChunkedArray<ListSlot, 1024> slots_;
  std::uint32_t used_ = 0;
  std::uint32_t waiting_ = 0;
  std::uint32_t first_free_ = 0;
  std::uint32_t last_free_ = 0;
  std::uint32_t live_ = 0;
};

// A list that is walked is mostly about to be written into a session, the one that was looked up
// last: where the indexes will enter its label is fetched for all values together, instead of value
// by value.
void prefetch_labels(ListStorage &storage) noexcept {
  RecordIndexes *const indexes = record_indexes();
  if (indexes == nullptr) return;
  TouchedSets sets;
  ListWalk walk(storage);
  for (const ListAttribute *attribute = walk.next(); attribute != nullptr && !sets.full();
       attribute = walk.next()) {
    indexes->prefetch_labels(attribute->type, {attribute->value(), attribute->size}, sets);
  }
  sets.prefetch(sessions.found_last());
}

constinit ListSlots lists;
constinit std::uint32_t live_cursors = 0;

}  // namespace

std::uint32_t add_to_list(std::uint32_t handle, std::uint32_t type, Bytes value) noexcept {
  ListSlot *list = lists.find(handle);
  if (list == nullptr) return AAA_ERR_STALE_LIST;
  if (!append(*list->storage, type, value)) return AAA_ERR_NO_MEMORY;
  if (record_indexes() != nullptr) record_indexes()->prefetch(type, value);
  return PLATFORM_OK;
}

std::uint32_t types_of_list(std::uint32_t handle, TypeSet &types) noexcept {
  ListSlot *list = lists.find(handle);
  if (list == nullptr) return AAA_ERR_STALE_LIST;
  ListWalk walk(*list->storage);
  while (const ListAttribute *attribute = walk.next()) {
    if (attribute->type < types.size()) types.set(attribute->type);
  }
  return PLATFORM_OK;
}

}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" std::uint32_t aaa_list_alloc(std::uint32_t *handle) noexcept {
  if (handle == nullptr) return AAA_ERR_INVALID_ARG;
  *handle = 0;
  if (lists.full()) return AAA_ERR_NO_ROOM;
  ListStorage *storage = new_list_storage();
  if (storage == nullptr) return AAA_ERR_NO_MEMORY;
  *handle = lists.take(storage);
  if (*handle != 0) return PLATFORM_OK;
  unpin_list_storage(storage);
  return AAA_ERR_NO_MEMORY;
}

extern "C" std::uint32_t aaa_list_free(std::uint32_t handle) noexcept {
  ListSlot *list = lists.find(handle);
  if (list == nullptr) return AAA_ERR_STALE_LIST;
  unpin_list_storage(list->storage);
  lists.give_back(handle);
  return PLATFORM_OK;
}

extern "C" std::uint32_t aaa_attr_add(std::uint32_t handle, std::uint32_t type, const void *value,
                                      std::uint32_t size, std::uint32_t, std::uint32_t) noexcept {
  if (type == 0 || (value == nullptr && size != 0)) return AAA_ERR_INVALID_ARG;
  if (size > AAA_VALUE_SIZE_MAX) return AAA_ERR_NO_ROOM;
  return add_to_list(handle, type, as_bytes(value, size));
}

extern "C" std::uint32_t aaa_cursor_alloc(aaa_cursor **out, std::uint32_t handle) noexcept {
  if (out == nullptr) return AAA_ERR_INVALID_ARG;
  *out = nullptr;
  ListSlot *list = lists.find(handle);
  if (list == nullptr) return AAA_ERR_STALE_LIST;
  ListStorage *storage = list->storage;
  *out = new (std::nothrow) aaa_cursor{storage, ListWalk(*storage), nullptr};
  if (*out == nullptr) return AAA_ERR_NO_MEMORY;
  ++storage->pins;
  ++live_cursors;
  prefetch_labels(*storage);
  return PLATFORM_OK;
}

extern "C" std::uint32_t aaa_cursor_get_next(aaa_cursor *cursor, std::uint32_t *type) noexcept {
  if (type != nullptr) *type = 0;
  if (cursor == nullptr || type == nullptr) return AAA_ERR_INVALID_ARG;
  cursor->current = cursor->walk.next();
  if (cursor->current != nullptr) *type = cursor->current->type;
  return PLATFORM_OK;
}

extern "C" std::uint32_t aaa_cursor_get_value(aaa_cursor *cursor, std::uint32_t *size,
                                              const void **value) noexcept {
  if (size != nullptr) *size = 0;
  if (value != nullptr) *value = nullptr;
  if (cursor == nullptr || size == nullptr || value == nullptr) return AAA_ERR_INVALID_ARG;
  if (cursor->current == nullptr) return AAA_ERR_NOT_FOUND;
  *size = cursor->current->size;
  *value = cursor->current->value();
  return PLATFORM_OK;
}

extern "C" void aaa_cursor_free(aaa_cursor *cursor) noexcept {
  if (cursor == nullptr) return;
  const std::unique_ptr<aaa_cursor> owned(cursor);
  unpin_list_storage(owned->storage);
  --live_cursors;
}

extern "C" std::uint32_t aaa_live_lists(void) noexcept { return lists.live(); }
extern "C" std::uint32_t aaa_live_cursors(void) noexcept { return live_cursors; }
