// Reading shadow records: into attribute lists, and onto the console. Nothing here changes one.
#include "console.h"
#include "kivo/records.h"
#include "kivo/shadow_db.h"
#include "platform/aaa.h"
#include "trace.h"

// A host's own platform need not have it.
extern "C" __attribute__((weak)) shadowdb_rec *auth_mgr_idc_peek_shadow_record_in_ctxt(
    const auth_ctxt *ctxt) noexcept;

using namespace kivo;

namespace {

constexpr uint32_t kBytesPerLine = 16;

// Copies a slot's entries into the attribute list, newest first. A failed copy is passed over.
void copy_entries(const shadowdb_rec &record, uint32_t index, uint32_t attr_list) noexcept {
  for (const shadowdb_attr_entry *entry = record.attr_lists[index]; entry != nullptr;
       entry = entry->next) {
    if (aaa_attr_add(attr_list, entry->attr_type, entry->value, entry->length, 0, 0) !=
        PLATFORM_OK) {
      kivo_trace_shadow(kShadowFailure, msg::kShadowCopyFailed,
                        aaa_dict_get_attr_name(entry->attr_type));
    } else {
      kivo_trace_shadow(kShadowDetail, msg::kShadowCopied, record.label,
                        aaa_dict_get_attr_name(entry->attr_type));
    }
  }
}

void print_entry(const shadowdb_attr_entry &entry) noexcept {
  kivo_console_write("\n%-30s : ", aaa_dict_get_attr_name(entry.attr_type));
  for (uint32_t i = 0; i < entry.length; ++i) {
    if (i != 0 && i % kBytesPerLine == 0) kivo_console_write("\n%33s", " ");
    kivo_console_write("%02x ", entry.value[i]);
  }
  kivo_console_write("\n");
}

// Whether a session's shadow record was never made, as far as the platform can tell. Asking for the
// record would make it.
bool has_no_shadow(const attrdb_record &record) noexcept {
  return auth_mgr_idc_peek_shadow_record_in_ctxt != nullptr &&
         auth_mgr_idc_peek_shadow_record_in_ctxt(record.ctxt) == nullptr;
}

// Whether there is a list to fill. When there is none, `status` tells why.
bool has_something_to_copy(const shadowdb_rec *record, uint32_t attr_list,
                           uint32_t &status) noexcept {
  status = KIVO_ERR_INVALID_ARG;
  if (record == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowRecordIsInvalid);
    return false;
  }
  if (record->has_identities == 0) {
    kivo_trace_shadow(kShadowProgress, msg::kShadowNoIdentities);
    status = PLATFORM_OK;
    return false;
  }
  if (attr_list == 0) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowBadList, record->label);
    return false;
  }
  status = PLATFORM_OK;
  return true;
}

}  // namespace

uint32_t shadowdb_get_session_attribute(const shadowdb_rec *record, uint32_t attr_list,
                                        uint32_t index) noexcept {
  if (index >= SHADOWDB_ATTR_INDEXES) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowBadIndex, static_cast<int>(index));
    return KIVO_ERR_INVALID_ARG;
  }
  uint32_t status = PLATFORM_OK;
  if (!has_something_to_copy(record, attr_list, status)) return status;
  if (record->attr_lists[index] == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowNoEntries, static_cast<int>(index));
    return KIVO_ERR_INVALID_ARG;
  }
  copy_entries(*record, index, attr_list);
  return PLATFORM_OK;
}

uint32_t shadowdb_get_session_attributes(const shadowdb_rec *record, uint32_t attr_list) noexcept {
  uint32_t status = PLATFORM_OK;
  if (!has_something_to_copy(record, attr_list, status)) return status;
  for (uint32_t index = 0; index < SHADOWDB_ATTR_INDEXES; ++index) {
    copy_entries(*record, index, attr_list);
  }
  return PLATFORM_OK;
}

uint32_t shadowdb_show_rec(kivo_db *db, uint32_t label) noexcept {
  if (db == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowShowBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  attrdb_record *record = nullptr;
  const uint32_t status = kivo_get_record(db, label, &record);
  if (status != PLATFORM_OK) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowShowNoRecord);
    return status;
  }
  if (record != nullptr && has_no_shadow(*record)) return PLATFORM_OK;
  const shadowdb_rec *shadow =
      record == nullptr ? nullptr : auth_mgr_idc_get_shadow_record_in_ctxt(record->ctxt);
  if (shadow == nullptr) {
    kivo_trace_shadow(kShadowFailure, msg::kShadowShowNoShadow);
    return KIVO_ERR_NOT_FOUND;
  }
  for (const shadowdb_attr_entry *head : shadow->attr_lists) {
    for (const shadowdb_attr_entry *entry = head; entry != nullptr; entry = entry->next) {
      print_entry(*entry);
    }
  }
  return PLATFORM_OK;
}
