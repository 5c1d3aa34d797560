// What a command handler does on a connection, seen by a client in the process; and what a client
// on a socket makes of a daemon that misbehaves.
#include "platform/channel.h"

#include <dlfcn.h>
#include <fcntl.h>

#include "platform/served_channel.h"
#include "support/memory_faults.h"

namespace {
int g_recv_failure = 0;  // what recv fails with, if not 0
}

extern "C" ssize_t recv(int fd, void *at, size_t size, int flags) {
  static const auto next =
      reinterpret_cast<ssize_t (*)(int, void *, size_t, int)>(dlsym(RTLD_NEXT, "recv"));
  if (g_recv_failure == 0) return next(fd, at, size, flags);
  errno = g_recv_failure;
  return -1;
}

namespace {

using namespace kivo_test;
using namespace std::string_literals;

class Channel : public ServedChannel {
 protected:
  Channel() {
    channel_client *made = nullptr;
    EXPECT_EQ(PLATFORM_OK, channel_client_open_memory(&made, &connection_));
    client_.reset(made);
  }
  // One request is handled by what is given.
  void handle(const Handler &handler) {
    g_handler = handler;
    EXPECT_EQ(PLATFORM_OK, ask(client_));
  }

  Client client_{nullptr, channel_client_close};
  channel_connection *connection_ = nullptr;
};

const std::string kNothing = "[" + std::to_string(CHANNEL_ERR_TIMEOUT & 0xffff) + "]";
const std::string kClosed = "[" + std::to_string(CHANNEL_ERR_CLOSED & 0xffff) + "]";
const std::string kSystem = "[" + std::to_string(CHANNEL_ERR_SYSTEM & 0xffff) + "]";
const std::string kBadFrame = "[" + std::to_string(CHANNEL_ERR_FRAME & 0xffff) + "]";

TEST_F(Channel, CountsContentAndNotTheBundle) {
  handle([](channel_connection *connection, const channel_command *command) {
    EXPECT_EQ(uint32_t{MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST}, command->request);
    EXPECT_EQ(PLATFORM_OK,
              channel_marshal(connection, nullptr, show_kivo_database_resp_bundle_start_marshal));
    EXPECT_EQ(0u, channel_write_count(connection));
    EXPECT_EQ(PLATFORM_OK, write_reply(connection));
    EXPECT_EQ(1u, channel_write_count(connection));
    EXPECT_EQ(PLATFORM_OK, channel_close_generated_response(connection));
    EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_close_generated_response(connection));
    EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, write_reply(connection)) << "closed";
    EXPECT_EQ(PLATFORM_OK,
              channel_marshal(connection, nullptr, show_kivo_database_resp_bundle_commit_marshal));
    EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_marshal(connection, nullptr, nullptr));
    channel_finished(connection);
  });
  EXPECT_EQ("show_kivo_database_resp_bundle_start", text_from(client_));
  EXPECT_EQ("xxx", text_from(client_));
  EXPECT_EQ("show_kivo_database_resp_bundle_commit", text_from(client_));
  EXPECT_EQ(kNothing, text_from(client_));
  handle([](channel_connection *connection, const channel_command *) {
    EXPECT_EQ(0u, channel_write_count(connection)) << "a new response";
    EXPECT_EQ(PLATFORM_OK, channel_close_generated_response(connection));
    channel_finished(connection);
  });
}

TEST_F(Channel, TakesNothingInError) {
  handle([](channel_connection *connection, const channel_command *) {
    EXPECT_EQ(0u, channel_error(connection));
    channel_set_error(connection);
    EXPECT_EQ(CHANNEL_ERR_FAILED, channel_error(connection));
    EXPECT_EQ(CHANNEL_ERR_FAILED, write_reply(connection));
    EXPECT_EQ(CHANNEL_ERR_FAILED, channel_close_generated_response(connection));
    channel_nack(connection, "no");
    channel_finished(connection);
  });
  EXPECT_EQ(kClosed, text_from(client_));
}

TEST_F(Channel, HoldsABoundedReply) {
  handle([](channel_connection *connection, const channel_command *) {
    uint32_t status = 0;
    size_t written = 0;
    while ((status = write_reply(connection, 50000)) == PLATFORM_OK) written += 50000;
    EXPECT_EQ(CHANNEL_ERR_NO_ROOM, status);
    EXPECT_GT(written, CHANNEL_OUTPUT_MAX - 60000);
    EXPECT_EQ(PLATFORM_OK, write_reply(connection)) << "a small one still fits";
    channel_finished(connection);
  });
  for (int i = 0; i < 5; ++i) EXPECT_EQ(50000u, text_from(client_).size());
  EXPECT_EQ("xxx", text_from(client_));
}

