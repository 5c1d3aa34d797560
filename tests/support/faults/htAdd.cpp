// A label that the table of the intersections cannot take.
// See replacement.h.
#include "platform/hash_table.h"
#include "support/faults/replacement.h"

extern "C" int htAdd(hash_table *table, const void *key, void *data) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(htAdd, 1, table, key, data);
}
