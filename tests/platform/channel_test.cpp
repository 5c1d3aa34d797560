// The request channel: what its handlers, clients and peers can do to it and to each other. The
// clock stands still unless a script moves it, peers are of the user that a script makes them, and
// what the system refuses it refuses when told to: all by replaced functions of the C library.
#include "platform/channel.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/un.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "platform/channel_client.h"
#include "platform/channel_server.h"
#include "platform/trace.h"
#include "support/memory_faults.h"

namespace {

using namespace std::string_literals;

constexpr uid_t kOwnUser = 77;
constexpr gid_t kGroup = 4711;
constexpr gid_t kOtherGroup = 9;

int64_t g_ms = 1000000;
int g_timer = -1;
int64_t g_timer_ms = 0;  // that it was set to
uid_t g_users[4096];     // of the descriptors that were accepted
uid_t g_coming[4096];    // of the peers, in turn
size_t g_n_came = 0;
size_t g_n_coming = 0;
int g_highest = INT_MAX;  // descriptor that there is for a peer
int g_accept_failure = 0;
int g_recv_failure = 0;  // once
int g_send_failure = 0;  // once
int g_chown_failure = 0;
gid_t g_chowned = 0;
std::function<void()> g_before_flock;  // called once

template <typename Operation>
Operation *real(const char *name, Operation *) {
  return reinterpret_cast<Operation *>(dlsym(RTLD_NEXT, name));
}
bool fails(int failure) { return failure != 0 && (errno = failure) != 0; }

}  // namespace

// ---- In place of the system's

extern "C" {

uid_t geteuid() noexcept { return kOwnUser; }

int clock_gettime(clockid_t clock, timespec *now) noexcept {
  static const auto next = real("clock_gettime", clock_gettime);
  if (clock != CLOCK_MONOTONIC_COARSE) return next(clock, now);
  *now = {g_ms / 1000, g_ms % 1000 * 1000000};
  return 0;
}

int timerfd_settime(int fd, int, const itimerspec *wanted, itimerspec *) noexcept {
  static const auto next = real("timerfd_settime", timerfd_settime);
  g_timer = fd;
  g_timer_ms = wanted->it_value.tv_sec * 1000 + wanted->it_value.tv_nsec / 1000000;
  constexpr itimerspec kStopped{};
  return next(fd, 0, &kStopped, nullptr);
}

// The thousands of a user tell the groups: 1 by itself the one that may ask, else so many others,
// of which the last is the one when the number is odd. Of the ninth thousand nothing is known.
int getsockopt(int fd, int, int name, void *value, socklen_t *size) noexcept {
  const uid_t user = g_users[fd];
  if (user / 1000 == 9 && fails(ENOTCONN)) return -1;
  if (name == SO_PEERCRED) {
    *static_cast<ucred *>(value) = {1, user, user / 1000 == 1 ? kGroup : kOtherGroup};
    return 0;
  }
  constexpr socklen_t kGroups[] = {0, 0, 2, 64, 65, 101};
  const socklen_t n = kGroups[user / 1000];
  const socklen_t room = std::exchange(*size, n * sizeof(gid_t));
  if (room < *size && fails(ERANGE)) return -1;
  std::fill_n(static_cast<gid_t *>(value), n, kOtherGroup);
  if (user % 2 == 1) static_cast<gid_t *>(value)[n - 1] = kGroup;
  return 0;
}

int getgrnam_r(const char *name, group *entry, char *, size_t room, group **found) {
  if (room < 4096 || name == "endless"s) return ERANGE;
  entry->gr_gid = kGroup;
  *found = name == "ours"s ? entry : nullptr;
  return name == "broken"s ? EIO : 0;
}

int lchown(const char *, uid_t, gid_t group) noexcept {
  g_chowned = group;
  return fails(g_chown_failure) ? -1 : 0;
}

int accept4(int fd, sockaddr *address, socklen_t *size, int flags) {
  static const auto next = real("accept4", accept4);
  const int lowest = dup(fd);
  close(lowest);
  const bool again = g_accept_failure == EINTR || g_accept_failure == ECONNABORTED;
  if (fails(again ? std::exchange(g_accept_failure, 0) : g_accept_failure)) return -1;
  if (lowest > g_highest && fails(EMFILE)) return -1;
  const int taken = next(fd, address, size, flags);
  if (taken >= 0) g_users[taken] = g_n_came < g_n_coming ? g_coming[g_n_came++] : kOwnUser;
  return taken;
}

ssize_t recv(int fd, void *at, size_t size, int flags) {
  static const auto next = real("recv", recv);
  return fails(std::exchange(g_recv_failure, 0)) ? -1 : next(fd, at, size, flags);
}

ssize_t send(int fd, const void *at, size_t size, int flags) {
  static const auto next = real("send", send);
  return fails(std::exchange(g_send_failure, 0)) ? -1 : next(fd, at, size, flags);
}

int flock(int fd, int operation) noexcept {
  static const auto next = real("flock", flock);
  if (g_before_flock) std::exchange(g_before_flock, nullptr)();
  return next(fd, operation);
}

}  // extern "C"

