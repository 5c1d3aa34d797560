// The life of sessions: what starts, interim updates, stops and restarts of access servers leave in
// the database. Events are read from log lines; what is stored is read from the record store.
#include "sessions/session_table.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host_trace.h"
#include "kivo/records.h"
#include "kivo/shadow_db.h"
#include "log_events.h"
#include "platform/attrdb.h"
#include "sessions/session_database.h"
#include "support/process.h"
#include "support/trace_log.h"

// Stand in for the platform's attribute lists and the library's label sets.
static bool lists_fail = false;

extern "C" uint32_t aaa_list_alloc(uint32_t *handle) noexcept {
  static const auto real =
      reinterpret_cast<decltype(&aaa_list_alloc)>(dlsym(RTLD_NEXT, "aaa_list_alloc"));
  return lists_fail ? AAA_ERR_NO_MEMORY : real(handle);
}

extern "C" uint32_t kivo_index_list_create(kivo_index_list **list) noexcept {
  static const auto real = reinterpret_cast<decltype(&kivo_index_list_create)>(
      dlsym(RTLD_NEXT, "kivo_index_list_create"));
  return lists_fail ? KIVO_INDEX_LIST_NO_MEMORY : real(list);
}

// Stands in for the attribute service's write, which the library calls for every stored value.
static int writes_until_failure = 0;  // 0 is never

extern "C" uint32_t auth_mgr_idc_add_or_update_attr(auth_ctxt *ctxt, uint32_t type,
                                                    const void *value, uint32_t size,
                                                    uint32_t *changed) noexcept {
  using Write = uint32_t (*)(auth_ctxt *, uint32_t, const void *, uint32_t, uint32_t *);
  static const auto real =
      reinterpret_cast<Write>(dlsym(RTLD_NEXT, "auth_mgr_idc_add_or_update_attr"));
  if (writes_until_failure != 0 && --writes_until_failure == 0) return AAA_ERR_NO_MEMORY;
  return real(ctxt, type, value, size, changed);
}

namespace {

using kivo_test::bytes_of;
using kivod::Outcome;
using namespace std::string_literals;
using Labels = std::vector<uint32_t>;

const std::string kServer = "\nNAS-IP-Address = 192.0.2.11";
const std::string kOther = "\nNAS-IP-Address = 192.0.2.12";
const std::string kTime = "\nEvent-Timestamp = 1700000000";  // 0x6553f100

std::string start(const std::string &id) {
  return "Acct-Status-Type = Start\nAcct-Session-Id = " + id;
}
std::string interim(const std::string &id) {
  return "Acct-Status-Type = Interim-Update\nAcct-Session-Id = " + id;
}
std::string stop(const std::string &id) {
  return "Acct-Status-Type = Stop\nAcct-Session-Id = " + id;
}

kivo_db *database() {
  kivo_test::start_process();
  static kivo_db *const db = kivod::open_session_database();
  return db;
}

class Sessions : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(nullptr, database());
    kivo_test::reset_process();
  }

  Outcome apply(const std::string &lines) { return table_.apply(events_.read(lines)); }

  static std::string stored(uint32_t label, uint32_t type) {
    const std::vector<uint8_t> bytes = kivo_test::stored_bytes(label, type);
    return {bytes.begin(), bytes.end()};
  }

  // The labels of the sessions that have a value, through the indexes.
  static Labels having(uint32_t type, const std::string &value) {
    kivo_index_list *list = nullptr;
    uint32_t count = 0;
    Labels labels;
    EXPECT_EQ(0u, kivo_index_list_create(&list));
    EXPECT_EQ(0u, kivo_match_labels_by_attr(database(), type, value.data(),
                                            static_cast<uint32_t>(value.size()), &list, &count));
    uint32_t cursor = 0;
    while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
    kivo_index_list_free(list);
    return labels;
  }

  // The Acct-Session-Ids of the live sessions in their order.
  static std::string live() {
    std::string ids;
    attrdb_walk_all_records(
        [](attrdb_record *record, void *text) {
          *static_cast<std::string *>(text) += stored(record->label, AAA_ATTR_SESSION_ID);
          return PLATFORM_OK;
        },
        &ids);
    std::ranges::sort(ids);
    return ids;
  }

  // The identities of a session's class, "subtype:bytes", the one written last first.
  static std::vector<std::string> classes(uint32_t label) {
    const attrdb_record *record = kivo_test::find_record(label);
    const shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(record->ctxt);
    std::vector<std::string> found;
    for (const auto *entry = shadow->attr_lists[0]; entry != nullptr; entry = entry->next) {
      found.push_back(
          std::to_string(entry->subtype) + ":" +
          std::string(reinterpret_cast<const char *>(entry->value) + 2, entry->length - 2u));
    }
    return found;
  }

  kivo_test::LogEvents events_;
  kivod::SessionTable table_{database()};
};

