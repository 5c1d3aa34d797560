// A connection of the request channel, whatever carries its bytes. A transport gives it frames and
// takes its output; a command handler works on it through platform/channel.h in between.
// States: idle, and handling from deliver() until channel_finished().
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>

#include "message_buffer.h"
#include "message_codec.h"
#include "platform/channel.h"

struct channel_connection {
  // Told when the handling of a request has ended; may destroy the connection.
  using Finished = void (*)(channel_connection &connection);

  explicit channel_connection(Finished finished) noexcept : on_finished(finished) {}

  message_buffer output{CHANNEL_OUTPUT_MAX};
  Finished on_finished;
  std::uint32_t error = 0;
  bool handling = false;

  // Of the response in hand.
  message_definitions definitions;
  kivo_platform::ReceivedMessage request;
  channel_command command{};
  std::uint32_t n_written = 0;
  bool response_closed = false;
  channel_epilogue epilogue = nullptr;
  channel_continuation continuation = nullptr;
};

namespace kivo_platform {

// Takes the message of one frame and has its handler answer it; the connection is not handling
// another. A request that nobody handles, or that cannot be carried out, is answered with a
// negative acknowledgement. Afterwards the connection may be gone, if it was finished. Returns 0;
// CHANNEL_ERR_FRAME for what is no request; CHANNEL_ERR_NO_MEMORY. Nothing is answered then.
std::uint32_t deliver(channel_connection &connection, const std::uint8_t *bytes,
                      std::size_t size) noexcept;

}  // namespace kivo_platform
