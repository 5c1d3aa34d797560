// The message set: what is made, marshaled and read again, under the error word and without memory.
#include "platform/messages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "platform/channel_client.h"
#include "support/memory_faults.h"

namespace {

// A peer in the process; its handler takes and gives what a test wants.
class Messages : public testing::Test {
 protected:
  Messages() {
    EXPECT_EQ(PLATFORM_OK, channel_client_open_memory(&client_, nullptr));
    definitions_ = channel_client_definitions(client_);
    channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST, handle);
    // The codec sets itself up at its first use, for good.
    on_request_ = nullptr;
    exchange({});
  }
  ~Messages() override { channel_client_close(client_); }

  // Sends a request; its handler writes what write() says; the message that comes back, or null.
  received_message *exchange(const show_kivo_database_request &request) {
    received_message *back = nullptr;
    status_ = channel_client_send(client_, &request, show_kivo_database_request_marshal);
    if (status_ == PLATFORM_OK) status_ = channel_client_receive(client_, &back);
    return back;
  }
  static void handle(void *, void *, const channel_command *command, channel_connection *connection,
                     uint32_t) {
    if (on_request_) on_request_(command->show_kivo_database, connection);
    channel_finished(connection);
  }

  static inline std::function<void(const show_kivo_database_request &, channel_connection *)>
      on_request_;
  channel_client *client_ = nullptr;
  const message_definitions *definitions_ = nullptr;
  uint32_t status_ = 0;
  uint32_t err_ = 0;
};

std::string text(const received_message *message, const char *field) {
  uint32_t err = 0;
  size_t length = 0;
  const char *bytes = message_read_text(message, field, &length, &err);
  return err == 0 ? std::string(bytes, length) : "error " + std::to_string(err);
}

constexpr uint8_t kMac[] = {0, 0x10, 0xa4, 0x23, 0x19, 0xc0};
const std::string kMacText(reinterpret_cast<const char *>(kMac), sizeof kMac);

TEST_F(Messages, RequestArrivesAsItWasSent) {
  message_mac *mac = message_mac_create(definitions_, &err_);
  message_mac_set(mac, kMac, &err_);
  ASSERT_EQ(0u, err_);
  show_kivo_database_request sent{1, 2, 3, "a session", 4, 0x0100007f, 5, mac};
  bool seen = false;
  on_request_ = [&](const show_kivo_database_request &request, channel_connection *) {
    seen = true;
    EXPECT_EQ(1u, request.attr_info);
    EXPECT_EQ(2u, request.attr_info_blank);
    EXPECT_EQ(3u, request.sess_id_present);
    EXPECT_STREQ("a session", request.sess_id);
    EXPECT_EQ(4u, request.ipv4_present);
    EXPECT_EQ(0x0100007fu, request.ipv4);
    EXPECT_EQ(5u, request.mac_present);
    uint8_t bytes[MESSAGE_MAC_SIZE];
    uint32_t err = 0;
    message_mac_read(request.mac, bytes, &err);
    EXPECT_EQ(0u, err);
    EXPECT_EQ(0, std::memcmp(kMac, bytes, sizeof kMac));
  };
  exchange(sent);
  EXPECT_TRUE(seen);
  message_mac_destroy(mac);

  seen = false;
  on_request_ = [&](const show_kivo_database_request &request, channel_connection *) {
    seen = true;
    uint8_t bytes[] = {1, 1, 1, 1, 1, 1};
    uint32_t err = 0;
    message_mac_read(request.mac, bytes, &err);
    EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err);
    EXPECT_EQ(0, bytes[0]);
  };
  sent.mac = nullptr;  // promised, and not sent
  exchange(sent);
  EXPECT_TRUE(seen);
}

// What a reply with everything in it needs; the error word tells whether all of it went well.
zelui_kivo_db_filter_msg *make_filter(const message_definitions *definitions, uint32_t *err) {
  message_mac *mac = message_mac_create(definitions, err);
  message_mac_set(mac, kMac, err);
  zelui_kivo_db_filter_msg *message = zelui_kivo_db_filter_msg_create(definitions, err);
  zelui_kivo_db_filter *filter = zelui_kivo_db_filter_msg_carried(message, err);
  zelui_kivo_db_filter_set_sess_id(filter, "with \0 in it", 12, err);
  zelui_kivo_db_filter_set_mac(filter, mac, err);
  zelui_kivo_db_filter_set_ipv4(filter, 0xffffffff, err);
  zelui_kivo_db_filter_set_found(filter, 1, err);
  for (uint32_t i = 0; i < 21; ++i) {
    zelui_kivo_db_filter_data *entry = zelui_kivo_db_filter_data_create(definitions, err);
    zelui_kivo_db_filter_data_set_attr_names(entry, i, err);
    zelui_kivo_db_filter_data_set_attr_values(entry, "\xff\xfe, no UTF-8", 12, err);
    zelui_kivo_db_filter_append_filter_info(filter, entry, err);
    if (*err != 0) zelui_kivo_db_filter_data_destroy(entry);
  }
  message_mac_destroy(mac);
  return message;
}

