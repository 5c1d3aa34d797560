// A kivod that serves: every request gets its whole reply, however many there are and however many
// ask at once, and what it takes does not grow. With the sanitizers its exit status also says that
// nothing leaked.
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <memory>

#include "host/serving_kivod.h"
#include "platform/channel_client.h"

namespace {

using kivo_test::ServingKivod;
using Client = std::unique_ptr<channel_client, decltype(&channel_client_close)>;

const std::string kDay = KIVO_EXAMPLES_DIR "/accounting/accounting.log";

Client client(const ServingKivod &kivod) {
  channel_client *made = nullptr;
  EXPECT_EQ(PLATFORM_OK, channel_client_connect(kivod.socket().c_str(), 60000, &made));
  return {made, channel_client_close};
}

void ask_for_address(const Client &client, uint32_t last_byte) {
  show_kivo_database_request request{};
  request.ipv4_present = 1;
  const uint8_t address[4] = {10, 1, 0, static_cast<uint8_t>(last_byte)};
  std::memcpy(&request.ipv4, address, sizeof address);
  EXPECT_EQ(PLATFORM_OK,
            channel_client_send(client.get(), &request, show_kivo_database_request_marshal));
}

// Takes a whole reply about one address: four messages in their order, the address among them.
bool take_reply(const Client &client, uint32_t last_byte) {
  const uint32_t expected[] = {MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_START,
                               MESSAGE_ZELUI_KIVO_DB_COMMON_MSG, MESSAGE_ZELUI_KIVO_DB_FILTER_MSG,
                               MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_COMMIT};
  for (const uint32_t kind : expected) {
    received_message *message = nullptr;
    if (channel_client_receive(client.get(), &message) != PLATFORM_OK) return false;
    uint32_t err = 0;
    const bool right = message_kind(message) == kind &&
                       (kind != MESSAGE_ZELUI_KIVO_DB_COMMON_MSG ||
                        message_read_u32(message, "records", &err) == 255) &&
                       (kind != MESSAGE_ZELUI_KIVO_DB_FILTER_MSG ||
                        (message_read_u32(message, "ipv4", &err) >> 24 == last_byte &&
                         message_list_size(message, "filter_info", &err) == 21));
    message_destroy(message);
    if (!right || err != 0) return false;
  }
  return true;
}

size_t descriptors(pid_t pid) {
  const std::filesystem::directory_iterator files("/proc/" + std::to_string(pid) + "/fd");
  return static_cast<size_t>(std::distance(begin(files), end(files)));
}

size_t resident_pages(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
  size_t whole = 0;
  size_t resident = 0;
  file >> whole >> resident;
  EXPECT_GT(resident, 0u);
  return resident;
}

TEST(KivodServe, AnswersAThousandRequestsInARow) {
  ServingKivod kivod(kDay);
  const Client steady = client(kivod);
  const auto ask = [&](uint32_t n) {
    // Every other request over a connection of its own.
    const Client own = n % 2 == 0 ? client(kivod) : Client(nullptr, channel_client_close);
    const Client &asking = own != nullptr ? own : steady;
    ask_for_address(asking, n % 256);
    ASSERT_TRUE(take_reply(asking, n % 256)) << n;
  };
  for (uint32_t n = 0; n < 100; ++n) ask(n);
  const size_t files_before = descriptors(kivod.pid());
  [[maybe_unused]] const size_t pages_before = resident_pages(kivod.pid());
  for (uint32_t n = 0; n < 1000; ++n) ask(n);
  // One connection may be about to be closed.
  EXPECT_LE(descriptors(kivod.pid()), files_before + 1);
#ifndef KIVO_SANITIZED  // whose memory grows by itself
  EXPECT_LE(resident_pages(kivod.pid()), pages_before + 16);
#endif
  EXPECT_EQ(0, kivod.stop(SIGTERM));
  EXPECT_FALSE(std::filesystem::exists(kivod.socket()));
}

TEST(KivodServe, AnswersFiftyClientsAtOnce) {
  ServingKivod kivod(kDay);
  std::vector<Client> clients;
  for (uint32_t i = 0; i < 50; ++i) clients.push_back(client(kivod));
  // All have asked, and three times, before the first one listens.
  for (int round = 0; round < 3; ++round) {
    for (uint32_t i = 0; i < 50; ++i) ask_for_address(clients[i], i);
  }
  for (int round = 0; round < 3; ++round) {
    for (uint32_t i = 0; i < 50; ++i) EXPECT_TRUE(take_reply(clients[i], i)) << i;
  }
  EXPECT_EQ(0, kivod.stop(SIGINT));
}

TEST(KivodServe, StartsEmptyAndReplacesWhatAKilledOneLeft) {
  std::string left;
  {
    ServingKivod killed("");
    left = killed.socket();
    EXPECT_EQ(-1, killed.stop(SIGKILL));
    EXPECT_TRUE(std::filesystem::exists(left));
    ServingKivod next("");
    EXPECT_EQ(left, next.socket());
    const Client asking = client(next);
    const show_kivo_database_request request{};
    EXPECT_EQ(PLATFORM_OK,
              channel_client_send(asking.get(), &request, show_kivo_database_request_marshal));
    received_message *message = nullptr;
    ASSERT_EQ(PLATFORM_OK, channel_client_receive(asking.get(), &message));
    message_destroy(message);
    ASSERT_EQ(PLATFORM_OK, channel_client_receive(asking.get(), &message));
    uint32_t err = 0;
    EXPECT_EQ(0u, message_read_u32(message, "records", &err));
    EXPECT_STREQ("ATTR_DB", message_read_text(message, "database", nullptr, &err));
    EXPECT_STREQ("kivod", message_read_text(message, "owner", nullptr, &err));
    EXPECT_EQ(0u, err);
    message_destroy(message);
    EXPECT_EQ(0, next.stop(SIGTERM));
  }
}

}  // namespace
