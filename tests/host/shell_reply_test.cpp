// What kivosh makes of replies: a daemon in the process says what a test wants.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

#include "daemon.h"
#include "showing.h"

namespace {

using namespace kivosh;
using Says = std::function<void(channel_connection *)>;

// ---- What a daemon can say

Says g_says;

template <message_marshal_fn marshal>
void bare(channel_connection *connection) {
  EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, nullptr, marshal));
}
const Says kStart = bare<show_kivo_database_resp_bundle_start_marshal>;
const Says kCommit = bare<show_kivo_database_resp_bundle_commit_marshal>;
const Says kAbort = bare<show_kivo_database_resp_bundle_abort_marshal>;

Says refusal(const std::string &text) {
  return [text](channel_connection *connection) { channel_nack(connection, text.c_str()); };
}

void common(channel_connection *connection) {
  uint32_t err = 0;
  auto *message =
      zelui_kivo_db_common_msg_create(channel_message_definitions(connection, nullptr), &err);
  auto *fields = zelui_kivo_db_common_msg_carried(message, &err);
  zelui_kivo_db_common_set_cmdtype(fields, 3, &err);
  zelui_kivo_db_common_set_records(fields, 4000000000, &err);
  zelui_kivo_db_common_set_attr_number(fields, 21, &err);
  zelui_kivo_db_common_set_database(fields, "ATTR_DB", 7, &err);
  zelui_kivo_db_common_set_owner(fields, "\x1b[2J", 4, &err);  // would clear the screen
  EXPECT_EQ(0u, err);
  EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, message, zelui_kivo_db_common_msg_marshal));
  zelui_kivo_db_common_msg_destroy(message);
}

// The session of a device, with these values, the rest padding.
Says session_of(const std::vector<std::string> &values, uint32_t found = 1) {
  return [=](channel_connection *connection) {
    const auto *definitions = channel_message_definitions(connection, nullptr);
    uint32_t err = 0;
    auto *mac = message_mac_create(definitions, &err);
    const uint8_t bytes[] = {0, 0x10, 0xa4, 0x23, 0x19, 0xc0};
    message_mac_set(mac, bytes, &err);
    auto *message = zelui_kivo_db_filter_msg_create(definitions, &err);
    auto *filter = zelui_kivo_db_filter_msg_carried(message, &err);
    zelui_kivo_db_filter_set_mac(filter, mac, &err);
    zelui_kivo_db_filter_set_found(filter, found, &err);
    for (uint32_t i = 0; i < 21; ++i) {
      auto *entry = zelui_kivo_db_filter_data_create(definitions, &err);
      const bool given = i < values.size();
      zelui_kivo_db_filter_data_set_attr_names(entry, given ? i : 0, &err);
      const std::string text = given ? values[i] : "";
      zelui_kivo_db_filter_data_set_attr_values(entry, text.data(), text.size(), &err);
      zelui_kivo_db_filter_append_filter_info(filter, entry, &err);
    }
    message_mac_destroy(mac);
    EXPECT_EQ(0u, err);
    EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, message, zelui_kivo_db_filter_msg_marshal));
    zelui_kivo_db_filter_msg_destroy(message);
  };
}

// The second value is cut within a character.
Says session(size_t n_values, uint32_t found = 1) {
  const std::vector<std::string> values = {"value 0", "caf\xc3", "value 2"};
  return session_of({values.begin(), values.begin() + static_cast<ptrdiff_t>(n_values)}, found);
}

void types(channel_connection *connection) {
  const auto *definitions = channel_message_definitions(connection, nullptr);
  uint32_t err = 0;
  auto *message = zelui_kivo_db_msg_create(definitions, &err);
  for (const uint32_t i : {0u, 1u, 0u}) {
    auto *entry = zelui_kivo_db_data_create(definitions, &err);
    zelui_kivo_db_data_set_attr_names(entry, i, &err);
    zelui_kivo_db_data_set_attr_types(entry, 8 * i, &err);
    zelui_kivo_db_append_db_info(zelui_kivo_db_msg_carried(message, &err), entry, &err);
  }
  EXPECT_EQ(0u, err);
  EXPECT_EQ(PLATFORM_OK, channel_marshal(connection, message, zelui_kivo_db_msg_marshal));
  zelui_kivo_db_msg_destroy(message);
}