TEST_F(Sessions, BeginWithWhatTheServerSaysAndWhatTheDaemonAdds) {
  ASSERT_EQ(Outcome::kStarted, apply(start("1") + kServer + kTime + "\nNAS-Port-Id = Gi1/0/1"));
  EXPECT_EQ(1u, attrdb_get_total_sessions());
  ASSERT_EQ(Labels{1}, having(AAA_ATTR_SESSION_ID, "1"));
  EXPECT_EQ("\xc0\0\2\x0b"s, stored(1, AAA_ATTR_ACCESS_SERVER_ADDRESS));
  EXPECT_EQ(bytes_of(uint64_t{1700000000}), stored(1, AAA_ATTR_START_TIME));
  EXPECT_EQ(bytes_of(uint64_t{1700000000}), stored(1, AAA_ATTR_UPDATE_TIME));
  EXPECT_EQ("C000020B000000016553F100", stored(1, AAA_ATTR_AUDIT_SESSION_ID));
  const std::string interface = stored(1, AAA_ATTR_INTERFACE_ID);
  ASSERT_EQ(4u, interface.size());
  EXPECT_NE(bytes_of(uint32_t{0}), interface);
  uint32_t number = 0;
  std::memcpy(&number, interface.data(), sizeof(number));
  EXPECT_EQ(std::to_string(number), stored(1, AAA_ATTR_INTERFACE));
}

TEST_F(Sessions, ThatAreStartedAgainOnlyChange) {
  const std::string audit = "\nAcct-Multi-Session-Id = 000000016AFAAC1F00000001";
  ASSERT_EQ(Outcome::kStarted, apply(start("1") + kServer + kTime + audit + "\nUser-Name = a"));
  ASSERT_EQ(Outcome::kUpdated,
            apply(start("1") + kServer + "\nEvent-Timestamp = 1700000060\nUser-Name = b"));
  EXPECT_EQ(1u, attrdb_get_total_sessions());
  EXPECT_EQ(Labels{}, having(AAA_ATTR_USER_NAME, "a"));
  EXPECT_EQ(Labels{1}, having(AAA_ATTR_USER_NAME, "b"));
  EXPECT_EQ(bytes_of(uint64_t{1700000000}), stored(1, AAA_ATTR_START_TIME));
  EXPECT_EQ(bytes_of(uint64_t{1700000060}), stored(1, AAA_ATTR_UPDATE_TIME));
  EXPECT_EQ("000000016AFAAC1F00000001", stored(1, AAA_ATTR_AUDIT_SESSION_ID));
}

TEST_F(Sessions, OfWhichTheStartWasLostBeginWithAnInterimUpdate) {
  const struct {
    const char *session_time;
    uint64_t start_time;
  } table[] = {{"3600", 1699996400}, {"0", 1700000000}, {"4000000000", 0}};
  for (const auto &row : table) {
    ASSERT_EQ(Outcome::kStarted, apply(interim(row.session_time) + kServer + kTime +
                                       "\nAcct-Session-Time = " + row.session_time));
    const Labels labels = having(AAA_ATTR_SESSION_ID, row.session_time);
    ASSERT_EQ(1u, labels.size());
    EXPECT_EQ(bytes_of(row.start_time), stored(labels[0], AAA_ATTR_START_TIME));
  }
}

