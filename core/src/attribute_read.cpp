// Reading one attribute of a record, held or named by its label. See kivo/attribute_read.h.
#include "kivo/attribute_read.h"

#include "kivo/records.h"
#include "trace.h"

using namespace kivo;

uint32_t kivo_get_attr_from_record(kivo_db *, attrdb_record *record, uint32_t type,
                                   const void **value, uint32_t *length) noexcept {
  if (record == nullptr || type == 0 || value == nullptr || length == nullptr) {
    kivo_trace_error(msg::kGetAttrBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kGetAttr, aaa_dict_get_attr_name(type));
  uint32_t count = 0;
  const uint32_t status = auth_mgr_idc_get_attr(record->ctxt, type, value, length, &count);
  if (status == PLATFORM_OK) return PLATFORM_OK;
  kivo_trace_error(msg::kGetAttrFailed, static_cast<int>(status));
  return KIVO_ERR_FAILED;
}

uint32_t kivo_get_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                       const void **value, uint32_t *length) noexcept {
  if (db == nullptr || type == 0 || value == nullptr || length == nullptr) {
    kivo_trace_error(msg::kGetAttrBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  if (record != nullptr) return kivo_get_attr_from_record(db, record, type, value, length);
  const uint32_t status = kivo_get_record(db, label, &record);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kGetRecordInternalFailed, error_text(status));
    return status;
  }
  if (record == nullptr) {
    kivo_trace_event(msg::kGetAttrNoRecord, static_cast<int>(type));
    return PLATFORM_OK;
  }
  return kivo_get_attr_from_record(db, record, type, value, length);
}
