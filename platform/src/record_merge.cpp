// Copies a session's attributes into an attribute list: the one operation that joins the two halves
// of the attribute service, contexts and lists.
// Threads: none; the process serialises all calls.
#include "address_list.h"
#include "attribute_list.h"
#include "platform/auth_mgr_idc.h"
#include "session_slots.h"

namespace kivo_platform {

// One list attribute, or one for each address of type 10.
static std::uint32_t add_value(std::uint32_t list, std::uint32_t type, Bytes value) noexcept {
  if (type != AAA_ATTR_IPV6_ADDRESSES) return add_to_list(list, type, value);
  std::uint32_t status = PLATFORM_OK;
  for (std::size_t at = 0; status == PLATFORM_OK && at < value.size(); at += kAddressBytes) {
    status = add_to_list(list, type, value.substr(at, kAddressBytes));
  }
  return status;
}

}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" std::uint32_t auth_mgr_idc_merge_rec_to_list_without_replace(
    const auth_ctxt *ctxt, std::uint32_t list) noexcept {
  if (ctxt == nullptr) return AAA_ERR_INVALID_ARG;
  TypeSet held_at_entry;
  std::uint32_t status = types_of_list(list, held_at_entry);
  if (status != PLATFORM_OK) return status;
  ctxt->attributes.for_each([&](std::uint32_t type, Bytes value) {
    if (!held_at_entry.test(type)) status = add_value(list, type, value);
    return status == PLATFORM_OK;
  });
  return status;
}
