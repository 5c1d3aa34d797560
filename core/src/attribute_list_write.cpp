// Writing whole attribute lists. Two operations walk alike; they differ in the wording of their
// traces and in what a failed notification does to the walk. Both stand in one table row each.
#include "attribute_steps.h"
#include "kivo/attribute_write.h"
#include "kivo/shadow_db.h"
#include "trace.h"

namespace kivo {
namespace {

struct ListOperation {
  const TraceMessage &bad_params;
  const TraceMessage &entry;
  const TraceMessage &fetch_failed;
  const TraceMessage &no_record;
  const TraceMessage &get_failed;
  const TraceMessage &unsupported;
  const TraceMessage &write_failed;
  const TraceMessage &notify_failed;
  bool notify_failure_ends_walk;
};

constexpr ListOperation kAddOrUpdate = {
    msg::kUpdateListBadParams,   msg::kUpdateList,          msg::kGetRecordInternalFailed,
    msg::kUpdateListNoRecord,    msg::kUpdateListGetFailed, msg::kUpdateListUnsupported,
    msg::kUpdateListWriteFailed, msg::kUpdateNotifyFailed,  false};

constexpr ListOperation kCleanAndAdd = {msg::kCleanListBadParams,
                                        msg::kCleanList,
                                        msg::kCleanListFetchFailed,
                                        msg::kCleanListNoRecord,
                                        msg::kCleanListGetFailed,
                                        msg::kCleanListUnsupported,
                                        msg::kCleanListWriteFailed,
                                        msg::kCleanListNotifyFailed,
                                        true};

// Writes to the shadow record when the type is an external identity, else to the record itself.
uint32_t write_routed(attrdb_record &record, const AttrInHand &attr, uint32_t &changed) noexcept {
  uint32_t index = 0;
  if (kivo_check_is_shadow_attrib(attr.type, &index) == 0) {
    return auth_mgr_idc_add_or_update_attr(record.ctxt, attr.type, attr.value, attr.length,
                                           &changed);
  }
  shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(record.ctxt);
  return shadowdb_add_or_update_attr(shadow, index, attr.type, attr.value, attr.length, &changed);
}

// Writes the attribute in hand and announces it. Nonzero ends the walk.
uint32_t write_listed_attr(const ListOperation &op, kivo_db *db, uint32_t label,
                           attrdb_record &record, ListCursor &cursor, AttrInHand &attr) noexcept {
  uint32_t status = cursor.read(attr);
  if (status != PLATFORM_OK) {
    kivo_trace_error(op.get_failed, error_text(status));
    return status;
  }
  uint32_t changed = 0;
  status = write_routed(record, attr, changed);
  if (status == AAA_ERR_UNSUPPORTED_ATTR) {
    kivo_trace_event(op.unsupported, attr.type);
    return PLATFORM_OK;
  }
  if (status != PLATFORM_OK) {
    kivo_trace_error(op.write_failed, error_text(status));
    return status;
  }
  status = announce(db, label, attr, attr.value, action_of(changed), op.notify_failed);
  return op.notify_failure_ends_walk ? status : PLATFORM_OK;
}

uint32_t write_list(const ListOperation &op, kivo_db *db, uint32_t label, attrdb_record *record,
                    uint32_t attr_list) noexcept {
  if (db == nullptr || attr_list == 0) {
    kivo_trace_error(op.bad_params);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(op.entry, db->db_name);
  const uint32_t status = resolve_record(db, label, record);
  if (status != PLATFORM_OK) {
    kivo_trace_error(op.fetch_failed, error_text(status));
    return status;
  }
  if (record == nullptr) {
    kivo_trace_event(op.no_record, db->db_name);
    return PLATFORM_OK;
  }
  return walk_list(attr_list, [&](ListCursor &cursor, AttrInHand &attr) noexcept {
    return write_listed_attr(op, db, label, *record, cursor, attr);
  });
}

}  // namespace
}  // namespace kivo

uint32_t kivo_add_or_update_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                      uint32_t attr_list) noexcept {
  return kivo::write_list(kivo::kAddOrUpdate, db, label, record, attr_list);
}

uint32_t kivo_clean_and_add_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                      uint32_t attr_list) noexcept {
  return kivo::write_list(kivo::kCleanAndAdd, db, label, record, attr_list);
}