namespace {

// ---- What is said, in letters

// I: argument, F: failed, N: no room, X: closed, T: timeout, Y: system, B: frame, M: memory.
std::string letter_of(uint32_t status) {
  return status == 0 ? "" : std::string(1, "?FMIN?????XBTY??"[status >> 9 & 15]);
}

constexpr size_t kLong = 60000;  // four times: more than a socket takes
const std::map<std::string, std::string> kLetters = {
    // clang-format off
    {"xxx", "R"}, {std::string(kLong, 'x'), "L"}, {"no", "N"},
    {"show_kivo_database_resp_bundle_start", "<"}, {"show_kivo_database_resp_bundle_commit", ">"},
    {"Not permitted.", "D"}, {"Others waited, and no request had come.", "G"},
    {"Too many connections of this user.", "S"}, {"Too many connections.", "M"},
    {"The request is not supported.", "U"}, {"The session id is too long.", "Z"},
    // clang-format on
};
std::string letter_of(const std::string &text) {
  return kLetters.count(text) != 0 ? kLetters.at(text) : "[" + text.substr(0, 40) + "]";
}

const std::string kRequest("\0\0\0\x02\x4a\0", 6);  // field 9, empty

// A field of bytes on the wire.
std::string field(char tag, const std::string &bytes) {
  std::string made(1, tag);
  size_t n = bytes.size();
  for (; n > 127; n >>= 7) made += static_cast<char>(n | 128);
  return made + static_cast<char>(n) + bytes;
}

// Takes the frame of a reply from the front; returns its letter, or "" when it is not whole.
std::string take_reply(std::string &bytes) {
  if (bytes.size() < 4) return "";
  const auto at = [&](size_t i) { return static_cast<size_t>(static_cast<uint8_t>(bytes[i])); };
  const size_t size = at(1) << 16 | at(2) << 8 | at(3);
  if (bytes.size() < 4 + size) return "";
  const std::string message = bytes.substr(4, size);
  bytes.erase(0, 4 + size);
  const size_t begin = size > 128 ? 8 : 4;
  const std::string text = message.substr(std::min(size, begin));
  return message == field('\x42', field('\x0a', text)) ? letter_of(text) : "?";
}

// ---- What a handler does, in letters: those of its statuses and what it is told are kept

std::string g_ops;
std::string g_told;
channel_client *g_client = nullptr;
std::vector<channel_connection *> g_pending;

uint32_t ask(channel_client *client, const char *session = nullptr) {
  show_kivo_database_request request{};
  request.sess_id_present = 1;
  if (session != nullptr) {
    std::memcpy(request.sess_id, session,
                std::min(std::strlen(session) + 1, sizeof request.sess_id));
  }
  return session == nullptr
             ? channel_client_send(client, nullptr, show_kivo_attributes_request_marshal)
             : channel_client_send(client, &request, show_kivo_database_request_marshal);
}

void tell_epilogue(channel_connection *connection, const char *text) {
  g_told += "("s + (text != nullptr ? text : "null") + ")";
  channel_finished(connection);
}
void go_on(channel_connection *connection) {
  g_told += "k";
  channel_register_continuation(connection, go_on);
  channel_finished(connection);
}

void act(channel_connection *at, const std::string &ops) {
  for (const char op : ops) {
    const std::string text(op == 'L' ? kLong : 3, 'x');
    const auto write = [&](const void *message, message_marshal_fn marshal) {
      g_told += letter_of(channel_marshal(at, message, marshal));
    };
    // clang-format off
    switch (op) {
      case 'w': case 'L': write(text.c_str(), negative_acknowledgement_marshal); break;
      case '<': write(nullptr, show_kivo_database_resp_bundle_start_marshal); break;
      case '>': write(nullptr, show_kivo_database_resp_bundle_commit_marshal); break;
      case '0': write(nullptr, nullptr); break;
      case '#': g_told += std::to_string(channel_write_count(at)); break;
      case 'x': g_told += letter_of(channel_close_generated_response(at)); break;
      case 'e': channel_set_error(at); break;
      case '?': g_told += "!" + letter_of(channel_error(at)); break;
      case 'n': channel_nack(at, "no"); break;
      case 'p': channel_set_epilogue(at, tell_epilogue); break;
      case 'a': channel_finish_async(at, "why"); break;
      case 'A': channel_finish_async(at, nullptr); break;
      case 'k': channel_register_continuation(at, go_on); break;
      case 'r': g_told += std::to_string(channel_continuation_registered(at)); break;
      case 's': g_told += letter_of(ask(g_client)) + letter_of(ask(g_client, "longer")); break;
      case 'd': channel_dump_request(channel_message_definitions(at, nullptr)); break;
      case 'P': g_pending.push_back(at); break;
      default: channel_finished(at);
    }
    // clang-format on
  }
}

void answer(void *, void *, const channel_command *, channel_connection *connection, uint32_t) {
  act(connection, std::string(g_ops));
}

// Equal neighbours as one, with their number unless that is all.
std::string counted(const std::vector<std::string> &all, size_t n_all) {
  std::string made;
  for (size_t i = 0, n = 0; i < all.size(); i += n) {
    for (n = 1; i + n < all.size() && all[i + n] == all[i];) ++n;
    made += (i == 0 ? "" : ";") + all[i];
    if (n != 1 && n != n_all) made += "*" + std::to_string(n);
  }
  return made;
}

class Channel : public testing::Test {
 protected:
  struct Peer {
    int fd;
    std::string bytes = {};
    bool has_ended = false;
  };