std::string g_told;
void note_epilogue(channel_connection *connection, const char *text) {
  g_told = text != nullptr ? text : "(none)";
  channel_finished(connection);
}
void note_continuation(channel_connection *) { g_told += " continued"; }

TEST_F(Channel, FinishesLaterThroughItsEpilogue) {
  for (const char *text : {"", "a reason", static_cast<const char *>(nullptr)}) {
    handle([](channel_connection *connection, const channel_command *) {
      channel_set_epilogue(connection, note_epilogue);
      EXPECT_EQ(0u, channel_continuation_registered(connection));
      channel_register_continuation(connection, note_continuation);
      EXPECT_EQ(1u, channel_continuation_registered(connection));
    });
    EXPECT_EQ(CHANNEL_ERR_NO_ROOM, ask(client_)) << "the last response is pending";
    channel_finish_async(connection_, text);
    EXPECT_EQ((text != nullptr ? text : "(none)"s) + " continued", g_told);
  }
  // Nobody to close the response.
  handle([](channel_connection *connection, const channel_command *) {
    channel_finish_async(connection, nullptr);
  });
  EXPECT_EQ(CHANNEL_ERR_FAILED, channel_error(connection_));
  EXPECT_EQ("request channel: no epilogue for show_kivo_attributes_request", take_traces().at(0));
  EXPECT_EQ(kClosed, text_from(client_));
}

int g_continued;
void finish_again(channel_connection *connection) {
  if (++g_continued > 1) return;
  channel_register_continuation(connection, finish_again);
  channel_finished(connection);
}

TEST_F(Channel, RunsAContinuationOnceWhateverItCalls) {
  g_continued = 0;
  handle([](channel_connection *connection, const channel_command *) {
    channel_register_continuation(connection, finish_again);
    channel_finished(connection);
    channel_finished(connection);
  });
  EXPECT_EQ(1, g_continued);
  // What it registered is not the next response's.
  handle([](channel_connection *connection, const channel_command *) {
    EXPECT_EQ(0u, channel_continuation_registered(connection));
    EXPECT_EQ(PLATFORM_OK, write_reply(connection));
    channel_finished(connection);
  });
  EXPECT_EQ(1, g_continued);
  EXPECT_EQ("xxx", text_from(client_));
}

TEST_F(Channel, AHandlerCannotAskItsOwnClient) {
  // Whether its own handling has ended yet or not, and however long what it sends is.
  handle([&](channel_connection *connection, const channel_command *) {
    show_kivo_database_request longer{};
    std::strcpy(longer.sess_id, "a session");
    for (const bool finished : {false, true}) {
      EXPECT_EQ(CHANNEL_ERR_NO_ROOM, ask(client_));
      EXPECT_EQ(CHANNEL_ERR_NO_ROOM,
                channel_client_send(client_.get(), &longer, show_kivo_database_request_marshal));
      if (finished) continue;
      EXPECT_EQ(PLATFORM_OK, write_reply(connection));
      channel_finished(connection);
    }
  });
  EXPECT_EQ("xxx", text_from(client_));
  EXPECT_EQ(kNothing, text_from(client_));
  handle([](channel_connection *connection, const channel_command *) {
    EXPECT_EQ(PLATFORM_OK, write_reply(connection, 1));
    channel_finished(connection);
  });
  EXPECT_EQ("x", text_from(client_));
}

TEST_F(Channel, RefusesWhatNobodyHandlesOrCannotBeCarriedOut) {
  g_handler = [](channel_connection *, const channel_command *) { FAIL(); };
  channel_register_handler(MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST, nullptr);
  EXPECT_EQ(PLATFORM_OK, ask(client_));
  EXPECT_EQ("The request is not supported.", text_from(client_));
  for (const uint32_t no_request : {0u, uint32_t{MESSAGE_ZELUI_KIVO_DB_MSG}, 16u, ~0u}) {
    EXPECT_EQ(CHANNEL_ERR_INVALID_ARG, channel_register_handler(no_request, call_handler));
  }
  // A text that its NUL does not end within the field.
  show_kivo_database_request request{};
  std::memset(request.sess_id, 's', sizeof request.sess_id);
  EXPECT_EQ(PLATFORM_OK,
            channel_client_send(client_.get(), &request, show_kivo_database_request_marshal));
  EXPECT_EQ("The session id is too long.", text_from(client_));
}

