// A record store that finds no memory at start-up: it stays not ready.
// See replacement.h.
#include "platform/attrdb.h"
#include "support/faults/replacement.h"

extern "C" void attrdb_init(void) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(attrdb_init, static_cast<void>(0));
}
