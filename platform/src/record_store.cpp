// The record store: making, finding and deleting records, and the totals.
// Over SessionSlots (contexts and labels) and RecordIndexes (values); look-ups by value and walks
// are rooms of their own. A creation secures everything before it binds the label, the commit.
// Threads: none; the process serialises all calls.
#include <memory>
#include <new>

#include "attribute_context.h"
#include "platform/attrdb.h"
#include "record_indexes.h"

namespace kivo_platform {

constinit RecordIndexes *indexes_of_store = nullptr;

namespace {

// Enters a context into directory and indexes; on failure nothing has changed.
bool insert(auth_ctxt *ctxt, std::uint32_t label) noexcept {
  if (!sessions.reserve_label()) return false;
  if (!record_indexes()->enter_all(label, ctxt->attributes)) return false;
  sessions.bind(ctxt, label);
  return true;
}

std::uint32_t total_holding(std::uint32_t type) noexcept {
  return record_indexes() != nullptr ? record_indexes()->holders(type) : 0;
}

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" void attrdb_init(void) noexcept {
  if (indexes_of_store == nullptr) indexes_of_store = RecordIndexes::make().release();
}

extern "C" std::uint32_t attrdb_create_and_insert_primary_record(auth_ctxt *ctxt,
                                                                 std::uint32_t label) noexcept {
  if (record_indexes() == nullptr) return ATTRDB_ERR_NOT_READY;
  if (label == 0) return ATTRDB_ERR_INVALID_ARG;
  if (ctxt != nullptr && ctxt->record.label != 0) return ATTRDB_ERR_ADOPTED;
  if (sessions.find(label) != nullptr) return ATTRDB_ERR_LABEL_IN_USE;
  auth_ctxt *to_insert = ctxt != nullptr ? ctxt : sessions.take();
  if (to_insert == nullptr) return ATTRDB_ERR_NO_MEMORY;
  if (insert(to_insert, label)) return PLATFORM_OK;
  if (ctxt == nullptr) destroy_context(to_insert);
  return ATTRDB_ERR_NO_MEMORY;
}

extern "C" std::uint32_t attrdb_get_record(std::uint32_t label, attrdb_record **out) noexcept {
  if (out == nullptr) return ATTRDB_ERR_INVALID_ARG;
  *out = nullptr;
  if (record_indexes() == nullptr) return ATTRDB_ERR_NOT_READY;
  auth_ctxt *ctxt = sessions.find(label);
  if (ctxt != nullptr) *out = &ctxt->record;
  return PLATFORM_OK;
}

extern "C" std::uint32_t attrdb_delete_record(std::uint32_t label) noexcept {
  if (record_indexes() == nullptr) return ATTRDB_ERR_NOT_READY;
  auth_ctxt *ctxt = sessions.find(label);
  if (ctxt == nullptr) return ATTRDB_ERR_NOT_FOUND;
  record_indexes()->leave_all(label, ctxt->attributes);
  sessions.unbind(ctxt);
  destroy_context(ctxt);
  return PLATFORM_OK;
}

extern "C" std::uint32_t attrdb_declare_index(std::uint32_t type) noexcept {
  if (record_indexes() == nullptr) return ATTRDB_ERR_NOT_READY;
  if (type == 0 || type > AAA_ATTR_TYPE_MAX) return AAA_ERR_UNSUPPORTED_ATTR;
  return record_indexes()->index_of(type) != nullptr ? PLATFORM_OK : ATTRDB_ERR_NO_MEMORY;
}

extern "C" std::uint32_t attrdb_get_total_sessions(void) noexcept { return sessions.records(); }

extern "C" std::uint32_t attrdb_get_total_mac_tree_sessions(void) noexcept {
  return total_holding(AAA_ATTR_MAC_ADDRESS);
}
extern "C" std::uint32_t attrdb_get_total_swidb_tree_sessions(void) noexcept {
  return total_holding(AAA_ATTR_INTERFACE);
}
extern "C" std::uint32_t attrdb_get_total_iif_id_tree_sessions(void) noexcept {
  return total_holding(AAA_ATTR_INTERFACE_ID);
}
extern "C" std::uint32_t attrdb_get_total_domain_tree_sessions(void) noexcept {
  return total_holding(AAA_ATTR_DOMAIN);
}
extern "C" std::uint32_t attrdb_get_total_method_tree_sessions(void) noexcept {
  return total_holding(AAA_ATTR_METHOD);
}
extern "C" std::uint32_t attrdb_get_total_audit_sess_id_tree_sessions(void) noexcept {
  return total_holding(AAA_ATTR_AUDIT_SESSION_ID);
}
extern "C" std::uint32_t attrdb_get_total_session_id_tree_sessions(void) noexcept {
  return total_holding(AAA_ATTR_SESSION_ID);
}