  Channel() {
    std::filesystem::create_directory(directory_);
    trace_add_sink(keep, nullptr, &traces_);
    for (const uint32_t request :
         {MESSAGE_SHOW_KIVO_DATABASE_REQUEST, MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST}) {
      channel_register_handler(request, answer);
    }
    traces_.reserve(1 << 16);
    g_told = "";
    g_ops = "w.";
  }
  ~Channel() override {
    close_all();
    trace_remove_sink(keep, &traces_);
    std::filesystem::remove_all(directory_);
  }
  void close_all() {
    channel_server_close(std::exchange(server_, nullptr));
    for (const auto &[name, group] : peers_) {
      for (const Peer &peer : group) close(peer.fd);
    }
    peers_.clear();
    g_pending.clear();
    g_n_came = g_n_coming = 0;
  }

  // A record's number and first argument: digits, or the last word. "!" if it looks otherwise.
  static void keep(const trace_record *record, void *arg) {
    const std::string_view text(record->text, record->length);
    auto &kept = *static_cast<std::string *>(arg);
    char line[128];
    if (record->module == TRACE_MODULE_HOST_APP) {
      std::snprintf(line, sizeof line, "%u:%.99s", record->level, record->text);
    } else {
      const size_t digits = text.find_first_of("0123456789");
      const char *at = record->text + std::min(digits, text.rfind(' ') + 1);
      const auto n = static_cast<int>(digits < text.size() ? std::strspn(at, "0123456789") : 99);
      const bool as_usual = text.find("request channel: ") == 0 && record->level == 4;
      std::snprintf(line, sizeof line, "%s%u/%.*s", as_usual ? "" : "!", record->number, n, at);
    }
    kept.append(line).append("\n");
  }
  std::string take_traces() {
    std::vector<std::string> lines;
    std::istringstream all(std::exchange(traces_, ""));
    for (std::string line; std::getline(all, line);) lines.push_back(line);
    traces_.reserve(1 << 16);
    return counted(lines, 0);
  }

  uint32_t open(uint32_t places = 0, const char *group = "ours") {
    return channel_server_open(path_.c_str(), group, places, &server_);
  }
  // Everything that can be done now.
  void turn() const {
    pollfd ready = {channel_server_fd(server_), POLLIN, 0};
    int n = 0;
    while (poll(&ready, 1, 0) == 1 && ++n < 9999) channel_server_process(server_);
    EXPECT_LT(n, 9999) << "never rests";
  }
  // If it runs.
  static void let_the_timer_run_out() {
    static const auto settime = real("timerfd_settime", timerfd_settime);
    if (std::exchange(g_timer_ms, 0) == 0) return;
    constexpr itimerspec kNow = {{0, 0}, {0, 1}};
    pollfd run_out = {g_timer, POLLIN, 0};
    settime(g_timer, 0, &kNow, nullptr);
    ASSERT_EQ(1, poll(&run_out, 1, -1));
  }

  sockaddr_un address_of_path() const {
    sockaddr_un address{AF_UNIX, {}};
    std::memcpy(address.sun_path, path_.c_str(), path_.size());
    return address;
  }
  int connected() const {
    const sockaddr_un address = address_of_path();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    return fd;
  }
  // What a peer has been told since it was last asked for, and X for the end; "-" for nothing.
  std::string heard(Peer &peer) const {
    std::string told;
    char piece[65536];
    ssize_t n = 0;
    const bool ended_before = peer.has_ended;
    for (; !peer.has_ended; turn()) {
      n = read(peer.fd, piece, sizeof piece);
      if (n < 0 && errno == EAGAIN) break;
      peer.has_ended = n == 0;
      if (n > 0) peer.bytes.append(piece, static_cast<size_t>(n));
    }
    for (std::string one; !(one = take_reply(peer.bytes)).empty();) told += one;
    if (peer.has_ended && !ended_before) told += peer.bytes.empty() ? "X" : "~X";
    return told.empty() ? "-" : told;
  }

