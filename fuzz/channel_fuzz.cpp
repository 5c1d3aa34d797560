// The request channel's server under any bytes. The first byte of an input gives the size of the
// pieces in which the rest arrives. Whatever a peer sends, a request that is handed on keeps to the
// header's promises, and the next peer is answered.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/channel_client.h"
#include "platform/channel_server.h"
#include "platform/trace.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

uint64_t n_handled = 0;

void handle(void *, void *, const channel_command *command, channel_connection *connection,
            uint32_t error_word) {
  ++n_handled;
  require(error_word == 0 && channel_error(connection) == 0);
  const show_kivo_database_request &request = command->show_kivo_database;
  require(std::memchr(request.sess_id, '\0', sizeof request.sess_id) != nullptr);
  uint8_t mac[MESSAGE_MAC_SIZE];
  uint32_t err = 0;
  message_mac_read(request.mac, mac, &err);
  const auto *definitions = channel_message_definitions(connection, nullptr);
  channel_dump_request(definitions);
  uint32_t made = 0;
  zelui_kivo_db_filter_msg *reply = zelui_kivo_db_filter_msg_create(definitions, &made);
  zelui_kivo_db_filter *filter = zelui_kivo_db_filter_msg_carried(reply, &made);
  zelui_kivo_db_filter_set_sess_id(filter, request.sess_id, std::strlen(request.sess_id), &made);
  if (err == 0) zelui_kivo_db_filter_set_mac(filter, request.mac, &made);
  require(made == 0);
  char line[64];  // mostly too short
  zelui_kivo_db_filter_msg_render(reply, line, sizeof line, &made);
  require(std::memchr(line, '\0', sizeof line) != nullptr);
  require(channel_marshal(connection, reply, zelui_kivo_db_filter_msg_marshal) == PLATFORM_OK);
  zelui_kivo_db_filter_msg_destroy(reply);
  channel_finished(connection);
}

class Server {
 public:
  Server() {
    path_ = "/tmp/channel_fuzz." + std::to_string(getpid());
    require(channel_server_open(path_.c_str(), nullptr, 0, &server_) == PLATFORM_OK);
    channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST, handle);
    channel_register_handler(MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST, handle);
    trace_set_level(TRACE_MODULE_HOST_APP, 7);
  }
  ~Server() { channel_server_close(server_); }

  void turn() const {
    pollfd ready = {channel_server_fd(server_), POLLIN, 0};
    while (poll(&ready, 1, 0) == 1) channel_server_process(server_);
  }
  int peer() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path_.c_str(), path_.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    require(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0);
    return fd;
  }
  uint32_t connections() const { return channel_server_connections(server_); }
  const char *path() const { return path_.c_str(); }

 private:
  std::string path_;
  channel_server *server_ = nullptr;
};

// What the peer sends until its connection is ended; it takes every reply.
void send_all(const Server &server, int peer, const uint8_t *data, size_t size, size_t piece) {
  while (size != 0) {
    const ssize_t sent = send(peer, data, std::min(piece, size), MSG_NOSIGNAL);
    if (sent < 0) return;
    data += sent;
    size -= static_cast<size_t>(sent);
    server.turn();
    char reply[4096];
    while (recv(peer, reply, sizeof reply, 0) > 0) server.turn();
  }
}

void expect_answer(const Server &server) {
  channel_client *client = nullptr;
  received_message *reply = nullptr;
  require(channel_client_connect(server.path(), 10000, &client) == PLATFORM_OK);
  require(channel_client_send(client, nullptr, show_kivo_attributes_request_marshal) == 0);
  const uint64_t before = n_handled;
  server.turn();
  require(n_handled == before + 1);
  require(channel_client_receive(client, &reply) == PLATFORM_OK);
  message_destroy(reply);
  channel_client_close(client);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Server server;
  if (size == 0) return 0;
  const int peer = server.peer();
  send_all(server, peer, data + 1, size - 1, data[0] != 0 ? data[0] : size);
  expect_answer(server);
  close(peer);
  server.turn();
  require(server.connections() == 0);
  return 0;
}
