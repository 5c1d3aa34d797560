// A kivod that serves, when clients are many or mean it no good, and when what it was started with
// goes away.
#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

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

}  // namespace
