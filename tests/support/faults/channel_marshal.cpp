// A message that the connection does not take.
// See replacement.h.
#include "platform/channel.h"
#include "support/faults/replacement.h"

extern "C" uint32_t channel_marshal(channel_connection *connection, const void *message,
                                    message_marshal_fn marshal) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(channel_marshal, kivo_test::fault_status(), connection, message,
                            marshal);
}
