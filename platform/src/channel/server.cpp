// The daemon's side of the request channel: see platform/channel_server.h.
// A connection waits for its peer (to ask, or to take the reply) or for its handler. Waiting for
// the peer it is armed for one event, which disarms it; handled it is not armed at all, so that
// nothing that the peer does then disturbs anybody. Whatever there is to do next becomes such an
// event: channel_server_process() alone reads, writes and frees. Peers for whom there is no place,
// or no descriptor or memory, stay in the listener's queue; the listener is not watched then.
// Invariants: (1) a connection is in waiting_ or in handled_; (2) waiting_ is in the order of the
// last sign of life; (3) while the listener is not watched the timer runs. Threads: none; the
// process serialises all calls.
#include "platform/channel_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <memory>
#include <new>

#include "clock.h"
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
constexpr std::time_t kPatience = CHANNEL_PATIENCE_S;
constexpr itimerspec kPause = {{0, 0}, {1, 0}};  // one second

struct ServedConnection;
using Connections = std::list<ServedConnection>;

struct ServedConnection : channel_connection {
  ServedConnection(channel_server &owner, Descriptor &&peer) noexcept;

  // Nothing is under way in either direction.
  bool is_idle() const noexcept { return output.size() == 0 && input.size() == 0; }
  // The peer's turn to ask, to end its frame or to take its reply begins.
  void begin_turn() noexcept { turn_began = monotonic_seconds(); }

  channel_server &server;
  Descriptor socket;
  message_buffer input{kFrameHead + MESSAGE_FRAME_MAX};
  Connections::iterator self;
  std::uint32_t awaited = EPOLLIN;
  std::time_t turn_began = monotonic_seconds();
  bool has_been_answered = false;
};

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

struct channel_server {
  channel_server(std::uint32_t connections_max, gid_t permitted) noexcept
      : most_(connections_max), group_(permitted) {}

  // False, and errno tells why.
  bool open(const char *path) noexcept;
  void process() noexcept;
  // The handling of a request on the connection has ended.
  void handled(ServedConnection &connection) noexcept;

  int fd() const noexcept { return epoll_.get(); }
  std::size_t connections() const noexcept { return waiting_.size() + handled_.size(); }

 private:
  void accept_all() noexcept;
  bool accept_one() noexcept;
  bool turn_one_away() noexcept;
  void take_in(Descriptor &&peer) noexcept;
  bool find_place() noexcept;
  bool give_way() noexcept;
  bool watch(int fd, void *subject) noexcept;
  void pause_listening() noexcept;
  void resume_listening() noexcept;

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
  Descriptor timer_;  // runs out when listening may be resumed
  bool paused_ = false;
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

// Something can be done without waiting, or that cannot be told.
bool is_ready(int fd, std::uint32_t event) noexcept {
  pollfd asked = {fd, static_cast<short>(event), 0};
  return poll(&asked, 1, 0) != 0;
}

// Others may have the connection's place: see channel_server.h. What is ready is for the server to
// do, however long the peer took before.
bool may_go(const ServedConnection &connection, std::time_t now) noexcept {
  const bool owes_nothing = connection.has_been_answered && connection.is_idle();
  return (owes_nothing || now - connection.turn_began > kPatience) &&
         !is_ready(connection.socket.get(), connection.awaited);
}

}  // namespace
}  // namespace kivo_platform

// ---- Opening, and the events of one turn

bool channel_server::open(const char *path) noexcept {
  if (!listener_.open(path, group_)) return false;
  epoll_ = Descriptor(epoll_create1(EPOLL_CLOEXEC));
  if (!epoll_) return false;
  timer_ = Descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  if (!timer_) return false;
  spare_ = open_spare();
  return spare_ && watch(listener_.fd(), &listener_) && watch(timer_.get(), &timer_);
}

bool channel_server::watch(int fd, void *subject) noexcept {
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.ptr = subject;
  return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) == 0;
}

// New peers come last: the requests of those who are here are taken before one has to give way.
void channel_server::process() noexcept {
  epoll_event events[kEventsMax];
  const int n = epoll_wait(epoll_.get(), events, kEventsMax, 0);
  bool peers_wait = false;
  for (int i = 0; i < n; ++i) {
    if (events[i].data.ptr == &listener_) {
      peers_wait = true;
    } else if (events[i].data.ptr == &timer_) {
      resume_listening();
    } else {
      advance(*static_cast<ServedConnection *>(events[i].data.ptr));
    }
  }
  if (peers_wait) accept_all();
}

