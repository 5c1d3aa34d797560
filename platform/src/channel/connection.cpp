// The operations of platform/channel.h, and delivery to command handlers.
#include "connection.h"

#include <algorithm>
#include <iterator>

#include "internal.h"

namespace kivo_platform {
namespace {

constexpr std::uint32_t kNumberNoEpilogue = 31;
constexpr std::uint32_t kRequestsMax = 16;

constinit channel_command_handler g_handlers[kRequestsMax]{};
constinit char g_scratch[CHANNEL_SCRATCH_SIZE]{};

// The hidden twins of what the channel itself uses.
void set_error(channel_connection &connection, std::uint32_t error) noexcept {
  if (connection.error == 0) connection.error = error;
}

void nack(channel_connection &connection, const char *text) noexcept {
  if (connection.error != 0) return;
  const std::uint32_t status = marshal_nack(text, connection.output);
  if (status != PLATFORM_OK) set_error(connection, status);
}

void forget_request(channel_connection &connection) noexcept {
  connection.definitions.request = nullptr;
  connection.request.reset();
  connection.command = channel_command{};
  connection.n_written = 0;
  connection.response_closed = false;
  connection.epilogue = nullptr;
  connection.continuation = nullptr;
}

// Nothing that a continuation calls begins this again.
void finish(channel_connection &connection) noexcept {
  if (!connection.handling) return;
  connection.handling = false;
  const channel_continuation continuation = connection.continuation;
  forget_request(connection);
  if (continuation != nullptr) continuation(&connection);
  connection.on_finished(connection);
}

void refuse(channel_connection &connection, const char *reason) noexcept {
  nack(connection, reason);
  finish(connection);
}

}  // namespace

std::uint32_t deliver(channel_connection &connection, const std::uint8_t *bytes,
                      std::size_t size) noexcept {
  ReceivedMessage received;
  const std::uint32_t status = read_message(bytes, size, received);
  if (status != PLATFORM_OK) return status;
  const std::uint32_t kind = kind_of(received.get());
  if (!is_request(kind)) return CHANNEL_ERR_FRAME;
  forget_request(connection);  // also what a continuation left, or nobody's handler
  connection.handling = true;
  connection.request = std::move(received);
  connection.definitions.request = connection.request.get();
  const char *fault = read_command(connection.request.get(), connection.command);
  if (fault == nullptr && g_handlers[kind] == nullptr) fault = "The request is not supported.";
  if (fault != nullptr) {
    refuse(connection, fault);
  } else {
    g_handlers[kind](nullptr, nullptr, &connection.command, &connection, 0);
  }
  return PLATFORM_OK;
}

}  // namespace kivo_platform

using namespace kivo_platform;

uint32_t channel_register_handler(uint32_t request, channel_command_handler handler) noexcept {
  if (!is_request(request) || request >= std::size(g_handlers)) return CHANNEL_ERR_INVALID_ARG;
  g_handlers[request] = handler;
  return PLATFORM_OK;
}

const message_definitions *channel_message_definitions(const channel_connection *connection,
                                                       uint32_t *length) noexcept {
  if (length != nullptr) *length = message_count();
  return &connection->definitions;
}

uint32_t channel_error(const channel_connection *connection) noexcept { return connection->error; }

void channel_set_error(channel_connection *connection) noexcept {
  set_error(*connection, CHANNEL_ERR_FAILED);
}

uint32_t channel_write_count(const channel_connection *connection) noexcept {
  return connection->n_written;
}

uint32_t channel_marshal(channel_connection *connection, const void *message,
                         message_marshal_fn marshal) noexcept {
  if (connection->error != 0) return connection->error;
  const bool has_content = message != nullptr;
  if (marshal == nullptr || (has_content && connection->response_closed)) {
    return CHANNEL_ERR_INVALID_ARG;
  }
  const uint32_t status = marshal(message, &connection->output);
  if (status == PLATFORM_OK && has_content) ++connection->n_written;
  return status;
}

void channel_set_epilogue(channel_connection *connection, channel_epilogue epilogue) noexcept {
  connection->epilogue = epilogue;
}

void channel_finish_async(channel_connection *connection, const char *error_text) noexcept {
  if (connection->epilogue != nullptr) return connection->epilogue(connection, error_text);
  trace(TRACE_MODULE_PLATFORM, 3, kNumberNoEpilogue, "request channel: no epilogue for %s",
        name_of_kind(connection->command.request));
  set_error(*connection, CHANNEL_ERR_FAILED);
  finish(*connection);
}

void channel_register_continuation(channel_connection *connection,
                                   channel_continuation continuation) noexcept {
  connection->continuation = continuation;
}

uint32_t channel_continuation_registered(const channel_connection *connection) noexcept {
  return connection->continuation != nullptr ? 1 : 0;
}

uint32_t channel_close_generated_response(channel_connection *connection) noexcept {
  if (connection->error != 0) return connection->error;
  if (connection->response_closed) return CHANNEL_ERR_INVALID_ARG;
  connection->response_closed = true;
  return PLATFORM_OK;
}

void channel_nack(channel_connection *connection, const char *text) noexcept {
  nack(*connection, text);
}

void channel_finished(channel_connection *connection) noexcept { finish(*connection); }

char *channel_scratch(channel_connection *, size_t *size) noexcept {
  if (size != nullptr) *size = sizeof g_scratch;
  return g_scratch;
}

void channel_dump_request(const message_definitions *definitions) noexcept {
  if (definitions != nullptr) trace_fields(definitions->request);
}
