// Hash table: open addressing with the entries in place, so that an operation costs one cache miss
// in the table and one at the key. Equal keys share one slot: the newest entry is in it, older ones
// hang behind it, the newest in front, in an array of their own (Overflow).
// Invariants: (1) a slot is free when its key is null, and at least one is free; (2) between a slot
// and the home of its entry no slot is free (removal closes gaps, there are no tombstones); (3) the
// keys in slots differ from each other.
// Threads: none; the process serialises all calls.
#include "platform/hash_table.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <memory>
#include <new>

#include "pages.h"

namespace {

struct Slot {
  const void *key;
  void *data;
  uint32_t hash;    // mixed
  uint32_t equals;  // next older entry with this key, 1 for the first of the overflow; 0 none
};
static_assert(sizeof(Slot) == 24);

// An entry whose key equals that of a slot, and that is older.
struct Equal {
  const void *key;
  void *data;
  uint32_t next;  // as Slot::equals; also links what is free
};

using kivo_platform::make_page_array;
using kivo_platform::PageArray;

constexpr std::size_t kSlotsMin = 8;
constexpr std::size_t kSlotsKept = std::size_t{1} << 16;  // 1.5 MiB are not worth giving back
constexpr std::size_t kSlotsMax = std::size_t{1} << 32;
constexpr std::uint32_t kSizeMax = 1U << 24;
constexpr std::size_t kEqualsMin = 64;
constexpr std::size_t kEqualsMax = UINT32_MAX;

// Every bit of a caller's hash reaches the low bits, which choose the slot. One to one: different
// hashes stay different.
uint32_t mix(uint32_t hash) noexcept {
  hash ^= hash >> 16;
  hash *= 0x7feb352dU;
  hash ^= hash >> 15;
  hash *= 0x846ca68bU;
  return hash ^ hash >> 16;
}

// The entries behind the slots, in one array that is addressed by number (from 1).
class Overflow {
 public:
  std::size_t capacity() const noexcept { return capacity_; }
  std::size_t n_live() const noexcept { return n_live_; }
  Equal &at(uint32_t number) noexcept { return items_[number - 1]; }

  bool reserve_one() noexcept {
    if (free_ != 0 || n_fresh_ < capacity_) return true;
    const std::size_t capacity = std::min(std::max(kEqualsMin, capacity_ * 2), kEqualsMax);
    if (capacity == capacity_) return false;
    PageArray<Equal> items = make_page_array<Equal>(capacity);
    if (items == nullptr) return false;
    std::copy_n(items_.get(), n_fresh_, items.get());
    items_ = std::move(items);
    capacity_ = capacity;
    return true;
  }

  // reserve_one() has succeeded.
  uint32_t take() noexcept {
    ++n_live_;
    if (free_ == 0) return static_cast<uint32_t>(++n_fresh_);
    const uint32_t number = free_;
    free_ = at(number).next;
    return number;
  }

  void give_back(uint32_t number) noexcept {
    at(number).next = free_;
    free_ = number;
    --n_live_;
  }

  // Moves what the slots hold into an array of this capacity, which must suffice. Nothing changes
  // without memory.
  void compact(Slot *slots, std::size_t n_slots, std::size_t capacity) noexcept {
    Overflow smaller;
    smaller.items_ = make_page_array<Equal>(capacity);
    if (smaller.items_ == nullptr) return;
    smaller.capacity_ = capacity;
    for (std::size_t i = 0; i < n_slots && smaller.n_live_ < n_live_; ++i) {
      for (uint32_t *link = &slots[i].equals; *link != 0;) {
        const Equal &moved = at(*link);
        *link = smaller.take();
        Equal &copy = smaller.at(*link);
        copy = moved;
        link = &copy.next;
      }
    }
    *this = std::move(smaller);
  }

 private:
  PageArray<Equal> items_;
  std::size_t capacity_ = 0;
  std::size_t n_fresh_ = 0;  // items from here on were never used
  std::size_t n_live_ = 0;
  uint32_t free_ = 0;
};

}  // namespace

struct hash_table {
  PageArray<Slot> slots;
  std::size_t n_slots;        // a power of two
  std::size_t n_slots_floor;  // it never shrinks below
  std::size_t n_used;
  uint32_t n_items;  // n_used and what is in the overflow
  hash_table_hash hash;
  hash_table_compare compare;
  Overflow overflow;
};

namespace {

// The slot of the key, or the free one where it would go.
Slot &locate(const hash_table &table, const void *key, uint32_t hash) noexcept {
  const std::size_t mask = table.n_slots - 1;
  for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
    Slot &slot = table.slots[at];
    if (slot.key == nullptr) return slot;
    if (slot.hash == hash && table.compare(key, slot.key) == 0) return slot;
  }
}