  // One step of a script, which returns itself, with what was seen in place of what it expects:
  //   a  a*2  a@1001  a*2@1001   a peer (two) connects, of a user;  a!  goes away;  a|  ends asking
  //   a?  a~  a:  a<00ff         sends a request, the beginning or the end of one, bytes
  //   a=RX  a=RX*2;-             has been told (each; or the first two, and the third)
  //   +250  T250                 milliseconds pass;  the timer was set to so many, and runs out
  //   H..  P0..                  what handlers do from now on; what is done about a pending request
  //   A12  V4  S4  D             accept fails; recv, send fail once; there are no more descriptors
  //   #37/2;38/2  _  N1  O..     traces;  any traces;  connections;  what handlers were told
  std::string step(const std::string &text) {
    const int number = std::atoi(text.c_str() + 1);
    const std::string rest = text.substr(1);
    std::vector<Peer> &peers = peers_[text[0]];
    // clang-format off
    switch (text[0]) {
      case '+': g_ms += number; let_the_timer_run_out(); return text;
      case 'T': { const auto ms = g_timer_ms; let_the_timer_run_out(); return "T" + std::to_string(ms); }
      case 'H': g_ops = rest; return text;
      case 'P': act(g_pending.at(static_cast<size_t>(number)), rest.substr(1)); return text;
      case 'A': g_accept_failure = number; return text;
      case 'V': g_recv_failure = number; return text;
      case 'S': g_send_failure = number; return text;
      case 'D': close(g_highest = dup(0)); --g_highest; return text;
      case '_': take_traces(); return text;
      case '#': return "#" + take_traces();
      case 'N': return "N" + std::to_string(channel_server_connections(server_));
      case 'O': return "O" + std::exchange(g_told, "");
    }
    // clang-format on
    const char verb = rest.empty() ? '*' : rest[0];
    if (verb == '*' || verb == '@') {
      const size_t by = text.find('@');
      for (int n = rest[0] == '*' ? std::atoi(rest.c_str() + 1) : 1; n > 0; --n) {
        g_coming[g_n_coming++] =
            by < text.size() ? static_cast<uid_t>(std::stoul(text.substr(by + 1))) : kOwnUser;
        peers.push_back({connected()});
      }
      return text;
    }
    std::vector<std::string> told;
    for (Peer &peer : peers) {
      std::string bytes;
      for (const char sent : rest) {
        if (sent == '?') bytes += kRequest;
        if (sent == '~') bytes += kRequest.substr(0, 3);
        if (sent == ':') bytes += kRequest.substr(3);
      }
      for (size_t i = 1; verb == '<' && i < rest.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(rest.substr(i, 2), nullptr, 16));
      }
      if (!bytes.empty()) {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(peer.fd, bytes.data(), bytes.size()));
      }
      if (verb == '=') told.push_back(heard(peer));
      if (verb == '|') shutdown(peer.fd, SHUT_WR);
      if (verb == '!') close(peer.fd);
    }
    if (verb == '!') peers.clear();
    return verb == '=' ? text.substr(0, 2) + counted(told, told.size()) : text;
  }
  // What a script does and sees; what it does not look at comes last.
  std::string play(const std::string &script) {
    std::string seen;
    std::istringstream words(script);
    for (std::string word, text; words >> word; seen += seen.empty() ? text : " " + text) {
      text = "";
      std::istringstream steps(word);
      for (std::string one; std::getline(steps, one, ',');) {
        text += (text.empty() ? "" : ",") + step(one);
      }
      turn();
    }
    for (auto &[name, group] : peers_) {
      for (Peer &peer : group) {
        if (const std::string more = heard(peer); more != "-") seen += " left:" + (name + more);
      }
    }
    if (const std::string more = take_traces(); !more.empty()) seen += " left:#" + more;
    g_highest = INT_MAX;
    g_accept_failure = g_recv_failure = g_send_failure = 0;
    g_ops = "w.";
    g_told = "";
    return seen;
  }

  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("channel." + std::to_string(getpid()));
  std::string path_ = directory_ / "sock";
  channel_server *server_ = nullptr;
  std::string traces_;
  std::map<char, std::vector<Peer>> peers_;
};

// ---- Peers

