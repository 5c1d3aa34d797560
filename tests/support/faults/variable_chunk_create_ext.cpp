// No memory for the pool of the shadow values, whose naming function is shown to the tests.
// See replacement.h.
#include "platform/chunk.h"
#include "support/faults/replacement.h"

extern "C" variable_chunk_pool *variable_chunk_create_ext(
    const variable_chunk_class *classes, uint32_t n_classes, uint32_t options,
    variable_chunk_name_to_id name_to_id) noexcept {
  kivo_test::shadow_class_tag = name_to_id;
  KIVO_TEST_FAIL_OR_FORWARD(variable_chunk_create_ext, nullptr, classes, n_classes, options,
                            name_to_id);
}
