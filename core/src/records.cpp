// Records and look-ups by attribute value: a thin, traced layer over the record store. The checks
// and their order differ from operation to operation and are kept so; see kivo/records.h.
#include "kivo/records.h"

#include "trace.h"

using namespace kivo;

uint32_t kivo_create_record(kivo_db *, uint32_t label, auth_ctxt *ctxt) noexcept {
  kivo_trace_event(msg::kCreateRecord, label);
  return attrdb_create_and_insert_primary_record(ctxt, label);
}

uint32_t kivo_get_record(kivo_db *db, uint32_t label, attrdb_record **out) noexcept {
  kivo_trace_event(msg::kGetRecord);
  if (db == nullptr || out == nullptr) return KIVO_ERR_INVALID_ARG;
  *out = nullptr;
  if (label == 0) {
    kivo_trace_error(msg::kGetRecordBadLabel);
    return KIVO_ERR_INVALID_ARG;
  }
  const uint32_t status = attrdb_get_record(label, out);
  if (status != PLATFORM_OK) {
    *out = nullptr;
    kivo_trace_error(msg::kGetRecordFailed, error_text(status));
  }
  return status;
}

uint32_t kivo_delete_record(kivo_db *, uint32_t label) noexcept {
  const uint32_t status = attrdb_delete_record(label);
  if (status != PLATFORM_OK) kivo_trace_error(msg::kDeleteRecordFailed, error_text(status));
  return status;
}

uint32_t kivo_match_labels_by_attr(kivo_db *db, uint32_t type, const void *value, uint32_t size,
                                   kivo_index_list **list, uint32_t *count) noexcept {
  if (size == 0 || count == nullptr || type == 0 || value == nullptr || list == nullptr) {
    kivo_trace_error(msg::kMatchLabelsBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  if (db == nullptr) {
    kivo_trace_error(msg::kMatchLabelsNoDb);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kMatchLabels, db->db_name, static_cast<int>(type));
  const uint32_t status = attrdb_get_labels_by_attr(type, value, size, list, count);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kMatchLabelsFailed, static_cast<int>(type), error_text(status));
  }
  return status;
}

uint32_t kivo_match_label_by_attr(kivo_db *, uint32_t type, const void *value, uint32_t size,
                                  uint32_t *label) noexcept {
  if (size == 0 || type == 0 || value == nullptr || label == nullptr) {
    kivo_trace_error(msg::kMatchLabelBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  const uint32_t status = attrdb_get_label_by_attr(type, value, size, label);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kMatchLabelFailed, error_text(status), static_cast<void *>(nullptr));
    *label = 0;
    return status;
  }
  kivo_trace_event(msg::kMatchLabel, static_cast<int>(type));
  return PLATFORM_OK;
}

uint32_t kivo_match_record_by_attr(kivo_db *db, uint32_t type, const void *value, uint32_t size,
                                   attrdb_record **out) noexcept {
  if (size == 0 || type == 0 || value == nullptr || out == nullptr || db == nullptr) {
    kivo_trace_error(msg::kMatchRecordBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kMatchRecord, db->db_name, static_cast<int>(type));
  const uint32_t status = attrdb_get_record_by_attr(type, value, size, out);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kMatchRecordFailed, error_text(status));
    *out = nullptr;
  }
  return PLATFORM_OK;
}

uint32_t kivo_get_next_if_id(uint32_t after, uint32_t *next) noexcept {
  return attrdb_get_next_if_id(after, next);
}

uint32_t kivo_merge_rec_to_list_without_replace(kivo_db *, attrdb_record *record,
                                                uint32_t attr_list) noexcept {
  if (record == nullptr) return KIVO_ERR_FAILED;
  return auth_mgr_idc_merge_rec_to_list_without_replace(record->ctxt, attr_list);
}
