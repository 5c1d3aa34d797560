// What the channel needs of the message set beyond platform/messages.h: received frames. As there,
// no type of the codec behind them is seen.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/channel.h"
#include "platform/messages.h"

// What the messages of a connection are made by, and the request that it is handling.
struct message_definitions {
  const received_message *request = nullptr;
};

namespace kivo_platform {

struct DestroyMessage {
  void operator()(received_message *received) const noexcept;
};
using ReceivedMessage = std::unique_ptr<received_message, DestroyMessage>;

// Sets the codec up, once for the process. Every channel does so before it makes or takes a
// message; nothing below allocates for the codec's own sake afterwards. Returns 0;
// CHANNEL_ERR_NO_MEMORY, and then for good if memory ran out in the middle: what the codec began it
// cannot begin again.
std::uint32_t prepare_messages() noexcept;

// Messages in the set.
std::uint32_t message_count() noexcept;

// Reads the message of a frame. Returns 0; CHANNEL_ERR_FRAME; CHANNEL_ERR_NO_MEMORY.
std::uint32_t read_message(const std::uint8_t *bytes, std::size_t size,
                           ReceivedMessage &received) noexcept;

// Twins of message_kind() and message_kind_name().
std::uint32_t kind_of(const received_message *received) noexcept;
const char *name_of_kind(std::uint32_t kind) noexcept;
bool is_request(std::uint32_t kind) noexcept;

// Fills the command for a received request; it refers to the request. Null, or what is wrong with
// the request.
const char *read_command(const received_message *request, channel_command &command) noexcept;

// Traces the fields, one a record.
void trace_fields(const received_message *received) noexcept;

// Twin of negative_acknowledgement_marshal().
std::uint32_t marshal_nack(const char *text, message_buffer &out) noexcept;

}  // namespace kivo_platform