TEST_F(Channel, DumpsTheRequestFieldByField) {
  std::vector<std::string> dumped;
  const auto keep = [](const trace_record *record, void *arg) {
    if (record->module != TRACE_MODULE_HOST_APP) return;
    EXPECT_EQ(7u, record->level);
    static_cast<std::vector<std::string> *>(arg)->emplace_back(record->text, record->length);
  };
  g_handler = [](channel_connection *connection, const channel_command *) {
    channel_dump_request(channel_message_definitions(connection, nullptr));
    channel_finished(connection);
  };
  trace_set_level(TRACE_MODULE_HOST_APP, 7);
  trace_add_sink(keep, nullptr, &dumped);
  show_kivo_database_request request{};
  request.sess_id_present = 1;
  std::strcpy(request.sess_id, "a\nb");
  EXPECT_EQ(PLATFORM_OK,
            channel_client_send(client_.get(), &request, show_kivo_database_request_marshal));
  trace_remove_sink(keep, &dumped);
  trace_set_all_levels(TRACE_LEVEL_DEFAULT);
  EXPECT_EQ((std::vector<std::string>{"sess_id_present: 1", "sess_id: \"a\\nb\""}), dumped);
}

// ---- Clients on a socket

TEST_F(Channel, ClientSaysWhyItCannotConnect) {
  const std::string plain = directory_ / "plain";
  close(creat(plain.c_str(), 0600));
  const struct {
    std::string path;
    int reason;
  } rows[] = {{path_, ENOENT}, {plain, ECONNREFUSED}, {std::string(200, 'n'), ENAMETOOLONG}};
  for (const auto &row : rows) {
    channel_client *made = nullptr;
    EXPECT_EQ(CHANNEL_ERR_SYSTEM, channel_client_connect(row.path.c_str(), 100, &made));
    EXPECT_EQ(row.reason, errno);
    EXPECT_EQ(nullptr, made);
  }
}

TEST_F(Channel, ClientBearsADaemonThatMisbehaves) {
  const struct {
    const char *name;
    std::string bytes;
    bool stays;
    std::string told;
    int failure = 0;
  } rows[] = {
      {"silent", "", true, kNothing},
      {"gone", "", false, kClosed},
      {"too long", "\x7f\0\0\0"s, true, kBadFrame},
      {"no message", "\0\0\0\x01\xff"s, true, kBadFrame},
      {"cut off", "\0\0\0\x07\x42\x05"s, false, kClosed},
      {"reset", "", true, kClosed, ECONNRESET},
      {"out of the system's reach", "", true, kSystem, EIO},
  };
  sockaddr_un address = address_of(path_);
  const int daemon = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(daemon, reinterpret_cast<sockaddr *>(&address), sizeof address));
  ASSERT_EQ(0, listen(daemon, 1));
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const Client asking = client(50);
    const int peer = accept(daemon, nullptr, nullptr);
    ASSERT_EQ(static_cast<ssize_t>(row.bytes.size()),
              send(peer, row.bytes.data(), row.bytes.size(), 0));
    if (!row.stays) close(peer);
    g_recv_failure = row.failure;
    EXPECT_EQ(row.told, text_from(asking));
    g_recv_failure = 0;
    if (row.stays) close(peer);
  }
  close(daemon);
}

// The n-th allocation fails, for each n, from connecting to the reply: the server loses at most
// that connection, leaks nothing, and serves the next.
TEST_F(Channel, ServerOutOfMemory) {
  open();
  expect_answer(client());
  turn();
  g_handler = [](channel_connection *connection, const channel_command *) {
    if (write_reply(connection) != PLATFORM_OK) channel_nack(connection, "no memory");
    channel_finished(connection);
  };
  const int64_t live = memory_faults::live_blocks;
  bool reached = true;
  uint64_t nth = 0;
  while (reached) {
    ++nth;
    {
      const Client asking = client();
      memory_faults::arm(nth);
      turn();
      // Not the client's own.
      const bool before = memory_faults::disarm();
      const uint32_t status = ask(asking);
      EXPECT_TRUE(status == PLATFORM_OK || status == CHANNEL_ERR_CLOSED);
      if (!before) memory_faults::arm(nth);
      turn();
      reached = before || memory_faults::disarm();
    }
    turn();
    take_traces();
    ASSERT_EQ(live, memory_faults::live_blocks) << nth;
    ASSERT_EQ(0u, channel_server_connections(server_));
  }
  EXPECT_GT(nth, 3u);
  expect_answer(client());
}

}  // namespace