Says all(std::vector<Says> parts) {
  return [parts = std::move(parts)](channel_connection *connection) {
    for (const Says &part : parts) part(connection);
  };
}
Says then_end(Says says) {
  return [says = std::move(says)](channel_connection *connection) {
    says(connection);
    channel_set_error(connection);
  };
}

// ---- Asking it

Reply reply_to(const Says &says, ReplyTo about) {
  g_says = says;
  channel_register_handler(
      MESSAGE_SHOW_KIVO_DATABASE_REQUEST,
      [](void *, void *, const channel_command *, channel_connection *connection, uint32_t) {
        g_says(connection);
        channel_finished(connection);
      });
  channel_client *client = nullptr;
  EXPECT_EQ(PLATFORM_OK, channel_client_open_memory(&client, nullptr));
  const std::unique_ptr<channel_client, decltype(&channel_client_close)> owned(
      client, channel_client_close);
  Question question;
  question.about = about;
  return exchange(*client, question, Patience(1));
}

std::string failure_of(const Says &says, ReplyTo about) {
  try {
    reply_to(says, about);
    return "";
  } catch (const DaemonFailure &failure) {
    return failure.what();
  }
}

TEST(ShellReply, IsTakenWholeOrNotAtAll) {
  const std::string nonsense = "the daemon's reply makes no sense";
  const std::string cut_off = "the daemon ended the connection before its reply was whole";
  const struct {
    const char *name;
    Says says;
    std::string failure;
  } rows[] = {
      {"whole", all({kStart, common, session(2), kCommit}), ""},
      {"refused at once", refusal("Not permitted."), "the daemon refused: Not permitted."},
      {"refused without a reason", refusal(""), "the daemon refused"},
      {"refused in control characters", refusal("\x1b[2J"), "the daemon refused: \\x1b[2J"},
      {"aborted", all({kStart, kAbort, refusal("no memory")}), "the daemon refused: no memory"},
      {"aborted before its start", all({kAbort, refusal("no room")}),
       "the daemon refused: no room"},
      {"aborted before its start, then nothing", then_end(kAbort), cut_off},
      {"aborted late", all({kStart, common, kAbort, refusal("late")}), "the daemon refused: late"},
      {"aborted without a reason", all({kStart, kAbort, kCommit}), nonsense},
      {"no commit", then_end(all({kStart, common, session(2)})), cut_off},
      {"nothing", then_end(all({})), cut_off},
      {"silence", all({kStart, common}), "the daemon does not answer"},
      {"no start", all({common, session(2), kCommit}), nonsense},
      {"two starts", all({kStart, kStart}), nonsense},
      {"no database", all({kStart, session(2), kCommit}), nonsense},
      {"commit alone", all({kStart, kCommit}), nonsense},
      {"two databases", all({kStart, common, common, kCommit}), nonsense},
      {"two sessions", all({kStart, common, session(2), session(2), kCommit}), nonsense},
      {"no session", all({kStart, common, kCommit}), "the daemon's reply lacks what was asked for"},
      {"the types instead", all({kStart, common, types, kCommit}),
       "the daemon's reply lacks what was asked for"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(row.failure, failure_of(row.says, ReplyTo::kMac)) << row.name;
  }
}

const Catalogue kCatalogue = {{1, "user-name", "VAR STR"}, {2, "domain", "VAR STR"}};

std::string table_of(const Reply &reply, const Catalogue &catalogue) {
  char *text = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  show_as_table(reply, catalogue, stream);
  std::fclose(stream);
  const std::string table(text, size);
  std::free(text);
  return table;
}

TEST(ShellReply, IsShownWithNamesAndWithoutPadding) {
  const Reply found = reply_to(all({kStart, common, session(3), kCommit}), ReplyTo::kMac);
  EXPECT_EQ(
      "Attribute   Value\n"
      "user-name   value 0\n"
      "domain      caf\\xc3\n"
      "position 2  value 2\n",
      table_of(found, kCatalogue));
  EXPECT_EQ(R"({
  "cmdtype": 3,
  "records": 4000000000,
  "attr_number": 21,
  "database": "ATTR_DB",
  "owner": "\u001b[2J",
  "mac": "00:10:a4:23:19:c0",
  "found": 1,
  "filter_info": [
    {
      "attr_names": 0,
      "attr_values": "value 0",
      "attr_type": 1,
      "name": "user-name",
      "kind": "VAR STR"
    },
    {
      "attr_names": 1,
      "attr_values": "caf)"
            "\xef\xbf\xbd"
            R"(",
      "attr_type": 2,
      "name": "domain",
      "kind": "VAR STR"
    },
    {
      "attr_names": 2,
      "attr_values": "value 2"
    }
  ]
})",
            as_json(found, kCatalogue));
  const Reply none = reply_to(all({kStart, common, session(0, 0), kCommit}), ReplyTo::kMac);
  EXPECT_FALSE(none.session->found);
  EXPECT_TRUE(none.session->values.empty());

  const Reply listed = reply_to(all({kStart, common, types, kCommit}), ReplyTo::kTypes);
  EXPECT_EQ(
      "Position  Attribute   Type  Kind\n"
      "0         user-name   1     VAR STR\n"
      "1         position 1        8\n",
      table_of(listed, {kCatalogue[0]}));
  const Reply database = reply_to(all({kStart, common, kCommit}), ReplyTo::kDatabase);
  EXPECT_EQ(
      "Database  Owner    Sessions\n"
      "ATTR_DB   \\x1b[2J  4000000000\n",
      table_of(database, {}));
}

