// Asking for the session database as a client does, and the messages of the reply in words.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/channel_client.h"
#include "support/process.h"

namespace kivo_test {

using Lines = std::vector<std::string>;
using Client = std::unique_ptr<channel_client, decltype(&channel_client_close)>;

// A filter that is given is present in the request.
struct Ask {
  bool attr_info = false;
  bool attr_info_blank = false;
  std::optional<std::string> sess_id = {};
  std::optional<std::string> mac = {};  // of 6 bytes; any other is asked for, and not sent
  std::optional<uint32_t> ipv4 = {};
};

inline uint32_t send_request(const Client &client, const Ask &ask) {
  show_kivo_database_request request{};
  request.attr_info = ask.attr_info;
  request.attr_info_blank = ask.attr_info_blank;
  request.sess_id_present = ask.sess_id.has_value();
  ask.sess_id.value_or("").copy(request.sess_id, MESSAGE_SESS_ID_SIZE - 1);
  request.ipv4_present = ask.ipv4.has_value();
  request.ipv4 = ask.ipv4.value_or(0);
  request.mac_present = ask.mac.has_value();
  uint32_t err = 0;
  const std::unique_ptr<message_mac, decltype(&message_mac_destroy)> mac(
      message_mac_create(channel_client_definitions(client.get()), &err), message_mac_destroy);
  if (ask.mac.value_or("").size() == MESSAGE_MAC_SIZE) {
    message_mac_set(mac.get(), reinterpret_cast<const uint8_t *>(ask.mac->data()), &err);
    request.mac = mac.get();
  }
  EXPECT_EQ(0u, err);
  return channel_client_send(client.get(), &request, show_kivo_database_request_marshal);
}

// A received message, or an entry of its list, by the names of its fields.
class Reading {
 public:
  explicit Reading(const received_message *message) : message_(message) {}

  std::string number(const char *field) const {
    uint32_t err = 0;
    const uint32_t value = message_read_u32(message_, field, &err);
    EXPECT_EQ(0u, err) << field;
    return std::to_string(value);
  }
  std::string text(const char *field) const {
    uint32_t err = 0;
    size_t length = 0;
    const char *value = message_read_text(message_, field, &length, &err);
    EXPECT_EQ(0u, err) << field;
    return {value, length};
  }
  // How many entries there are, and those that are not blank: their position, name and content.
  template <typename Content>
  std::string entries(const char *list, Content &&content) const {
    uint32_t err = 0;
    const uint32_t n = message_list_size(message_, list, &err);
    std::string words = std::to_string(n) + " entries";
    for (uint32_t i = 0; i < n; ++i) {
      const Reading entry(message_list_entry(message_, list, i, &err));
      const std::string name = entry.number("attr_names");
      const std::string value = content(entry);
      if (name == "0" && (value.empty() || value == "0")) continue;
      words += " " + std::to_string(i) + ":" + name + "=" + value;
    }
    EXPECT_EQ(0u, err);
    return words;
  }

 private:
  const received_message *message_;
};

// As "commit", "nack: TEXT", "list: 21 entries 1:1=8".
inline std::string in_words(const received_message *message) {
  const Reading read(message);
  switch (message_kind(message)) {
    case MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_START:
      return "start";
    case MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_COMMIT:
      return "commit";
    case MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_ABORT:
      return "abort";
    case MESSAGE_NEGATIVE_ACKNOWLEDGEMENT:
      return "nack: " + read.text("text");
    case MESSAGE_ZELUI_KIVO_DB_COMMON_MSG:
      return "common: type " + read.number("cmdtype") + ", records " + read.number("records") +
             ", attributes " + read.number("attr_number") + ", '" + read.text("database") +
             "' of '" + read.text("owner") + "'";
    case MESSAGE_ZELUI_KIVO_DB_FILTER_MSG:
      return "filter: '" + read.text("sess_id") + "' '" + read.text("mac") + "' " +
             read.number("ipv4") + ", found " + read.number("found") + ", " +
             read.entries("filter_info",
                          [](const Reading &entry) { return entry.text("attr_values"); });
    case MESSAGE_ZELUI_KIVO_DB_MSG:
      return "list: " + read.entries("db_info", [](const Reading &entry) {
        return entry.number("attr_types");
      });
    default:
      return message_kind_name(message_kind(message));
  }
}

// Every message that waits for the client.
inline Lines received(const Client &client) {
  Lines lines;
  received_message *message = nullptr;
  while (channel_client_receive(client.get(), &message) == PLATFORM_OK) {
    lines.push_back(in_words(message));
    message_destroy(message);
  }
  return lines;
}

// A client inside the process, and the connection that its requests arrive on.
inline Client memory_client(channel_connection **connection = nullptr) {
  channel_client *client = nullptr;
  EXPECT_EQ(PLATFORM_OK, channel_client_open_memory(&client, connection));
  return {client, channel_client_close};
}

}  // namespace kivo_test
