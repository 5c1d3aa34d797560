// A stored value that cannot be read.
// See replacement.h.
#include "platform/auth_mgr_idc.h"
#include "support/faults/replacement.h"

extern "C" uint32_t auth_mgr_idc_get_attr(const auth_ctxt *ctxt, uint32_t type, const void **value,
                                          uint32_t *size, uint32_t *count) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(auth_mgr_idc_get_attr, ctxt, type, value, size, count);
}
