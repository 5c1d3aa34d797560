// Registrations, the old value, and the dispatch. Registrations hang off the acceleration entry of
// their type; the dispatch pins the database's tables while callbacks run, since a callback may
// create the database anew.
#include "notification.h"

#include <cstring>

#include "abandoned.h"
#include "accel_table.h"
#include "alloc_tags.h"
#include "platform/named_alloc.h"
#include "trace.h"

kivo_attr_value kivo_notify_old_value = {};

namespace kivo {
namespace {

static_assert(offsetof(kivo_notify_reg, link) == 0);

kivo_notify_reg *next_registration(const kivo_accel_entry &entry,
                                   const kivo_notify_reg *reg) noexcept {
  return static_cast<kivo_notify_reg *>(queue_get_next(&entry.notify_regs, reg));
}

kivo_notify_reg *find_registration(const kivo_accel_entry &entry, const kivo_db *db) noexcept {
  kivo_notify_reg *reg = next_registration(entry, nullptr);
  while (reg != nullptr && reg->client != db) reg = next_registration(entry, reg);
  return reg;
}

// For a trace: callbacks are shown by their address.
void *address_of(kivo_notify_cb callback) noexcept { return reinterpret_cast<void *>(callback); }

// The database's registration for the type, made if it is not there; null without memory.
kivo_notify_reg *find_or_add_registration(kivo_accel_entry &entry, kivo_db &db, uint32_t type,
                                          uint32_t actions) noexcept {
  kivo_notify_reg *reg = find_registration(entry, &db);
  if (reg != nullptr) {
    kivo_trace_event(msg::kRegisterUpdate, db.db_name, static_cast<int>(actions),
                     static_cast<int>(type), address_of(db.client.notify_cb));
    return reg;
  }
  reg = static_cast<kivo_notify_reg *>(
      NAMED_ZALLOC(kTagNotifyReg, "kivo notify reg", sizeof(kivo_notify_reg)));
  kivo_trace_event(msg::kRegisterNew, db.db_name, static_cast<int>(actions), static_cast<int>(type),
                   address_of(db.client.notify_cb));
  if (reg == nullptr) {
    kivo_trace_error(msg::kChangeFailed, db.db_name);
    return nullptr;
  }
  queue_init(&reg->handles);
  queue_enqueue(&entry.notify_regs, reg);
  return reg;
}

// What is announced.
struct Change {
  kivo_db *db;
  uint32_t type;
  uint32_t size;
  const void *value;
  const void *bytes;  // what callbacks are shown
  uint32_t label;
  uint32_t action;
};

bool is_concerned(const kivo_notify_reg &reg, const Change &change) noexcept {
  return reg.client == change.db &&
         (reg.actions & (change.action | KIVO_ACTION_UNCONDITIONAL)) != 0 &&
         reg.notify_cb != nullptr;
}

// ---- The ways that few announcements go. Most are of a type without an entry or without a
// registration, and every write of an attribute makes one: what those need is all that
// kivo_attr_change_notification() contains.

[[gnu::noinline]] uint32_t refuse(const kivo_db *db, uint32_t size, const void *value) noexcept {
  kivo_trace_error(msg::kNotifyBadParams, size, value, static_cast<const void *>(db));
  return KIVO_ERR_INVALID_ARG;
}

[[gnu::noinline]] uint32_t dispatch(const Change &change, const kivo_accel_entry &entry) noexcept {
  kivo_notify_reg *reg = next_registration(entry, nullptr);
  if (reg == nullptr) return PLATFORM_OK;  // nobody asked: the value need not be packed

  kivo_attr_value new_value{.aaa_type = change.type, .size = change.size, .data = {}};
  std::memcpy(new_value.data, change.bytes, change.size);
  const WalkPin pin(*change.db);
  for (; reg != nullptr; reg = next_registration(entry, reg)) {
    if (!is_concerned(*reg, change)) continue;
    kivo_trace_event(msg::kNotify, static_cast<int>(change.type), static_cast<int>(change.size),
                     change.value);
    reg->notify_cb(change.db, change.label, 1, &new_value, &kivo_notify_old_value, change.action,
                   &reg->handles);
  }
  return PLATFORM_OK;
}

// With the traces of the look-up.
[[gnu::noinline]] uint32_t dispatch_traced(const Change &change) noexcept {
  kivo_accel_entry *entry = nullptr;
  const uint32_t status = kivo_get_accel_from_type(change.type, change.db, &entry);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kChangeFailed, change.db->db_name);
    return status;
  }
  if (entry != nullptr) return dispatch(change, *entry);
  kivo_trace_event(msg::kNotifyNoAccelType, change.db->db_name, static_cast<int>(change.type));
  return PLATFORM_OK;
}

}  // namespace

