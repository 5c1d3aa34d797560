// The daemon's side of the request channel: see platform/channel_server.h.
// A connection waits for its peer (to ask, or to take the reply) or for its handler. Waiting for
// the peer it is armed for one event, which disarms it; handled it is not armed at all, so that
// nothing that the peer does then disturbs anybody. Whatever there is to do next becomes such an
// event: channel_server_process() alone reads, writes and frees. Invariants: (1) a connection is in
// waiting_ or in handled_; (2) waiting_ is in the order of the last sign of life. Threads: none;
// the process serialises all calls.
#include "platform/channel_server.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <memory>
#include <new>

#include "connection.h"
#include "descriptor.h"
#include "internal.h"
#include "listener.h"
#include "peer.h"
#include "server_trace.h"

namespace kivo_platform {
namespace {

constexpr std::size_t kPiece = 4096;
constexpr int kEventsMax = 64;   // taken in one call
constexpr int kAcceptsMax = 64;  // likewise

struct ServedConnection;
using Connections = std::list<ServedConnection>;

struct ServedConnection : channel_connection {
  ServedConnection(channel_server &owner, Descriptor &&peer) noexcept;

  channel_server &server;
  Descriptor socket;
  message_buffer input{kFrameHead + MESSAGE_FRAME_MAX};
  Connections::iterator self;
};

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

struct channel_server {
  channel_server(std::uint32_t connections_max, gid_t permitted) noexcept
      : most_(connections_max), group_(permitted) {}

  std::uint32_t open(const char *path) noexcept;
  void process() noexcept;
  // The handling of a request on the connection has ended.
  void handled(ServedConnection &connection) noexcept;

  int fd() const noexcept { return epoll_.get(); }
  std::size_t connections() const noexcept { return waiting_.size() + handled_.size(); }

 private:
  void accept_all() noexcept;
  bool accept_one() noexcept;
  void drop_one_unaccepted() noexcept;
  void take_in(Descriptor &&peer) noexcept;
  bool make_room() noexcept;

  void advance(ServedConnection &connection) noexcept;
  bool write(ServedConnection &connection) noexcept;
  bool read(ServedConnection &connection) noexcept;
  void handle(ServedConnection &connection, std::size_t size) noexcept;

  void await(ServedConnection &connection, std::uint32_t event) noexcept;
  void end(ServedConnection &connection) noexcept;

