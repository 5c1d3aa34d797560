// Running out of memory for a zero-filled block.
// See replacement.h.
#include "platform/named_alloc.h"
#include "support/faults/replacement.h"

extern "C" void *named_zalloc(named_site *site, size_t size) noexcept {
  if (size > kivo_test::largest_zalloc) kivo_test::largest_zalloc = size;
  KIVO_TEST_FAIL_OR_FORWARD(named_zalloc, nullptr, site, size);
}