TEST_F(Channel, PeersAreServedAndGiveWayAsTheScriptsSay) {
  const struct {
    uint32_t places;
    std::string script;
  } rows[] = {
      // What is no request, and peers that go.
      {0, "b,a a<00010001 a=X #32/65537 b? b=R N1"},
      {0, "a a<ffffffff a=X #32/4294967295 N0"},
      {0, "a a<00000000 a=X #32/0"},
      {0, "a a<00000003ffffff a=X #34/message"},
      {0, "a a<000000027a00 a=X #34/message"},
      {0, "a a<000000021200 a=X #34/message"},
      {0, "a a<0000 a| a=X #33/2"},
      {0, "b,a a<0000000968616c66 a| a=X #33/8 b? b=R N1"},
      {0, "a a| a=X N0"},
      {0, "a a<00 a<00 a<00 a<02 a<4a a=- a<00 a=R a???,a| a=RRRX"},
      {0, "b HL.,a,a?,S104 a=X #35/60012 Hw.,b? b=R N1"},
      {0, "a,V4,a? a=R V4,a? a=R S4,a? a=R V104,a? a=X"},
      {0, "a,V104,a? a=X"},
      {0, "HP,a,a? Hw.,b,b? b=R a? a=- P0w. a=RR"},
      {0, "HP,a,b,c,a?,b?,c? a!,b! P0w.,P1e. #35/11;40/up N1 P2w. c=R"},
      {0, "Hwew.,a,a? a=X OF #40/up N0"},
      // Who may ask.
      {0, "a@2000,b@9000 a=DX b=DX #36/2000;36/4294967295 N0"},
      {0, "a@1002,b@2001,c@3001,d@4001,e@5001 a?,b?,c?,d?,e? a=R b=R c=R d=R e=R"},
      {0, "a@2002,b@3002,c@4002 a=DX b=DX c=DX #36/2002;36/3002;36/4002"},
      {1, "a*2@0 a? a=RX;R #37/1;38/1"},
      // Crowds.
      {0, "a*300,a? a=RX*172;R*128 _ N128"},
      {0, "a*300 a??? a=RRRX*172;RRR*128 _ N128"},
      {2, "a,a? a=R b,b? b=R a? a=R c,c? c=R b=X #38/2 a? a=R N2"},
      {2, "a,a?,b,b? a=R b=R +100000 a?,b? a=R b=R N2"},
      {0, "a*128 +100000 b,b?,a? a=RX;R*127 b=R _"},
      {2, "HP,a,a?,b,b?,c,c? #37/2 Hw. +100000 c=- P1w. b=RX c=R #38/1 N2 P0w. a=R"},
      // Peers who hold a place.
      {2, "HLLLL.,a,a?? Hw. b,b? b=R +100000 c,c? b=X c=R #38/2 a=LLLLR"},
      {1, "HLLLL.,a,a?? Hw. b,b? #37/1 +5000 b=- a=LLLLRX b=R #38/1"},
      {1, "a a<0000000968 b,b? #37/1 +5000 b=- +1 b=R a=GX #42/1"},
      {1, "a a?~ a=R b,b? #37/1 +5000 b=- +1 b=R a=X #42/1"},
      {1, "a a? a=R +9000 a~ b,b? #37/1 +5000 b=- +1 b=R a=X #42/1"},
      {1, "HLLLL.,a,a?~ Hw. +4000 a=LLLL b,b? #37/1 +5000 b=- +1 b=R a=X #42/1"},
      {1, "HLLLL.,a,a?? Hw. b,b? #37/1 +5000 b=- +1 b=R #42/1 a! N1"},
      {1, "HP,a,a? +9000 P0LLLL. Hw.,b,b? #37/1 +5000 b=- +1 b=R #42/1 a! N1"},
      {1, "a a<00 b@1001,b? #37/1 +2500 a<00 +2500 b=- a<00 +1 b=R a=GX #42/1"},
      // Users: of 32 places 16 for one, 64 connections of all but the favoured.
      {32,
       "a*16@1001,b*16@1002,c*16@1003,d*16@1004 e@1001 e=SX #43/1001 f@1005,f? f=MX #43/1005 "
       "g*65@0 g? g=RX*33;R*32 _ +250 h@1002,i@1005 h=SX i=MX #43/1002;43/1005 "
       "+1 j@1002,j? j=R b=GX;-*15 k@1005,k? k=R a=GX;-*15 #38/65;38/32;38/64;38/32 "
       "g=-*33;X*2;-*30"},
      {16, "a*8@1001,a~ b*8@1002,b~ #37/16 c@0,c? c=R a: a=RX;R*7 #37/16;38/16 N16"},
      {32,
       "a*16@1001,a~ b*16@1002,b~ #37/32 c@0,c~,k@0,k~ d@0,d? #37/32*2 d=- c: c=RX d=R #38/32 "
       "e@1003,e? #37/32 +1000 e=- +1 e=R a=GX*3;-*13 #42/32*3 k=-"},
      {9, "a*3@1001,a~ b*3@1002,b~ c*3@1003,c~ d@1003,d? #37/9 +5000 d=- +1 d=R a=GX;-*2 #42/9"},
      {2, "a*2,a~ b@1001,b? #37/2 +5000 b=- +1 b=R a=GX;- #42/2"},
      {8,
       "a@1001,a? a=R b*4@1003,b~ c*3@1002,c~ d@1002,d? #37/8 a? d=- a=R e@1004,e? e=R a=X "
       "#38/8;37/8"},
      // The system takes nobody in.
      {0, "A12,a,a? #39/memory T250 #39/memory A0 a=- T250 a=R"},
      {0, "A105,a,a? #39/available A0 a=- T250 a=R"},
      {0, "A24,a,a? #39/files T250 #39/files A0 a=- T250 a=R"},
      {0, "A23,a,a? #39/system A0 a=- T250 a=R"},
      {0, "A4,a,a? a=R A103,b,b? b=R"},
      {0, "b A12,a,a? #39/memory A0 a=- b! a=R"},
      {0, "HP,b,b? Hw.,A12,a,a? #39/memory A0 a=- P0w. b=R a=R"},
      {0, "a,a? a=R D b,b? b=R a=X #39/files;38/1;39/files N1"},
      {0, "b +251 D a,a? a=R b=GX #39/files;38/1;39/files"},
      {0, "b +250 D a*2 a=MX #39/files*2 b? b=R N1"},
  };
  for (const auto &row : rows) {
    ASSERT_EQ(PLATFORM_OK, open(row.places));
    EXPECT_EQ(row.script, play(row.script));
    close_all();
  }
}

