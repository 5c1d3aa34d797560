// The steps that every write and removal shares: finding the record, walking an attribute list,
// telling a write's outcome from its change flag, announcing. The checks, traces and results around
// them differ from operation to operation and stand there.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "kivo/database.h"
#include "kivo/records.h"
#include "notification.h"
#include "platform/aaa.h"
#include "trace.h"

namespace kivo {

// Fetches the record by label when none is given. On success `record` may still be null: no record
// has that label.
inline uint32_t resolve_record(kivo_db *db, uint32_t label, attrdb_record *&record) noexcept {
  return record != nullptr ? PLATFORM_OK : kivo_get_record(db, label, &record);
}

// The action of an add or update, from the store's change flag.
inline uint32_t action_of(uint32_t changed) noexcept {
  return changed != 0 ? KIVO_ACTION_ADD_OR_UPDATE : KIVO_ACTION_NONE;
}

// An attribute on its way into a record or out of it. The bytes are the caller's or, for one read
// from an attribute list, the list's, pinned by the cursor.
struct AttrInHand {
  uint32_t type;
  uint32_t length;
  const void *value;
};

// Announces a change of an attribute and traces a refusal. `bytes` is what callbacks are shown.
inline uint32_t announce(kivo_db *db, uint32_t label, const AttrInHand &attr, const void *bytes,
                         uint32_t action, const TraceMessage &refused,
                         uint32_t level = kErrorLevel) noexcept {
  const uint32_t status =
      kivo_attr_change_notification(db, attr.type, attr.length, attr.value, bytes, label, action);
  if (status == PLATFORM_OK) return PLATFORM_OK;
  if (level == kErrorLevel) {
    kivo_trace_error(refused, error_text(status));
  } else {
    kivo_trace_event(refused, error_text(status));
  }
  return status;
}

// A value may lie in the record that is written, and move with the write: what is announced is
// copied before. Not where nobody is registered, nor a longer value: the dispatch reads neither.
class AnnouncedValue {
 public:
  AnnouncedValue(const kivo_db *db, const AttrInHand &attr) noexcept : value_(attr.value) {
    if (attr.value == nullptr || attr.length >= sizeof copy_ || !is_announced(db, attr.type))
      return;
    std::memcpy(copy_, attr.value, attr.length);
    value_ = copy_;
  }
  AnnouncedValue(const AnnouncedValue &) = delete;
  AnnouncedValue &operator=(const AnnouncedValue &) = delete;
  [[nodiscard]] const void *bytes() const noexcept { return value_; }

 private:
  const void *value_;
  uint8_t copy_[KIVO_ATTR_VALUE_DATA_SIZE];
};

// A cursor over an attribute list, given back on every path.
class ListCursor {
 public:
  explicit ListCursor(uint32_t attr_list) noexcept {
    aaa_cursor *cursor = nullptr;
    if (aaa_cursor_alloc(&cursor, attr_list) == PLATFORM_OK) cursor_.reset(cursor);
  }
  explicit operator bool() const noexcept { return cursor_ != nullptr; }

  // Moves on; attr.type is 0 at the end.
  uint32_t next(AttrInHand &attr) noexcept {
    return aaa_cursor_get_next(cursor_.get(), &attr.type);
  }
  uint32_t read(AttrInHand &attr) noexcept {
    return aaa_cursor_get_value(cursor_.get(), &attr.length, &attr.value);
  }

 private:
  struct Free {
    void operator()(aaa_cursor *cursor) const noexcept { aaa_cursor_free(cursor); }
  };
  std::unique_ptr<aaa_cursor, Free> cursor_;
};

// Calls visit(cursor, attr) for every attribute of a list, in its order, until one returns a
// nonzero status. Returns that status, the status of a failed move, KIVO_ERR_NO_CURSOR, or 0 at the
// end.
template <typename Visit>
uint32_t walk_list(uint32_t attr_list, Visit &&visit) noexcept {
  ListCursor cursor(attr_list);
  if (!cursor) return KIVO_ERR_NO_CURSOR;
  for (;;) {
    AttrInHand attr{};
    uint32_t status = cursor.next(attr);
    if (status != PLATFORM_OK || attr.type == 0) return status;
    status = visit(cursor, attr);
    if (status != PLATFORM_OK) return status;
  }
}

}  // namespace kivo
