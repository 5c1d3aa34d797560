// The message set: what is made is rendered, travels and is read again, under the error word and
// when memory runs out. The replies of one kind stand for those that are made by the same means.
#include "platform/messages.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/channel_client.h"
#include "support/memory_faults.h"

namespace {

using namespace std::string_literals;
using Statuses = std::vector<uint32_t>;

constexpr uint8_t kMac[] = {0, 0x10, 0xa4, 0x23, 0x19, 0xc0};

// Two replies with every field set.
struct Replies {
  Replies(const message_definitions *definitions, uint32_t *err) {
    message_mac *mac = message_mac_create(definitions, err);
    message_mac_set(mac, kMac, err);
    filter = zelui_kivo_db_filter_msg_create(definitions, err);
    zelui_kivo_db_filter *found = zelui_kivo_db_filter_msg_carried(filter, err);
    zelui_kivo_db_filter_set_sess_id(found, "with \0 in it", 12, err);
    zelui_kivo_db_filter_set_mac(found, mac, err);
    zelui_kivo_db_filter_set_ipv4(found, UINT32_MAX, err);
    zelui_kivo_db_filter_set_found(found, 1, err);
    names = kivo_attributes_msg_create(definitions, err);
    for (uint32_t i = 0; i < 9; ++i) {
      zelui_kivo_db_filter_data *entry = zelui_kivo_db_filter_data_create(definitions, err);
      zelui_kivo_db_filter_data_set_attr_names(entry, i, err);
      zelui_kivo_db_filter_data_set_attr_values(entry, "\xff", 1, err);
      zelui_kivo_db_filter_append_filter_info(found, entry, err);
      if (*err != 0) zelui_kivo_db_filter_data_destroy(entry);
      kivo_attributes_msg_append(names, i, "mac-address", "MAC_ADDR", err);
    }
    message_mac_destroy(mac);
  }
  ~Replies() {
    zelui_kivo_db_filter_msg_destroy(filter);
    kivo_attributes_msg_destroy(names);
  }
  std::string rendered() const {
    uint32_t err = 0;
    char text[1000];
    zelui_kivo_db_filter_msg_render(filter, text, sizeof text, &err);
    return err == 0 ? text : "error";
  }
  uint32_t marshal(channel_connection *to) const {
    const uint32_t status = channel_marshal(to, filter, zelui_kivo_db_filter_msg_marshal);
    return status == 0 ? channel_marshal(to, names, kivo_attributes_msg_marshal) : status;
  }
  zelui_kivo_db_filter_msg *filter;
  kivo_attributes_msg *names;
};

// A peer in the process; its handler takes and gives what a test wants.
class Messages : public testing::Test {
 protected:
  Messages() {
    channel_client_open_memory(&client_, nullptr);
    definitions_ = channel_client_definitions(client_);
    channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST, handle);
    on_request_ = nullptr;
    exchange({});  // the codec sets itself up at its first use, for good
  }
  ~Messages() override { channel_client_close(client_); }

  received_message *receive() {
    received_message *back = nullptr;
    status_ = channel_client_receive(client_, &back);
    return back;
  }
  received_message *exchange(const show_kivo_database_request &request) {
    status_ = channel_client_send(client_, &request, show_kivo_database_request_marshal);
    return status_ == PLATFORM_OK ? receive() : nullptr;
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
};

// Fields, be they texts, numbers or lists; "-" for one that is not there.
std::string fields(const received_message *message, const std::vector<const char *> &names) {
  std::string shown;
  for (const char *name : names) {
    uint32_t errors[3] = {};
    size_t length = 7;
    const char *text = message_read_text(message, name, &length, &errors[0]);
    const uint32_t number = message_read_u32(message, name, &errors[1]);
    const uint32_t entries = message_list_size(message, name, &errors[2]);
    shown += errors[0] == 0 ? std::string(text, length) : "-"s.substr(length);
    if (errors[1] == 0 || number != 0) shown += std::to_string(number);
    if (errors[2] == 0 || entries != 0) shown += '[' + std::to_string(entries) + ']';
    for (const uint32_t err : errors) EXPECT_TRUE(err == 0 || err == MESSAGE_ERR_INVALID_ARG);
  }
  return shown;
}

TEST_F(Messages, AreReadAsTheyWereMade) {
  uint32_t err = 0;
  on_request_ = [&](const show_kivo_database_request &got, channel_connection *connection) {
    const Replies made(channel_message_definitions(connection, nullptr), &err);
    EXPECT_EQ(PLATFORM_OK, err + made.marshal(connection));
    EXPECT_EQ(0u, made.rendered().find("zelui_kivo_db_filter { sess_id: \"with \\000 in it\" mac"));
    EXPECT_EQ((Statuses{1, 2, 3, 4, 0x0100007f, 5}),
              (Statuses{got.attr_info, got.attr_info_blank, got.sess_id_present, got.ipv4_present,
                        got.ipv4, got.mac_present}));
    EXPECT_STREQ("a session", got.sess_id);
    uint8_t bytes[] = {1, 1, 1, 1, 1, 1};
    message_mac_read(got.mac, bytes, &err);
    EXPECT_EQ(std::string(6, '\0'), std::string(bytes, bytes + 6));
    EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err);  // promised, and not sent
  };
  received_message *back = exchange({1, 2, 3, "a session", 4, 0x0100007f, 5, nullptr});
  EXPECT_EQ("with \0 in it\0\x10\xa4\x23\x19\xc0-4294967295-1-[9]--"s,
            fields(back, {"sess_id", "mac", "ipv4", "found", "filter_info", "none", nullptr}));
  err = 0;
  const received_message *entry = message_list_entry(back, "filter_info", 8, &err);
  EXPECT_EQ("-8\xff", fields(entry, {"attr_names", "attr_values"}));
  EXPECT_EQ(0u, err + message_kind(entry) + message_kind(nullptr));
  EXPECT_EQ(nullptr, message_list_entry(back, "filter_info", 9, &err));
  EXPECT_EQ(MESSAGE_ERR_INVALID_ARG, err);
  EXPECT_EQ(0u, message_read_u32(back, "found", &err)) << "the word is set";
  EXPECT_STREQ("zelui_kivo_db_filter_msg", message_kind_name(message_kind(back)));
  message_destroy(back);
  err = 0;
  back = receive();
  entry = message_list_entry(back, "attributes", 8, &err);
  EXPECT_EQ("-8mac-addressMAC_ADDR", fields(entry, {"attr_type", "name", "kind"}));
  message_destroy(back);
  for (const uint32_t kind : {0u, 11u}) EXPECT_STREQ("unknown message", message_kind_name(kind));
}