// ---- Handlers and clients, in memory and on a socket

class Client {
 public:
  explicit Client(channel_client *client) : client_(client) { g_client = client; }
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;
  ~Client() { channel_client_close(client_); }
  uint32_t ask(const char *session = nullptr) const { return ::ask(client_, session); }
  // The letters of the messages that have come, and of the status in their place at last.
  std::string heard() const {
    received_message *message = nullptr;
    const uint32_t status = channel_client_receive(client_, &message);
    if (status != PLATFORM_OK) return letter_of(status);
    uint32_t err = 0;
    size_t length = 0;
    const char *text = message_read_text(message, "text", &length, &err);
    const std::string told =
        letter_of(err == 0 ? std::string(text, length) : message_kind_name(message_kind(message)));
    message_destroy(message);
    return told + heard();
  }

 private:
  channel_client *client_;
};

TEST_F(Channel, HandlersAndClientsUnderstandEachOtherOnEveryTransport) {
  const std::string kTooLong(MESSAGE_SESS_ID_SIZE, 's');
  const struct {
    const char *name;
    std::string ops;  // of one request after the other
    std::string told;
    std::string heard;
    std::string traces = "";
    const char *session = nullptr;
  } rows[] = {
      {"counts content", "<#w#xxw>0. #x.", "01III0", "<R>T"},
      {"takes nothing in error", "?e?wxn.", "!!FFF", "X"},
      {"bounded", "LLLLLw. w.", "N", "LLLLRRT"},
      {"epilogue", "prkra pA A", "01(why)k(null)", "X", "!31/show_kivo_attributes_request"},
      {"continues once", "k.. rw.", "k0", "RT"},
      {"asks itself", "sw.s w.", "NNNN", "RRT"},
      {"refuses", "n.", "", "NT"},
      {"long", "n.", "", "ZT", "", kTooLong.c_str()},
      {"dump", "d.", "", "T", "7:sess_id_present: 1;7:sess_id: \"a\\nb\"", "a\nb"},
  };
  trace_set_level(TRACE_MODULE_HOST_APP, 7);
  for (const auto &row : rows) {
    for (const bool in_memory : {true, false}) {
      if (!in_memory && row.name == "asks itself"s) continue;  // a peer may
      SCOPED_TRACE(row.name + " "s + std::to_string(in_memory));
      channel_client *made = nullptr;
      ASSERT_EQ(PLATFORM_OK, open());
      ASSERT_EQ(PLATFORM_OK, in_memory ? channel_client_open_memory(&made, nullptr)
                                       : channel_client_connect(path_.c_str(), 30, &made));
      const Client client(made);
      std::istringstream requests(row.ops);
      std::string heard = "T";
      for (std::string more; heard.back() == 'T' && (requests >> g_ops || more != "T");) {
        if (requests) {
          EXPECT_EQ(PLATFORM_OK, client.ask(row.session));
        }
        turn();
        heard.replace(heard.size() - 1, 1, more = client.heard());
      }
      EXPECT_EQ(row.told, std::exchange(g_told, ""));
      EXPECT_EQ(row.heard, heard);
      const std::string traces = take_traces();
      EXPECT_EQ(row.traces, traces.substr(0, std::min(traces.find("40/"), traces.find(";40/"))));
      close_all();
    }
  }
  trace_set_all_levels(TRACE_LEVEL_DEFAULT);
}

