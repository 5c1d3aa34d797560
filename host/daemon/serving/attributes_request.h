// Answers show_kivo_attributes_request: what is behind the positions in replies about sessions.
#pragma once

#include "platform/channel.h"

namespace kivod {

// A channel_command_handler. One kivo_attributes_msg with an entry for each attribute of a session,
// or a negative acknowledgement.
void answer_attributes_request(void *channel, void *request, const channel_command *command,
                               channel_connection *connection, uint32_t error_word) noexcept;

}  // namespace kivod