TEST_F(Sessions, LoseWhatAnUpdateDoesNotNameAnyMore) {
  const struct {
    const char *line;
    uint32_t type;
  } table[] = {
      {"User-Name = a@example.net", AAA_ATTR_USER_NAME},
      {"User-Name = a@example.net", AAA_ATTR_DOMAIN},
      {"Calling-Station-Id = 00005e005301", AAA_ATTR_MAC_ADDRESS},
      {"Calling-Station-Id = 00005e005301", AAA_ATTR_CALLING_STATION},
      {"Called-Station-Id = 02005e0053f0", AAA_ATTR_CALLED_STATION},
      {"Framed-IP-Address = 198.51.100.7", AAA_ATTR_IPV4_ADDRESS},
      {"Framed-IPv6-Address = 2001:db8::1", AAA_ATTR_IPV6_ADDRESSES},
      {"Framed-IPv6-Prefix = 2001:db8::/64", AAA_ATTR_IPV6_PREFIX},
      {"NAS-Port = 7", AAA_ATTR_PORT},
      {"NAS-Port = 7", AAA_ATTR_INTERFACE_ID},
      {"NAS-Port-Id = Gi1/0/7", AAA_ATTR_INTERFACE},
      {"NAS-Port-Id = Gi1/0/7", AAA_ATTR_INTERFACE_NAME},
      {"NAS-Port-Type = Ethernet", AAA_ATTR_PORT_TYPE},
      {"Acct-Authentic = Local", AAA_ATTR_METHOD},
      {"Service-Type = Call-Check", AAA_ATTR_METHOD},
  };
  for (const auto &row : table) {
    SCOPED_TRACE(row.line);
    kivo_test::reset_process();
    const std::string more = kServer + "\nNAS-Identifier = a" + kTime + "\n";
    ASSERT_EQ(Outcome::kStarted, apply(start("1") + more + row.line));
    const uint32_t label = having(AAA_ATTR_SESSION_ID, "1").at(0);
    const std::string value = stored(label, row.type);
    const std::string audit = stored(label, AAA_ATTR_AUDIT_SESSION_ID);
    EXPECT_NE("", value);
    EXPECT_EQ(Labels{label}, having(row.type, value));
    ASSERT_EQ(Outcome::kUpdated, apply(interim("1") + kServer + "\nTimestamp = 1700000060"));
    EXPECT_EQ("", stored(label, row.type));
    EXPECT_EQ(Labels{}, having(row.type, value));
    EXPECT_EQ("1", stored(label, AAA_ATTR_SESSION_ID));
    EXPECT_EQ("a", stored(label, AAA_ATTR_ACCESS_SERVER_ID));
    EXPECT_EQ(audit, stored(label, AAA_ATTR_AUDIT_SESSION_ID));
    EXPECT_EQ(bytes_of(uint64_t{1700000000}), stored(label, AAA_ATTR_START_TIME));
    EXPECT_EQ(bytes_of(uint64_t{1700000060}), stored(label, AAA_ATTR_UPDATE_TIME));
  }
}

TEST_F(Sessions, KeepThoseOfTheirIpv6AddressesThatAreStillNamed) {
  const auto address = [](char last) { return "\x20\x01\x0d\xb8"s + std::string(11, '\0') + last; };
  const std::string line = "\nFramed-IPv6-Address = 2001:db8::";
  ASSERT_EQ(Outcome::kStarted,
            apply(start("1") + kServer + line + "1" + line + "2" + line + "3" + line + "2"));
  EXPECT_EQ(address(1) + address(2) + address(3), stored(1, AAA_ATTR_IPV6_ADDRESSES));
  ASSERT_EQ(Outcome::kUpdated, apply(interim("1") + kServer + line + "4" + line + "2"));
  EXPECT_EQ(address(2) + address(4), stored(1, AAA_ATTR_IPV6_ADDRESSES));
  for (const auto &[last, labels] :
       {std::pair{1, Labels{}}, {2, Labels{1}}, {3, Labels{}}, {4, Labels{1}}}) {
    EXPECT_EQ(labels, having(AAA_ATTR_IPV6_ADDRESSES, address(static_cast<char>(last)))) << last;
  }
}

TEST_F(Sessions, HaveTheClassesOfTheLastUpdate) {
  ASSERT_EQ(Outcome::kStarted, apply(start("1") + kServer + "\nClass = 0x41\nClass = 0x42"));
  EXPECT_EQ((std::vector{"2:B"s, "1:A"s}), classes(1));
  ASSERT_EQ(Outcome::kUpdated, apply(interim("1") + kServer + "\nClass = 0x43"));
  EXPECT_EQ(std::vector{"1:C"s}, classes(1));
  ASSERT_EQ(Outcome::kUpdated, apply(interim("1") + kServer));
  EXPECT_EQ(std::vector<std::string>{}, classes(1));
}

