// A deletion that the store fails.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" uint32_t attrdb_delete_record(uint32_t label) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(attrdb_delete_record, kivo_test::fault_status(), label);
}
