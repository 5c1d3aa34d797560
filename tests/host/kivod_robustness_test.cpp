// A kivod that serves, when clients are many or mean it no good, and when what it was started with
// goes away; and one that is started with too few descriptors or too little memory.
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>

#include "host/serving_kivod.h"
#include "platform/channel_client.h"

namespace {

using kivo_test::ServingKivod;

// Standard error of the processes that start meanwhile.
class StandardError {
 public:
  explicit StandardError(int fd) : before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
    EXPECT_EQ(STDERR_FILENO, dup2(fd, STDERR_FILENO));
  }
  ~StandardError() {
    EXPECT_EQ(STDERR_FILENO, dup2(before_, STDERR_FILENO));
    close(before_);
  }

 private:
  int before_;
};

int peer_of(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int peer = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(0, connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof address));
  return peer;
}

// Returns once the daemon has ended the connection, which it traces first.
void send_what_is_no_frame(const std::string &path) {
  const int peer = peer_of(path);
  ASSERT_EQ(4, send(peer, "\xff\xff\xff\xff", 4, MSG_NOSIGNAL));
  char byte = 0;
  EXPECT_EQ(0, recv(peer, &byte, 1, 0));
  close(peer);
}

using Client = std::unique_ptr<channel_client, decltype(&channel_client_close)>;

Client client_who_asks(const std::string &path) {
  channel_client *client = nullptr;
  EXPECT_EQ(PLATFORM_OK, channel_client_connect(path.c_str(), 60000, &client));
  EXPECT_EQ(PLATFORM_OK,
            channel_client_send(client, nullptr, show_kivo_attributes_request_marshal));
  return {client, channel_client_close};
}

bool is_answered(const Client &client) {
  received_message *message = nullptr;
  const bool answered = channel_client_receive(client.get(), &message) == PLATFORM_OK &&
                        message_kind(message) == MESSAGE_KIVO_ATTRIBUTES_MSG;
  message_destroy(message);
  return answered;
}

// ---- Beside a crowd. Other users are needed, so root has to run these.

constexpr uid_t kOfTheCrowd = 54321;
constexpr uid_t kGood = 54322;
constexpr char kGroup[] = "daemon";

// A process that does this as another user, who is of the group.
pid_t as_user(uid_t user, const std::function<int()> &what) {
  const gid_t group = getgrnam(kGroup)->gr_gid;
  const pid_t child = fork();
  if (child != 0) return child;
  if (setgroups(0, nullptr) != 0 || setgid(group) != 0 || setuid(user) != 0) _exit(99);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  _exit(what());
}

int status_of(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Connects so often, sends what it sends, writes a byte and goes on for ever; those whom the daemon
// ends come again, if they do.
[[noreturn]] void crowd(const std::string &path, size_t n, const std::string &sends,
                        bool comes_again, int begun) {
  const auto come = [&] {
    const int peer = peer_of(path);
    send(peer, sends.data(), sends.size(), MSG_NOSIGNAL);
    return pollfd{peer, POLLIN, 0};
  };
  std::vector<pollfd> peers;
  for (size_t i = 0; i < n; ++i) peers.push_back(come());
  EXPECT_EQ(1, write(begun, "", 1));
  while (comes_again) {
    poll(peers.data(), peers.size(), -1);
    for (pollfd &peer : peers) {
      if (peer.revents == 0) continue;
      close(peer.fd);
      peer = come();
    }
  }
  for (;;) pause();
}

TEST(KivodRobustness, AnswersAGoodClientBesideACrowdOfAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root: the crowd and the client are other users";
  rlimit files{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &files));
  files.rlim_cur = files.rlim_max;
  const struct {
    const char *name;
    size_t n;
    std::string sends;
    bool comes_again;
  } rows[] = {{"silent", 1000, "", false}, {"slow, and coming again", 400, {1, '\0'}, true}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    ServingKivod kivod("", kGroup);
    int begun[2];
    ASSERT_EQ(0, pipe(begun));
    const pid_t all = as_user(kOfTheCrowd, [&]() -> int {
      setrlimit(RLIMIT_NOFILE, &files);
      crowd(kivod.socket(), row.n, row.sends, row.comes_again, begun[1]);
    });
    char byte = 0;
    EXPECT_EQ(1, read(begun[0], &byte, 1));
    for (int i = 0; i < 5; ++i) {
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(0, status_of(as_user(kGood, [&] {
                  return is_answered(client_who_asks(kivod.socket())) ? 0 : 1;
                })));
      EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    }
    // One more of the crowd is told why: the daemon has patience with the others for seconds yet.
    const std::string says = "\"$(" KIVOSH_PATH " --socket " + kivod.socket() +
                             " show database 2>&1; echo $?)\" = \"$(echo 'kivosh: the daemon "
                             "refused: Too many connections of this user.'; echo 3)\"";
    const auto is_told = [&] {
      if (access(KIVOSH_PATH, X_OK) == 0) return std::system(("test " + says).c_str()) == 0 ? 0 : 1;
      std::fputs("kivosh lies where other users cannot run it: not tested\n", stderr);
      return 0;
    };
    if (row.comes_again) {
      EXPECT_EQ(0, status_of(as_user(kOfTheCrowd, is_told)));
    }
    kill(all, SIGKILL);
    EXPECT_EQ(-1, status_of(all));
    EXPECT_EQ(0, kivod.stop(SIGTERM));
    close(begun[0]);
    close(begun[1]);
  }
}

