// The request channel's server: what peers can do to it, and what they cannot do to each other.
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>

#include "platform/served_channel.h"

namespace {
std::function<void()> g_before_flock;  // called once
}

extern "C" int flock(int fd, int operation) noexcept {
  static const auto next = reinterpret_cast<int (*)(int, int)>(dlsym(RTLD_NEXT, "flock"));
  if (g_before_flock) std::exchange(g_before_flock, nullptr)();
  return next(fd, operation);
}

namespace {

using namespace kivo_test;
using namespace std::string_literals;

class ChannelServer : public ServedChannel {
 protected:
  // What channel_server_open() says when the system refuses something.
  int reason_not_to_open() const {
    channel_server *made = nullptr;
    errno = 0;
    EXPECT_EQ(CHANNEL_ERR_SYSTEM, channel_server_open(path_.c_str(), nullptr, 0, &made));
    return errno;
  }
};

TEST_F(ChannelServer, EndsAConnectionForWhatIsNoRequestAndServesTheOthers) {
  const struct {
    const char *name;
    std::string bytes;
    bool goes_away;
    std::string trace;
  } rows[] = {
      {"too long", "\x00\x01\x00\x01"s, false,
       "request channel: a frame of 65537 bytes is refused"},
      {"far too long", "\xff\xff\xff\xff"s, false,
       "request channel: a frame of 4294967295 bytes is refused"},
      {"empty", "\0\0\0\0"s, false, "request channel: a frame of 0 bytes is refused"},
      {"no message", "\0\0\0\x03\xff\xff\xff"s, false, "request channel: a frame is no request"},
      {"unknown message", "\0\0\0\x02\x7a\0"s, false, "request channel: a frame is no request"},
      {"a reply", "\0\0\0\x02\x12\0"s, false, "request channel: a frame is no request"},
      {"cut off in its length", "\0\0"s, true,
       "request channel: the peer left 2 bytes of a frame that it did not end"},
      {"cut off in its message", "\0\0\0\x09half"s, true,
       "request channel: the peer left 8 bytes of a frame that it did not end"},
      {"nothing at all", "", true, ""},
  };
  open();
  const Client other = client();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const int peer = raw_peer();
    ASSERT_EQ(static_cast<ssize_t>(row.bytes.size()),
              send(peer, row.bytes.data(), row.bytes.size(), 0));
    if (row.goes_away) shutdown(peer, SHUT_WR);
    turn();
    const auto traces = take_traces();
    if (row.trace.empty()) {
      EXPECT_TRUE(traces.empty());
    } else {
      ASSERT_EQ(1u, traces.size());
      EXPECT_EQ(row.trace, traces[0].substr(0, row.trace.size()));
    }
    char byte = 0;
    EXPECT_EQ(0, recv(peer, &byte, 1, 0)) << "not ended";
    EXPECT_EQ(1u, channel_server_connections(server_));
    expect_answer(other);
    close(peer);
  }
}

TEST_F(ChannelServer, HandsRequestsOnOneByOneHoweverTheyArrive) {
  open();
  const int peer = raw_peer();
  for (const char byte : kRequest) {
    ASSERT_EQ(1, send(peer, &byte, 1, 0));
    turn();
  }
  const std::string three = kRequest + kRequest + kRequest;
  ASSERT_EQ(18, send(peer, three.data(), three.size(), 0));
  shutdown(peer, SHUT_WR);
  turn();
  char replies[256];
  const ssize_t n = recv(peer, replies, sizeof replies, 0);
  EXPECT_EQ(kReply + kReply + kReply + kReply,
            std::string(replies, n > 0 ? static_cast<size_t>(n) : 0));
  EXPECT_TRUE(take_traces().empty());
  close(peer);
}

TEST_F(ChannelServer, TracesAPeerThatGoesAwayBeforeItsReply) {
  open();
  const Client other = client();
  answer_once_at_length();
  {
    const Client gone = client();
    ASSERT_EQ(PLATFORM_OK, ask(gone));
    turn();
  }
  turn();
  const auto traces = take_traces();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ(0u, traces[0].find("request channel: the peer went away, "));
  EXPECT_EQ(1u, channel_server_connections(server_));
  expect_answer(other);
}

TEST_F(ChannelServer, LeavesAPendingResponseAloneUntilItIsFinished) {
  open();
  channel_connection *pending = nullptr;
  const Handler at_once = std::exchange(
      g_handler,
      [&](channel_connection *connection, const channel_command *) { pending = connection; });
  const Client waiting = client();
  ASSERT_EQ(PLATFORM_OK, ask(waiting));
  turn();
  ASSERT_NE(nullptr, pending);
  g_handler = at_once;
  expect_answer(client());
  ASSERT_EQ(PLATFORM_OK, ask(waiting));  // waits
  turn();
  EXPECT_EQ(PLATFORM_OK, write_reply(pending, 1));
  channel_finished(pending);
  turn();
  EXPECT_EQ("x", text_from(waiting));
  EXPECT_EQ("xxx", text_from(waiting));
}