// A reply has room for 25 bytes of a text and no text for some kinds.
TEST(ShellReply, IsShownWithWhatItCouldNotCarry) {
  const Catalogue catalogue = {{1, "user-name", "VAR STR"}, {9, "interface-name", "VAR STR"},
                               {10, "ipv6", "IPV6_ADDR"},   {687, "ipv6-prefix", "IPV6_ADDR"},
                               {1124, "class", "VAR BIN"},  {2, "domain", "VAR STR"}};
  const Reply reply = reply_to(all({kStart, common,
                                    session_of({std::string(24, 'a'), std::string(25, 'b'), "",
                                                "--- Data not found ---", "", "", ""}),
                                    kCommit}),
                               ReplyTo::kMac);
  EXPECT_EQ(
      "Attribute       Value\n"
      "user-name       aaaaaaaaaaaaaaaaaaaaaaaa\n"
      "interface-name  bbbbbbbbbbbbbbbbbbbbbbbbb (may be cut)\n"
      "ipv6            (not carried)\n"
      "ipv6-prefix     --- Data not found ---\n"
      "class           (not carried)\n"
      "domain\n"
      "position 6\n",
      table_of(reply, catalogue));
  const auto values = nlohmann::json::parse(as_json(reply, catalogue))["filter_info"];
  ASSERT_EQ(7u, values.size());
  EXPECT_EQ(std::string(24, 'a'), values[0]["attr_values"]);
  EXPECT_FALSE(values[0].contains("may_be_cut"));
  EXPECT_EQ(std::string(25, 'b'), values[1]["attr_values"]);
  EXPECT_EQ(true, values[1]["may_be_cut"]);
  EXPECT_TRUE(values[2]["attr_values"].is_null());
  EXPECT_EQ("--- Data not found ---", values[3]["attr_values"]);
  EXPECT_TRUE(values[4]["attr_values"].is_null());
  EXPECT_EQ("", values[5]["attr_values"]);
  EXPECT_EQ("", values[6]["attr_values"]);
}

TEST(ShellReply, SteersNoTerminal) {
  const std::string text = "\x01\x1b[2J\x7f\xc2\x80\xc2\x9b\xc2\xa0\xc3\x9b\xe2\x82\xac";
  const Reply reply = reply_to(all({kStart, common, session_of({text}), kCommit}), ReplyTo::kMac);
  const std::string json = as_json(reply, {});
  EXPECT_NE(std::string::npos, json.find(R"("\u0001\u001b[2J\u007f\u0080\u009b)"
                                         "\xc2\xa0\xc3\x9b\xe2\x82\xac\""))
      << json;
  // Nothing but its looks has changed.
  EXPECT_EQ(text, nlohmann::json::parse(json)["filter_info"][0]["attr_values"]);
  EXPECT_EQ(
      "Attribute   Value\n"
      "position 0  \\x01\\x1b[2J\\x7f\\xc2\\x80\\xc2\\x9b\\xc2\\xa0\xc3\x9b\xe2\x82\xac\n",
      table_of(reply, {}));
}

}  // namespace
