// A message of the attribute types that finds no memory.
// See replacement.h.
#include "platform/messages.h"
#include "support/faults/message_fault.h"
#include "support/faults/replacement.h"

extern "C" zelui_kivo_db_msg *zelui_kivo_db_msg_create(const message_definitions *definitions,
                                                       uint32_t *err) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(zelui_kivo_db_msg_create, (kivo_test::set_fault(err), nullptr),
                            definitions, err);
}
