// No memory for a cursor.
// See replacement.h.
#include "platform/aaa.h"
#include "support/faults/replacement.h"

extern "C" uint32_t aaa_cursor_alloc(aaa_cursor **out, uint32_t handle) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(aaa_cursor_alloc, kivo_test::fault_status(), out, handle);
}
