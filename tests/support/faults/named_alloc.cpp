// Running out of memory for a plain block.
// See replacement.h.
#include "platform/named_alloc.h"
#include "support/faults/replacement.h"

extern "C" void *named_alloc(named_site *site, size_t size) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(named_alloc, nullptr, site, size);
}