// ---- Taking peers in

void channel_server::accept_all() noexcept {
  for (int i = 0; i < kAcceptsMax && find_place() && accept_one(); ++i) {
  }
}

// False when all places are taken, and stay so for now.
bool channel_server::find_place() noexcept {
  if (connections() < most_) return true;
  if (!is_ready(listener_.fd(), EPOLLIN)) return false;  // no place is needed
  if (give_way()) return true;
  trace_.write(ServerEvent::kAllBusy, most_);
  pause_listening();
  return false;
}

// Ends one connection for others to take its place, one in the middle of something only when no
// other may go. False when there is none.
bool channel_server::give_way() noexcept {
  const std::time_t now = monotonic_seconds();
  for (const bool idle : {true, false}) {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(), [&](const auto &connection) {
      return connection.is_idle() == idle && may_go(connection, now);
    });
    if (found == waiting_.end()) continue;
    trace_.write(idle ? ServerEvent::kGaveWay : ServerEvent::kStalled, connections());
    end(*found);
    return true;
  }
  return false;
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
  const bool no_descriptor = errno == EMFILE || errno == ENFILE;
  trace_.write(ServerEvent::kCannotAccept, strerrordesc_np(errno));
  // Nothing else changes what the next attempt meets, and the listener would wake the host for
  // ever.
  if (!no_descriptor || (!give_way() && !turn_one_away())) pause_listening();
  return false;
}

// Takes a peer in by the spare descriptor, to tell it that there is no other. False when that
// cannot be done either.
bool channel_server::turn_one_away() noexcept {
  spare_.reset();
  bool turned_away = false;
  {
    const Descriptor peer(accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    if (peer) turn_away(peer.get(), "Too many connections.");
    turned_away = static_cast<bool>(peer);
  }
  spare_ = open_spare();
  return turned_away;
}

void channel_server::take_in(Descriptor &&peer) noexcept {
  const int fd = peer.get();
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

// The listener stays in the set, and nothing is asked of it: neither change can fail.
void channel_server::pause_listening() noexcept {
  epoll_event nothing{};
  nothing.data.ptr = &listener_;
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, listener_.fd(), &nothing);
  timerfd_settime(timer_.get(), 0, &kPause, nullptr);
  paused_ = true;
}

void channel_server::resume_listening() noexcept {
  if (!paused_) return;
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.ptr = &listener_;
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, listener_.fd(), &wanted);
  constexpr itimerspec kStopped{};
  timerfd_settime(timer_.get(), 0, &kStopped, nullptr);  // also takes its event back
  paused_ = false;
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
  if (bytes.size() == 0) return true;
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
  connection.begin_turn();
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
  if (n > 0) {
    if (before == 0) connection.begin_turn();
    return true;
  }
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
  connection.has_been_answered = true;
  connection.begin_turn();
  if (connection.error != 0) shutdown(connection.socket.get(), SHUT_RDWR);
  await(connection, EPOLLOUT);
}

// ---- Waiting, and the end

void channel_server::await(ServedConnection &connection, std::uint32_t event) noexcept {
  waiting_.splice(waiting_.end(), waiting_, connection.self);
  connection.awaited = event;
  epoll_event wanted{};
  wanted.events = event | EPOLLONESHOT;
  wanted.data.ptr = &connection;
  // Cannot fail: the descriptor is in the set, and changing its entry takes no memory.
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, connection.socket.get(), &wanted);
  if (connection.is_idle()) resume_listening();  // it may go, if somebody waits
}

void channel_server::end(ServedConnection &connection) noexcept {
  waiting_.erase(connection.self);
  resume_listening();
}

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
  if (made->open(path)) {
    *server = made.release();
    return PLATFORM_OK;
  }
  const int reason = errno;
  made.reset();
  errno = reason;
  return reason == ENOMEM ? CHANNEL_ERR_NO_MEMORY : CHANNEL_ERR_SYSTEM;
}

int channel_server_fd(const channel_server *server) noexcept { return server->fd(); }

void channel_server_process(channel_server *server) noexcept { server->process(); }

uint32_t channel_server_connections(const channel_server *server) noexcept {
  return static_cast<uint32_t>(server->connections());
}

void channel_server_close(channel_server *server) noexcept { delete server; }