TEST_F(Channel, RefusesWhatNobodyHandles) {
  for (const uint32_t no_request : {0u, uint32_t{MESSAGE_ZELUI_KIVO_DB_MSG}, 16u, ~0u}) {
    EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_register_handler(no_request, answer));
  }
  channel_register_handler(MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST, nullptr);
  ASSERT_EQ(PLATFORM_OK, open());
  EXPECT_EQ("a,a? a=U", play("a,a? a=U"));
}

TEST_F(Channel, ClientBearsADaemonThatMisbehaves) {
  const struct {
    std::string bytes;
    bool stays;
    std::string told;
    int recv_failure = 0;
    int send_failure = 0;
    std::string sent = "";
  } rows[] = {
      {"", true, "T"},
      {"", false, "X", 0, 0, "X"},
      {"\x7f\0\0\0"s, true, "B"},
      {"\0\0\0\x01\xff"s, true, "B"},
      {"\0\0\0\x07\x42\x05"s, false, "X", 0, 0, "X"},
      {"\0\0\0\x07\x42\x05\x0a\x03xxx"s, true, "RT", EINTR, EINTR},
      {"", true, "X", ECONNRESET, ECONNRESET, "X"},
      {"", true, "M", ENOMEM, ENOBUFS, "M"},
      {"", true, "Y", EIO, EIO, "Y"},
      {"", true, "T", EAGAIN, EAGAIN, "T"},
  };
  const sockaddr_un address = address_of_path();
  const int daemon = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(daemon, reinterpret_cast<const sockaddr *>(&address), sizeof address));
  ASSERT_EQ(0, listen(daemon, 1));
  for (const auto &row : rows) {
    SCOPED_TRACE(&row - rows);
    channel_client *made = nullptr;
    ASSERT_EQ(PLATFORM_OK, channel_client_connect(path_.c_str(), 50, &made));
    const Client client(made);
    const int peer = accept(daemon, nullptr, nullptr);
    ASSERT_EQ(static_cast<ssize_t>(row.bytes.size()),
              write(peer, row.bytes.data(), row.bytes.size()));
    if (!row.stays) close(peer);
    g_send_failure = row.send_failure;
    EXPECT_EQ(row.sent, letter_of(client.ask()));
    g_recv_failure = row.recv_failure;
    EXPECT_EQ(row.told, client.heard());
    if (row.stays) close(peer);
  }
  close(daemon);
}

// ---- The socket's file and the lock beside it

