// A field that is not taken.
// See replacement.h.
#include "platform/messages.h"
#include "support/faults/message_fault.h"
#include "support/faults/replacement.h"

extern "C" void zelui_kivo_db_common_set_owner(zelui_kivo_db_common *common, const char *text,
                                               size_t length, uint32_t *err) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(zelui_kivo_db_common_set_owner, kivo_test::set_fault(err), common, text,
                            length, err);
}
