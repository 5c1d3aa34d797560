// A step through the interface ids that fails.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" uint32_t attrdb_get_next_if_id(uint32_t after, uint32_t *next) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(attrdb_get_next_if_id, after, next);
}