TEST_F(ChannelServer, SurvivesPeersThatGoWhileTheirResponseIsPending) {
  open();
  std::vector<channel_connection *> pending;
  g_handler = [&](channel_connection *connection, const channel_command *) {
    pending.push_back(connection);
  };
  for (int i = 0; i < 3; ++i) {
    const Client gone = client();
    ASSERT_EQ(PLATFORM_OK, ask(gone));
    turn();
  }
  turn();
  ASSERT_EQ(3u, pending.size());
  EXPECT_EQ(PLATFORM_OK, write_reply(pending[0]));
  channel_finished(pending[0]);
  channel_set_error(pending[1]);
  channel_finished(pending[1]);
  turn();
  EXPECT_EQ(2u, take_traces().size());
  EXPECT_EQ(1u, channel_server_connections(server_));  // the third is dropped with the server
}

TEST_F(ChannelServer, EndsAConnectionInErrorAndDropsWhatWasNotSent) {
  open();
  g_handler = [](channel_connection *connection, const channel_command *) {
    EXPECT_EQ(PLATFORM_OK, write_reply(connection));
    channel_set_error(connection);
    EXPECT_EQ(CHANNEL_ERR_FAILED, write_reply(connection));
    channel_finished(connection);
  };
  const Client failed = client();
  ASSERT_EQ(PLATFORM_OK, ask(failed));
  turn();
  EXPECT_EQ("[" + std::to_string(CHANNEL_ERR_CLOSED & 0xffff) + "]", text_from(failed));
  ASSERT_EQ(1u, take_traces().size());
  EXPECT_EQ(0u, channel_server_connections(server_));
}

// ---- The socket file

TEST_F(ChannelServer, MakesItsFileForUserAndGroupAndTakesItAway) {
  open();
  struct stat made {};
  ASSERT_EQ(0, stat(path_.c_str(), &made));
  EXPECT_TRUE(S_ISSOCK(made.st_mode));
  EXPECT_EQ(0660u, made.st_mode & 07777u);
  channel_server_close(std::exchange(server_, nullptr));
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(ChannelServer, ReplacesAStaleFileOnly) {
  // A socket file whose process has gone.
  sockaddr_un address = address_of(path_);
  const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(stale, reinterpret_cast<sockaddr *>(&address), sizeof address));
  ASSERT_EQ(0, listen(stale, 1));
  close(stale);
  open();
  expect_answer(client());

  channel_server *second = nullptr;
  EXPECT_EQ(CHANNEL_ERR_SYSTEM, channel_server_open(path_.c_str(), nullptr, 0, &second));
  EXPECT_EQ(EADDRINUSE, errno);
  expect_answer(client());

  // Whoever took the path meanwhile keeps it.
  std::filesystem::remove(path_);
  ASSERT_EQ(PLATFORM_OK, channel_server_open(path_.c_str(), nullptr, 0, &second));
  channel_server_close(std::exchange(server_, second));
  expect_answer(client());
}

// ---- The lock beside it

TEST_F(ChannelServer, WhoeverLocksTheFolderKeepsNobodyFromListening) {
  const int folder = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(0, flock(folder, LOCK_EX));
  open();
  expect_answer(client());
  close(folder);
}

