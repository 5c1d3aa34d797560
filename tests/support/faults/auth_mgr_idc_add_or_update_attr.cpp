// A write that the attribute service refuses.
// See replacement.h.
#include "platform/auth_mgr_idc.h"
#include "support/faults/replacement.h"

extern "C" uint32_t auth_mgr_idc_add_or_update_attr(auth_ctxt *ctxt, uint32_t type,
                                                    const void *value, uint32_t size,
                                                    uint32_t *changed) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(auth_mgr_idc_add_or_update_attr, kivo_test::fault_status(), ctxt, type,
                            value, size, changed);
}
