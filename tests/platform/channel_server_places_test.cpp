// The request channel's server when peers are many and places are few, or descriptors, or memory:
// who waits, who gives way, and that nobody loses a reply. The clock stands still unless a test
// moves it, and the server's timer runs out when a test says so.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <ctime>

#include "platform/served_channel.h"

namespace {

time_t g_seconds = 1000;
int g_timer = -1;
bool g_timer_runs = false;
int g_accept_failure = 0;  // what accept4 fails with, if not 0
int g_accepts = 0;

template <typename Operation>
Operation *real(const char *name) {
  return reinterpret_cast<Operation *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// ---- In place of the system's

extern "C" {

int clock_gettime(clockid_t clock, timespec *now) noexcept {
  static const auto next = real<int(clockid_t, timespec *)>("clock_gettime");
  if (clock != CLOCK_MONOTONIC_COARSE) return next(clock, now);
  *now = {g_seconds, 0};
  return 0;
}

int timerfd_settime(int fd, int, const itimerspec *wanted, itimerspec *) noexcept {
  static const auto next = real<int(int, int, const itimerspec *, itimerspec *)>("timerfd_settime");
  g_timer = fd;
  g_timer_runs = wanted->it_value.tv_sec != 0 || wanted->it_value.tv_nsec != 0;
  constexpr itimerspec kStopped{};
  return next(fd, 0, &kStopped, nullptr);
}

int accept4(int fd, sockaddr *address, socklen_t *size, int flags) {
  static const auto next = real<int(int, sockaddr *, socklen_t *, int)>("accept4");
  ++g_accepts;
  if (g_accept_failure == 0) return next(fd, address, size, flags);
  errno = g_accept_failure;
  return -1;
}

}  // extern "C"

namespace {

using namespace kivo_test;
using namespace std::string_literals;

const std::string kRequest = "\0\0\0\x02\x4a\0"s;  // field 9, empty
const std::string kReply = "\0\0\0\x07\x42\x05\x0a\x03xxx"s;
constexpr size_t kReplyOfManyPieces = 60000;

// A peer's socket.
class Peer {
 public:
  explicit Peer(int fd) : fd_(fd) {}
  Peer(Peer &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  ~Peer() {
    if (fd_ >= 0) close(fd_);
  }

  void connect(const std::string &path) const {
    const sockaddr_un address = address_of(path);
    EXPECT_EQ(0, ::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address));
  }
  void send(const std::string &bytes) const {
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
              ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }
  // All that has come.
  std::string take() const {
    std::string taken;
    char piece[4096];
    ssize_t n = 0;
    while ((n = recv(fd_, piece, sizeof piece, 0)) > 0) {
      taken.append(piece, static_cast<size_t>(n));
    }
    return taken;
  }
  // Nothing that came is left.
  bool has_ended() const {
    char byte = 0;
    return recv(fd_, &byte, 1, 0) == 0;
  }

 private:
  int fd_;
};

class Places : public ServedChannel {
 protected:
  ~Places() override { g_accept_failure = 0; }

  Peer peer() const { return Peer(raw_peer()); }
  Peer peer_who_asks() const {
    Peer made = peer();
    made.send(kRequest);
    return made;
  }
  std::vector<Peer> peers(size_t n) const {
    std::vector<Peer> made;
    for (size_t i = 0; i < n; ++i) made.push_back(peer());
    return made;
  }
  // The reply to one request is more than a socket holds; later ones are short.
  static void answer_once_at_length() {
    g_handler = [first = true, at_once = g_handler](auto *connection, auto *command) mutable {
      if (!std::exchange(first, false)) return at_once(connection, command);
      for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(PLATFORM_OK, write_reply(connection, kReplyOfManyPieces));
      }
      channel_finished(connection);
    };
  }
  void seconds_pass(time_t seconds) const {
    g_seconds += seconds;
    let_the_timer_run_out();
    turn();
  }
  // Does once what is done when a peer is turned away.
  void send_some_message() {
    open();
    expect_answer(client());
    channel_server_close(std::exchange(server_, nullptr));
  }
  // If it runs.
  static void let_the_timer_run_out() {
    if (!std::exchange(g_timer_runs, false)) return;
    using Settime = int(int, int, const itimerspec *, itimerspec *);
    constexpr itimerspec kNow = {{0, 0}, {0, 1}};
    ASSERT_EQ(0, real<Settime>("timerfd_settime")(g_timer, 0, &kNow, nullptr));
    pollfd run_out = {g_timer, POLLIN, 0};
    ASSERT_EQ(1, poll(&run_out, 1, -1));
  }
  bool is_ready() const {
    pollfd ready = {channel_server_fd(server_), POLLIN, 0};
    return poll(&ready, 1, 0) == 1;
  }
};

constexpr time_t kPatience = CHANNEL_PATIENCE_S;

// ---- Crowds

TEST_F(Places, NobodyLosesAReplyWhenThreeHundredAskAtOnce) {
  const struct {
    const char *name;
    bool taken_in_before;  // as many as there are places
    int requests;
  } rows[] = {{"one request", false, 1},
              {"one request, later", true, 1},
              {"three requests", false, 3},
              {"three requests, later", true, 3}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    open();
    const std::vector<Peer> crowd = peers(300);
    if (row.taken_in_before) turn();
    std::string expected;
    for (int i = 0; i < row.requests; ++i) {
      for (const Peer &one : crowd) one.send(kRequest);
      expected += kReply;
    }
    turn();
    for (const Peer &one : crowd) EXPECT_EQ(expected, one.take());
    EXPECT_EQ(CHANNEL_CONNECTIONS_DEFAULT, channel_server_connections(server_));
    channel_server_close(std::exchange(server_, nullptr));
  }
}

TEST_F(Places, TheOneThatWasIdleLongestGivesWay) {
  open(2);
  const Client first = client();
  expect_answer(first);
  const Client second = client();
  expect_answer(second);
  expect_answer(first);
  const Client third = client();
  expect_answer(third);
  EXPECT_EQ(2u, channel_server_connections(server_));
  EXPECT_EQ((std::vector<std::string>{
                "request channel: of 2 connections the one that was idle longest gives way"}),
            take_traces());
  EXPECT_EQ(CHANNEL_ERR_CLOSED, ask(second));
  expect_answer(first);
}

TEST_F(Places, NobodyGivesWayWhenNobodyComes) {
  open(2);
  const Client first = client();
  expect_answer(first);
  const Client second = client();
  expect_answer(second);
  seconds_pass(100);
  expect_answer(first);
  expect_answer(second);
}

// However long its peer was silent before, and however many are served first.
TEST_F(Places, ARequestThatWaitsUnreadKeepsItsPlace) {
  open();
  const std::vector<Peer> silent = peers(CHANNEL_CONNECTIONS_DEFAULT);
  turn();
  seconds_pass(100);
  const Peer newcomer = peer_who_asks();
  for (const Peer &one : silent) one.send(kRequest);
  turn();
  for (const Peer &one : silent) EXPECT_EQ(kReply, one.take());
  EXPECT_EQ(kReply, newcomer.take());
}

TEST_F(Places, ARequestKeepsItsPlaceUntilItsHandlerHasFinished) {
  open(2);
  std::vector<channel_connection *> pending;
  g_handler = [&](channel_connection *connection, const channel_command *) {
    pending.push_back(connection);
  };
  const Peer first = peer_who_asks();
  const Peer second = peer_who_asks();
  const Peer third = peer_who_asks();
  turn();
  ASSERT_EQ(2u, pending.size());
  seconds_pass(100);
  ASSERT_EQ(2u, pending.size());
  EXPECT_EQ("request channel: all of 2 connections are busy: one more has to wait",
            take_traces().at(0));
  EXPECT_EQ(PLATFORM_OK, write_reply(pending[1]));
  channel_finished(pending[1]);
  turn();
  EXPECT_EQ(kReply, second.take());
  ASSERT_EQ(3u, pending.size()) << "the third has the place of the second";
  EXPECT_EQ(2u, channel_server_connections(server_));
}

// ---- Peers who hold a place

TEST_F(Places, AReplyUnderWayIsNotCutWhileOthersAreIdle) {
  open(2);
  answer_once_at_length();
  const Peer slow = peer_who_asks();
  turn();
  const Client idle = client();
  expect_answer(idle);
  seconds_pass(100);
  expect_answer(client());
  EXPECT_EQ(CHANNEL_ERR_CLOSED, ask(idle));
  std::string taken;
  for (std::string piece; !(piece = slow.take()).empty(); turn()) taken += piece;
  EXPECT_EQ(static_cast<ptrdiff_t>(4 * kReplyOfManyPieces),
            std::count(taken.begin(), taken.end(), 'x'));
  EXPECT_FALSE(slow.has_ended());
}

TEST_F(Places, WhoDoesNotDoItsPartGivesWayInTheEnd) {
  const struct {
    const char *name;
    std::string sent;
    std::string trace;
  } rows[] = {
      {"asks nothing", "",
       "request channel: of 1 connections the one that was idle longest gives way"},
      {"ends no frame", "\0\0\0\x09half"s,
       "request channel: of 1 connections one gives way whose peer left off in the middle"},
      {"ends no second frame", kRequest + "\0"s,
       "request channel: of 1 connections one gives way whose peer left off in the middle"},
      {"takes no reply", kRequest + kRequest,
       "request channel: of 1 connections one gives way whose peer left off in the middle"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    open(1);
    if (row.name == "takes no reply"s) answer_once_at_length();
    const Peer holds = peer();
    holds.send(row.sent);
    turn();
    const Peer newcomer = peer_who_asks();
    turn();
    seconds_pass(kPatience);
    EXPECT_EQ("", newcomer.take());
    EXPECT_EQ(2u, take_traces().size()) << "that all are busy, at both attempts";
    seconds_pass(1);
    EXPECT_EQ(kReply, newcomer.take());
    EXPECT_EQ(row.trace, take_traces().at(0));
    holds.take();
    EXPECT_TRUE(holds.has_ended());
    channel_server_close(std::exchange(server_, nullptr));
  }
}

TEST_F(Places, AFrameMustEndInTimeHoweverItsBytesDrip) {
  open(1);
  const Peer drips = peer();
  const Peer newcomer = peer_who_asks();
  const std::string frame = "\0\0\0\x09half a fr"s;
  for (time_t i = 0; i <= kPatience; ++i) {
    EXPECT_EQ("", newcomer.take());
    drips.send(frame.substr(static_cast<size_t>(i), 1));
    turn();
    seconds_pass(1);
  }
  EXPECT_EQ(kReply, newcomer.take());
}

TEST_F(Places, WhoTakesItsReplyInTimeKeepsItsPlaceUntilThen) {
  open(1);
  answer_once_at_length();
  const Peer slow = peer_who_asks();
  turn();
  const Peer newcomer = peer_who_asks();
  turn();
  seconds_pass(kPatience);
  std::string taken;
  for (std::string piece; !(piece = slow.take()).empty(); turn()) taken += piece;
  EXPECT_EQ(static_cast<ptrdiff_t>(4 * kReplyOfManyPieces),
            std::count(taken.begin(), taken.end(), 'x'));
  EXPECT_EQ(kReply, newcomer.take());
}

// ---- The system takes nobody in

TEST_F(Places, TheHostSleepsWhilePeersCannotBeTakenIn) {
  for (const int failure : {ENOMEM, ENOBUFS, EPERM, EMFILE, ENFILE}) {
    SCOPED_TRACE(strerrorname_np(failure));
    open();
    const Peer newcomer = peer_who_asks();
    g_accept_failure = failure;
    for (int second = 0; second < 3; ++second) {
      g_accepts = 0;
      for (int i = 0; i < 50 && is_ready(); ++i) channel_server_process(server_);
      EXPECT_FALSE(is_ready());
      EXPECT_GE(g_accepts, 1);
      EXPECT_LE(g_accepts, 2) << "once, and by the spare descriptor";
      let_the_timer_run_out();
    }
    EXPECT_EQ("request channel: cannot take a peer in: "s + strerrordesc_np(failure),
              take_traces().at(0));
    g_accept_failure = 0;
    turn();
    EXPECT_EQ(kReply, newcomer.take());
    channel_server_close(std::exchange(server_, nullptr));
  }
}

TEST_F(Places, AConnectionThatEndsIsAReasonToTryAgain) {
  open();
  std::vector<Peer> leaving = peers(1);
  turn();
  g_accept_failure = ENOMEM;
  const Peer newcomer = peer_who_asks();
  turn();
  g_accept_failure = 0;
  turn();
  EXPECT_EQ("", newcomer.take());
  leaving.clear();
  turn();
  EXPECT_EQ(kReply, newcomer.take());
}

// As few descriptors as are open, and some more, until the end of the scope.
class FewDescriptors {
 public:
  explicit FewDescriptors(int more) {
    EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before_));
    const int lowest_free = dup(0);
    close(lowest_free);
    rlimit few = before_;
    few.rlim_cur = static_cast<rlim_t>(lowest_free + more);
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
  }
  ~FewDescriptors() { EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &before_)); }

 private:
  rlimit before_{};
};

