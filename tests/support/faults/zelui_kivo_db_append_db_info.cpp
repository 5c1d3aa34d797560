// An entry that the list does not take.
// See replacement.h.
#include "platform/messages.h"
#include "support/faults/message_fault.h"
#include "support/faults/replacement.h"

extern "C" void zelui_kivo_db_append_db_info(zelui_kivo_db *db, zelui_kivo_db_data *entry,
                                             uint32_t *err) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(zelui_kivo_db_append_db_info, kivo_test::set_fault(err), db, entry,
                            err);
}