bool is_announced(const kivo_db *db, uint32_t type) noexcept {
  const kivo_accel_entry *const entry = db != nullptr ? entry_of(*db, type) : nullptr;
  return entry != nullptr && entry->notify_regs.head != nullptr;
}

}  // namespace kivo

using namespace kivo;

uint32_t kivo_register_attr_change_notification(kivo_db *db, uint32_t type, uint32_t actions,
                                                void *handle) noexcept {
  if (db == nullptr) {
    kivo_trace_error(msg::kRegisterChangeNoDb);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_accel_entry *entry = nullptr;
  const uint32_t status = kivo_get_accel_from_type(type, db, &entry);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kChangeFailed, db->db_name);
    return status;
  }
  if (entry == nullptr) {
    kivo_trace_event(msg::kRegisterNoAccelType, db->db_name, static_cast<int>(type));
    return KIVO_ERR_INVALID_ARG;
  }
  if (handle == nullptr) return KIVO_ERR_INVALID_ARG;
  kivo_notify_reg *reg = find_or_add_registration(*entry, *db, type, actions);
  if (reg == nullptr) return KIVO_ERR_INVALID_ARG;
  reg->client = db;
  reg->actions |= actions;
  reg->notify_cb = db->client.notify_cb;
  reg->handle_name_cb = db->client.handle_name_cb;
  if (queue_entry_in_queue(&reg->handles, handle) == 0) queue_enqueue(&reg->handles, handle);
  return PLATFORM_OK;
}

uint32_t kivo_deregister_attr_change_notification(kivo_db *, uint32_t, uint32_t, void *) noexcept {
  return KIVO_ERR_FAILED;
}

uint32_t kivo_set_notify_old_attr_value(uint32_t type, uint32_t size, const void *value) noexcept {
  if (size >= KIVO_ATTR_VALUE_DATA_SIZE) {
    kivo_trace_error(msg::kOldValueTooLong, size, KIVO_ATTR_VALUE_DATA_SIZE);
    return KIVO_ERR_INVALID_VALUE;
  }
  kivo_notify_old_value.aaa_type = type;
  kivo_notify_old_value.size = size;
  if (size != 0) std::memmove(kivo_notify_old_value.data, value, size);
  kivo_notify_old_value.data[size] = 0;
  return PLATFORM_OK;
}

void kivo_init_notify_old_attr(void) noexcept {
  kivo_notify_old_value.aaa_type = 0;
  kivo_notify_old_value.size = 0;
  kivo_notify_old_value.data[0] = 0;
}

uint32_t kivo_attr_change_notification(kivo_db *db, uint32_t type, uint32_t size, const void *value,
                                       const void *bytes, uint32_t label,
                                       uint32_t action) noexcept {
  if (db == nullptr || size == 0 || size >= KIVO_ATTR_VALUE_DATA_SIZE || value == nullptr) {
    return refuse(db, size, value);
  }
  if (type == 0 || facility_wants_events()) {
    return dispatch_traced({db, type, size, value, bytes, label, action});
  }
  if (!is_announced(db, type)) return PLATFORM_OK;
  return dispatch({db, type, size, value, bytes, label, action}, *entry_of(*db, type));
}
