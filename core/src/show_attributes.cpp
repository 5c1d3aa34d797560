// See show_attributes.h. Handle-name callbacks run in the middle of the table and may create the
// database anew, so that its tables are pinned while they are walked.
#include "show_attributes.h"

#include <cstring>

#include "abandoned.h"
#include "console.h"
#include "database.h"
#include "notification.h"
#include "platform/aaa.h"
#include "trace.h"

namespace kivo {
namespace {

constexpr size_t kOwnerShown = 16;
constexpr int kOwnerCut = 12;

const char *action_name(uint32_t actions) noexcept {
  if (actions < kivo_notify_action_names.size()) return kivo_notify_action_names[actions];
  return (actions & KIVO_ACTION_UNCONDITIONAL) != 0
             ? kivo_notify_action_names[KIVO_ACTION_UNCONDITIONAL]
             : "---";
}

void write_headings(bool with_notifications) noexcept {
  kivo_console_write("\n\n           ATTRIBUTE  ATTR TYPE");
  if (with_notifications) kivo_console_write("    NOTIFY CLIENTS  ACT   NOTIFY HANDLES");
  kivo_console_write("\n--------------------  ---------");
  if (with_notifications) kivo_console_write("  ----------------  ---  ---------------");
}

void write_legend() noexcept {
  kivo_console_write(
      "\n\nACTIONS\n-------\nERR : Error, invalid action, A/U : Add or Update, REM : Remove,\n"
      "AUR : Add or Update or Remove, UNC : Unconditional");
}

void write_no_client() noexcept { kivo_console_write("               ---   -             -----"); }

// The notification columns of one attribute row. The first client and the first handle share the
// row's line; every further one starts a line of its own under its column.
class NotificationColumns {
 public:
  NotificationColumns(kivo_db &db, uint32_t aaa_type) noexcept : db_(db), aaa_type_(aaa_type) {}

  void write(const platform_queue &registrations) noexcept {
    void *entry = queue_get_next(&registrations, nullptr);
    if (entry == nullptr) write_no_client();
    for (; entry != nullptr; entry = queue_get_next(&registrations, entry)) {
      write_registration(*static_cast<const kivo_notify_reg *>(entry));
    }
  }

 private:
  void write_registration(const kivo_notify_reg &reg) noexcept {
    if (reg.notify_cb == nullptr) {
      write_no_client();
      return;
    }
    if (client_shown_) kivo_console_write("\n%32s", " ");
    client_shown_ = true;
    if (strnlen(db_.owner_name, KIVO_NAME_SIZE) <= kOwnerShown) {
      kivo_console_write("  %-16s", db_.owner_name);
    } else {
      kivo_console_write("  %-13.*s...", kOwnerCut, db_.owner_name);
    }
    kivo_console_write("  %3s", action_name(reg.actions));
    void *handle = queue_get_next(&reg.handles, nullptr);
    if (handle == nullptr) kivo_console_write("  --");
    for (; handle != nullptr; handle = queue_get_next(&reg.handles, handle)) {
      write_handle(reg, handle);
    }
  }

  void write_handle(const kivo_notify_reg &reg, void *handle) noexcept {
    if (handle_shown_) kivo_console_write("\n%54s", " ");
    handle_shown_ = true;
    if (reg.handle_name_cb == nullptr) {
      kivo_console_write("  %-15s", "- details N/A -");
      return;
    }
    const char *name = name_or_empty(reg.handle_name_cb(&db_, aaa_type_, handle));
    kivo_console_write("  %-15.15s", *name != '\0' ? name : "- details n/a -");
  }

  kivo_db &db_;
  uint32_t aaa_type_;
  bool client_shown_ = false;
  bool handle_shown_ = false;
};

// One row. Returns false when the table cannot go on.
bool show_row(kivo_db &db, const kivo_attr_config &row, bool with_notifications) noexcept {
  kivo_console_write("\n%-20s  %-9s", aaa_dict_get_attr_name(row.aaa_type),
                     data_type_name(row.data_type));
  kivo_accel_entry *entry = nullptr;
  const uint32_t status = kivo_get_accel_from_type(row.aaa_type, &db, &entry);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kShowAccelFailed, error_text(status));
    return false;
  }
  if (entry == nullptr) {
    kivo_trace_event(msg::kShowNotIndexedType, static_cast<int>(row.aaa_type));
    return true;
  }
  if (with_notifications) NotificationColumns(db, row.aaa_type).write(entry->notify_regs);
  return true;
}

}  // namespace

void show_attribute_table(kivo_db &db, bool with_notifications) noexcept {
  write_headings(with_notifications);
  const ConfigRows rows = config_rows(db);
  if (rows.empty()) {
    kivo_console_write("\nNo Attributes Found.");
    return;
  }
  const WalkPin pin(db);
  for (const kivo_attr_config &row : rows) {
    if (!show_row(db, row, with_notifications)) return;
  }
  if (with_notifications) write_legend();
}

}  // namespace kivo
