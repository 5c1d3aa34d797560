// The request channel's server when peers are many and places are few, or descriptors, or memory:
// who waits, who gives way, who is refused, and that nobody loses a reply. The clock stands still
// unless a test moves it, the server's timer runs out when a test says so, and peers are of the
// user that a test makes them.
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <ctime>

#include "platform/served_channel.h"

namespace {

int64_t g_ms = 1000000;
uid_t g_user = 0;  // whose peers come, if not 0: else they are the process's own
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
  *now = {g_ms / 1000, g_ms % 1000 * 1000000};
  return 0;
}

int getsockopt(int fd, int level, int name, void *value, socklen_t *size) noexcept {
  static const auto next = real<int(int, int, int, void *, socklen_t *)>("getsockopt");
  const int result = next(fd, level, name, value, size);
  if (name == SO_PEERCRED && g_user != 0) static_cast<ucred *>(value)->uid = g_user;
  return result;
}

int timerfd_settime(int fd, int, const itimerspec *wanted, itimerspec *) noexcept {
  static const auto next = real<int(int, int, const itimerspec *, itimerspec *)>("timerfd_settime");
  g_timer = fd;
  g_timer_runs = wanted->it_value.tv_sec == 0 && wanted->it_value.tv_nsec != 0;  // not for long
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

// What peers are told, and the beginning of a request.
const std::string kGaveWay = "Others waited, and no request had come.";
const std::string kOverShare = "Too many connections of this user.";
const std::string kOverRoom = "Too many connections.";
const std::string kHalf = kRequest.substr(0, 3);

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
  ~Places() override {
    g_accept_failure = 0;
    g_user = 0;
  }

  // Other users may come as well.
  void open_for_others(uint32_t connections_max) {
    const group *const own = getgrgid(getegid());
    ASSERT_NE(nullptr, own);
    open(connections_max, own->gr_name);
  }
  // Peers of a user that have been taken in, or refused, and what they sent has been read.
  std::vector<Peer> peers_of(uid_t user, size_t n, const std::string &what_they_send = "") const {
    g_user = user;
    std::vector<Peer> made = peers(n);
    for (const Peer &one : made) one.send(what_they_send);
    turn();
    return made;
  }

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
  void seconds_pass(int64_t seconds) const { ms_pass(1000 * seconds); }
  void ms_pass(int64_t ms) const {
    g_ms += ms;
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

constexpr int64_t kPatience = CHANNEL_PATIENCE_S;

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

// The reply of many pieces is taken whole, and what comes after it.
TEST_F(Places, AReplyUnderWayIsNotCutWhileItIsTakenInTime) {
  for (const bool others_are_idle : {true, false}) {
    open(others_are_idle ? 2 : 1);
    answer_once_at_length();
    const Peer slow = peer_who_asks();
    slow.send(kRequest);
    turn();
    const Peer idle = peer_who_asks();
    turn();
    EXPECT_EQ(others_are_idle ? kReply : "", idle.take());
    seconds_pass(others_are_idle ? 100 : kPatience);
    const Peer newcomer = peer_who_asks();
    turn();
    EXPECT_EQ(others_are_idle, idle.has_ended());
    std::string taken;
    for (std::string piece; !(piece = slow.take()).empty(); turn()) taken += piece;
    EXPECT_EQ(static_cast<ptrdiff_t>(4 * kReplyOfManyPieces + 3),
              std::count(taken.begin(), taken.end(), 'x'));
    EXPECT_EQ(kReply, newcomer.take());
    EXPECT_EQ(others_are_idle ? "" : kReply, idle.take());
    channel_server_close(std::exchange(server_, nullptr));
  }
}

TEST_F(Places, WhoDoesNotDoItsPartGivesWayInTheEnd) {
  const struct {
    const char *name;
    std::string sent;
    std::string after_a_silence;
    bool is_told;
  } rows[] = {
      {"ends no frame", "\0\0\0\x09half"s, "", true},
      {"ends no second frame", kRequest + "\0"s, "", false},
      {"ends no frame after a silence", kRequest, "\0"s, false},
      {"takes no reply", kRequest + kRequest, "", false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    open(1);
    if (row.name == "takes no reply"s) answer_once_at_length();
    const Peer holds = peer();
    holds.send(row.sent);
    turn();
    seconds_pass(row.after_a_silence.empty() ? 0 : 100);
    holds.send(row.after_a_silence);
    turn();
    const Peer newcomer = peer_who_asks();
    turn();
    seconds_pass(kPatience);
    EXPECT_EQ("", newcomer.take());
    EXPECT_EQ("request channel: all of 1 connections are busy: one more has to wait",
              take_traces().at(0));
    seconds_pass(1);
    EXPECT_EQ(kReply, newcomer.take());
    EXPECT_EQ("request channel: of 1 connections one gives way whose peer left off in the middle",
              take_traces().at(0));
    EXPECT_EQ(row.is_told, holds.take().find(kGaveWay) != std::string::npos);
    EXPECT_TRUE(holds.has_ended());
    channel_server_close(std::exchange(server_, nullptr));
  }
}

TEST_F(Places, AFrameMustEndInTimeHoweverItsBytesDrip) {
  open_for_others(1);
  const std::string frame = "\0\0\0\x09half a fr"s;
  const std::vector<Peer> drips = peers_of(0, 1, frame.substr(0, 1));
  const Peer newcomer = std::move(peers_of(1001, 1, kRequest)[0]);
  for (size_t i = 0; i <= size_t{kPatience}; ++i) {
    EXPECT_EQ("", newcomer.take());
    drips[0].send(frame.substr(i + 1, 1));
    turn();
    seconds_pass(1);
  }
  EXPECT_EQ(kReply, newcomer.take());
}

// ---- Users

// What a peer has been told before it was closed; "" when it was not.
std::string last_words(const Peer &peer) {
  const std::string told = peer.take();
  return peer.has_ended() ? told.substr(std::min<size_t>(8, told.size())) : "";
}

// 32 places: 16 for one user, 64 connections of all but the favoured.
TEST_F(Places, NobodyButTheFavouredIsGivenMoreThanHalf) {
  open_for_others(32);
  std::vector<Peer> held;
  for (const uid_t user : {1001u, 1002u, 1003u, 1004u}) {
    for (Peer &one : peers_of(user, 16)) held.push_back(std::move(one));
    EXPECT_EQ(kOverShare, last_words(peers_of(user, 1)[0]));
    EXPECT_EQ(
        "request channel: one more connection of user " + std::to_string(user) + " is refused",
        take_traces().at(0));
  }
  EXPECT_EQ(kOverRoom, last_words(peers_of(1005, 1, kRequest)[0]));
  const std::vector<Peer> own = peers_of(0, 65, kRequest);
  for (const Peer &one : own) EXPECT_EQ(kReply, one.take());
  // For its own user, and for any other; for the share what is beyond it goes.
  ms_pass(CHANNEL_SILENCE_MS);
  EXPECT_EQ(kOverShare, last_words(peers_of(1002, 1)[0]));
  EXPECT_EQ(kOverRoom, last_words(peers_of(1005, 1)[0]));
  ms_pass(1);
  const std::vector<Peer> second = peers_of(1002, 1, kRequest);
  EXPECT_EQ(kReply, second[0].take());
  EXPECT_EQ(kGaveWay, last_words(held[16]));
  EXPECT_EQ(kReply, peers_of(1005, 1, kRequest)[0].take());
  EXPECT_EQ(kGaveWay, last_words(held[0]));
  for (size_t i = 1; i < held.size(); ++i) EXPECT_TRUE(i == 16 || last_words(held[i]).empty()) << i;
}

TEST_F(Places, TwoCrowdsThatTrickleLeaveTheFavouredTheirPlacesAndGiveWayToOthers) {
  open_for_others(32);
  const std::vector<Peer> first = peers_of(1001, 16, kHalf);
  const std::vector<Peer> second = peers_of(1002, 16, kHalf);  // two of them wait
  const std::vector<Peer> own = peers_of(0, 2, kHalf);
  EXPECT_EQ("", peers_of(0, 1, kRequest)[0].take()) << "all places are taken";
  own[0].send(kRequest.substr(kHalf.size()));
  turn();
  EXPECT_EQ(kReply, own[0].take());
  const std::vector<Peer> late = peers_of(0, 1, kRequest);
  EXPECT_EQ(kReply, late[0].take()) << "in the place of the one before";
  const std::vector<Peer> third = peers_of(1003, 1, kRequest);
  seconds_pass(CHANNEL_CROWDING_PATIENCE_S);
  EXPECT_EQ("", third[0].take());
  ms_pass(1);
  EXPECT_EQ(kReply, third[0].take());
  EXPECT_EQ(kGaveWay, last_words(first[0]));
  EXPECT_EQ("", last_words(own[1])) << "it is no crowd";
}

TEST_F(Places, NobodyTakesThePlaceOfAUserWhoHoldsFewer) {
  open_for_others(8);
  const std::vector<Peer> one = peers_of(1001, 1, kRequest);
  const std::vector<Peer> four = peers_of(1003, 4, kHalf);
  const std::vector<Peer> three = peers_of(1002, 3, kHalf);
  EXPECT_EQ(kReply, one[0].take());
  const std::vector<Peer> fourth = peers_of(1002, 1, kRequest);
  one[0].send(kRequest);
  turn();
  EXPECT_EQ("", fourth[0].take());
  EXPECT_EQ(kReply, one[0].take());
  EXPECT_EQ(kReply, peers_of(1004, 1, kRequest)[0].take());
  EXPECT_TRUE(one[0].has_ended());
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
