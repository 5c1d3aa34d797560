// Running out of memory for a shadow value.
// See replacement.h.
#include "platform/chunk.h"
#include "support/faults/replacement.h"

extern "C" void *variable_chunk_malloc(variable_chunk_pool *pool, size_t size) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(variable_chunk_malloc, nullptr, pool, size);
}
