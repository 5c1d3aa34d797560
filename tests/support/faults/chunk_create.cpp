// No memory for the pool of the label sets' blocks, which is shown to the tests.
// See replacement.h.
#include "platform/chunk.h"
#include "support/faults/replacement.h"

extern "C" chunk_pool *chunk_create(const char *name, uint32_t size, uint32_t per_slab,
                                    uint32_t flags, uint32_t reserved1,
                                    uint32_t reserved2) noexcept {
  KIVO_TEST_REAL(chunk_create);
  if (kivo_test::fault_is_due("chunk_create")) return nullptr;
  kivo_test::label_block_pool = real(name, size, per_slab, flags, reserved1, reserved2);
  return kivo_test::label_block_pool;
}