TEST_F(Sessions, EndWithTheirStopOnce) {
  ASSERT_EQ(Outcome::kStarted, apply(start("1") + kServer + "\nUser-Name = a"));
  ASSERT_EQ(Outcome::kStarted, apply(start("2") + kServer + "\nUser-Name = a"));
  EXPECT_EQ(Outcome::kUnknown, apply(stop("3") + kServer));
  EXPECT_EQ(Outcome::kUnknown, apply(stop("1") + kOther));
  EXPECT_EQ(Outcome::kStopped, apply(stop("1") + kServer));
  EXPECT_EQ(Outcome::kUnknown, apply(stop("1") + kServer));
  EXPECT_EQ(Labels{2}, having(AAA_ATTR_USER_NAME, "a"));
  EXPECT_EQ(1u, attrdb_get_total_sessions());
}

TEST_F(Sessions, OfTwoAccessServersNeverMix) {
  const std::string servers[] = {
      "\nNAS-Identifier = a",  // ended while others have the same identifier beside an address
      "\nNAS-IP-Address = 192.0.2.11",
      "\nNAS-IP-Address = 192.0.2.12\nNAS-Identifier = a",
      "\nNAS-IPv6-Address = 2001:db8::c000:20b",
      "\nNAS-IPv6-Address = 2001:db8::1\nNAS-Identifier = a",
      "\nNAS-Identifier = b",
      "\nNAS-Identifier = \"\\300\\000\\002\\013\"",  // the bytes of 192.0.2.11
  };
  for (const char *restart : {"Accounting-On", "Accounting-Off"}) {
    kivo_test::reset_process();
    uint32_t n_live = 0;
    for (const std::string &server : servers) {
      EXPECT_EQ(Outcome::kStarted, apply(start("1") + server)) << server;
      EXPECT_EQ(Outcome::kUpdated, apply(interim("1") + server)) << server;
      EXPECT_EQ(Outcome::kStarted, apply(start("2") + server)) << server;
      EXPECT_EQ(n_live += 2, attrdb_get_total_sessions());
    }
    for (const std::string &server : servers) {
      EXPECT_EQ(Outcome::kStopped, apply(stop("2") + server)) << server;
      EXPECT_EQ(Outcome::kServerEnded, apply("Acct-Status-Type = "s + restart + server)) << server;
      EXPECT_EQ(n_live -= 2, attrdb_get_total_sessions()) << server;
      EXPECT_EQ(Outcome::kUnknown, apply(stop("1") + server)) << server;
      EXPECT_EQ(Outcome::kServerEnded, apply("Acct-Status-Type = "s + restart + server)) << server;
    }
  }
}

TEST_F(Sessions, AreUntouchedByRecordsThatNameNone) {
  ASSERT_EQ(Outcome::kStarted, apply(start("1") + kServer));
  const struct {
    Outcome outcome;
    std::string lines;
  } table[] = {
      {Outcome::kIncomplete, "Acct-Session-Id = 1" + kServer},
      {Outcome::kIncomplete, "Acct-Status-Type = Stop" + kServer},
      {Outcome::kIncomplete, "Acct-Status-Type = Start" + kServer},
      {Outcome::kIncomplete, "Acct-Status-Type = Start\nAcct-Session-Id = \"\"" + kServer},
      {Outcome::kIncomplete, stop("1")},
      {Outcome::kIncomplete, "Acct-Status-Type = Accounting-On"},
      {Outcome::kIgnored, "Acct-Status-Type = Failed\nAcct-Session-Id = 1" + kServer},
      {Outcome::kIgnored, "Acct-Status-Type = 4294967295\nAcct-Session-Id = 1" + kServer},
      {Outcome::kIgnored, "Acct-Status-Type = 0" + kServer},
  };
  for (const auto &row : table) {
    EXPECT_EQ(row.outcome, apply(row.lines)) << row.lines;
    EXPECT_EQ(Labels{1}, having(AAA_ATTR_SESSION_ID, "1")) << row.lines;
    EXPECT_EQ(1u, attrdb_get_total_sessions());
  }
}

