// A kivod that serves, when clients are many and when what it was started with goes away.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
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

// Returns once the daemon has ended the connection, which it traces first.
void send_what_is_no_frame(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int peer = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(0, connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof address));
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

TEST(KivodRobustness, AnswersMoreClientsThanItHasPlacesFor) {
  ServingKivod kivod("");
  std::vector<Client> clients;
  for (int i = 0; i < 300; ++i) clients.push_back(client_who_asks(kivod.socket()));
  for (const Client &client : clients) EXPECT_TRUE(is_answered(client));
  EXPECT_EQ(0, kivod.stop(SIGTERM));
}

TEST(KivodRobustness, GoesOnWithoutAReaderOfItsTraces) {
  signal(SIGPIPE, SIG_DFL);  // as a shell leaves it; programs inherit it when it is ignored
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const auto kivod = [&] {
    const StandardError piped(ends[1]);
    return std::make_unique<ServingKivod>("");
  }();
  close(ends[0]);
  close(ends[1]);
  for (int i = 0; i < 3; ++i) send_what_is_no_frame(kivod->socket());
  EXPECT_TRUE(is_answered(client_who_asks(kivod->socket())));
  EXPECT_EQ(0, kivod->stop(SIGTERM));
}

}  // namespace
