// A response that cannot be closed.
// See replacement.h.
#include "platform/channel.h"
#include "support/faults/replacement.h"

extern "C" uint32_t channel_close_generated_response(channel_connection *connection) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(channel_close_generated_response, kivo_test::fault_status(),
                            connection);
}
