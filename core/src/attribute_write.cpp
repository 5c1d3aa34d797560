// Writing one attribute: the model of every write path. Resolve the record, write through the
// attribute service, announce with the action that the change flag implies.
#include "kivo/attribute_write.h"

#include <cstring>

#include "attribute_steps.h"
#include "trace.h"

namespace {

// A value may lie in the record that is written, and move with the write: what is announced is
// copied before. Longer values are refused by the dispatch without being read.
class AnnouncedValue {
 public:
  AnnouncedValue(const void *value, uint32_t size) noexcept : value_(value) {
    if (size >= KIVO_ATTR_VALUE_DATA_SIZE) return;
    std::memcpy(copy_, value, size);
    value_ = copy_;
  }
  AnnouncedValue(const AnnouncedValue &) = delete;
  AnnouncedValue &operator=(const AnnouncedValue &) = delete;
  [[nodiscard]] const void *bytes() const noexcept { return value_; }

 private:
  const void *value_;
  uint8_t copy_[KIVO_ATTR_VALUE_DATA_SIZE];
};

}  // namespace

using namespace kivo;

uint32_t kivo_add_or_update_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                                 const void *value, uint32_t size) noexcept {
  if (size == 0 || type == 0 || (label == 0 && record == nullptr) || value == nullptr) {
    kivo_trace_error(msg::kUpdateAttrBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  if (db == nullptr) {
    kivo_trace_error(msg::kUpdateAttrBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kUpdateAttr, db->db_name, static_cast<int>(type));
  uint32_t status = resolve_record(db, label, record);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kGetRecordInternalFailed, error_text(status));
    return status;
  }
  if (record == nullptr) {
    kivo_trace_event(msg::kUpdateAttrNoRecord, db->db_name, static_cast<int>(type));
    return PLATFORM_OK;
  }
  const AnnouncedValue announced(value, size);
  uint32_t changed = 0;
  status = auth_mgr_idc_add_or_update_attr(record->ctxt, type, value, size, &changed);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kUpdateAttrWriteFailed, error_text(status));
    return status;
  }
  status = kivo_attr_change_notification_int(db, type, size, value, announced.bytes(), label,
                                             action_of(changed));
  if (status != PLATFORM_OK) kivo_trace_event(msg::kUpdateNotifyFailed, error_text(status));
  return status;
}
