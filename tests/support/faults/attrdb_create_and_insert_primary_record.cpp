// A record that the store cannot make.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" uint32_t attrdb_create_and_insert_primary_record(auth_ctxt *ctxt,
                                                            uint32_t label) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(attrdb_create_and_insert_primary_record, kivo_test::fault_status(),
                            ctxt, label);
}