bool resize(hash_table &table, std::size_t n_slots) noexcept {
  PageArray<Slot> slots = make_page_array<Slot>(n_slots);
  if (slots == nullptr) return false;
  const std::size_t mask = n_slots - 1;
  for (std::size_t i = 0; i < table.n_slots; ++i) {
    const Slot &slot = table.slots[i];
    if (slot.key == nullptr) continue;
    std::size_t at = slot.hash & mask;
    while (slots[at].key != nullptr) at = (at + 1) & mask;
    slots[at] = slot;
  }
  table.slots = std::move(slots);
  table.n_slots = n_slots;
  return true;
}

// At most five slots in eight are used.
bool has_room(const hash_table &table) noexcept {
  return 8 * (table.n_used + 1) <= 5 * table.n_slots;
}

int add_equal(hash_table &table, Slot &slot, const void *key, void *data) noexcept {
  if (!table.overflow.reserve_one()) return 1;
  const uint32_t number = table.overflow.take();
  table.overflow.at(number) = {slot.key, slot.data, slot.equals};
  slot = {key, data, slot.hash, number};
  return 0;
}

// Frees a slot and moves up what stands behind it and may stand there.
void close_gap(hash_table &table, std::size_t gap) noexcept {
  const std::size_t mask = table.n_slots - 1;
  for (std::size_t at = (gap + 1) & mask; table.slots[at].key != nullptr; at = (at + 1) & mask) {
    const std::size_t distance_home = (at - table.slots[at].hash) & mask;
    if (distance_home < ((at - gap) & mask)) continue;
    table.slots[gap] = table.slots[at];
    gap = at;
  }
  table.slots[gap] = Slot{};
}

// Both arrays shrink to a quarter when an eighth is in use. The overflow is worth a walk over the
// slots only when it is not small beside them. Without memory for the smaller array it stays.
void give_back_memory(hash_table &table) noexcept {
  if (table.n_slots > table.n_slots_floor && table.n_used < table.n_slots / 8) {
    resize(table, std::max(table.n_slots / 4, table.n_slots_floor));
  }
  Overflow &overflow = table.overflow;
  if (overflow.capacity() <= kEqualsMin || overflow.n_live() >= overflow.capacity() / 8) return;
  if (overflow.capacity() < table.n_slots / 4) return;
  overflow.compact(table.slots.get(), table.n_slots, std::max(overflow.capacity() / 4, kEqualsMin));
}

}  // namespace

hash_table *htMakeHashTable(uint32_t size, hash_table_hash hash,
                            hash_table_compare compare) noexcept {
  if (size == 0 || size > kSizeMax || hash == nullptr || compare == nullptr) return nullptr;
  const std::size_t n_slots = std::max(kSlotsMin, std::bit_ceil(std::size_t{size}));
  PageArray<Slot> slots = make_page_array<Slot>(n_slots);
  if (slots == nullptr) return nullptr;
  return new (std::nothrow) hash_table{
      std::move(slots), n_slots, std::max(n_slots, kSlotsKept), 0, 0, hash, compare, Overflow{}};
}

int htAdd(hash_table *table, const void *key, void *data) noexcept {
  if (table == nullptr || key == nullptr || data == nullptr) return 1;
  if (table->n_items == UINT32_MAX) return 1;
  const uint32_t hash = mix(table->hash(key));
  Slot *slot = &locate(*table, key, hash);
  if (slot->key != nullptr) {
    if (add_equal(*table, *slot, key, data) != 0) return 1;
    ++table->n_items;
    return 0;
  }
  if (!has_room(*table)) {
    if (table->n_slots >= kSlotsMax || !resize(*table, 2 * table->n_slots)) return 1;
    slot = &locate(*table, key, hash);
  }
  *slot = {key, data, hash, 0};
  ++table->n_used;
  ++table->n_items;
  return 0;
}

void *htFind(const hash_table *table, const void *key) noexcept {
  if (table == nullptr || key == nullptr) return nullptr;
  return locate(*table, key, mix(table->hash(key))).data;
}

int htRemove(hash_table *table, const void *key) noexcept {
  if (table == nullptr || key == nullptr) return 0;
  Slot &slot = locate(*table, key, mix(table->hash(key)));
  if (slot.key == nullptr) return 0;
  if (slot.equals != 0) {
    const uint32_t number = slot.equals;
    const Equal &older = table->overflow.at(number);
    slot = {older.key, older.data, slot.hash, older.next};
    table->overflow.give_back(number);
  } else {
    close_gap(*table, static_cast<std::size_t>(&slot - table->slots.get()));
    --table->n_used;
  }
  --table->n_items;
  give_back_memory(*table);
  return 1;
}

uint32_t htItems(const hash_table *table) noexcept { return table == nullptr ? 0 : table->n_items; }

void htDestroyHashTable(hash_table *table) noexcept {
  std::unique_ptr<hash_table> destroyed{table};
}