// The sanitizers need descriptors to check a class of objects for the first time: what is done
// without descriptors is done with them before, and no member of a fixture is used meanwhile.
void turn_without_descriptors(void (*turn)(channel_server *), channel_server *server) {
  const FewDescriptors none(0);
  turn(server);
}

TEST_F(Places, WithoutDescriptorsAnIdleOneGivesWay) {
  open();
  const Client idle = client();
  expect_answer(idle);
  const Peer newcomer = peer_who_asks();
  turn_without_descriptors(turn, server_);
  EXPECT_EQ(kReply, newcomer.take());
  EXPECT_EQ(1u, channel_server_connections(server_));
  EXPECT_EQ(CHANNEL_ERR_CLOSED, ask(idle));
}

TEST_F(Places, WithoutDescriptorsAndIdleOnesNewcomersAreTurnedAway) {
  send_some_message();
  open();
  const Client first = client();
  turn();
  const Client newcomer = client();
  const Client another = client();
  turn_without_descriptors(turn, server_);
  EXPECT_EQ("Too many connections.", text_from(newcomer));
  EXPECT_EQ("Too many connections.", text_from(another));
  EXPECT_EQ(2u, take_traces().size());
  expect_answer(first);
  expect_answer(client());
}

// A server that opens has what it needs to turn peers away; one that has not leaves nothing behind.
TEST_F(Places, OpensWithItsDescriptorsOrNotAtAll) {
  send_some_message();
  const Peer newcomer(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
  channel_server *server = nullptr;
  int reason = EMFILE;
  for (int more = 0; server == nullptr && reason == EMFILE; ++more) {
    EXPECT_FALSE(std::filesystem::exists(path_)) << more;
    const FewDescriptors few(more);
    const uint32_t status = channel_server_open(path_.c_str(), nullptr, 0, &server);
    reason = status == CHANNEL_ERR_SYSTEM ? errno : 0;
    if (server == nullptr) continue;
    newcomer.connect(path_);
    turn(server);
  }
  ASSERT_NE(nullptr, server);
  server_ = server;
  EXPECT_NE(std::string::npos, newcomer.take().find("Too many connections."));
}

}  // namespace
