// A connection without message definitions.
// See replacement.h.
#include "platform/channel.h"
#include "support/faults/replacement.h"

extern "C" const message_definitions *channel_message_definitions(
    const channel_connection *connection, uint32_t *length) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(channel_message_definitions, nullptr, connection, length);
}
