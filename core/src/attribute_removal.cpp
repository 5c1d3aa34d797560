// Removing attributes. By type the values are announced before they go; by type and value the
// removal comes first. Either way the old value is cleared before each announcement.
#include "kivo/attribute_removal.h"

#include <algorithm>
#include <span>

#include "attribute_steps.h"
#include "kivo/notification.h"
#include "kivo/shadow_db.h"
#include "trace.h"

namespace kivo {
namespace {

constexpr uint32_t kAddressSize = 16;

void announce_removal(kivo_db *db, uint32_t label, const AttrInHand &attr, const void *bytes,
                      const TraceMessage &refused) noexcept {
  kivo_init_notify_old_attr();
  announce(db, label, attr, bytes, KIVO_ACTION_REMOVE, refused);
}

// Announces the first addresses of type 10, as many as the service counts: the length that it
// reports may be that of one. They are copied before: a callback may write to the record, and move
// them.
void announce_addresses(kivo_db *db, uint32_t label, const AttrInHand &stored,
                        uint32_t n_values) noexcept {
  const auto *first = static_cast<const uint8_t *>(stored.value);
  const uint32_t n = std::min(n_values, KIVO_ADDRESSES_LOOKED_AT);
  uint8_t copies[KIVO_ADDRESSES_LOOKED_AT][kAddressSize];
  std::memcpy(copies, first, size_t{n} * kAddressSize);
  for (uint32_t i = 0; i < n; ++i) {
    const AttrInHand address{stored.type, kAddressSize, first + size_t{i} * kAddressSize};
    announce_removal(db, label, address, copies[i], msg::kRemoveByTypeNotify);
  }
}

void announce_stored(kivo_db *db, uint32_t label, const AttrInHand &stored,
                     uint32_t n_values) noexcept {
  if (n_values == 1) {
    announce_removal(db, label, stored, stored.value, msg::kRemoveByTypeNotify);
  } else if (stored.type == AAA_ATTR_IPV6_ADDRESSES) {
    announce_addresses(db, label, stored, n_values);
  }
}

// Removes from the shadow record when the type is an external identity, else from the record
// itself.
uint32_t remove_routed(attrdb_record &record, const AttrInHand &attr) noexcept {
  uint32_t index = 0;
  if (kivo_check_is_shadow_attrib(attr.type, &index) == 0) {
    return auth_mgr_idc_remove_attr_by_type_and_value(record.ctxt, attr.type, attr.value,
                                                      attr.length);
  }
  shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(record.ctxt);
  return shadowdb_remove_attr(shadow, index, attr.type, attr.length, attr.value);
}

}  // namespace
}  // namespace kivo

using namespace kivo;

uint32_t kivo_remove_attr_from_record_by_type(kivo_db *db, attrdb_record *record,
                                              uint32_t type) noexcept {
  if (record == nullptr || type == 0) {
    kivo_trace_error(msg::kRemoveBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kRemoveByType);
  AttrInHand stored{type, 0, nullptr};
  uint32_t n_values = 0;
  uint32_t status =
      auth_mgr_idc_get_attr(record->ctxt, type, &stored.value, &stored.length, &n_values);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kRemoveGetFailed, error_text(status));
    return status;
  }
  if (n_values == 0 || stored.value == nullptr || stored.length == 0) return PLATFORM_OK;
  announce_stored(db, record->label, stored, n_values);
  status = auth_mgr_idc_remove_attr_by_type(record->ctxt, type);
  if (status != PLATFORM_OK) kivo_trace_error(msg::kRemoveByTypeFailed, error_text(status));
  return status;
}

uint32_t kivo_remove_attrs_by_type(kivo_db *db, uint32_t label, attrdb_record *record,
                                   const uint32_t *types, uint32_t n_types) noexcept {
  if (db == nullptr || types == nullptr || n_types == 0) {
    kivo_trace_error(msg::kRemoveBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kRemove, db->db_name);
  uint32_t status = resolve_record(db, label, record);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kGetRecordInternalFailed, error_text(status));
    return status;
  }
  if (record == nullptr) {
    kivo_trace_event(msg::kRemoveNoRecord, db->db_name);
    return PLATFORM_OK;
  }
  for (const uint32_t type : std::span(types, n_types)) {
    const uint32_t failed = kivo_remove_attr_from_record_by_type(db, record, type);
    if (failed == PLATFORM_OK) continue;
    kivo_trace_error(msg::kRemoveTypesFailed, error_text(failed));
    status = failed;
  }
  return status;
}

uint32_t kivo_remove_attr_from_record_by_type_and_value(kivo_db *db, attrdb_record *record,
                                                        uint32_t type, uint32_t length,
                                                        const void *value) noexcept {
  if (record == nullptr) {
    kivo_trace_error(msg::kRemoveBadRecord);
    return KIVO_ERR_INVALID_ARG;
  }
  if (db == nullptr || type == 0) {
    kivo_trace_error(msg::kRemoveBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kRemove, db->db_name);
  const AttrInHand attr{type, length, value};
  const AnnouncedValue announced(db, attr);
  const uint32_t status = remove_routed(*record, attr);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kRemoveByValueFailed, error_text(status));
    return status;
  }
  announce_removal(db, record->label, attr, announced.bytes(), msg::kRemoveByValueNotify);
  return PLATFORM_OK;
}
