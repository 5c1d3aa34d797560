// Attributes of one session: reading, writing, removing, and the shadow record that hangs on a
// context. Over StoredAttributes; tells the indexes of every change of a context that a record
// owns.
// Invariant of a write: the value's memory and the new index entries are secured first; dropping
// the old entries and committing the value cannot fail. A context and its indexes never disagree.
// Threads: none; the process serialises all calls.
#include "attribute_context.h"

#include <memory>
#include <new>

#include "address_list.h"
#include "library_references.h"
#include "platform/auth_mgr_idc.h"
#include "record_indexes.h"
#include "stored_attributes.h"

namespace kivo_platform {

void destroy_context(auth_ctxt *ctxt) noexcept {
  if (ctxt->shadow != nullptr && shadowdb_destroy_record != nullptr) {
    shadowdb_destroy_record(ctxt->shadow);
  }
  ctxt->attributes.clear();
  sessions.give_back(ctxt);
}

namespace {

bool in_dictionary(std::uint32_t type) noexcept { return type >= 1 && type <= AAA_ATTR_TYPE_MAX; }

bool is_record(const auth_ctxt *ctxt) noexcept { return ctxt->record.label != 0; }

// Tells the indexes of a write. With keep, nothing leaves one.
bool change_indexes(const auth_ctxt *ctxt, std::uint32_t type, const StoredValue &old,
                    std::uint32_t keep, Bytes tail) noexcept {
  if (!is_record(ctxt)) return true;
  RecordIndexes &indexes = *record_indexes();
  if (old.found && keep == 0) return indexes.change(ctxt->record.label, type, old.bytes, tail);
  if (!indexes.enter(ctxt->record.label, type, tail)) return false;
  if (!old.found) indexes.gained(type);
  return true;
}

// Makes the value of a type its first `keep` bytes and `tail`.
std::uint32_t write(auth_ctxt *ctxt, std::uint32_t type, const StoredValue &old, std::uint32_t keep,
                    Bytes tail) noexcept {
  AttributeWrite pending(ctxt->attributes, type, old, keep, tail);
  if (!pending.prepare()) return AAA_ERR_NO_MEMORY;
  if (!change_indexes(ctxt, type, old, keep, tail)) return AAA_ERR_NO_MEMORY;
  pending.commit();
  return PLATFORM_OK;
}

// The same for a value that takes the place of one of its size.
std::uint32_t overwrite(auth_ctxt *ctxt, std::uint32_t type, const StoredValue &old,
                        Bytes value) noexcept {
  if (!change_indexes(ctxt, type, old, 0, value)) return AAA_ERR_NO_MEMORY;
  ctxt->attributes.overwrite(old, value);
  return PLATFORM_OK;
}

[[gnu::noinline]] std::uint32_t write_value(auth_ctxt *ctxt, std::uint32_t type, Bytes value,
                                            std::uint32_t *changed) noexcept {
  const StoredValue old = ctxt->attributes.find(type);
  if (old.found && same_bytes(old.bytes, value)) return PLATFORM_OK;
  const std::uint32_t status = old.found && old.bytes.size() == value.size()
                                   ? overwrite(ctxt, type, old, value)
                                   : write(ctxt, type, old, 0, value);
  if (status == PLATFORM_OK && changed != nullptr) *changed = 1;
  return status;
}

// The same for a type that is absent and whose value finds room: with nothing to give back, it need
// not be prepared.
std::uint32_t append_value(auth_ctxt *ctxt, std::uint32_t type, const void *value,
                           std::uint32_t size, std::uint32_t *changed) noexcept {
  ctxt->attributes.append(type, value, size);
  if (is_record(ctxt)) record_indexes()->gained(type);
  if (changed != nullptr) *changed = 1;
  return PLATFORM_OK;
}

// Apart, so that the way of values without an index is short.
[[gnu::noinline]] std::uint32_t append_indexed(auth_ctxt *ctxt, std::uint32_t type,
                                               const void *value, std::uint32_t size,
                                               std::uint32_t *changed) noexcept {
  if (!record_indexes()->enter(ctxt->record.label, type, as_bytes(value, size))) {
    return AAA_ERR_NO_MEMORY;
  }
  return append_value(ctxt, type, value, size, changed);
}

// Appends the addresses that are not stored yet, each once. They are gathered in memory of their
// own, which also settles a value that is the session's own.
[[gnu::noinline]] std::uint32_t write_addresses(auth_ctxt *ctxt, Bytes value,
                                                std::uint32_t *changed) noexcept {
  const StoredValue old = ctxt->attributes.find(AAA_ATTR_IPV6_ADDRESSES);
  char few[8 * kAddressBytes];
  std::unique_ptr<char[]> many;
  char *missing = few;
  if (value.size() > sizeof few) {
    many.reset(new (std::nothrow) char[value.size()]);
    if (many == nullptr) return AAA_ERR_NO_MEMORY;
    missing = many.get();
  }
  std::size_t size = 0;
  for (std::size_t at = 0; at < value.size(); at += kAddressBytes) {
    const Bytes address = value.substr(at, kAddressBytes);
    if (holds_address(old.bytes, address) || holds_address({missing, size}, address)) continue;
    size += address.copy(missing + size, kAddressBytes);
  }
  if (size == 0) return PLATFORM_OK;
  if (old.bytes.size() + size > kMaxAddresses * kAddressBytes) return AAA_ERR_NO_ROOM;
  const std::uint32_t status = write(ctxt, AAA_ATTR_IPV6_ADDRESSES, old,
                                     static_cast<std::uint32_t>(old.bytes.size()), {missing, size});
  if (status == PLATFORM_OK && changed != nullptr) *changed = 1;
  return status;
}

void remove_whole(auth_ctxt *ctxt, std::uint32_t type, const StoredValue &stored) noexcept {
  if (is_record(ctxt)) {
    record_indexes()->leave(ctxt->record.label, type, stored.bytes);
    record_indexes()->lost(type);
  }
  ctxt->attributes.erase(stored);
}

std::uint32_t remove_address(auth_ctxt *ctxt, const StoredValue &stored, Bytes address) noexcept {
  const std::size_t at = find_address(stored.bytes, address);
  if (at == Bytes::npos) return AAA_ERR_NOT_FOUND;
  if (stored.bytes.size() == kAddressBytes) {
    remove_whole(ctxt, AAA_ATTR_IPV6_ADDRESSES, stored);
    return PLATFORM_OK;
  }
  // The stored copy, since the caller's bytes may be the ones that the cut moves.
  if (is_record(ctxt)) {
    record_indexes()->leave(ctxt->record.label, AAA_ATTR_IPV6_ADDRESSES,
                            stored.bytes.substr(at, kAddressBytes));
  }
  ctxt->attributes.cut(stored, static_cast<std::uint32_t>(at), kAddressBytes);
  return PLATFORM_OK;
}

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" std::uint32_t auth_mgr_idc_create_ctxt(auth_ctxt **out) noexcept {
  if (out == nullptr) return AAA_ERR_INVALID_ARG;
  *out = sessions.take();
  return *out != nullptr ? PLATFORM_OK : AAA_ERR_NO_MEMORY;
}

extern "C" void auth_mgr_idc_destroy_ctxt(auth_ctxt *ctxt) noexcept {
  if (ctxt != nullptr && !is_record(ctxt)) destroy_context(ctxt);
}

extern "C" std::uint32_t auth_mgr_idc_add_or_update_attr(auth_ctxt *ctxt, std::uint32_t type,
                                                         const void *value, std::uint32_t size,
                                                         std::uint32_t *changed) noexcept {
  if (ctxt == nullptr || (value == nullptr && size != 0)) return AAA_ERR_INVALID_ARG;
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  if (size > AAA_VALUE_SIZE_MAX) return AAA_ERR_NO_ROOM;
  if (type != AAA_ATTR_IPV6_ADDRESSES) {
    if (!ctxt->attributes.can_append(type, size)) {
      return write_value(ctxt, type, as_bytes(value, size), changed);
    }
    return is_record(ctxt) && record_indexes()->has_index(type)
               ? append_indexed(ctxt, type, value, size, changed)
               : append_value(ctxt, type, value, size, changed);
  }
  if (size % kAddressBytes != 0) return AAA_ERR_INVALID_ARG;
  return write_addresses(ctxt, as_bytes(value, size), changed);
}

extern "C" std::uint32_t auth_mgr_idc_get_attr(const auth_ctxt *ctxt, std::uint32_t type,
                                               const void **value, std::uint32_t *size,
                                               std::uint32_t *count) noexcept {
  if (value != nullptr) *value = nullptr;
  if (size != nullptr) *size = 0;
  if (count != nullptr) *count = 0;
  if (ctxt == nullptr || value == nullptr || size == nullptr || count == nullptr) {
    return AAA_ERR_INVALID_ARG;
  }
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  const StoredValue stored = ctxt->attributes.find(type);
  if (!stored.found) return PLATFORM_OK;
  *value = stored.bytes.data();
  *size = static_cast<std::uint32_t>(stored.bytes.size());
  *count = type == AAA_ATTR_IPV6_ADDRESSES ? *size / kAddressBytes : 1;
  return PLATFORM_OK;
}

extern "C" std::uint32_t auth_mgr_idc_remove_attr_by_type(auth_ctxt *ctxt,
                                                          std::uint32_t type) noexcept {
  if (ctxt == nullptr) return AAA_ERR_INVALID_ARG;
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  const StoredValue stored = ctxt->attributes.find(type);
  if (stored.found) remove_whole(ctxt, type, stored);
  return PLATFORM_OK;
}

extern "C" std::uint32_t auth_mgr_idc_remove_attr_by_type_and_value(auth_ctxt *ctxt,
                                                                    std::uint32_t type,
                                                                    const void *value,
                                                                    std::uint32_t size) noexcept {
  if (ctxt == nullptr || value == nullptr) return AAA_ERR_INVALID_ARG;
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  const StoredValue stored = ctxt->attributes.find(type);
  if (!stored.found) return AAA_ERR_NOT_FOUND;
  const Bytes wanted = as_bytes(value, size);
  if (type == AAA_ATTR_IPV6_ADDRESSES) return remove_address(ctxt, stored, wanted);
  if (stored.bytes != wanted) return AAA_ERR_NOT_FOUND;
  remove_whole(ctxt, type, stored);
  return PLATFORM_OK;
}

extern "C" shadowdb_rec *auth_mgr_idc_get_shadow_record_in_ctxt(auth_ctxt *ctxt) noexcept {
  if (ctxt == nullptr) return nullptr;
  if (ctxt->shadow == nullptr && shadowdb_alloc_record != nullptr) {
    ctxt->shadow = shadowdb_alloc_record(ctxt->record.label);
  }
  return ctxt->shadow;
}

extern "C" shadowdb_rec *auth_mgr_idc_peek_shadow_record_in_ctxt(const auth_ctxt *ctxt) noexcept {
  return ctxt != nullptr ? ctxt->shadow : nullptr;
}

extern "C" std::uint32_t auth_mgr_idc_live_ctxts(void) noexcept { return sessions.live_contexts(); }
