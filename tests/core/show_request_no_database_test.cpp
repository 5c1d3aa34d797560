// Requests in a process that has sessions, and no database yet: databases cannot be destroyed, so
// this is a program of its own.
#include "kivo/show_request.h"
#include "support/database_request.h"

namespace {

using namespace kivo_test;

TEST(ShowRequestWithoutDatabase, IsAnsweredWithEmptyContent) {
  reset_process();
  create_session();
  channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST,
                           dcx_show_kivo_database_request_command_handler);
  const Client client = memory_client();
  const struct {
    Ask request;
    std::string type, content;
  } rows[] = {
      {{.attr_info = true}, "0", "list: 21 entries"},
      // The session is found all the same; there is nothing to tell of it.
      {{.mac = kMac}, "3", "filter: '' '" + std::string(kMac) + "' 0, found 1, 21 entries"},
      {{.mac = "abcdef"}, "3", "filter: '' 'abcdef' 0, found 0, 21 entries"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(PLATFORM_OK, send_request(client, row.request));
    EXPECT_EQ((Lines{"start", "common: type " + row.type + ", records 0, attributes 21, '' of ''",
                     row.content, "commit"}),
              received(client));
  }
}

}  // namespace