TEST_F(Messages, FilterReplyIsReadAsItWasMade) {
  on_request_ = [](const show_kivo_database_request &, channel_connection *connection) {
    uint32_t err = 0;
    zelui_kivo_db_filter_msg *message =
        make_filter(channel_message_definitions(connection, nullptr), &err);
    EXPECT_EQ(0u, err);
    EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, message, zelui_kivo_db_filter_msg_marshal));
    zelui_kivo_db_filter_msg_destroy(message);
  };
  received_message *back = exchange({});
  ASSERT_EQ(uint32_t{MESSAGE_ZELUI_KIVO_DB_FILTER_MSG}, message_kind(back));
  EXPECT_EQ(std::string("with \0 in it", 12), text(back, "sess_id"));
  EXPECT_EQ(kMacText, text(back, "mac"));
  EXPECT_EQ(0xffffffffu, message_read_u32(back, "ipv4", &err_));
  EXPECT_EQ(1u, message_read_u32(back, "found", &err_));
  ASSERT_EQ(21u, message_list_size(back, "filter_info", &err_));
  for (uint32_t i = 0; i < 21; ++i) {
    const received_message *entry = message_list_entry(back, "filter_info", i, &err_);
    EXPECT_EQ(i, message_read_u32(entry, "attr_names", &err_));
    EXPECT_EQ("\xff\xfe, no UTF-8", text(entry, "attr_values"));
    EXPECT_EQ(0u, message_kind(entry));
  }
  EXPECT_EQ(0u, err_);
  // What is not there sets the word, and the word stops everything.
  const struct {
    const char *field;
    uint32_t (*read)(const received_message *, const char *, uint32_t *);
  } rows[] = {{"none", message_read_u32},
              {"sess_id", message_read_u32},
              {nullptr, message_read_u32},
              {"found", message_list_size}};
  for (const auto &row : rows) {
    uint32_t err = 0;
    EXPECT_EQ(0u, row.read(back, row.field, &err));
    EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err);
    EXPECT_EQ(0u, message_read_u32(back, "found", &err)) << "the word is set";
  }
  EXPECT_EQ(nullptr, message_list_entry(back, "filter_info", 21, &err_));
  EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err_);
  message_destroy(back);
}

TEST_F(Messages, OtherRepliesAreReadAsTheyWereMade) {
  on_request_ = [](const show_kivo_database_request &, channel_connection *connection) {
    const auto *definitions = channel_message_definitions(connection, nullptr);
    uint32_t err = 0;
    zelui_kivo_db_common_msg *common = zelui_kivo_db_common_msg_create(definitions, &err);
    zelui_kivo_db_common *header = zelui_kivo_db_common_msg_carried(common, &err);
    zelui_kivo_db_common_set_cmdtype(header, 5, &err);
    zelui_kivo_db_common_set_records(header, 1000000, &err);
    zelui_kivo_db_common_set_attr_number(header, 21, &err);
    zelui_kivo_db_common_set_database(header, "ATTR_DB", 7, &err);
    zelui_kivo_db_common_set_owner(header, nullptr, 0, &err);
    char line[200];
    zelui_kivo_db_common_msg_render(common, line, sizeof line, &err);
    EXPECT_STREQ(
        "zelui_kivo_db_common { cmdtype: 5 records: 1000000 attr_number: 21 database: \"ATTR_DB\" "
        "}",
        line);
    EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, common, zelui_kivo_db_common_msg_marshal));
    EXPECT_EQ(0u, err);
    zelui_kivo_db_common_msg_render(common, line, 20, &err);
    EXPECT_EQ(MESSAGE_ERR_NO_ROOM, err);
    EXPECT_STREQ("", line);
    zelui_kivo_db_common_msg_destroy(common);

    err = 0;
    zelui_kivo_db_msg *list = zelui_kivo_db_msg_create(definitions, &err);
    zelui_kivo_db_data *entry = zelui_kivo_db_data_create(definitions, &err);
    zelui_kivo_db_data_set_attr_names(entry, 7, &err);
    zelui_kivo_db_data_set_attr_types(entry, 8, &err);
    zelui_kivo_db_append_db_info(zelui_kivo_db_msg_carried(list, &err), entry, &err);
    EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, list, zelui_kivo_db_msg_marshal));
    zelui_kivo_db_msg_destroy(list);

    kivo_attributes_msg *names = kivo_attributes_msg_create(definitions, &err);
    kivo_attributes_msg_append(names, 8, "mac-address", "MAC_ADDR", &err);
    EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, names, kivo_attributes_msg_marshal));
    EXPECT_EQ(0u, err);
    kivo_attributes_msg_append(names, 8, nullptr, "", &err);
    EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err);
    kivo_attributes_msg_destroy(names);
  };
  received_message *back = exchange({});
  ASSERT_EQ(uint32_t{MESSAGE_ZELUI_KIVO_DB_COMMON_MSG}, message_kind(back));
  EXPECT_EQ(1000000u, message_read_u32(back, "records", &err_));
  EXPECT_EQ("ATTR_DB", text(back, "database"));
  EXPECT_EQ("", text(back, "owner"));
  message_destroy(back);
  ASSERT_EQ(PLATFORM_OK, channel_client_receive(client_, &back));
  const auto *entry = message_list_entry(back, "db_info", 0, &err_);
  EXPECT_EQ(7u, message_read_u32(entry, "attr_names", &err_));
  EXPECT_EQ(8u, message_read_u32(entry, "attr_types", &err_));
  message_destroy(back);
  ASSERT_EQ(PLATFORM_OK, channel_client_receive(client_, &back));
  entry = message_list_entry(back, "attributes", 0, &err_);
  EXPECT_EQ(8u, message_read_u32(entry, "attr_type", &err_));
  EXPECT_EQ("mac-address", text(entry, "name"));
  EXPECT_EQ("MAC_ADDR", text(entry, "kind"));
  message_destroy(back);
  EXPECT_EQ(0u, err_);
}

