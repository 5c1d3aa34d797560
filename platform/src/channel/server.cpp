// The daemon's side of the request channel: see platform/channel_server.h. Which connection comes
// in, is served or gives way is a matter of places.h. A connection waits for its peer (to ask, or
// to take the reply), for a place or for its handler. Waiting for the peer it is armed for one
// event, which disarms it; else it is not armed at all, so that nothing that the peer does then
// disturbs anybody. Whatever there is to do next becomes such an event: channel_server_process()
// alone reads, writes and frees. Peers for whom the system has no descriptor or memory stay in the
// listener's queue; the entrance is not watched then. Invariant: while the entrance is not watched,
// or somebody waits for a place, the timer runs. Threads: none; the process serialises all calls.
#include "platform/channel_server.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "entrance.h"
#include "internal.h"
#include "peer.h"
#include "places.h"
#include "served_connection.h"
#include "server_trace.h"

namespace kivo_platform {
namespace {

constexpr std::size_t kPiece = 4096;
constexpr int kEventsMax = 64;   // taken in one call
constexpr int kAcceptsMax = 64;  // likewise

constexpr itimerspec kQuarterSecond = {{0, 0}, {0, 250000000}};
constexpr itimerspec kStopped{};

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

struct channel_server {
  channel_server(std::uint32_t connections_max, gid_t permitted) noexcept
      : group_(permitted), places_(connections_max) {}

  // False, and errno tells why.
  bool open(const char *path) noexcept;
  void process() noexcept;
  // The handling of a request on the connection has ended.
  void handled(ServedConnection &connection) noexcept;

  int fd() const noexcept { return epoll_.get(); }
  std::size_t connections() const noexcept { return places_.connections(); }

 private:
  bool accept_one() noexcept;
  void take_in(Descriptor &&socket, const Peer &peer) noexcept;
  void seat_those_who_ask() noexcept;
  bool give_way(Need need, User *to) noexcept;
  bool watch(int fd, std::uint32_t events, void *subject) noexcept;
  void pause_listening() noexcept;
  void resume_listening() noexcept;
  void set_timer(bool runs) noexcept;

  void listen_for_question(ServedConnection &connection) noexcept;
  void advance(ServedConnection &connection) noexcept;
  bool write(ServedConnection &connection) noexcept;
  bool read(ServedConnection &connection) noexcept;
  void handle(ServedConnection &connection, std::size_t size) noexcept;

  void arm(ServedConnection &connection, std::uint32_t event) noexcept;
  void await(ServedConnection &connection, std::uint32_t event) noexcept;
  void end(ServedConnection &connection) noexcept;

  gid_t group_;
  Entrance entrance_;
  Descriptor epoll_;
  Descriptor timer_;  // runs out when those who wait may be looked at again
  bool timer_runs_ = false;
  bool paused_ = false;    // the entrance is not watched
  bool more_ask_ = false;  // for a place, in this turn
  Places places_;
};

namespace kivo_platform {
namespace {

void tell_server(channel_connection &connection) noexcept {
  auto &served = static_cast<ServedConnection &>(connection);
  served.server.handled(served);
}

}  // namespace
}  // namespace kivo_platform

// ---- Opening, and the events of one turn

bool channel_server::open(const char *path) noexcept {
  if (!entrance_.open(path, group_)) return false;
  epoll_ = Descriptor(epoll_create1(EPOLL_CLOEXEC));
  if (!epoll_) return false;
  timer_ = Descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  return timer_ && watch(entrance_.fd(), EPOLLIN, &entrance_) &&
         watch(timer_.get(), EPOLLIN, &timer_);
}

bool channel_server::watch(int fd, std::uint32_t events, void *subject) noexcept {
  epoll_event wanted{};
  wanted.events = events;
  wanted.data.ptr = subject;
  return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) == 0;
}

// New peers come last: the requests of those who are here are taken before one has to give way.
void channel_server::process() noexcept {
  epoll_event events[kEventsMax];
  const int n = epoll_wait(epoll_.get(), events, kEventsMax, 0);
  bool peers_wait = false;
  for (int i = 0; i < n; ++i) {
    if (events[i].data.ptr == &entrance_) {
      peers_wait = true;
    } else if (events[i].data.ptr == &timer_) {
      set_timer(false);  // takes its event back
      resume_listening();
    } else {
      auto &connection = *static_cast<ServedConnection *>(events[i].data.ptr);
      connection.stage == Stage::kQuestion ? listen_for_question(connection) : advance(connection);
    }
  }
  seat_those_who_ask();
  places_.begin_round();
  for (int i = 0; peers_wait && i < kAcceptsMax && accept_one(); ++i) {
  }
  set_timer(paused_ || !places_.at(Stage::kPlace).empty());
}

void channel_server::set_timer(bool runs) noexcept {
  if (std::exchange(timer_runs_, runs) == runs) return;
  timerfd_settime(timer_.get(), 0, runs ? &kQuarterSecond : &kStopped, nullptr);
}

// ---- Taking peers in

// False when nobody waits any more, or nobody can be taken in for now.
bool channel_server::accept_one() noexcept {
  Descriptor socket = entrance_.accept();
  if (socket) {
    const Peer peer = peer_of(socket.get(), group_);
    if (peer.is_permitted) {
      take_in(std::move(socket), peer);
    } else {
      trace_server(ServerEvent::kNotPermitted, peer.user);
      refuse(socket.get(), "Not permitted.");
    }
    return true;
  }
  if (errno == EINTR || errno == ECONNABORTED) return true;
  if (errno == EAGAIN) return false;
  const bool no_descriptor = errno == EMFILE || errno == ENFILE;
  trace_server(ServerEvent::kCannotAccept, strerrordesc_np(errno));
  // Nothing else changes what the next attempt meets, and the entrance would wake the host for
  // ever.
  if (!no_descriptor || (!give_way(Need::kDescriptor, nullptr) && !entrance_.turn_one_away())) {
    pause_listening();
  }
  return false;
}

void channel_server::take_in(Descriptor &&socket, const Peer &peer) noexcept {
  const int fd = socket.get();
  ServedConnection *const connection = places_.take_in(tell_server, *this, std::move(socket), peer);
  if (connection == nullptr) {
    trace_server(ServerEvent::kCannotAccept, strerrordesc_np(ENOMEM));
    return;
  }
  const Need exceeded = places_.exceeded_by(connection->user);
  if (exceeded != Need::kNothing && !give_way(exceeded, &connection->user)) {
    trace_server(ServerEvent::kTooMany, peer.user);
    refuse(fd, exceeded == Need::kShare ? "Too many connections of this user."
                                        : "Too many connections.");
    return places_.erase(*connection);
  }
  if (watch(fd, EPOLLIN | EPOLLONESHOT, connection)) return;
  trace_server(ServerEvent::kCannotAccept, strerrordesc_np(errno));
  end(*connection);
}

// In the order in which they began to ask, but past those for whom nothing can be done yet.
void channel_server::seat_those_who_ask() noexcept {
  places_.begin_round();
  Connections &asking = places_.at(Stage::kPlace);
  for (auto next = asking.begin(); next != asking.end();) {
    ServedConnection &connection = *next++;
    User &user = connection.user;
    if (!places_.has_place_for(user) && !give_way(Need::kPlace, &user)) continue;
    places_.move(connection, Stage::kPeer);
    advance(connection);
  }
  if (std::exchange(more_ask_, false) && !asking.empty()) {
    trace_server(ServerEvent::kAllBusy, places_.most());
  }
}

// Ends one connection for another's need, one in the middle of something only when no other may go.
// False when there is none.
bool channel_server::give_way(Need need, User *to) noexcept {
  ServedConnection *const found = places_.who_gives_way(need, to);
  if (found == nullptr) return false;
  trace_server(found->is_idle() ? ServerEvent::kGaveWay : ServerEvent::kStalled,
               places_.at(found->stage).size());
  if (!found->has_been_answered) {
    refuse(found->socket.get(), "Others waited, and no request had come.");
  }
  end(*found);
  return true;
}

// The entrance stays in the set, and nothing is asked of it: neither change can fail.
void channel_server::pause_listening() noexcept {
  epoll_event nothing{};
  nothing.data.ptr = &entrance_;
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, entrance_.fd(), &nothing);
  paused_ = true;
}