// The reader has gone, or it has left off reading and the pipe is full.
TEST(KivodRobustness, GoesOnWithoutAReaderOfItsTraces) {
  signal(SIGPIPE, SIG_DFL);  // as a shell leaves it; programs inherit it when it is ignored
  for (const bool is_full : {false, true}) {
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    if (is_full) {
      const std::string bytes(static_cast<size_t>(fcntl(ends[1], F_GETPIPE_SZ)), '-');
      ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(ends[1], bytes.data(), bytes.size()));
    }
    const auto kivod = [&] {
      const StandardError piped(ends[1]);
      return std::make_unique<ServingKivod>("");
    }();
    if (!is_full) close(ends[0]);
    close(ends[1]);
    alarm(60);  // instead of waiting for ever
    for (int i = 0; i < 3; ++i) send_what_is_no_frame(kivod->socket());
    EXPECT_TRUE(is_answered(client_who_asks(kivod->socket())));
    alarm(10);
    EXPECT_EQ(0, kivod->stop(SIGTERM));
    alarm(0);
    if (is_full) close(ends[0]);
  }
}

TEST(KivodRobustness, GoesOnAfterAHangup) {
  ServingKivod kivod("");
  EXPECT_EQ(0, kill(kivod.pid(), SIGHUP));
  EXPECT_TRUE(is_answered(client_who_asks(kivod.socket())));
  EXPECT_EQ(0, kivod.stop(SIGTERM));
}

// How a kivod ended that had to do with so much: its exit status, 1000 when a signal ended it, and
// what it wrote to standard error. One that serves is stopped.
struct End {
  int status;
  std::string err;
};

End end_under_limit(int resource, rlim_t limit, std::vector<std::string> words) {
  words.insert(words.begin(), KIVOD_PATH);
  std::vector<char *> arguments;
  for (std::string &word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  int out[2];
  int err[2];
  EXPECT_TRUE(pipe(out) == 0 && pipe(err) == 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    for (int fd = 3; fd < 64; ++fd) close(fd);
    const rlimit both = {limit, limit};
    if (setrlimit(resource, &both) == 0) execv(KIVOD_PATH, arguments.data());
    _exit(126);
  }
  close(out[1]);
  close(err[1]);
  char byte = 0;
  if (read(out[0], &byte, 1) == 1) kill(child, SIGTERM);
  End end;
  while (read(err[0], &byte, 1) == 1) end.err.push_back(byte);
  close(out[0]);
  close(err[0]);
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  end.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000;
  return end;
}

TEST(KivodRobustness, ServesOrSaysThatItHasTooFewDescriptors) {
  const std::string socket = testing::TempDir() + "few." + std::to_string(getpid());
  int n_served = 0;
  for (rlim_t n = 6; n <= 24; ++n) {
    const End end = end_under_limit(RLIMIT_NOFILE, n, {"--serve", "--socket", socket});
    n_served += end.status == 0;
    if (end.status == 0) continue;
    EXPECT_NE(1000, end.status) << n;
    EXPECT_EQ(1, std::ranges::count(end.err, '\n')) << n << ": " << end.err;
  }
  EXPECT_NE(0, n_served);
  std::filesystem::remove(socket + ".lock");
}

// The least address space, but for `step`, under which a replay of nothing ends as is wanted.
template <typename IsWanted>
rlim_t least_space(rlim_t step, IsWanted is_wanted) {
  rlim_t too_little = 0;
  rlim_t enough = 1 << 30;
  while (enough - too_little > step) {
    const rlim_t limit = too_little + (enough - too_little) / 2;
    const End end = end_under_limit(RLIMIT_AS, limit, {"--quiet", "--replay", "/dev/null"});
    (is_wanted(end.status) ? enough : too_little) = limit;
  }
  return enough;
}

TEST(KivodRobustness, EndsWithAnErrorWhenMemoryRunsOut) {
#ifndef KIVO_SANITIZED
  constexpr rlim_t kSmallStep = 1 << 14;
  const rlim_t loaded = least_space(kSmallStep, [](int status) { return status != 127; });
  for (rlim_t more = 0; more < 8 * kSmallStep; more += kSmallStep) {
    const End end = end_under_limit(RLIMIT_AS, loaded + more, {"--replay", "/dev/null"});
    EXPECT_NE(1000, end.status) << end.err;
    EXPECT_EQ(1, std::ranges::count(end.err, '\n')) << end.err;
  }
  const std::string log = KIVO_EXAMPLES_DIR "/accounting/accounting.log";
  constexpr rlim_t kStep = 1 << 17;
  const rlim_t enough = least_space(kStep, [](int status) { return status == 0; });
  for (rlim_t more = 0; more < 8 * kStep; more += kStep) {
    const End end = end_under_limit(RLIMIT_AS, enough + more, {"--quiet", "--replay", log});
    EXPECT_EQ(1, end.status) << end.err;
    EXPECT_TRUE(end.err.find("kivod: out of memory\n") != end.err.npos ||
                end.err.find(" could not be applied\n") != end.err.npos)
        << end.err;
  }
#else
  GTEST_SKIP() << "the sanitizers take address space of their own";
#endif
}

}  // namespace
