// A listed value that cannot be read.
// See replacement.h.
#include "platform/aaa.h"
#include "support/faults/replacement.h"

extern "C" uint32_t aaa_cursor_get_value(aaa_cursor *cursor, uint32_t *size,
                                         const void **value) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(aaa_cursor_get_value, cursor, size, value);
}
