// The request channel's first use in a process, with memory that runs out: whichever allocation
// fails, the process lives, and says that memory is short. Every run is a process of its own, since
// what is set up at the first use is set up for good.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/channel_client.h"
#include "platform/channel_server.h"
#include "support/memory_faults.h"

namespace {

enum Result { kReached, kNotReached, kWrongStatus, kNotServed, kWrongName };

class ColdStart : public testing::Test {
 protected:
  ColdStart() { std::filesystem::create_directory(directory_); }
  ~ColdStart() override { std::filesystem::remove_all(directory_); }

  // The scenario again and again, with the first, second, ... allocation failing in it, until it
  // does not get that far. Returns how often one failed.
  static int sweep(Result (*scenario)()) {
    for (int nth = 1;; ++nth) {
      const int status = in_a_new_process(scenario, nth);
      const bool ended = WIFEXITED(status) && WEXITSTATUS(status) <= kNotReached;
      EXPECT_TRUE(ended) << "allocation " << nth << ": "
                         << (WIFSIGNALED(status) ? "signal " : "result ")
                         << (WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
      if (!ended || WEXITSTATUS(status) == kNotReached) return nth - 1;
    }
  }
  static int in_a_new_process(Result (*scenario)(), int nth) {
    const pid_t child = fork();
    if (child == 0) {
      memory_faults::arm(static_cast<uint64_t>(nth));
      _exit(scenario());
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return status;
  }

  // What a status says of a run. A failure may also have been borne: sorting does without memory.
  static Result result_of(uint32_t status) {
    const bool reached = memory_faults::disarm();
    if (status != PLATFORM_OK && !(reached && status == CHANNEL_ERR_NO_MEMORY)) return kWrongStatus;
    return reached ? kReached : kNotReached;
  }

  static inline const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("cold." + std::to_string(getpid()));
  static inline const std::string path_ = directory_ / "sock";
};

const std::string kRequest("\0\0\0\x02\x4a\0", 6);  // field 9, empty

void answer(void *, void *, const channel_command *, channel_connection *connection, uint32_t) {
  if (channel_marshal(connection, "yes", negative_acknowledgement_marshal) != PLATFORM_OK) {
    channel_nack(connection, "no memory");
  }
  channel_finished(connection);
}

sockaddr_un address_of(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

// Asks as a peer of the server. Returns whether there was an answer; else the connection ended.
bool is_answered(channel_server *server, const std::string &path) {
  const sockaddr_un address = address_of(path);
  const int peer = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  if (connect(peer, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      send(peer, kRequest.data(), kRequest.size(), 0) != 6) {
    return false;
  }
  pollfd ready = {channel_server_fd(server), POLLIN, 0};
  while (poll(&ready, 1, 0) == 1) channel_server_process(server);
  char reply[64];
  const ssize_t n = recv(peer, reply, sizeof reply, 0);
  close(peer);
  return n > 0;
}

TEST_F(ColdStart, OfAServerSurvivesEveryFailure) {
  channel_register_handler(MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST, answer);
  const auto scenario = [] {
    channel_server *server = nullptr;
    const Result result = result_of(channel_server_open(path_.c_str(), nullptr, 0, &server));
    if (result > kNotReached) return result;
    // Once more: that may fail again, and no worse.
    if (server == nullptr) {
      const uint32_t status = channel_server_open(path_.c_str(), nullptr, 0, &server);
      if (status != PLATFORM_OK && status != CHANNEL_ERR_NO_MEMORY) return kWrongStatus;
    }
    if (server != nullptr && !is_answered(server, path_)) return kNotServed;
    channel_server_close(server);
    return result;
  };
  EXPECT_GT(sweep(scenario), 10);
}

TEST_F(ColdStart, OfAFirstRequestSurvivesEveryFailure) {
  channel_register_handler(MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST, answer);
  const auto scenario = [] {
    const uint64_t nth = memory_faults::calls_until_failure;
    memory_faults::disarm();
    channel_server *server = nullptr;
    if (channel_server_open(path_.c_str(), nullptr, 0, &server) != 0) return kWrongStatus;
    memory_faults::arm(nth);
    const bool answered = is_answered(server, path_);
    const bool reached = memory_faults::disarm();
    if (!answered && !reached) return kNotServed;
    if (!is_answered(server, path_)) return kNotServed;  // the next one always is
    channel_server_close(server);
    return reached ? kReached : kNotReached;
  };
  EXPECT_GT(sweep(scenario), 3);
}

TEST_F(ColdStart, OfAClientSurvivesEveryFailure) {
  const auto in_memory = [] {
    channel_client *client = nullptr;
    const Result result = result_of(channel_client_open_memory(&client, nullptr));
    channel_client_close(client);
    return result;
  };
  EXPECT_GT(sweep(in_memory), 10);

  const auto on_a_socket = [] {
    sockaddr_un address = address_of(path_);
    const int daemon = socket(AF_UNIX, SOCK_STREAM, 0);
    unlink(path_.c_str());
    if (bind(daemon, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(daemon, 1) != 0) {
      return kNotServed;
    }
    channel_client *client = nullptr;
    const Result result = result_of(channel_client_connect(path_.c_str(), 10000, &client));
    channel_client_close(client);
    return result;
  };
  EXPECT_GT(sweep(on_a_socket), 10);
}

TEST_F(ColdStart, OfANameSurvivesEveryFailure) {
  const auto scenario = [] {
    const std::string_view name = message_kind_name(MESSAGE_NEGATIVE_ACKNOWLEDGEMENT);
    const bool reached = memory_faults::disarm();
    const bool known = name == "negative_acknowledgement";
    if (!known && !(reached && name == "unknown message")) return kWrongName;
    return reached ? kReached : kNotReached;
  };
  EXPECT_GT(sweep(scenario), 10);
}

// Nothing was begun when there was not room enough for all of it.
TEST_F(ColdStart, MayBeTriedAgainWhenMemoryWasShortBeforehand) {
  const int status = in_a_new_process(
      [] {
        channel_server *server = nullptr;
        const Result first = result_of(channel_server_open(path_.c_str(), nullptr, 0, &server));
        if (first != kReached || server != nullptr) return kNotReached;
        const uint32_t second = channel_server_open(path_.c_str(), nullptr, 0, &server);
        if (second != PLATFORM_OK) return kWrongStatus;
        channel_server_close(server);
        return kReached;
      },
      1);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(kReached, WEXITSTATUS(status));
}

}  // namespace
