// The request channel's first use in a process, with memory that runs out: whichever allocation
// fails, the process lives, and says that memory is short. Every run is a process of its own, since
// what is set up at the first use is set up for good.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "platform/channel_client.h"
#include "platform/channel_server.h"
#include "support/memory_faults.h"

namespace {

// Long enough to be allocated.
const std::string kPath = testing::TempDir() + "channel_cold_start." + std::to_string(getpid());

void answer(void *, void *, const channel_command *, channel_connection *connection, uint32_t) {
  if (channel_marshal(connection, "yes", negative_acknowledgement_marshal) != PLATFORM_OK) {
    channel_nack(connection, "no memory");
  }
  channel_finished(connection);
}

// What was expected, or short memory when an allocation has failed: sorting bears that.
bool is_fine(uint32_t expected, uint32_t status) {
  return status == expected || (memory_faults::failed && status == CHANNEL_ERR_NO_MEMORY);
}

bool is_answered(channel_server *server) {
  channel_client *client = nullptr;
  channel_client_connect(kPath.c_str(), 50, &client);  // the answer is there by then
  channel_client_send(client, nullptr, show_kivo_attributes_request_marshal);
  pollfd ready = {channel_server_fd(server), POLLIN, 0};
  while (poll(&ready, 1, 0) == 1) channel_server_process(server);
  received_message *message = nullptr;
  return channel_client_receive(client, &message) == PLATFORM_OK;
}

bool server_survives(uint64_t nth) {
  channel_server *server = nullptr;
  const uint32_t status = channel_server_open(kPath.c_str(), nullptr, 0, &server);
  if (!is_fine(PLATFORM_OK, status)) return false;
  // Of the first two requests one is answered, if not both.
  if (server != nullptr)
    return is_answered(server) || (memory_faults::failed && is_answered(server));
  // When the first allocation fails, nothing has begun; else it may fail again, and no worse.
  return channel_server_open(kPath.c_str(), nullptr, 0, &server) == PLATFORM_OK || nth > 1;
}

bool client_in_memory_survives(uint64_t) {
  channel_client *client = nullptr;
  const bool is_good = is_fine(PLATFORM_OK, channel_client_open_memory(&client, nullptr));
  channel_client_close(client);
  return is_good;
}

bool client_on_a_socket_survives(uint64_t) {
  channel_client *client = nullptr;
  return is_fine(CHANNEL_ERR_SYSTEM, channel_client_connect("/none", 9000, &client));
}

bool name_survives(uint64_t) {
  const std::string_view name = message_kind_name(MESSAGE_NEGATIVE_ACKNOWLEDGEMENT);
  return name == "negative_acknowledgement" || (memory_faults::failed && name == "unknown message");
}

// Where the first use is the same, its first allocation is enough, and then what comes after it.
TEST(ColdStart, SurvivesTheFailureOfEveryAllocation) {
  const struct {
    bool (*survives)(uint64_t);
    bool is_cold;
    uint64_t least;
    uint64_t most;
  } rows[] = {
      {server_survives, true, 10, 9999},           {name_survives, true, 10, 9999},
      {client_in_memory_survives, true, 1, 1},     {client_on_a_socket_survives, true, 1, 1},
      {client_in_memory_survives, false, 3, 9999}, {client_on_a_socket_survives, false, 2, 9999},
  };
  channel_register_handler(MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST, answer);
  for (const auto &row : rows) {
    EXPECT_TRUE(row.is_cold || client_in_memory_survives(0));
    int status = 1 << 8;
    uint64_t nth = 0;
    while (WIFEXITED(status) && WEXITSTATUS(status) == 1 && nth < row.most) {
      ++nth;
      if (fork() == 0) {
        memory_faults::arm(nth);
        const bool survived = row.survives(nth);
        _exit(survived ? memory_faults::failed : 2);
      }
      wait(&status);
    }
    EXPECT_EQ(nth == row.most ? 1 << 8 : 0, status) << nth;
    EXPECT_GE(nth, row.least);
  }
  std::filesystem::remove(kPath);
}

}  // namespace