// Once the word is set nothing changes any more, but creates create all the same.
TEST_F(Messages, HaveAnErrorWordThatSticksAndBounds) {
  uint32_t errors[8] = {77};
  const Replies made(definitions_, &errors[0]);
  EXPECT_EQ("", made.rendered());
  EXPECT_EQ(nullptr, zelui_kivo_db_filter_msg_carried(made.filter, &errors[0]));
  const Replies none(nullptr, &errors[1]);
  EXPECT_EQ(nullptr, none.filter);
  zelui_kivo_db_filter *filter = zelui_kivo_db_filter_msg_carried(made.filter, &errors[2]);
  const std::string text(MESSAGE_FRAME_MAX + 1, 'h');
  zelui_kivo_db_filter_set_sess_id(filter, nullptr, 0, &errors[2]);
  zelui_kivo_db_filter_set_sess_id(filter, text.data(), MESSAGE_FRAME_MAX, &errors[2]);
  zelui_kivo_db_filter_set_sess_id(filter, text.data(), text.size(), &errors[3]);
  zelui_kivo_db_filter_set_sess_id(filter, nullptr, 1, &errors[4]);
  zelui_kivo_db_filter_set_mac(filter, nullptr, &errors[5]);
  kivo_attributes_msg_append(made.names, 8, nullptr, "", &errors[6]);
  char line[20];
  zelui_kivo_db_filter_msg_render(made.filter, line, sizeof line, &errors[7]);
  EXPECT_STREQ("", line);
  constexpr uint32_t kInvalid = MESSAGE_ERR_INVALID_ARG;
  constexpr uint32_t kNoRoom = MESSAGE_ERR_NO_ROOM;
  EXPECT_EQ((Statuses{77, kInvalid, 0, kNoRoom, kInvalid, kInvalid, kInvalid, kNoRoom}),
            Statuses(errors, errors + 8));
  const auto send = [&](const void *message, message_marshal_fn marshal) {
    return channel_client_send(client_, message, marshal);
  };
  EXPECT_EQ((Statuses{kNoRoom, kNoRoom, kInvalid, kInvalid}),
            (Statuses{send(made.filter, zelui_kivo_db_filter_msg_marshal),
                      send(text.c_str() + 1, negative_acknowledgement_marshal),
                      send(nullptr, zelui_kivo_db_msg_marshal),
                      send(nullptr, show_kivo_database_request_marshal)}));
}

// Making, marshaling, handling and reading with the first allocation failing, then the second, and
// so on: a status says so, nothing leaks, and the next one goes well.
TEST_F(Messages, LeaveNothingBehindWhenMemoryRunsOut) {
  on_request_ = [](const show_kivo_database_request &, channel_connection *connection) {
    uint32_t err = 0;
    {
      const Replies made(channel_message_definitions(connection, nullptr), &err);
      if (err == 0) err = made.marshal(connection);
    }
    if (err == 0) return;
    EXPECT_EQ(MESSAGE_ERR_NO_MEMORY, err);
    memory_faults::disarm();
    channel_nack(connection, "no memory");
  };
  int64_t live = 0;
  int refused = 0;
  for (uint64_t nth = 1000, failed = 1; failed != 0; nth = nth == 1000 ? 1 : nth + 1) {
    memory_faults::arm(nth);
    received_message *back = exchange({});
    failed = memory_faults::disarm() || nth == 1000 ? 1 : 0;
    EXPECT_TRUE(back != nullptr || status_ == MESSAGE_ERR_NO_MEMORY ||
                status_ == CHANNEL_ERR_NO_MEMORY);
    for (back = back != nullptr ? back : receive(); back != nullptr; back = receive()) {
      refused += message_kind(back) == MESSAGE_NEGATIVE_ACKNOWLEDGEMENT ? 1 : 0;
      message_destroy(back);
    }
    if (nth == 1000) live = memory_faults::live_blocks;
    ASSERT_EQ(live, memory_faults::live_blocks) << nth;
  }
  EXPECT_LT(20, refused);  // each entry of the lists, and more
}

}  // namespace
