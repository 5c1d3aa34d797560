// A list that cannot take one more attribute.
// See replacement.h.
#include "platform/aaa.h"
#include "support/faults/replacement.h"

extern "C" uint32_t aaa_attr_add(uint32_t handle, uint32_t type, const void *value, uint32_t size,
                                 uint32_t reserved1, uint32_t reserved2) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(aaa_attr_add, kivo_test::fault_status(), handle, type, value, size,
                            reserved1, reserved2);
}
