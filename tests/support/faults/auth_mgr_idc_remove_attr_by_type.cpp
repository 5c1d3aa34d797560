// An attribute that cannot be removed.
// See replacement.h.
#include "platform/auth_mgr_idc.h"
#include "support/faults/replacement.h"

extern "C" uint32_t auth_mgr_idc_remove_attr_by_type(auth_ctxt *ctxt, uint32_t type) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(auth_mgr_idc_remove_attr_by_type, kivo_test::fault_status(), ctxt,
                            type);
}
