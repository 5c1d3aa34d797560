// A look-up of one label that fails.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" uint32_t attrdb_get_label_by_attr(uint32_t type, const void *value, uint32_t size,
                                             uint32_t *label) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(attrdb_get_label_by_attr, type, value, size, label);
}
