// A value that cannot be removed.
// See replacement.h.
#include "platform/auth_mgr_idc.h"
#include "support/faults/replacement.h"

extern "C" uint32_t auth_mgr_idc_remove_attr_by_type_and_value(auth_ctxt *ctxt, uint32_t type,
                                                               const void *value,
                                                               uint32_t size) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(auth_mgr_idc_remove_attr_by_type_and_value, kivo_test::fault_status(),
                            ctxt, type, value, size);
}
