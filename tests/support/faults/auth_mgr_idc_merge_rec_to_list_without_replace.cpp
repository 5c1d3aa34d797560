// A merge into a list that fails.
// See replacement.h.
#include "platform/auth_mgr_idc.h"
#include "support/faults/replacement.h"

extern "C" uint32_t auth_mgr_idc_merge_rec_to_list_without_replace(const auth_ctxt *ctxt,
                                                                   uint32_t list) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(auth_mgr_idc_merge_rec_to_list_without_replace,
                            kivo_test::fault_status(), ctxt, list);
}
