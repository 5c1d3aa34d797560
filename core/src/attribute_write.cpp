// Writing one attribute: the model of every write path. Resolve the record, write through the
// attribute service, announce with the action that the change flag implies.
#include "kivo/attribute_write.h"

#include "attribute_steps.h"
#include "trace.h"

using namespace kivo;

uint32_t kivo_add_or_update_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                                 const void *value, uint32_t size) noexcept {
  if (size == 0 || type == 0 || (label == 0 && record == nullptr) || value == nullptr ||
      db == nullptr) {
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
  const AnnouncedValue announced(db, {type, size, value});
  uint32_t changed = 0;
  status = auth_mgr_idc_add_or_update_attr(record->ctxt, type, value, size, &changed);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kUpdateAttrWriteFailed, error_text(status));
    return status;
  }
  return announce(db, label, {type, size, value}, announced.bytes(), action_of(changed),
                  msg::kUpdateNotifyFailed, kEventLevel);
}
