// No scratch buffer.
// See replacement.h.
#include "platform/channel.h"
#include "support/faults/replacement.h"

extern "C" char *channel_scratch(channel_connection *connection, size_t *size) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(channel_scratch, nullptr, connection, size);
}
