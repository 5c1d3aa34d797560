// The acceleration table: one entry for each attribute type of a configuration, reached through the
// slot map in constant time. Built at creation and never changed afterwards, but for the queues of
// registrations (notification.cpp). A failed re-creation may leave the old table beside new row
// counts, so the table's size is accel_count and nothing else.
#include "accel_table.h"

#include <algorithm>
#include <iterator>

#include "abandoned.h"
#include "platform/attrdb.h"
#include "trace.h"

const uint32_t KIVO_ATTR_SIZES_NEW[9] = {4, 8, 4, 16, 6, 24, 8, 0, 0};

namespace kivo {
namespace {

constexpr uint32_t kLayoutStart = 16;

// Layout of the fixed-size values of one kind of row.
struct Layout {
  uint32_t end = kLayoutStart;
  uint32_t *last_offset;

  // Places a value and returns its offset; behind it lie 48 bytes, rounded up to a multiple of 8.
  uint32_t place(uint32_t size) noexcept {
    const uint32_t offset = end;
    *last_offset = offset;
    end = (offset + size + 55) & ~UINT32_C(7);
    return offset;
  }
};

// The slot that a row takes: a new one, or that of an earlier row of its type. kNoSlot when the
// table is full, which it cannot be while there is an entry for every row.
int32_t take_slot(kivo_db &db, uint32_t type, uint32_t n_entries, uint32_t &next_free) noexcept {
  int32_t &slot = db.accel_slot[type];
  if (slot != kNoSlot) {
    kivo_trace_error(msg::kAccelSlotTaken, slot, static_cast<int>(db.accel_tbl[slot].aaa_type));
    return slot;
  }
  if (next_free >= n_entries) return kNoSlot;
  slot = static_cast<int32_t>(next_free++);
  return slot;
}

void fill_entry(kivo_accel_entry &entry, const kivo_attr_config &row, Layout &layout) noexcept {
  entry.data_type = row.data_type;
  entry.indexed = row.index_kind == KIVO_INDEX_KIND_NONE ? 0 : 1;
  const uint32_t size = KIVO_ATTR_SIZES_NEW[row.data_type];
  entry.layout_offset = size == 0 ? 0 : layout.place(size);
  queue_init(&entry.notify_regs);
  entry.aaa_type = row.aaa_type;
}

bool fill_table(kivo_db &db, uint32_t n_rows) noexcept {
  Layout indexed{.last_offset = &db.indexed_last_offset};
  Layout unindexed{.last_offset = &db.unindexed_last_offset};
  uint32_t next_free = 0;
  for (uint32_t i = 0; i < n_rows; ++i) {
    const kivo_attr_config &row = db.attr_cfg[i];
    const int32_t slot = take_slot(db, row.aaa_type, n_rows, next_free);
    if (slot == kNoSlot) return false;
    fill_entry(db.accel_tbl[slot], row,
               row.index_kind == KIVO_INDEX_KIND_NONE ? unindexed : indexed);
  }
  db.indexed_area_size = indexed.end;
  db.unindexed_area_size = unindexed.end;
  return true;
}

void drop_table(kivo_db &db) noexcept {
  abandon_accel_table(db, db.accel_tbl);
  db.accel_tbl = nullptr;
  db.accel_count = 0;
}

// A look-up with its traces. Apart, so that one without them is short: every write makes one.
[[gnu::noinline]] uint32_t look_up_traced(uint32_t type, const kivo_db &db,
                                          kivo_accel_entry *&found) noexcept {
  kivo_trace_event(msg::kAccelLookup, get_attr_name_from_type(type), slot_of(db, type));
  kivo_accel_entry *const entry = entry_at_slot(db, type);
  if (entry != nullptr && entry->aaa_type == type) {
    found = entry;
  } else {
    kivo_trace_event(msg::kAccelLookupNone, static_cast<void *>(entry), static_cast<int>(type));
  }
  return PLATFORM_OK;
}

}  // namespace

uint32_t build_accel_table(kivo_db &db) noexcept {
  if (db.indexed_count == 0) {
    kivo_trace_error(msg::kAccelNoIndexedRow);
    return KIVO_ERR_INVALID_ARG;
  }
  const uint32_t n_rows = db.indexed_count + db.unindexed_count;
  std::fill(std::begin(db.accel_slot), std::end(db.accel_slot), kNoSlot);
  drop_table(db);
  db.accel_tbl = allocate_accel_table(n_rows);
  if (db.accel_tbl == nullptr) {
    kivo_trace_error(msg::kAccelNoMemory);
    return KIVO_ERR_INVALID_ARG;
  }
  db.accel_count = n_rows;
  if (!fill_table(db, n_rows)) {
    drop_table(db);
    kivo_trace_error(msg::kAccelSlotGuard);
    return KIVO_ERR_FAILED;
  }
  return PLATFORM_OK;
}

}  // namespace kivo

uint32_t kivo_get_accel_from_type(uint32_t type, kivo_db *db, kivo_accel_entry **out) noexcept {
  using namespace kivo;
  if (type == 0 || db == nullptr || out == nullptr) return KIVO_ERR_INVALID_ARG;
  *out = nullptr;
  if (facility_wants_events()) return look_up_traced(type, *db, *out);
  *out = entry_of(*db, type);
  return PLATFORM_OK;
}

uint32_t kivo_get_kivo_type_from_aaa_type(kivo_db *db, uint32_t type) noexcept {
  kivo_accel_entry *entry = nullptr;
  if (db == nullptr || kivo_get_accel_from_type(type, db, &entry) != PLATFORM_OK ||
      entry == nullptr) {
    return ATTRDB_TYPE_UNKNOWN;
  }
  return attrdb_kivo_type_to_attrdb_type(entry->data_type);
}

uint32_t kivo_get_index_from_aaa_type(const kivo_db *db, uint32_t type) noexcept {
  if (db == nullptr) return KIVO_SLOT_NONE;
  return static_cast<uint32_t>(kivo::slot_of(*db, type));
}
