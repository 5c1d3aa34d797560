// A kivod that serves: every request gets its whole reply, however many there are and however many
// ask at once, and what it takes does not grow. With the sanitizers its exit status also says that
// nothing leaked.
#include <arpa/inet.h>
#include <sys/stat.h>

#include <array>
#include <fstream>
#include <memory>

#include "host/serving_kivod.h"
#include "platform/channel_client.h"

namespace {

// The address sanitizer keeps what was freed for a while.
#ifdef KIVO_SANITIZED
constexpr bool kKeepsFreedMemory = true;
#else
constexpr bool kKeepsFreedMemory = false;
#endif

using kivo_test::ServingKivod;
using Client = std::unique_ptr<channel_client, decltype(&channel_client_close)>;

const std::string kDay = KIVO_EXAMPLES_DIR "/accounting/accounting.log";

Client client(const ServingKivod &kivod) {
  channel_client *made = nullptr;
  EXPECT_EQ(PLATFORM_OK, channel_client_connect(kivod.socket().c_str(), 60000, &made));
  return {made, channel_client_close};
}

// Sessions that are live at the end of the day: each of these addresses is in one record of the
// log, a start, and its session is never stopped.
struct LiveSession {
  const char *address;
  const char *user;
};
constexpr std::array kLive = {
    LiveSession{"198.51.100.3", "carol@example.org"},
    LiveSession{"198.51.100.7", "host/pc-006.example.net"},
    LiveSession{"198.51.100.71", "sybil"},
    LiveSession{"198.51.100.105", "alice@example.net"},
    LiveSession{"198.51.100.139", "ivan@example.org"},
    LiveSession{"198.51.100.197", "oscar"},
    LiveSession{"198.51.100.250", "peggy@example.com"},
    LiveSession{"203.0.113.11", "alice@example.net"},
    LiveSession{"203.0.113.113", "peggy@example.com"},
    LiveSession{"203.0.113.176", "leo@campus.example.org"},
};
const LiveSession &live_session(size_t n) { return kLive[n % kLive.size()]; }

uint32_t number_of(const LiveSession &session) {
  uint32_t ipv4 = 0;
  EXPECT_EQ(1, inet_pton(AF_INET, session.address, &ipv4));
  return ipv4;
}

void ask_for(const Client &client, const LiveSession &session) {
  show_kivo_database_request request{};
  request.ipv4_present = 1;
  request.ipv4 = number_of(session);
  EXPECT_EQ(PLATFORM_OK,
            channel_client_send(client.get(), &request, show_kivo_database_request_marshal));
}

// Positions of the daemon's attributes.
constexpr uint32_t kUserName = 0;
constexpr uint32_t kIpv4Address = 3;

std::string value_at(const received_message *filter, uint32_t position) {
  uint32_t err = 0;
  const auto *entry = message_list_entry(filter, "filter_info", position, &err);
  EXPECT_EQ(position, message_read_u32(entry, "attr_names", &err));
  const char *text = message_read_text(entry, "attr_values", nullptr, &err);
  EXPECT_EQ(0u, err);
  return err == 0 ? text : "";
}

// Whether a message about a session tells this one.
void check_session(const received_message *filter, const LiveSession &session) {
  uint32_t err = 0;
  EXPECT_EQ(1u, message_read_u32(filter, "found", &err)) << session.address;
  EXPECT_EQ(number_of(session), message_read_u32(filter, "ipv4", &err));
  ASSERT_EQ(21u, message_list_size(filter, "filter_info", &err));
  EXPECT_EQ(0u, err);
  EXPECT_EQ(session.user, value_at(filter, kUserName)) << session.address;
  EXPECT_EQ(session.address, value_at(filter, kIpv4Address));
}

// Takes a whole reply about a session: four messages in their order.
void take_reply(const Client &client, const LiveSession &session) {
  const uint32_t expected[] = {MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_START,
                               MESSAGE_ZELUI_KIVO_DB_COMMON_MSG, MESSAGE_ZELUI_KIVO_DB_FILTER_MSG,
                               MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_COMMIT};
  for (const uint32_t kind : expected) {
    received_message *made = nullptr;
    ASSERT_EQ(PLATFORM_OK, channel_client_receive(client.get(), &made)) << session.address;
    const std::unique_ptr<received_message, decltype(&message_destroy)> message(made,
                                                                                message_destroy);
    ASSERT_EQ(kind, message_kind(made)) << session.address;
    uint32_t err = 0;
    if (kind == MESSAGE_ZELUI_KIVO_DB_COMMON_MSG) {
      EXPECT_EQ(255u, message_read_u32(made, "records", &err));
    } else if (kind == MESSAGE_ZELUI_KIVO_DB_FILTER_MSG) {
      check_session(made, session);
    }
    EXPECT_EQ(0u, err);
  }
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
    // Every other request over a connection of its own; both ways ask for every session.
    const Client own = n % 2 == 0 ? client(kivod) : Client(nullptr, channel_client_close);
    const Client &asking = own != nullptr ? own : steady;
    ask_for(asking, live_session(n / 2));
    take_reply(asking, live_session(n / 2));
  };
  for (uint32_t n = 0; n < 100 && !HasFailure(); ++n) ask(n);
  const size_t files_before = descriptors(kivod.pid());
  const size_t pages_before = resident_pages(kivod.pid());
  for (uint32_t n = 0; n < 1000 && !HasFailure(); ++n) ask(n);
  // One connection may be about to be closed.
  EXPECT_LE(descriptors(kivod.pid()), files_before + 1);
  if (!kKeepsFreedMemory) {
    EXPECT_LE(resident_pages(kivod.pid()), pages_before + 16);
  }
  EXPECT_EQ(0, kivod.stop(SIGTERM));
  EXPECT_FALSE(std::filesystem::exists(kivod.socket()));
}

TEST(KivodServe, AnswersFiftyClientsAtOnce) {
  ServingKivod kivod(kDay);
  std::vector<Client> clients;
  for (uint32_t i = 0; i < 50; ++i) clients.push_back(client(kivod));
  // All have asked, and three times, before the first one listens.
  for (int round = 0; round < 3; ++round) {
    for (uint32_t i = 0; i < 50; ++i) ask_for(clients[i], live_session(i));
  }
  for (int round = 0; round < 3; ++round) {
    for (uint32_t i = 0; i < 50; ++i) take_reply(clients[i], live_session(i));
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
