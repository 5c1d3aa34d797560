// Clients of the request channel: see platform/channel_client.h. A client in memory holds the
// connection that handlers see; one on a socket holds a blocking descriptor with time limits.
#include "platform/channel_client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "connection.h"
#include "descriptor.h"
#include "message_buffer.h"
#include "message_codec.h"
#include "socket_address.h"

struct channel_client {
  message_definitions definitions;
  kivo_platform::Descriptor socket;                // none in memory
  std::unique_ptr<channel_connection> connection;  // none on a socket
  bool delivering = false;                         // in memory: a request is with its handler
  message_buffer sent{kivo_platform::kFrameHead + MESSAGE_FRAME_MAX};
  message_buffer received{kivo_platform::kFrameHead + MESSAGE_FRAME_MAX};
};

namespace kivo_platform {
namespace {

constexpr std::size_t kPiece = 4096;

void stay(channel_connection &) noexcept {}

std::uint32_t status_of_errno() noexcept {
  switch (errno) {
    case EAGAIN:
      return CHANNEL_ERR_TIMEOUT;
    case EPIPE:
    case ECONNRESET:
      return CHANNEL_ERR_CLOSED;
    case ENOMEM:
    case ENOBUFS:
      return CHANNEL_ERR_NO_MEMORY;
    default:
      return CHANNEL_ERR_SYSTEM;
  }
}

bool set_time_limits(int fd, std::uint32_t timeout_ms) noexcept {
  timeval limit{};
  limit.tv_sec = timeout_ms / 1000;
  limit.tv_usec = static_cast<suseconds_t>(timeout_ms % 1000) * 1000;
  return setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0 &&
         setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
}

std::uint32_t connect_to(const char *path, std::uint32_t timeout_ms,
                         Descriptor &connected) noexcept {
  sockaddr_un address{};
  if (!make_address(path, address)) return CHANNEL_ERR_SYSTEM;
  Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd || !set_time_limits(fd.get(), timeout_ms)) return CHANNEL_ERR_SYSTEM;
  int result = 0;
  do {
    result = connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  if (result != 0) return errno == EAGAIN ? CHANNEL_ERR_TIMEOUT : CHANNEL_ERR_SYSTEM;
  connected = std::move(fd);
  return PLATFORM_OK;
}

std::uint32_t send_all(channel_client &client) noexcept {
  message_buffer &bytes = client.sent;
  while (bytes.size() != 0) {
    const ssize_t n = send(client.socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n >= 0) {
      bytes.consume(static_cast<std::size_t>(n));
    } else if (errno != EINTR) {
      bytes.consume(bytes.size());
      return status_of_errno();
    }
  }
  return PLATFORM_OK;
}

// Whether a request inside the process has not been answered, or is just being handed over.
bool is_busy(const channel_client &client) noexcept {
  return client.connection != nullptr && (client.connection->handling || client.delivering);
}

// Handles the requests inside the process.
std::uint32_t deliver_all(channel_client &client) noexcept {
  message_buffer &bytes = client.sent;
  std::size_t size = 0;
  std::uint32_t status = PLATFORM_OK;
  while (status == PLATFORM_OK && bytes.front_frame(size) == FrontFrame::kWhole) {
    if (client.connection->handling) {
      status = CHANNEL_ERR_NO_ROOM;
    } else {
      client.delivering = true;
      status = deliver(*client.connection, bytes.data() + kFrameHead, size);
      client.delivering = false;
    }
    bytes.consume(kFrameHead + size);
  }
  return status;
}

// Takes the frame at the front of the bytes.
std::uint32_t take_front(message_buffer &bytes, std::size_t size,
                         received_message **received) noexcept {
  ReceivedMessage read;
  const std::uint32_t status = read_message(bytes.data() + kFrameHead, size, read);
  bytes.consume(kFrameHead + size);
  if (status == PLATFORM_OK) *received = read.release();
  return status;
}

std::uint32_t receive_piece(channel_client &client) noexcept {
  const std::size_t room = std::min(kPiece, client.received.room());
  std::uint8_t *const at = client.received.extend(room);
  if (at == nullptr) return CHANNEL_ERR_NO_MEMORY;
  ssize_t n = 0;
  do {
    n = recv(client.socket.get(), at, room, 0);
  } while (n < 0 && errno == EINTR);
  client.received.shorten(room - static_cast<std::size_t>(n > 0 ? n : 0));
  if (n > 0) return PLATFORM_OK;
  return n == 0 ? CHANNEL_ERR_CLOSED : status_of_errno();
}

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

uint32_t channel_client_connect(const char *path, uint32_t timeout_ms,
                                channel_client **client) noexcept {
  if (client == nullptr) return CHANNEL_ERR_INVALID_ARG;
  *client = nullptr;
  if (path == nullptr) return CHANNEL_ERR_INVALID_ARG;
  if (const uint32_t status = prepare_messages(); status != PLATFORM_OK) return status;
  std::unique_ptr<channel_client> made(new (std::nothrow) channel_client);
  if (made == nullptr) return CHANNEL_ERR_NO_MEMORY;
  const uint32_t status = connect_to(path, timeout_ms, made->socket);
  if (status == PLATFORM_OK) *client = made.release();
  return status;
}

uint32_t channel_client_open_memory(channel_client **client,
                                    channel_connection **connection) noexcept {
  if (client == nullptr) return CHANNEL_ERR_INVALID_ARG;
  *client = nullptr;
  if (const uint32_t status = prepare_messages(); status != PLATFORM_OK) return status;
  std::unique_ptr<channel_client> made(new (std::nothrow) channel_client);
  if (made != nullptr) made->connection.reset(new (std::nothrow) channel_connection(stay));
  if (made == nullptr || made->connection == nullptr) return CHANNEL_ERR_NO_MEMORY;
  if (connection != nullptr) *connection = made->connection.get();
  *client = made.release();
  return PLATFORM_OK;
}

uint32_t channel_client_send(channel_client *client, const void *message,
                             message_marshal_fn marshal) noexcept {
  if (client == nullptr || marshal == nullptr) return CHANNEL_ERR_INVALID_ARG;
  if (is_busy(*client)) return CHANNEL_ERR_NO_ROOM;
  const uint32_t status = marshal(message, &client->sent);
  if (status != PLATFORM_OK) return status;
  return client->connection != nullptr ? deliver_all(*client) : send_all(*client);
}

uint32_t channel_client_receive(channel_client *client, received_message **received) noexcept {
  if (received == nullptr) return CHANNEL_ERR_INVALID_ARG;
  *received = nullptr;
  if (client == nullptr) return CHANNEL_ERR_INVALID_ARG;
  message_buffer &bytes = client->connection ? client->connection->output : client->received;
  for (;;) {
    std::size_t size = 0;
    switch (bytes.front_frame(size)) {
      case FrontFrame::kWhole:
        return take_front(bytes, size, received);
      case FrontFrame::kBad:
        return CHANNEL_ERR_FRAME;
      case FrontFrame::kPartial:
        break;
    }
    if (client->connection != nullptr) {
      return client->connection->error != 0 ? CHANNEL_ERR_CLOSED : CHANNEL_ERR_TIMEOUT;
    }
    const uint32_t status = receive_piece(*client);
    if (status != PLATFORM_OK) return status;
  }
}

const message_definitions *channel_client_definitions(const channel_client *client) noexcept {
  return &client->definitions;
}

void channel_client_close(channel_client *client) noexcept { delete client; }