TEST_F(Sessions, ShareAnInterfaceWhenTheyShareServerAndPort) {
  const auto interface = [&](const std::string &id) {
    const uint32_t label = having(AAA_ATTR_SESSION_ID, id).at(0);
    return stored(label, AAA_ATTR_INTERFACE_ID);
  };
  const std::string port = "\nNAS-Port-Id = Gi1";
  apply(start("1") + kServer + port + "\nNAS-Port = 1");
  apply(start("2") + kServer + port + "\nNAS-Port = 2");
  apply(start("3") + kOther + port);
  apply(start("4") + kServer + "\nNAS-Port = 1");
  apply(start("5") + kServer);
  apply(start("6") + kServer + "\nNAS-Port-Id = \"\\001\\000\\000\\000\"");  // the bytes of port 1
  const std::string shared = interface("1");
  EXPECT_EQ(4u, shared.size());
  EXPECT_EQ((Labels{1, 2}), having(AAA_ATTR_INTERFACE_ID, shared));
  EXPECT_EQ(Labels{3}, having(AAA_ATTR_INTERFACE_ID, interface("3")));
  EXPECT_EQ(Labels{4}, having(AAA_ATTR_INTERFACE_ID, interface("4")));
  EXPECT_EQ("", interface("5"));
  EXPECT_EQ(Labels{6}, having(AAA_ATTR_INTERFACE_ID, interface("6")));

  // The number stays with the port as long as anybody is on it, and nobody else gets it.
  apply(stop("1") + kServer);
  apply(interim("2") + kServer + port);
  apply(start("7") + kServer + port);
  EXPECT_EQ((Labels{2, 7}), having(AAA_ATTR_INTERFACE_ID, shared));
}

TEST_F(Sessions, GetLabelsThatNobodyHas) {
  ASSERT_EQ(0u, kivo_create_record(database(), 1, nullptr));
  ASSERT_EQ(0u, kivo_create_record(database(), 3, nullptr));
  apply(start("a") + kServer);
  apply(start("b") + kServer);
  EXPECT_EQ(Labels{2}, having(AAA_ATTR_SESSION_ID, "a"));
  EXPECT_EQ(Labels{4}, having(AAA_ATTR_SESSION_ID, "b"));
}

TEST_F(Sessions, AreFoundAgainOrNotThereWhicheverWriteFails) {
  const std::string lines = kServer + kTime + "\nUser-Name = a@example.net\nNAS-Port = 1";
  int failures = 0;
  for (;; ++failures) {
    kivo_test::reset_process();
    writes_until_failure = failures + 1;
    const Outcome outcome = apply(start("1") + lines);
    if (writes_until_failure != 0) break;
    EXPECT_EQ(Outcome::kFailed, outcome) << failures;
    EXPECT_NE(Outcome::kFailed, apply(interim("1") + lines)) << failures;
    EXPECT_EQ(Outcome::kStopped, apply(stop("1") + kServer)) << failures;
    EXPECT_EQ(0u, attrdb_get_total_sessions()) << failures;
  }
  writes_until_failure = 0;
  EXPECT_EQ(12, failures);  // four named, their domain, and seven that the daemon adds
}

TEST_F(Sessions, EndWithEitherNameOfTheirServerAndNeverWithAStranger) {
  const std::string a = "\nNAS-IP-Address = 192.0.2.11";
  const std::string b = "\nNAS-IP-Address = 192.0.2.12";
  const std::string six = "\nNAS-IPv6-Address = 2001:db8::1";
  const std::string i = "\nNAS-Identifier = i";
  const std::string j = "\nNAS-Identifier = j";
  const struct {
    const char *name;
    std::vector<std::string> records;
    std::string server;  // that goes on or off
    const char *live;    // afterwards
  } table[] = {
      {"identifier for address", {start("1") + a + i, start("2") + a, start("3") + b}, i, "3"},
      {"address for identifier", {start("1") + i, stop("9") + a + i, start("2") + a}, a, ""},
      {"both for both", {start("1") + i, start("2") + a}, a + i, ""},
      {"both, of a neighbour", {start("1") + j, start("2") + b}, a + i, "12"},
      {"identifier that came without address", {start("1") + i, start("2") + a}, i, "2"},
      {"both addresses in one record", {start("1") + a + six + i}, i, ""},
      {"one of two identifiers", {start("1") + a + i, start("2") + a + j, start("3") + i}, i, "12"},
      {"one of two, with address", {start("1") + a + i, start("2") + a + j}, a + j, "1"},
      {"one of two, with address, of unnamed", {stop("9") + a + i, start("1") + a}, a + j, "1"},
      {"a second one only now", {start("1") + a + i, start("2") + j}, a + j, "12"},
      {"address of two identifiers",
       {start("1") + a + i, stop("9") + a + j, start("2") + i},
       a,
       "2"},
      {"identifier of two addresses", {start("1") + a + i, start("2") + b + i}, i, "12"},
      {"one of two addresses", {start("1") + a + i, start("2") + b + i, start("3") + i}, a, "23"},
      {"one of two addresses, with identifier", {start("1") + a, start("2") + b + i}, b + i, "1"},
      {"one of two kinds of address", {start("1") + a + i, start("2") + six + i}, i, "12"},
  };
  for (const auto &row : table) {
    for (const char *status : {"Accounting-On", "Accounting-Off"}) {
      kivo_test::reset_process();
      kivod::SessionTable sessions(database());
      for (const std::string &record : row.records) sessions.apply(events_.read(record));
      EXPECT_EQ(Outcome::kServerEnded,
                sessions.apply(events_.read("Acct-Status-Type = "s + status + row.server)));
      EXPECT_EQ(row.live, live()) << row.name;
    }
  }
}

