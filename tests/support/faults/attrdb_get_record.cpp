// A fetch that the store fails.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" uint32_t attrdb_get_record(uint32_t label, attrdb_record **out) noexcept {
  KIVO_TEST_FORWARD_THEN_FAIL(attrdb_get_record, label, out);
}