// Once the word is set nothing changes any more, but what is created has to be destroyed all the
// same.
TEST_F(Messages, ErrorWordSticks) {
  uint32_t err = 77;
  zelui_kivo_db_filter_msg *message = make_filter(definitions_, &err);
  EXPECT_EQ(77u, err);
  ASSERT_NE(nullptr, message);
  EXPECT_EQ(nullptr, zelui_kivo_db_filter_msg_carried(message, &err));
  err = 0;
  char line[100];
  zelui_kivo_db_filter_msg_render(message, line, sizeof line, &err);
  EXPECT_STREQ("", line) << "nothing was set";
  zelui_kivo_db_filter_set_found(nullptr, 1, &err);
  EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err);
  zelui_kivo_db_filter_msg_destroy(message);
  zelui_kivo_db_filter_msg_destroy(nullptr);
  err = 0;
  EXPECT_EQ(nullptr, zelui_kivo_db_filter_msg_create(nullptr, &err));
  EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err);
}

TEST_F(Messages, FrameHasABound) {
  zelui_kivo_db_common_msg *message = zelui_kivo_db_common_msg_create(definitions_, &err_);
  zelui_kivo_db_common *header = zelui_kivo_db_common_msg_carried(message, &err_);
  const std::string half(40000, 'h');
  zelui_kivo_db_common_set_database(header, half.data(), half.size(), &err_);
  zelui_kivo_db_common_set_owner(header, half.data(), half.size(), &err_);
  ASSERT_EQ(0u, err_);
  EXPECT_EQ(MESSAGE_ERR_NO_ROOM,
            channel_client_send(client_, message, zelui_kivo_db_common_msg_marshal));
  zelui_kivo_db_common_msg_destroy(message);
  const std::string too_long(MESSAGE_FRAME_MAX, 'n');
  EXPECT_EQ(MESSAGE_ERR_NO_ROOM,
            channel_client_send(client_, too_long.c_str(), negative_acknowledgement_marshal));
  for (const auto marshal : {zelui_kivo_db_msg_marshal, show_kivo_database_request_marshal}) {
    EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, channel_client_send(client_, nullptr, marshal));
  }
}

// Making, marshaling, handling and reading with the n-th allocation failing, for each n: a status
// says so, nothing leaks, and the next one goes well.
TEST_F(Messages, NoMemoryAnywhere) {
  on_request_ = [](const show_kivo_database_request &, channel_connection *connection) {
    uint32_t err = 0;
    zelui_kivo_db_filter_msg *message =
        make_filter(channel_message_definitions(connection, nullptr), &err);
    if (message != nullptr && err == 0) {
      err = channel_marshal(connection, message, zelui_kivo_db_filter_msg_marshal);
    }
    zelui_kivo_db_filter_msg_destroy(message);
    if (err == 0) return;
    EXPECT_EQ(MESSAGE_ERR_NO_MEMORY, err);
    memory_faults::disarm();
    channel_nack(connection, "no memory");
  };
  message_destroy(exchange({}));
  const int64_t live = memory_faults::live_blocks;
  uint64_t nth = 0;
  bool reached = true;
  int refused = 0;
  while (reached) {
    memory_faults::arm(++nth);
    received_message *back = exchange({});
    reached = memory_faults::failed;
    memory_faults::disarm();
    if (back == nullptr) {
      EXPECT_TRUE(status_ == MESSAGE_ERR_NO_MEMORY || status_ == CHANNEL_ERR_NO_MEMORY) << status_;
    } else if (message_kind(back) == MESSAGE_NEGATIVE_ACKNOWLEDGEMENT) {
      ++refused;
    }
    message_destroy(back);
    // A reply that could not be read for lack of memory is gone with its frame.
    ASSERT_EQ(live, memory_faults::live_blocks) << nth;
  }
  EXPECT_GT(refused, 21);  // each entry of the list, and more
}

}  // namespace
