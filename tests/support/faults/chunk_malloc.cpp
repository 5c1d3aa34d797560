// Running out of blocks for label sets.
// See replacement.h.
#include "platform/chunk.h"
#include "support/faults/replacement.h"

extern "C" void *chunk_malloc(chunk_pool *pool) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(chunk_malloc, nullptr, pool);
}