  std::uint32_t most_;
  gid_t group_;
  Listener listener_;
  Descriptor epoll_;
  Descriptor spare_;  // given up to turn a peer away when there are no descriptors left
  Connections waiting_;
  Connections handled_;
  ServerTrace trace_;
};

namespace kivo_platform {
namespace {

void tell_server(channel_connection &connection) noexcept {
  auto &served = static_cast<ServedConnection &>(connection);
  served.server.handled(served);
}

ServedConnection::ServedConnection(channel_server &owner, Descriptor &&peer) noexcept
    : channel_connection(tell_server), server(owner), socket(std::move(peer)) {}

// Tells a peer that is not taken in why, if it listens.
void turn_away(int fd, const char *reason) noexcept {
  message_buffer bytes(MESSAGE_FRAME_MAX);
  if (marshal_nack(reason, bytes) != PLATFORM_OK) return;
  // Nobody to tell of a failure: the peer is turned away in any case.
  [[maybe_unused]] const ssize_t sent =
      send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

Descriptor open_spare() noexcept { return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

}  // namespace
}  // namespace kivo_platform

// ---- Opening, and the events of one turn

std::uint32_t channel_server::open(const char *path) noexcept {
  if (!listener_.open(path, group_)) {
    return errno == ENOMEM ? CHANNEL_ERR_NO_MEMORY : CHANNEL_ERR_SYSTEM;
  }
  epoll_ = Descriptor(epoll_create1(EPOLL_CLOEXEC));
  spare_ = open_spare();
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.ptr = nullptr;
  if (!epoll_ || epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, listener_.fd(), &wanted) != 0) {
    return CHANNEL_ERR_SYSTEM;
  }
  return PLATFORM_OK;
}

// New peers come last: the requests of those who are here are taken before one has to give way.
void channel_server::process() noexcept {
  epoll_event events[kEventsMax];
  const int n = epoll_wait(epoll_.get(), events, kEventsMax, 0);
  bool peers_wait = false;
  for (int i = 0; i < n; ++i) {
    if (events[i].data.ptr == nullptr) {
      peers_wait = true;
    } else {
      advance(*static_cast<ServedConnection *>(events[i].data.ptr));
    }
  }
  if (peers_wait) accept_all();
}

// ---- Taking peers in

void channel_server::accept_all() noexcept {
  for (int i = 0; i < kAcceptsMax && accept_one(); ++i) {
  }
}

// False when nobody waits any more, or nobody can be taken in for now.
bool channel_server::accept_one() noexcept {
  Descriptor peer(accept4(listener_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (peer) {
    uid_t user = 0;
    if (peer_is_permitted(peer.get(), group_, user)) {
      take_in(std::move(peer));
    } else {
      trace_.write(ServerEvent::kNotPermitted, user);
      turn_away(peer.get(), "Not permitted.");
    }
    return true;
  }
  if (errno == EINTR || errno == ECONNABORTED) return true;
  if (errno == EAGAIN) return false;
  trace_.write(ServerEvent::kCannotAccept, strerrordesc_np(errno));
  if (errno == EMFILE || errno == ENFILE) drop_one_unaccepted();
  return false;
}

// A peer that stays in the queue would wake the host for ever.
void channel_server::drop_one_unaccepted() noexcept {
  spare_.reset();
  { const Descriptor peer(accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC)); }
  spare_ = open_spare();
}

void channel_server::take_in(Descriptor &&peer) noexcept {
  const int fd = peer.get();
  if (!make_room()) {
    trace_.write(ServerEvent::kTooMany, most_);
    return turn_away(fd, "Too many connections.");
  }
  try {
    waiting_.emplace_back(*this, std::move(peer));
  } catch (const std::bad_alloc &) {
    trace_.write(ServerEvent::kCannotAccept, strerrordesc_np(ENOMEM));
    return;
  }
  ServedConnection &connection = waiting_.back();
  connection.self = std::prev(waiting_.end());
  epoll_event wanted{};
  wanted.events = EPOLLIN | EPOLLONESHOT;
  wanted.data.ptr = &connection;
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) == 0) return;
  trace_.write(ServerEvent::kCannotAccept, strerrordesc_np(errno));
  end(connection);
}

bool channel_server::make_room() noexcept {
  if (connections() < most_) return true;
  if (waiting_.empty()) return false;
  trace_.write(ServerEvent::kGaveWay, most_);
  end(waiting_.front());
  return true;
}

// ---- One turn of a connection

// Sends what is left of the last reply, then takes what the peer asks next.
void channel_server::advance(ServedConnection &connection) noexcept {
  if (connection.error != 0) {
    trace_.write(ServerEvent::kError, status_text(connection.error));
    return end(connection);
  }
  if (!write(connection)) return;
  std::size_t size = 0;
  FrontFrame front = connection.input.front_frame(size);
  if (front == FrontFrame::kPartial) {
    if (!read(connection)) return;
    front = connection.input.front_frame(size);
  }
  switch (front) {
    case FrontFrame::kWhole:
      return handle(connection, size);
    case FrontFrame::kPartial:
      return await(connection, EPOLLIN);
    case FrontFrame::kBad:
      trace_.write(ServerEvent::kBadSize, size);
      return end(connection);
  }
}

// True when nothing is left to write; otherwise the connection waits, or has ended.
bool channel_server::write(ServedConnection &connection) noexcept {
  message_buffer &bytes = connection.output;
  while (bytes.size() != 0) {
    const ssize_t n = send(connection.socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n >= 0) {
      bytes.consume(static_cast<std::size_t>(n));
    } else if (errno == EAGAIN) {
      await(connection, EPOLLOUT);
      return false;
    } else if (errno != EINTR) {
      trace_.write(ServerEvent::kVanished, bytes.size());
      end(connection);
      return false;
    }
  }
  bytes.trim();
  return true;
}

// True when the peer sent something; otherwise the connection waits, or has ended.
bool channel_server::read(ServedConnection &connection) noexcept {
  message_buffer &bytes = connection.input;
  const std::size_t before = bytes.size();
  const std::size_t room = std::min(kPiece, bytes.room());
  std::uint8_t *const at = bytes.extend(room);
  if (at == nullptr) {
    trace_.write(ServerEvent::kError, status_text(CHANNEL_ERR_NO_MEMORY));
    end(connection);
    return false;
  }
  const ssize_t n = recv(connection.socket.get(), at, room, 0);
  const int reason = n < 0 ? errno : 0;
  bytes.shorten(room - static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
  if (n > 0) return true;
  if (reason == EAGAIN || reason == EINTR) {
    await(connection, EPOLLIN);
    return false;
  }
  if (before != 0) trace_.write(ServerEvent::kCutOff, before);
  end(connection);
  return false;
}

void channel_server::handle(ServedConnection &connection, std::size_t size) noexcept {
  handled_.splice(handled_.end(), waiting_, connection.self);
  const std::uint32_t status = deliver(connection, connection.input.data() + kFrameHead, size);
  connection.input.consume(kFrameHead + size);
  connection.input.trim();
  if (status == PLATFORM_OK) return;
  trace_.write(ServerEvent::kUnreadable, status_text(status));
  waiting_.splice(waiting_.end(), handled_, connection.self);
  end(connection);
}

// Sending is tried in the connection's next turn, like everything else: a handler may call this
// from anywhere, and must not find its connection gone. Shutting down makes that turn come at once
// when the peer takes nothing.
void channel_server::handled(ServedConnection &connection) noexcept {
  waiting_.splice(waiting_.end(), handled_, connection.self);
  if (connection.error != 0) shutdown(connection.socket.get(), SHUT_RDWR);
  await(connection, EPOLLOUT);
}

// ---- Waiting, and the end

void channel_server::await(ServedConnection &connection, std::uint32_t event) noexcept {
  waiting_.splice(waiting_.end(), waiting_, connection.self);
  epoll_event wanted{};
  wanted.events = event | EPOLLONESHOT;
  wanted.data.ptr = &connection;
  // Cannot fail: the descriptor is in the set, and changing its entry takes no memory.
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, connection.socket.get(), &wanted);
}

void channel_server::end(ServedConnection &connection) noexcept { waiting_.erase(connection.self); }

// ---- Exported

uint32_t channel_server_open(const char *path, const char *group, uint32_t connections_max,
                             channel_server **server) noexcept {
  if (server == nullptr) return CHANNEL_ERR_INVALID_ARG;
  *server = nullptr;
  if (path == nullptr || connections_max > CHANNEL_CONNECTIONS_MAX) return CHANNEL_ERR_INVALID_ARG;
  if (const uint32_t status = prepare_messages(); status != PLATFORM_OK) return status;
  const gid_t permitted = group != nullptr ? find_group(group) : kNoGroup;
  if (group != nullptr && permitted == kNoGroup) return CHANNEL_ERR_SYSTEM;
  const uint32_t most = connections_max != 0 ? connections_max : CHANNEL_CONNECTIONS_DEFAULT;
  std::unique_ptr<channel_server> made(new (std::nothrow) channel_server(most, permitted));
  if (made == nullptr) return CHANNEL_ERR_NO_MEMORY;
  const uint32_t status = made->open(path);
  if (status == PLATFORM_OK) {
    *server = made.release();
    return PLATFORM_OK;
  }
  const int reason = errno;
  made.reset();
  errno = reason;
  return status;
}

int channel_server_fd(const channel_server *server) noexcept { return server->fd(); }

void channel_server_process(channel_server *server) noexcept { server->process(); }

uint32_t channel_server_connections(const channel_server *server) noexcept {
  return static_cast<uint32_t>(server->connections());
}

void channel_server_close(channel_server *server) noexcept { delete server; }
