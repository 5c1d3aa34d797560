// A look-up of labels that fails half-way: list and count hold something.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" uint32_t attrdb_get_labels_by_attr(uint32_t type, const void *value, uint32_t size,
                                              kivo_index_list **list, uint32_t *count) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(attrdb_get_labels_by_attr, type, value, size, list, count);
}