// What is used stays remembered; what was forgotten while it had sessions belongs to no other.
TEST_F(Sessions, StayApartThoughTheNamesOfTheirServersWereForgotten) {
  constexpr size_t kMost = 2 * kivod::ServerNames::kRemembered;
  const std::string i = "\nNAS-Identifier = i";
  const std::string used = "\nNAS-IP-Address = 192.0.2.13\nNAS-Identifier = used";
  apply(start("1") + kServer);
  apply(start("2") + i);
  kivod::ServerNames names;
  for (size_t n = 0; n <= kMost; ++n) {
    if (n % 1000 == 0) apply(start("3") + used);
    kivod::AccountingEvent event;
    event.status = static_cast<uint64_t>(kivod::AcctStatus::kStop);
    event.values.append(AAA_ATTR_ACCESS_SERVER_ID, "n" + std::to_string(n));
    table_.apply(event);
    names.learn(event.server_key(), "", [](const std::string &) { return false; });
  }
  EXPECT_LE(names.size(), kMost);
  apply(stop("9") + kServer + "\nNAS-Identifier = j");
  apply("Acct-Status-Type = Accounting-On\nNAS-Identifier = j");
  apply("Acct-Status-Type = Accounting-On" + kOther + i);
  EXPECT_EQ("123", live());
  apply("Acct-Status-Type = Accounting-On\nNAS-Identifier = used");
  EXPECT_EQ("12", live());
}

TEST_F(Sessions, BeginOnlyWhileThereIsRoom) {
  const struct {
    Outcome outcome;
    std::string lines;
  } table[] = {
      {Outcome::kStarted, start("1") + kServer}, {Outcome::kStarted, interim("2") + kServer},
      {Outcome::kRefused, start("3") + kServer}, {Outcome::kRefused, interim("3") + kServer},
      {Outcome::kUpdated, start("1") + kServer}, {Outcome::kUpdated, interim("2") + kServer},
      {Outcome::kStarted, start("1") + kOther},  {Outcome::kRefused, start("2") + kOther},
      {Outcome::kUnknown, stop("3") + kServer},  {Outcome::kStopped, stop("2") + kServer},
      {Outcome::kStarted, start("3") + kServer},
  };
  kivo_test::TraceLog trace;
  kivod::SessionTable sessions(database(), {.in_all = 3, .of_a_server = 2});
  for (const auto &row : table) EXPECT_EQ(row.outcome, sessions.apply(events_.read(row.lines)));
  EXPECT_EQ((std::vector{"session refused: as many are live of its access server as may be"s,
                         "session refused: as many are live of its access server as may be"s,
                         "session refused: as many are live as may be"s}),
            trace.texts(static_cast<uint32_t>(kivod::HostLevel::kNotice)));
}

TEST_F(Sessions, SayThatThereIsNoMemoryForAList) {
  const struct {
    std::string lines;
    const char *text;
  } table[] = {
      {start("1") + kServer, "make an attribute list: attribute service: out of memory"},
      {"Acct-Status-Type = Accounting-Off" + kServer, "make a label set: out of memory"},
  };
  for (const auto &row : table) {
    kivo_test::TraceLog trace;
    lists_fail = true;
    EXPECT_EQ(Outcome::kFailed, apply(row.lines));
    lists_fail = false;
    EXPECT_EQ(std::vector<std::string>{row.text},
              trace.texts(static_cast<uint32_t>(kivod::HostLevel::kError)));
  }
}

}  // namespace
