// A session without a shadow record.
// See replacement.h.
#include "platform/auth_mgr_idc.h"
#include "support/faults/replacement.h"

extern "C" shadowdb_rec *auth_mgr_idc_get_shadow_record_in_ctxt(auth_ctxt *ctxt) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(auth_mgr_idc_get_shadow_record_in_ctxt, nullptr, ctxt);
}
