// The add operations. They write as an update does and differ in what they check, when they
// announce and what they return; see kivo/attribute_write.h. None of them looks at external
// identities.
#include "attribute_steps.h"
#include "kivo/attribute_write.h"
#include "trace.h"

using namespace kivo;

uint32_t kivo_add_attr_to_record(kivo_db *db, attrdb_record *record, uint32_t type,
                                 const void *value, uint32_t size) noexcept {
  if (size == 0 || type == 0 || record == nullptr || value == nullptr) {
    kivo_trace_error(msg::kAddToRecordBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  const AnnouncedValue announced(db, {type, size, value});
  uint32_t changed = 0;
  const uint32_t status =
      auth_mgr_idc_add_or_update_attr(record->ctxt, type, value, size, &changed);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kAddToRecordFailed, error_text(status));
    return status;
  }
  announce(db, record->label, {type, size, value}, announced.bytes(), action_of(changed),
           msg::kAddToRecordNotifyFailed);
  return PLATFORM_OK;
}

uint32_t kivo_add_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                       const void *value, uint32_t size) noexcept {
  if (type == 0 || value == nullptr || size == 0) {
    kivo_trace_error(msg::kAddAttrBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  if (db == nullptr) {
    kivo_trace_error(msg::kAddAttrNoDb);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kAddAttr, db->db_name);
  uint32_t status = resolve_record(db, label, record);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kAddAttrFetchFailed, error_text(status));
    return status;
  }
  if (record == nullptr) {
    kivo_trace_event(msg::kAddAttrNoRecord, db->db_name);
    return PLATFORM_OK;
  }
  status = kivo_add_attr_to_record(db, record, type, value, size);
  if (status != PLATFORM_OK) kivo_trace_error(msg::kAddAttrFailed, error_text(status));
  return status;
}

uint32_t kivo_add_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                            uint32_t attr_list) noexcept {
  if (attr_list == 0) {
    kivo_trace_error(msg::kAddListBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  if (db == nullptr) {
    kivo_trace_error(msg::kAddListNoDb);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kAddList, db->db_name);
  const uint32_t fetched = resolve_record(db, label, record);
  if (fetched != PLATFORM_OK) {
    kivo_trace_error(msg::kAddAttrFetchFailed, error_text(fetched));
    return fetched;
  }
  if (record == nullptr) {
    kivo_trace_event(msg::kAddListNoRecord, db->db_name);
    return PLATFORM_OK;
  }
  return walk_list(attr_list, [&](ListCursor &cursor, AttrInHand &attr) noexcept {
    uint32_t status = cursor.read(attr);
    if (status != PLATFORM_OK) {
      kivo_trace_error(msg::kAddListGetFailed, error_text(status));
      return status;
    }
    status = kivo_add_attr_to_record(db, record, attr.type, attr.value, attr.length);
    if (status != PLATFORM_OK) {
      kivo_trace_error(msg::kAddListWriteFailed, error_text(status));
      return status;
    }
    // The second announcement of this attribute; the cursor still holds its bytes.
    announce(db, label, attr, attr.value, KIVO_ACTION_ADD_OR_UPDATE, msg::kAddListNotifyFailed);
    return PLATFORM_OK;
  });
}

uint32_t kivo_add_or_update_attr_to_record(kivo_db *db, attrdb_record *record, uint32_t type,
                                           const void *value, uint32_t size) noexcept {
  if (size == 0 || type == 0 || record == nullptr || value == nullptr) {
    kivo_trace_error(msg::kUpdateInRecordBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  const AnnouncedValue announced(db, {type, size, value});
  uint32_t changed = 0;
  const uint32_t status =
      auth_mgr_idc_add_or_update_attr(record->ctxt, type, value, size, &changed);
  if (status != PLATFORM_OK) kivo_trace_error(msg::kUpdateInRecordFailed, error_text(status));
  announce(db, record->label, {type, size, value}, announced.bytes(), action_of(changed),
           msg::kUpdateInRecordNotify);
  return status;
}
