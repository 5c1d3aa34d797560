// A stored value that cannot be read; or a service that reports the length of one address for all.
// See replacement.h.
#include "platform/aaa_dictionary.h"
#include "platform/auth_mgr_idc.h"
#include "support/faults/replacement.h"

extern "C" uint32_t auth_mgr_idc_get_attr(const auth_ctxt *ctxt, uint32_t type, const void **value,
                                          uint32_t *size, uint32_t *count) noexcept {
  KIVO_TEST_REAL(auth_mgr_idc_get_attr);
  const uint32_t status = real(ctxt, type, value, size, count);
  if (kivo_test::reports_one_address && type == AAA_ATTR_IPV6_ADDRESSES && *count != 0) *size = 16;
  return kivo_test::fault_is_due("auth_mgr_idc_get_attr") ? kivo_test::fault_status() : status;
}