void channel_server::resume_listening() noexcept {
  if (!std::exchange(paused_, false)) return;
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.ptr = &entrance_;
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, entrance_.fd(), &wanted);
}

// ---- One turn of a connection

// Its first bytes, which it is given a place for, or its end.
void channel_server::listen_for_question(ServedConnection &connection) noexcept {
  char first = 0;
  const ssize_t n = recv(connection.socket.get(), &first, 1, MSG_PEEK);
  if (n > 0) {
    more_ask_ = true;
    places_.move(connection, Stage::kPlace);
  } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
    arm(connection, EPOLLIN);
  } else {
    end(connection);
  }
}

// Sends what is left of the last reply, then takes what the peer asks next.
void channel_server::advance(ServedConnection &connection) noexcept {
  if (connection.error != 0) {
    trace_server(ServerEvent::kError, status_text(connection.error));
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
      trace_server(ServerEvent::kBadSize, size);
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
      trace_server(ServerEvent::kVanished, bytes.size());
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
    trace_server(ServerEvent::kError, status_text(CHANNEL_ERR_NO_MEMORY));
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
  if (before != 0) trace_server(ServerEvent::kCutOff, before);
  end(connection);
  return false;
}

void channel_server::handle(ServedConnection &connection, std::size_t size) noexcept {
  places_.move(connection, Stage::kHandler);
  const std::uint32_t status = deliver(connection, connection.input.data() + kFrameHead, size);
  connection.input.consume(kFrameHead + size);
  connection.input.trim();
  if (status == PLATFORM_OK) return;
  trace_server(ServerEvent::kUnreadable, status_text(status));
  end(connection);
}

// Sending is tried in the connection's next turn, like everything else: a handler may call this
// from anywhere, and must not find its connection gone. Shutting down makes that turn come at once
// when the peer takes nothing.
void channel_server::handled(ServedConnection &connection) noexcept {
  connection.has_been_answered = true;
  connection.begin_turn();
  if (connection.error != 0) shutdown(connection.socket.get(), SHUT_RDWR);
  await(connection, EPOLLOUT);
}

// ---- Waiting, and the end

void channel_server::arm(ServedConnection &connection, std::uint32_t event) noexcept {
  connection.awaited = event;
  epoll_event wanted{};
  wanted.events = event | EPOLLONESHOT;
  wanted.data.ptr = &connection;
  // Cannot fail: the descriptor is in the set, and changing its entry takes no memory.
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, connection.socket.get(), &wanted);
}

void channel_server::await(ServedConnection &connection, std::uint32_t event) noexcept {
  places_.move(connection, Stage::kPeer);
  arm(connection, event);
  if (connection.is_idle()) resume_listening();  // it may go, if somebody waits
}

void channel_server::end(ServedConnection &connection) noexcept {
  places_.erase(connection);
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
