// A look-up of one record that fails.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" uint32_t attrdb_get_record_by_attr(uint32_t type, const void *value, uint32_t size,
                                              attrdb_record **out) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(attrdb_get_record_by_attr, type, value, size, out);
}
