// The answer to a show-database request, as a client receives it, inside the process and over a
// socket. The same messages must come on both.
#include "kivo/show_request.h"

#include <poll.h>
#include <unistd.h>

#include <filesystem>

#include "platform/channel_server.h"
#include "support/database_request.h"

namespace {

using namespace kivo_test;

enum class Transport { kMemory, kSocket };

// Asks on a connection of its own and returns all that came until it ended.
Lines ask(Transport transport, const Ask &request) {
  if (transport == Transport::kMemory) {
    const Client client = memory_client();
    EXPECT_EQ(PLATFORM_OK, send_request(client, request));
    return received(client);
  }
  const auto folder =
      std::filesystem::path(testing::TempDir()) / ("show_request." + std::to_string(getpid()));
  std::filesystem::create_directory(folder);
  channel_server *server = nullptr;
  channel_client *made = nullptr;
  const std::string path = folder / "sock";
  EXPECT_EQ(PLATFORM_OK, channel_server_open(path.c_str(), nullptr, 0, &server));
  EXPECT_EQ(PLATFORM_OK, channel_client_connect(path.c_str(), 10000, &made));
  const Client client(made, channel_client_close);
  EXPECT_EQ(PLATFORM_OK, send_request(client, request));
  pollfd ready = {channel_server_fd(server), POLLIN, 0};
  while (poll(&ready, 1, 0) == 1) channel_server_process(server);
  channel_server_close(server);  // what was written stays to be received
  std::filesystem::remove_all(folder);
  return received(client);
}

class ShowRequest : public testing::TestWithParam<Transport> {
 protected:
  ShowRequest() {
    reset_process();
    create_session();
    channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST,
                             dcx_show_kivo_database_request_command_handler);
  }
};

INSTANTIATE_TEST_SUITE_P(, ShowRequest, testing::Values(Transport::kMemory, Transport::kSocket),
                         [](const auto &transport) {
                           return transport.param == Transport::kMemory ? "Memory" : "Socket";
                         });

TEST_P(ShowRequest, IsAnsweredByItsFirstFilterElseByItsListElseByTheDatabaseAlone) {
  create_database(1, {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR},
                      {AAA_ATTR_IPV4_ADDRESS, 1, KIVO_DATA_TYPE_IPV4_ADDR},
                      {AAA_ATTR_MAC_ADDRESS, 0, KIVO_DATA_TYPE_MAC_ADDR},
                      {AAA_ATTR_AUDIT_SESSION_ID, 5, KIVO_DATA_TYPE_SESN_GUID},
                      {AAA_ATTR_START_TIME, 6, KIVO_DATA_TYPE_INT64},
                      {700, 6, KIVO_DATA_TYPE_INT32},
                      {687, 6, KIVO_DATA_TYPE_IPV6_ADDR},
                      {601, 6, KIVO_DATA_TYPE_VAR_BIN}});
  for (uint32_t type : {687u, 601u}) {  // kinds without a text
    auth_mgr_idc_add_or_update_attr(find_record(kSession)->ctxt, type, "abc", 3, nullptr);
  }
  const std::string none = "--- Data not found ---";
  const std::string values = "21 entries 0:0=" + none +
                             " 1:1=192.0.2.7 2:2=0211.2233.4455 3:3=" + kAuditId + " 4:4=" + none +
                             " 5:5=" + none + " 6:6= 7:7=";
  const std::string types = "list: 21 entries 0:0=8 1:1=2 2:2=4 3:3=5 4:4=1 5:5=0 6:6=3 7:7=7";
  const std::string id = kAuditId;
  const std::string word = std::to_string(kIpv4Word);
  const struct {
    const char *name;
    Ask request;
    char type;
    Lines content;
  } rows[] = {
      {"nothing", {}, '5', {}},
      {"list", {.attr_info = true}, '0', {types}},
      {"blank list", {.attr_info_blank = true}, '1', {"list: 21 entries"}},
      {"both lists", {.attr_info = true, .attr_info_blank = true}, '1', {types}},
      {"id", {.sess_id = id}, '2', {"filter: '" + id + "' '' 0, found 1, " + values}},
      {"long id",
       {.sess_id = id + std::string(400, 'x')},
       '2',
       {"filter: '" + id + std::string(400, 'x') + "' '' 0, found 1, " + values}},
      {"unknown id", {.sess_id = "?"}, '2', {"filter: '?' '' 0, found 0, 21 entries"}},
      {"MAC", {.mac = kMac}, '3', {"filter: '' '" + std::string(kMac) + "' 0, found 1, " + values}},
      {"unknown MAC", {.mac = "abcdef"}, '3', {"filter: '' 'abcdef' 0, found 0, 21 entries"}},
      {"IPv4", {.ipv4 = kIpv4Word}, '4', {"filter: '' '' " + word + ", found 1, " + values}},
      {"unknown IPv4", {.ipv4 = 1}, '4', {"filter: '' '' 1, found 0, 21 entries"}},
      {"id before all",
       {.attr_info = true, .attr_info_blank = true, .sess_id = "?", .mac = kMac, .ipv4 = kIpv4Word},
       '2',
       {"filter: '?' '' 0, found 0, 21 entries"}},
      {"MAC before IPv4 and lists",
       {.attr_info = true, .attr_info_blank = true, .mac = "abcdef", .ipv4 = kIpv4Word},
       '3',
       {"filter: '' 'abcdef' 0, found 0, 21 entries"}},
      {"IPv4 before lists",
       {.attr_info = true, .attr_info_blank = true, .ipv4 = 1},
       '4',
       {"filter: '' '' 1, found 0, 21 entries"}},
  };
  for (const auto &row : rows) {
    Lines expected = {"start", std::string("common: type ") + row.type +
                                   ", records 1, attributes 21, 'ATTR_DB' of 'owner'"};
    expected.insert(expected.end(), row.content.begin(), row.content.end());
    expected.emplace_back("commit");
    EXPECT_EQ(expected, ask(GetParam(), row.request)) << row.name;
  }
}

TEST_P(ShowRequest, HasRoomForTwentyOneOfMoreAttributeTypes) {
  std::vector<kivo_attr_config> config;
  for (uint32_t i = 0; i < 25; ++i) config.push_back({700 + i, 0, KIVO_DATA_TYPE_VAR_STR});
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  kivo_db *db = nullptr;
  const std::string name(31, 'o');
  ASSERT_EQ(0u, kivo_create_database("ATTR_DB", name.c_str(), &client, config.data(), 25, &db));
  std::string types = "list: 21 entries";
  for (int i = 0; i < 21; ++i) types += " " + std::to_string(i) + ":" + std::to_string(i) + "=8";
  EXPECT_EQ((Lines{"start", "common: type 0, records 1, attributes 21, 'ATTR_DB' of '" + name + "'",
                   types, "commit"}),
            ask(GetParam(), {.attr_info = true}));
}

}  // namespace