TEST_F(Channel, SaysWhyItCannotListenOrConnectAndLeavesFilesAsTheyWere) {
  const auto files = [this] {
    std::set<std::string> found;
    for (const auto &at : std::filesystem::directory_iterator(directory_)) {
      const bool is_file = at.is_regular_file();
      found.insert(at.path().filename().string() + std::to_string(is_file ? at.file_size() : 99));
    }
    return found;
  };
  const std::string lock = path_ + ".lock";
  int held = -1;
  const auto make = [&](const std::string &path, const char *text = "") {
    if (held >= 0) close(held);
    held = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(static_cast<ssize_t>(std::strlen(text)), write(held, text, std::strlen(text)));
    flock(held, LOCK_EX);
  };
  const auto make_anew = [&] {
    make(lock);
    g_before_flock = [&] { make((std::filesystem::remove(lock), lock)); };
  };
  const std::string longest(sizeof(sockaddr_un::sun_path) - directory_.string().size() - 2, 'n');
  channel_server *other = nullptr;
  const struct {
    std::function<void()> before;
    int reason;
    std::string name = "sock";
    const char *group = nullptr;
    int to_connect = ENOENT;
  } rows[] = {
      {[&] { make(path_); }, ENOTSOCK, "sock", nullptr, ECONNREFUSED},
      {[] {}, ENAMETOOLONG, longest + "n", nullptr, ENAMETOOLONG},
      {[] {}, ENOENT, "none/sock"},
      {[] {}, ESRCH, "sock", "none"},
      {[] {}, EIO, "sock", "broken"},
      {[] {}, ERANGE, "sock", "endless"},
      {[] { g_chown_failure = EPERM; }, EPERM, "sock", "ours"},
      {[&] { std::filesystem::create_symlink(directory_ / "far", lock); }, ELOOP},
      {[&] { make(lock, "mine"); }, EEXIST},
      {[&] { make(lock); }, EAGAIN},
      {make_anew, EAGAIN},
      {[&] { open(), std::swap(other, server_); }, EADDRINUSE, "sock", nullptr, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(&row - rows);
    row.before();
    const std::string path = directory_ / row.name;
    const auto before = files();
    EXPECT_EQ(CHANNEL_ERR_SYSTEM, channel_server_open(path.c_str(), row.group, 0, &server_));
    EXPECT_EQ(row.reason, errno);
    EXPECT_EQ(nullptr, server_);
    EXPECT_EQ(before, files());
    channel_client *client = nullptr;
    errno = 0;
    const uint32_t expected = row.to_connect != 0 ? CHANNEL_ERR_SYSTEM : PLATFORM_OK;
    EXPECT_EQ(expected, channel_client_connect(path.c_str(), 100, &client));
    EXPECT_EQ(row.to_connect, errno);
    channel_client_close(client);
    channel_server_close(std::exchange(other, nullptr));
    if (held >= 0) close(std::exchange(held, -1));
    g_chown_failure = 0;
    for (const auto &at : std::filesystem::directory_iterator(directory_)) remove(at.path());
  }
  EXPECT_EQ(CHANNEL_ERR_SYSTEM, channel_server_open("", nullptr, 0, &server_));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_server_open(nullptr, nullptr, 0, &server_));
  EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_server_open(path_.c_str(), nullptr, 0, nullptr));
  EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, open(CHANNEL_CONNECTIONS_MAX + 1));

  // What a process that was killed left behind, in a folder that somebody locks.
  const int folder = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY);
  flock(folder, LOCK_EX);
  path_ = directory_ / longest;
  make(path_ + ".lock");
  close(std::exchange(held, socket(AF_UNIX, SOCK_STREAM, 0)));
  const sockaddr_un address = address_of_path();
  ASSERT_EQ(0, bind(held, reinterpret_cast<const sockaddr *>(&address), sizeof address));
  close(held);
  ASSERT_EQ(PLATFORM_OK, open(CHANNEL_CONNECTIONS_MAX));
  struct stat made {};
  stat(path_.c_str(), &made);
  EXPECT_EQ(0660u | S_IFSOCK, made.st_mode);
  EXPECT_EQ(kGroup, g_chowned);
  EXPECT_EQ(std::set<std::string>{longest + "99"}, files());
  // Whoever took the path meanwhile keeps it.
  std::filesystem::remove(path_);
  std::swap(other, server_);
  ASSERT_EQ(PLATFORM_OK, open());
  channel_server_close(other);
  EXPECT_EQ("a,a? a=R", play("a,a? a=R"));
  close_all();
  EXPECT_TRUE(files().empty());
  close(folder);
}

// ---- Memory and descriptors

// The n-th allocation fails, for each n, from connecting to the reply: the server loses at most
// that connection, leaks nothing, and serves the next.
TEST_F(Channel, ServerOutOfMemoryLosesOneConnection) {
  ASSERT_EQ(PLATFORM_OK, open());
  EXPECT_EQ("a,a? a=R a!", play("a,a? a=R a!"));
  g_ops = "w.";
  const int64_t live = memory_faults::live_blocks;
  uint64_t nth = 0;
  for (bool reached = true; reached;) {
    const int fd = connected();
    ASSERT_EQ(6, write(fd, kRequest.data(), 6));
    memory_faults::arm(++nth);
    turn();
    reached = memory_faults::disarm();
    g_told = "";  // which the letters of a few statuses fit in
    close(fd);
    turn();
    ASSERT_EQ(live, memory_faults::live_blocks) << nth;
    ASSERT_EQ(0u, channel_server_connections(server_));
  }
  EXPECT_GT(nth, 5u);
  EXPECT_NE("", take_traces());
}

TEST_F(Channel, ServerOpensWithItsDescriptorsOrNotAtAll) {
  ASSERT_EQ(PLATFORM_OK, open());  // also for the sanitizers, which need some at first
  close_all();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit few = before;
  close(static_cast<int>(few.rlim_cur = static_cast<rlim_t>(dup(0))));
  for (const rlim_t lowest = few.rlim_cur; server_ == nullptr; ++few.rlim_cur) {
    ASSERT_LT(few.rlim_cur, lowest + 9);
    setrlimit(RLIMIT_NOFILE, &few);
    const uint32_t status = open();
    EXPECT_TRUE(status == PLATFORM_OK || errno == EMFILE);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(server_ != nullptr, std::filesystem::exists(path_));
  }
  EXPECT_EQ("D a a=MX #39/files", play("D a a=MX #39/files"));
}

}  // namespace