TEST_F(ChannelServer, LeavesThePathToWhoeverIsMakingASocketThere) {
  const std::string lock = path_ + ".lock";
  const int held = ::open(lock.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(0, flock(held, LOCK_EX));
  EXPECT_EQ(EAGAIN, reason_not_to_open());
  EXPECT_TRUE(std::filesystem::exists(lock));

  // Made anew and locked after we had opened the one before.
  g_before_flock = [&] {
    std::filesystem::remove(lock);
    close(held);
    const int newer = ::open(lock.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(0, flock(newer, LOCK_EX));
  };
  EXPECT_EQ(EAGAIN, reason_not_to_open());
  std::filesystem::remove(lock);

  // Left by one that was killed.
  close(creat(lock.c_str(), 0600));
  open();
  expect_answer(client());
  EXPECT_FALSE(std::filesystem::exists(lock));
}

TEST_F(ChannelServer, TakesNobodysFileForItsLock) {
  const std::string lock = path_ + ".lock";
  const std::string elsewhere = directory_ / "elsewhere";
  std::filesystem::create_symlink(elsewhere, lock);
  EXPECT_EQ(ELOOP, reason_not_to_open());
  EXPECT_FALSE(std::filesystem::exists(elsewhere));
  std::filesystem::remove(lock);

  const int written = creat(lock.c_str(), 0600);
  ASSERT_EQ(4, write(written, "mine", 4));
  close(written);
  EXPECT_EQ(EEXIST, reason_not_to_open());
  EXPECT_EQ(4u, std::filesystem::file_size(lock));
}

TEST_F(ChannelServer, SaysWhyItCannotListen) {
  const std::string plain = directory_ / "plain";
  close(creat(plain.c_str(), 0600));
  const struct {
    std::string path;
    const char *group;
    int reason;
  } rows[] = {
      {plain, nullptr, ENOTSOCK},      {directory_ / std::string(200, 'n'), nullptr, ENAMETOOLONG},
      {"", nullptr, EINVAL},           {directory_ / "none" / "sock", nullptr, ENOENT},
      {path_, "no such group", ESRCH},
  };
  for (const auto &row : rows) {
    channel_server *made = nullptr;
    errno = 0;
    EXPECT_EQ(CHANNEL_ERR_SYSTEM, channel_server_open(row.path.c_str(), row.group, 0, &made));
    EXPECT_EQ(row.reason, errno) << row.path;
    EXPECT_EQ(nullptr, made);
  }
  EXPECT_TRUE(std::filesystem::is_regular_file(plain));
  channel_server *made = nullptr;
  EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_server_open(nullptr, nullptr, 0, &made));
  EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_server_open(path_.c_str(), nullptr, 0, nullptr));
  EXPECT_EQ(CHANNEL_ERR_INVALID_ARG,
            channel_server_open(path_.c_str(), nullptr, CHANNEL_CONNECTIONS_MAX + 1, &made));
}

// ---- Who may ask. Another user is needed, so root has to run these.

constexpr uid_t kUser = 54321;
constexpr gid_t kOwnGroup = 54321;

// What a client of another user is told; "" when it is answered.
std::string told_to_another_user(const std::function<void()> &turn, const std::string &path,
                                 const std::vector<gid_t> &groups, gid_t group) {
  int ends[2];
  EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends));
  const pid_t child = fork();
  if (child == 0) {
    channel_client *client = nullptr;
    char told[64] = "";
    if (setgroups(groups.size(), groups.data()) != 0 || setgid(group) != 0 || setuid(kUser) != 0 ||
        channel_client_connect(path.c_str(), 10000, &client) != 0) {
      std::strncpy(told, strerror(errno), sizeof told - 1);
      _exit(send(ends[1], told, sizeof told, 0) < 0);
    }
    received_message *message = nullptr;
    channel_client_send(client, nullptr, show_kivo_attributes_request_marshal);
    char go = 0;
    if (send(ends[1], told, 1, 0) < 0 || recv(ends[1], &go, 1, 0) != 1) _exit(1);
    if (channel_client_receive(client, &message) == 0) {
      uint32_t err = 0;
      std::strncpy(told, message_read_text(message, "text", nullptr, &err), sizeof told - 1);
    }
    _exit(send(ends[1], told, sizeof told, 0) < 0);
  }
  char told[64] = "";
  const ssize_t n = recv(ends[0], told, sizeof told, 0);
  turn();
  if (n == 1) {
    EXPECT_EQ(1, send(ends[0], "g", 1, 0));
    EXPECT_EQ(ssize_t{sizeof told}, recv(ends[0], told, sizeof told, 0));
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(0, status);
  close(ends[0]);
  close(ends[1]);
  return told;
}

TEST_F(ChannelServer, AnswersItsOwnUserRootAndTheGroupOnly) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to be another user";
  const group *entry = getgrnam("daemon");
  ASSERT_NE(nullptr, entry);
  const gid_t permitted = entry->gr_gid;
  open(0, "daemon");
  struct stat made {};
  ASSERT_EQ(0, stat(path_.c_str(), &made));
  EXPECT_EQ(permitted, made.st_gid);
  ASSERT_EQ(0, chmod(directory_.c_str(), 0755));
  std::vector<gid_t> many;
  for (gid_t i = 0; i < 100; ++i) many.push_back(60000 + i);
  many.push_back(permitted);
  const auto turned = [&] { turn(); };

  EXPECT_EQ("Permission denied", told_to_another_user(turned, path_, {}, kOwnGroup));
  // Whatever the file's mode says by now.
  ASSERT_EQ(0, chmod(path_.c_str(), 0666));
  EXPECT_EQ("Not permitted.", told_to_another_user(turned, path_, {}, kOwnGroup));
  EXPECT_EQ("request channel: user 54321 is not permitted", take_traces().at(0));
  EXPECT_EQ("xxx", told_to_another_user(turned, path_, {}, permitted));
  EXPECT_EQ("xxx", told_to_another_user(turned, path_, {60000, permitted}, kOwnGroup));
  EXPECT_EQ("xxx", told_to_another_user(turned, path_, many, kOwnGroup));
}

}  // namespace
