// A request channel's server in the test's own thread: the test turns it by hand, so that it
// decides what has happened when. Requests are answered by a handler of the test's.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/channel_client.h"
#include "platform/channel_server.h"
#include "platform/trace.h"

namespace kivo_test {

using Client = std::unique_ptr<channel_client, decltype(&channel_client_close)>;
using Received = std::unique_ptr<received_message, decltype(&message_destroy)>;
using Handler = std::function<void(channel_connection *, const channel_command *)>;

inline Handler g_handler;
inline void call_handler(void *, void *, const channel_command *command,
                         channel_connection *connection, uint32_t) {
  g_handler(connection, command);
}

// A reply of one message that carries a text of some length.
inline uint32_t write_reply(channel_connection *connection, size_t length = 3) {
  return channel_marshal(connection, std::string(length, 'x').c_str(),
                         negative_acknowledgement_marshal);
}

// A request, field 9 and empty, and a reply as they are on the wire.
inline const std::string kRequest("\0\0\0\x02\x4a\0", 6);
inline const std::string kReply("\0\0\0\x07\x42\x05\x0a\x03xxx", 11);
inline constexpr size_t kReplyOfManyPieces = 60000;  // four times: more than a socket takes

inline sockaddr_un address_of(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

class ServedChannel : public testing::Test {
 protected:
  ServedChannel() {
    std::filesystem::create_directory(directory_);
    trace_add_sink(keep, nullptr, &traces_);
    for (const uint32_t request :
         {MESSAGE_SHOW_KIVO_DATABASE_REQUEST, MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST}) {
      channel_register_handler(request, call_handler);
    }
    g_handler = [](channel_connection *connection, const channel_command *) {
      EXPECT_EQ(PLATFORM_OK, write_reply(connection));
      channel_finished(connection);
    };
  }
  ~ServedChannel() override {
    channel_server_close(server_);
    trace_remove_sink(keep, &traces_);
    std::filesystem::remove_all(directory_);
  }

  void open(uint32_t connections_max = 0, const char *group = nullptr) {
    ASSERT_EQ(PLATFORM_OK, channel_server_open(path_.c_str(), group, connections_max, &server_));
  }

  // Everything that can be done now.
  void turn() const { turn(server_); }
  static void turn(channel_server *server) {
    pollfd ready = {channel_server_fd(server), POLLIN, 0};
    while (poll(&ready, 1, 0) == 1) channel_server_process(server);
  }

  Client client(uint32_t timeout_ms = 10000) const {
    channel_client *made = nullptr;
    EXPECT_EQ(PLATFORM_OK, channel_client_connect(path_.c_str(), timeout_ms, &made));
    return {made, channel_client_close};
  }
  static uint32_t ask(const Client &client) {
    return channel_client_send(client.get(), nullptr, show_kivo_attributes_request_marshal);
  }
  // The text of the next message, or the status in brackets.
  static std::string text_from(const Client &client) {
    received_message *message = nullptr;
    const uint32_t status = channel_client_receive(client.get(), &message);
    if (status != PLATFORM_OK) return "[" + std::to_string(status & 0xffff) + "]";
    const Received owned(message, message_destroy);
    uint32_t err = 0;
    size_t length = 0;
    const char *text = message_read_text(message, "text", &length, &err);
    return err == 0 ? std::string(text, length) : message_kind_name(message_kind(message));
  }
  void expect_answer(const Client &client) const {
    EXPECT_EQ(PLATFORM_OK, ask(client));
    turn();
    EXPECT_EQ("xxx", text_from(client));
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

  // A peer that may send anything.
  int raw_peer() const {
    const sockaddr_un address = address_of(path_);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    return fd;
  }

  std::vector<std::string> take_traces() { return std::exchange(traces_, {}); }

  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("channel." + std::to_string(getpid()));
  const std::string path_ = directory_ / "sock";
  channel_server *server_ = nullptr;

 private:
  static void keep(const trace_record *record, void *arg) {
    if (record->module != TRACE_MODULE_PLATFORM) return;
    static_cast<std::vector<std::string> *>(arg)->emplace_back(record->text, record->length);
  }
  std::vector<std::string> traces_;
};

}  // namespace kivo_test
