// What kivosh makes of replies: a daemon in the process says what a test wants.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

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
      {"refused in control characters", refusal("\x1b[2J"), "the daemon refused: \x1b[2J"},
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
  EXPECT_EQ(
      R"({"cmdtype":3,"records":4000000000,"attr_number":21,"database":"ATTR_DB","owner":"\u001b[2J",)"
      R"("mac":"00:10:a4:23:19:c0","found":1,"filter_info":[)"
      R"({"attr_names":0,"attr_values":"value 0","attr_type":1,"name":"user-name","kind":"VAR STR"},)"
      R"({"attr_names":1,"attr_values":{"hex":"636166c3"},"attr_type":2,"name":"domain",)"
      R"("kind":"VAR STR"},)"
      R"({"attr_names":2,"attr_values":"value 2"}]})",
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

// Texts in a reply, which has 25 bytes for each: as the table shows them, and as JSON does.
TEST(ShellReply, IsReadByTheKindsOfItsValues) {
  const std::string absent = "--- Data not found ---", b22(22, 'b');
  const std::string null = "null,\"no_value\":";
  const struct {
    uint32_t type;
    const char *kind;
    std::string text, cell, json;
  } rows[] = {
      {1, "VAR STR", "", "", R"("")"},
      {1, "VAR STR", absent, absent, null + R"("absent")"},
      {1, "VAR STR", b22 + "cd", b22 + "cd", '"' + b22 + R"(cd")"},
      {1, "VAR STR", b22 + "cde", b22 + "cde (may be cut)",
       '"' + b22 + R"(cde","may_be_cut":true)"},
      // Ends within a character; ends in bytes that begin none.
      {1, "VAR STR", b22 + "\xf0\x9f\x98", b22 + " (may be cut)",
       '"' + b22 + R"(","may_be_cut":true)"},
      {1, "VAR STR", b22 + "\xed\xa0\x80", b22 + "\\xed\\xa0\\x80 (may be cut)",
       R"({"hex":"62626262626262626262626262626262626262626262eda080"},"may_be_cut":true)"},
      {6, "INT 32", "0x0000000f", "15", "15"},
      {221, "INT 32", "0xFFFFFFFF", "4294967295", "4294967295"},
      {6, "INT 32", "0x00000000f", "0x00000000f", null + R"("unreadable","text":"0x00000000f")"},
      {6, "INT 32", absent, absent, null + R"("absent")"},
      {18, "INT 64", "0x               7", "7", "7"},
      {18, "INT 64", "0x18446744073709551615", "18446744073709551615", "18446744073709551615"},
      {18, "INT 64", "0x  ", "0x \\x20", null + R"("unreadable","text":"0x  ")"},
      {18, "INT 64", "0x00000000000000000000001", "0x00000000000000000000001 (may be cut)",
       null + R"("unreadable","text":"0x00000000000000000000001","may_be_cut":true)"},
      {13, "INT 64", "0x       951782399", "2000-02-28T23:59:59Z", R"("2000-02-28T23:59:59Z")"},
      {12, "INT 64", "0x    253402300799", "9999-12-31T23:59:59Z", R"("9999-12-31T23:59:59Z")"},
      {12, "INT 64", "0x    253402300800", "253402300800", "253402300800"},
      {30, "POINTER", "0x              10", "10", "10"},
      {10, "IPV6_ADDR", "", "(not carried)", null + R"("not carried")"},
      {10, "IPV6_ADDR", absent, absent, null + R"("absent")"},
      {22, "VAR BIN", "", "(not carried)", null + R"("not carried")"},
      // An external identity is kept where replies do not look.
      {1124, "VAR BIN", absent, "(not carried)", null + R"("not carried")"},
      // Steers no terminal, and is what it was.
      {1, "VAR STR", "\x1b\x7f\u009b\u202e\U000e0041\\\u00e9",
       "\\x1b\\x7f\\xc2\\x9b\\xe2\\x80\\xae\\xf3\\xa0\\x81\\x81\\\\\u00e9",
       R"("\u001b\u007f\u009b\u202e\udb40\udc41\\\u00e9")"},
  };
  for (const auto &row : rows) {
    const Reply reply =
        reply_to(all({kStart, common, session_of({row.text}), kCommit}), ReplyTo::kMac);
    const Catalogue catalogue = {{row.type, "a", row.kind}};
    EXPECT_EQ("Attribute  Value\na" + (row.cell.empty() ? "" : "          " + row.cell) + "\n",
              table_of(reply, catalogue));
    const std::string json = as_json(reply, catalogue);
    EXPECT_NE(json.npos, json.find(R"("attr_values":)" + row.json + R"(,"attr_type":)")) << json;
  }
}

}  // namespace
