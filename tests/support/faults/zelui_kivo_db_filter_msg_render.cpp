// A message of one session that cannot be rendered.
// See replacement.h.
#include "platform/messages.h"
#include "support/faults/message_fault.h"
#include "support/faults/replacement.h"

extern "C" void zelui_kivo_db_filter_msg_render(const zelui_kivo_db_filter_msg *message,
                                                char *buffer, size_t size, uint32_t *err) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(zelui_kivo_db_filter_msg_render, kivo_test::set_fault(err), message,
                            buffer, size, err);
}
