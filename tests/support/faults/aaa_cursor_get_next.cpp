// A move along a list that fails.
// See replacement.h.
#include "platform/aaa.h"
#include "support/faults/replacement.h"

extern "C" uint32_t aaa_cursor_get_next(aaa_cursor *cursor, uint32_t *type) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(aaa_cursor_get_next, cursor, type);
}
