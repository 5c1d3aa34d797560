// What logs make of sessions, by the daemon's own rooms: records in, live sessions out, with what
// was counted and traced. Expected values are worked out by hand from the RADIUS definitions.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <regex>
#include <set>

#include "kivo/kivo.h"
#include "platform/trace.h"
#include "replay.h"
#include "sessions/session_database.h"
#include "sessions/stored_value.h"
#include "sessions/value_text.h"
#include "support/process.h"

// Stand in for operations of the library and the platform: the n-th call of one can fail.
static std::string failing;
static int calls_until_failure = 0;  // 0: none fails

#define STAND_IN(name, status, parameters, ...)                                          \
  extern "C" uint32_t name parameters noexcept {                                         \
    static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name)); \
    return failing == #name && --calls_until_failure == 0 ? status : real(__VA_ARGS__);  \
  }
STAND_IN(aaa_list_alloc, AAA_ERR_NO_MEMORY, (uint32_t * list), list)
STAND_IN(kivo_index_list_create, KIVO_INDEX_LIST_NO_MEMORY, (kivo_index_list * *list), list)
STAND_IN(attrdb_declare_index, AAA_ERR_NO_MEMORY, (uint32_t type), type)
STAND_IN(kivo_create_record, KIVO_ERR_NO_MEMORY, (kivo_db * db, uint32_t label, auth_ctxt *ctxt),
         db, label, ctxt)
STAND_IN(kivo_delete_record, KIVO_ERR_FAILED, (kivo_db * db, uint32_t label), db, label)
STAND_IN(auth_mgr_idc_add_or_update_attr, AAA_ERR_NO_MEMORY,
         (auth_ctxt * ctxt, uint32_t type, const void *value, uint32_t size, uint32_t *changed),
         ctxt, type, value, size, changed)
STAND_IN(kivo_create_database, KIVO_ERR_NO_MEMORY,
         (const char *name, const char *owner, const kivo_client_params *client,
          const kivo_attr_config *rows, uint32_t n_rows, kivo_db **db),
         name, owner, client, rows, n_rows, db)
STAND_IN(kivo_register_attr_change_notification, KIVO_ERR_NO_MEMORY,
         (kivo_db * db, uint32_t type, uint32_t actions, void *handle), db, type, actions, handle)

namespace {

using namespace kivod;
using namespace std::string_literals;

std::string traced;  // by the daemon: "LEVEL.NUMBER text\n"

void take_trace(const trace_record *record, void *) {
  if (record->module != TRACE_MODULE_HOST_APP || record->number <= 1000) return;
  traced += std::to_string(record->level) + "." + std::to_string(record->number) + " " +
            record->text + "\n";
}

kivo_db *database() {
  static kivo_db *const db = [] {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    kivo_test::start_process();
    trace_set_all_levels(TRACE_LEVEL_MAX);
    trace_add_sink(take_trace, nullptr, nullptr);
    return open_session_database();
  }();
  return db;
}

std::vector<std::string> split(const std::string &text, const std::string &at) {
  const std::regex pattern(at);
  return {std::sregex_token_iterator(text.begin(), text.end(), pattern, -1), {}};
}

// A log of records as the tests write them, "S1@ai|User-Name = a / X1@ai": what happened to the
// session of an id, names of the access server, further pairs; behind ^ stands another first line.
std::string log_of(const std::string &text) {
  static const std::map<char, std::string> words = {
      {'S', "Acct-Status-Type = Start"},
      {'U', "Acct-Status-Type = Interim-Update"},
      {'X', "Acct-Status-Type = Stop"},
      {'N', "Acct-Status-Type = Accounting-On"},
      {'F', "Acct-Status-Type = Accounting-Off"},
      {'O', "Acct-Status-Type = Failed"},
      {'a', "NAS-IP-Address = 192.0.2.11"},
      {'b', "NAS-IP-Address = 192.0.2.12"},
      {'6', "NAS-IPv6-Address = 2001:db8::1"},
      {'A', "NAS-IPv6-Address = 2001:db8::c000:20b"},
      {'i', "NAS-Identifier = i"},
      {'j', "NAS-Identifier = j"},
      {'B', "NAS-Identifier = \"\\300\\000\\002\\013\""}};  // the bytes of a
  std::string log;
  for (const std::string &record : split(text, " / ")) {
    std::string header = "Tue Nov 14 22:13:20 2023";
    std::string pairs;
    std::vector<std::string> fields = split(record, "\\|");
    const std::vector<std::string> who =
        split(fields[0] + (fields[0].find('@') > 9 ? "@a" : ""), "@");
    if (words.contains(who[0][0])) fields.push_back(words.at(who[0][0]));
    if (who[0].size() > 1) fields.push_back("Acct-Session-Id = " + who[0].substr(1));
    for (const char name : who.size() > 1 ? who[1] : "") fields.push_back(words.at(name));
    for (size_t i = 1; i < fields.size(); ++i) {
      if (fields[i][0] == '^')
        header = fields[i].substr(1);
      else
        pairs += "\n\t" + fields[i];
    }
    log += header + pairs + "\n\n";
  }
  return log;
}

// The live sessions, "ID attribute=value ...; ", without what those of the tests have as a rule.
std::string live() {
  static const std::regex usual(
      " (server-id=([ij]|.xc0.*x0b)|server-address=(192.0.2.1[12]|2001:db8::(c000:20b|1))|session-"
      "id=\\S+|"
      "(start|update)-time=2023-11-14T21:13:20Z|audit-session-id=[0-9A-F]{16}6553E2F0)(?= |$)");
  std::multiset<std::string> found;
  attrdb_walk_all_records(
      [](attrdb_record *record, void *all) {
        std::string text(stored_value(*record, AAA_ATTR_SESSION_ID));
        std::vector<std::string_view> values;
        for (const kivo_attr_config &row : session_attributes()) {
          get_stored_values(*record, row.aaa_type, values);
          const std::string name = aaa_dict_get_attr_name(row.aaa_type);
          for (const auto value : values)
            text += " " + name + "=" + shown_value(row.aaa_type, value);
        }
        static_cast<std::multiset<std::string> *>(all)->insert(std::regex_replace(text, usual, ""));
        return PLATFORM_OK;
      },
      &found);
  std::string text;
  for (const std::string &session : found) text += session + "; ";
  return text;
}

// Replays a log into a table and tells what it counted, by the first letters, and traced.
std::string replayed(SessionTable &sessions, const std::string &log) {
  static std::string error;
  static auto decoder = PairDecoder::open("", error);
  const int file = memfd_create("log", MFD_CLOEXEC);
  EXPECT_EQ(static_cast<ssize_t>(log.size()), pwrite(file, log.data(), log.size(), 0));
  EXPECT_EQ(STDIN_FILENO, dup2(file, STDIN_FILENO));
  close(file);
  Replay replay(*decoder, sessions);
  traced.clear();
  EXPECT_TRUE(replay.run("-", error)) << error;
  std::string text;
  const ReplayCounts &counts = replay.counts();
  for (size_t i = 0; i < kOutcomes; ++i) {
    if (counts.outcomes[i] != 0) text += "SUX?NRIOF"[i] + std::to_string(counts.outcomes[i]) + " ";
  }
  if (counts.pairs.unknown != 0) text += "unknown " + std::to_string(counts.pairs.unknown) + " ";
  if (counts.pairs.bad != 0) text += "bad " + std::to_string(counts.pairs.bad) + " ";
  if (counts.damaged != 0) text += "damaged " + std::to_string(counts.damaged) + " ";
  return text + "- ";
}

std::string sessions_of(const std::string &log, SessionLimits limits = {}) {
  SessionTable sessions(database(), limits);
  kivo_test::reset_process();
  const std::string counts = replayed(sessions, log_of(log));
  return counts + live() + traced;
}

TEST(Sessions, HaveWhatTheirRecordsSay) {
  const std::string v6 = "|Framed-IPv6-Address = 2001:db8::", is = "ipv6-addresses=2001:db8::";
  const std::string none =
      "I1 - 4.1012 -:1: no status, access server or session id; record skipped\n";
  const struct {
    std::string log;
    std::string sessions;
  } table[] = {
      {"S1|NAS-Port-Type = Wireless-802.11|Event-Timestamp = 1700000000|Acct-Session-Time = 60"
       "|Called-Station-Id = c|Framed-IP-Address = 198.51.100.7|NAS-Port = 7|NAS-Port-Id = Gi1/7"
       "|Framed-IPv6-Prefix = 2001:DB8:1:2:0::/64|Acct-Authentic = Local|NAS-Identifier = s"
       "|Calling-Station-Id = 00-00-5E-00-53-01",
       "S1 - 1 mac-address=0000.5e00.5301 ipv4-address=198.51.100.7 port=7 interface-name=Gi1/7 "
       "interface-id=1 audit-session-id=C000020B000000016553F100 method=local "
       "start-time=2023-11-14T22:12:20Z interface=1 ipv6-prefix=2001:db8:1:2::/64 server-id=s "
       "called-station=c calling-station=00-00-5E-00-53-01 port-type=19 "
       "update-time=2023-11-14T22:13:20Z; "},
      {"S1|NAS-Port-Type = Ethernet|Called-Station-Id = c|Framed-IP-Address = 198.51.100.7"
       "|NAS-Port = 7|Framed-IPv6-Prefix = ::/64|Service-Type = Call-Check|User-Name = a@b"
       "|Calling-Station-Id = 00005e005301|Class = 0x41|NAS-Identifier = s" +
           v6 + "1 / U1",
       "S1 U1 - 1 server-id=s; "},
      {"S1|User-Name = \"a\\000b\\tc\"|User-Name = b", "S1 - 1 user-name=a\\x00b\\x09c; "},
      {"S1|User-Name = \"\"|Calling-Station-Id = 198.51.100.7|Attr-8 = 0xc6336407",
       "S1 - 1 calling-station=198.51.100.7; "},
      {"S1|Framed-IP-Address = 192.0.2.1|Framed-IP-Address = 192.0.2.2",
       "S1 - 1 ipv4-address=192.0.2.1; "},
      {"S1" + v6 + "1" + v6 + "2" + v6 + "3" + v6 + "2 / U1" + v6 + "4" + v6 + "2",
       "S1 U1 - 1 " + is + "2 " + is + "4; "},
      {"S1|Class = 0x00ff|Class = 0x|Class = 0x42",
       "S1 - 1 external-class=0x00ff external-class=B; "},
      {"S1|Class = 0x41|Class = 0x42 / U1|Class = 0x43", "S1 U1 - 1 external-class=C; "},
      {"S1|Acct-Multi-Session-Id = 12345678901234567890123A|User-Name = a / S1|User-Name = b",
       "S1 U1 - 1 user-name=b audit-session-id=12345678901234567890123A; "},
      {"S1|Acct-Multi-Session-Id = 12345678901234567890123", "S1 - 1; "},
      {"S1@|NAS-IPv6-Address = 2001:db8::2|NAS-IP-Address = 192.0.2.9|NAS-IP-Address = 192.0.2.8"
       "|Acct-Multi-Session-Id = 12345678901234567890123A",
       "S1 - 1 server-address=192.0.2.9 audit-session-id=12345678901234567890123A; "},
      {"S1@Ba / S1@A / S1@B / S1@ai / S1@b / S1@6i / S1@j / X1@a / X1@a",
       "S6 U1 X1 ?1 - 1; 1; 1; 1; 1; "},
      // Ports: a name counts before a number, and neither is taken for the other.
      {"S1|NAS-Port-Id = G|NAS-Port = 1 / S2|NAS-Port-Id = G / S3@b|NAS-Port-Id = G"
       " / S4|NAS-Port-Id = \"\\001\\000\\000\\000\" / S5|NAS-Port = 1 / X1 / S6|NAS-Port-Id = G",
       "S6 X1 - 2 interface-name=G interface-id=1 interface=1; "
       "3 interface-name=G interface-id=2 interface=2; "
       "4 interface-name=\\x01\\x00\\x00\\x00 interface-id=3 interface=3; "
       "5 port=1 interface-id=4 interface=4; 6 interface-name=G interface-id=1 interface=1; "},
      {"S1 / S2 / X3 / X1@b / X1 / X1", "S2 X1 ?3 - 2; "},
      {"S1 / O1 / O1|Acct-Status-Type = 4294967295 / 0|Acct-Status-Type = 0", "S1 O3 - 1; "},
      {"_1", none},
      {"X", none},
      {"S", none},
      {"N@", none},
      {"S1@", none},
      {"S1 / S1|Acct-Status-Type = Stop / S1 / X1|Attr-40 = 0x01", "S2 X2 - "},
      {"S1|Frobnication-Level = 1|NAS-Port = many|NAS-Port-Id = " + std::string(253, 'x') +
           "|User-Name = " + std::string(254, 'x'),
       "S1 unknown 1 bad 2 - 1 interface-name=" + std::string(253, 'x') +
           " interface-id=1 interface=1; 4.1011 -:3: NAS-Port: neither a number up to 4294967295 "
           "nor one of its names: \"many\"; value left out\n4.1011 -:5: the value is longer than a "
           "RADIUS attribute can be; value left out\n"},
  };
  for (const auto &row : table) {
    EXPECT_EQ(row.sessions, sessions_of(row.log)) << row.log;
  }
  EXPECT_EQ("S1 - 1; ", sessions_of("S1")) << "nothing stays of the log before";
}

TEST(Sessions, HaveTheDomainAndTheMethodOfTheirUser) {
  const struct {
    std::string log;
    std::string has;
  } table[] = {
      {R"(User-Name = "a@EXAMPLE.Net")", "user-name=a@EXAMPLE.Net domain=example.net"},
      {R"(User-Name = "EXAMPLE\\a")", R"(user-name=EXAMPLE\\a domain=example)"},
      {R"(User-Name = "a@b@c")", "user-name=a@b@c domain=c"},
      {R"(User-Name = "E\\a@b")", R"(user-name=E\\a@b domain=b)"},
      {R"(User-Name = "@b")", "user-name=@b domain=b"},
      {R"(User-Name = "a@")", "user-name=a@"},
      {R"(User-Name = "\\a")", R"(user-name=\\a)"},
      {R"(User-Name = "host/pc-1.b")", "user-name=host/pc-1.b"},
      {"Acct-Authentic = RADIUS", "method=radius"},
      {"Acct-Authentic = Remote", "method=remote"},
      {"Acct-Authentic = Diameter|Service-Type = Framed-User", "method=diameter"},
      {"Acct-Authentic = RADIUS|Service-Type = Call-Check", "method=mac"},
      {"Service-Type = Call-Check|Acct-Authentic = RADIUS", "method=mac"},
      {"Acct-Authentic = 0", ""},
      {"Acct-Authentic = 5", ""},
      {"Acct-Authentic = 4294967295", ""},
  };
  for (const auto &row : table) {
    EXPECT_EQ("S1 - 1" + (row.has.empty() ? "" : " " + row.has) + "; ",
              sessions_of("S1|" + row.log));
  }
}

TEST(Sessions, HaveTheTimesAtTheirAccessServers) {
  const std::string epoch = "1970-01-01T00:00:";
  const struct {
    std::string log;
    std::string time;
  } table[] = {
      {"Event-Timestamp = 17|Timestamp = 50|Acct-Delay-Time = 9|Event-Timestamp = 18",
       epoch + "17Z"},
      {"Timestamp = 50|Acct-Delay-Time = 9|Acct-Session-Time = 0", epoch + "41Z"},
      {"Timestamp = 5|Acct-Delay-Time = 9|Acct-Session-Time = 1", epoch + "00Z"},
      {"Acct-Delay-Time = 9|Timestamp = soon", "2023-11-14T21:13:11Z"},
      {"^Sun Oct 29 02:30:00 2023", "2023-10-29T00:30:00Z"},  // the first of two
      {"^Sun Oct 29 03:00:00 2023", "2023-10-29T02:00:00Z"},
      {"^Sat Jul  1 02:00:00 2023", "2023-07-01T00:00:00Z"},
      {"^Thu Jan  1 01:00:00 1970", epoch + "00Z"},
      {"^Sun Mar 26 02:30:00 2023", epoch + "00Z"},  // the clocks go from 2 to 3
      {"^Mon Nov 14 22:13:20 2023", epoch + "00Z"},
      {"^Tue Nov 31 22:13:20 2023", epoch + "00Z"},
      {"^Tue Nov 14 22:13:20 2023 or so", epoch + "00Z"},
      {"^1699996400", epoch + "00Z"},
  };
  const std::string id = "12345678901234567890123A";
  for (const auto &row : table) {
    const std::string is = sessions_of("U1|Acct-Multi-Session-Id = " + id + "|" + row.log);
    const std::string times = " start-time=" + row.time + " update-time=" + row.time + "; ";
    EXPECT_EQ("- 1 audit-session-id=" + id + times,
              is.substr(is.find('-'), is.find(';') + 2 - is.find('-')))
        << row.log;
  }
}

TEST(Sessions, EndWithEitherNameOfTheirServerAndNeverWithAStranger) {
  const struct {
    std::string log;
    std::string server;  // that goes on or off
    std::string live;    // afterwards
  } table[] = {
      {"S1@ai / S2@a / S3@b", "i", "3; "},      // the identifier for the address
      {"S1@i / X9@ai / S2@a", "a", ""},         // the address for the identifier
      {"S1@i / S2@a", "ai", ""},                // both for both
      {"S1@j / S2@b", "ai", "1; 2; "},          // both, of a neighbour
      {"S1@i / S2@a", "i", "2; "},              // which came without address
      {"S1@a6i", "i", ""},                      // two addresses in one record
      {"S1@ai / S2@aj / S3@i", "i", "1; 2; "},  // one of two identifiers
      {"S1@ai / S2@aj", "aj", "1; "},           // with the address
      {"X9@ai / S1@a", "aj", "1; "},            // which nobody has
      {"S1@ai / S2@j", "aj", "1; 2; "},         // a second one only now
      {"S1@ai / X9@aj / S2@i", "a", "2; "},     // the address of two identifiers
      {"S1@ai / S2@bi", "i", "1; 2; "},         // the identifier of two addresses
      {"S1@ai / S2@bi / S3@i", "a", "2; 3; "},  // one of two addresses
      {"S1@a / S2@bi", "bi", "1; "},            // with the identifier
      {"S1@ai / S2@6i", "i", "1; 2; "},         // of two kinds of address
      {"S1@a / S2@B / S3@A", "a", "2; 3; "},    // the same bytes
      {"S1@a / S2@B / S3@A", "B", "1; 3; "},
  };
  for (const auto &row : table) {
    for (const char *goes : {" / N@", " / F@"}) {
      const std::string text = sessions_of(row.log + goes + row.server);
      EXPECT_EQ(row.live, text.substr(text.find("N1 - ") + 5)) << row.log << goes << row.server;
    }
  }
}

// What is used stays remembered; what was forgotten while it had sessions belongs to no other.
TEST(Sessions, StayApartThoughTheNamesOfTheirServersWereForgotten) {
  constexpr size_t kMost = 2 * ServerNames::kRemembered;
  SessionTable sessions(database());
  ServerNames names;
  kivo_test::reset_process();
  replayed(sessions, log_of("S1@a / S2@i"));
  AccountingEvent event;
  event.status = static_cast<uint64_t>(AcctStatus::kStop);
  for (size_t n = 0; n <= kMost; ++n) {
    if (n % 1000 == 0) replayed(sessions, log_of("U3@6j"));
    event.values.clear();
    event.values.append(AAA_ATTR_ACCESS_SERVER_ID, "n" + std::to_string(n));
    sessions.apply(event);
    names.learn(event.server_key(), "", [](const std::string &) { return false; });
  }
  EXPECT_LE(names.size(), kMost);
  replayed(sessions, log_of("X9@aB / N@B / N@bi"));
  EXPECT_EQ("1; 2; 3; ", live());
  replayed(sessions, log_of("N@j"));
  EXPECT_EQ("1; 2; ", live());
}

// Any records: as many live as the script counts, which shares no code with the daemon, and an
// interface for the sessions of a server and port.
TEST(Sessions, AreThoseOfAnIndependentCount) {
  std::mt19937 random(1);
  const auto any = [&](const std::vector<std::string> &of) { return of[random() % of.size()]; };
  const auto path = std::filesystem::path(testing::TempDir()) / ("log." + std::to_string(getpid()));
  for (int round = 0; round < 100; ++round) {
    std::string log;
    for (size_t i = random() % 30; i-- > 0;) {
      log += any({"S", "S", "U", "X", "N", "F"}) + any({"1", "2", "3"}) + "@" +
             any({"a", "b", "ai", "ai", "aj", "bi", "i", "j", "6", "6j"}) +
             any({"", "", "|NAS-Port = 1", "|NAS-Port = 2", "|NAS-Port-Id = 1"}) + " / ";
    }
    log += "O1";
    sessions_of(log);
    std::ofstream(path) << log_of(log);
    FILE *count = popen((COUNT_SCRIPT " " + path.string()).c_str(), "r");
    uint32_t n_live = 0;
    EXPECT_EQ(1, std::fscanf(count, "%u", &n_live));
    EXPECT_EQ(0, pclose(count));
    ASSERT_EQ(n_live, attrdb_get_total_sessions()) << log;
    std::set<std::string> ports[2];  // with their interfaces, and alone
    attrdb_walk_all_records(
        [](attrdb_record *record, void *sets) {
          const auto has = [&](uint32_t type) { return std::string(stored_value(*record, type)); };
          const std::string name = has(AAA_ATTR_INTERFACE_NAME), id = has(AAA_ATTR_INTERFACE);
          const std::string port =
              has(AAA_ATTR_ACCESS_SERVER_KEY) + name + "/" + has(AAA_ATTR_PORT);
          EXPECT_EQ(port.ends_with('/') && name.empty(), id.empty());
          static_cast<std::set<std::string> *>(sets)[0].insert(port + "=" + id);
          static_cast<std::set<std::string> *>(sets)[1].insert(id.empty() ? port : id);
          return PLATFORM_OK;
        },
        ports);
    EXPECT_EQ(ports[0].size(), ports[1].size()) << log;
  }
  std::filesystem::remove(path);
}

TEST(Sessions, BeginOnlyWhileThereIsRoom) {
  const std::string refused = "5.1014 session refused: as many are live";
  const std::string of_server = refused + " of its access server as may be\n";
  EXPECT_EQ("S4 U2 X1 ?1 R3 - 1; 1; 3; " + of_server + of_server + refused + " as may be\n",
            sessions_of("S1 / U2 / S3 / U3 / S1 / U2 / S1@b / S2@b / X3 / X2 / S3", {3, 2}));
}

TEST(Sessions, GetLabelsThatNobodyHas) {
  SessionTable sessions(database());
  kivo_test::reset_process();
  for (const uint32_t label : {1u, 3u}) EXPECT_EQ(0u, kivo_create_record(nullptr, label, nullptr));
  replayed(sessions, log_of("S1 / S2"));
  EXPECT_TRUE(kivo_test::find_record(2) != nullptr && kivo_test::find_record(4) != nullptr);
}

// A record loses no other wherever the log is cut: the third is whole when the cut is behind its
// last line but one, but only its last line names its access server.
TEST(Sessions, AreThereWhereverTheLastRecordIsCut) {
  const std::string whole = log_of("S1 / S2"), last = log_of("S3");
  for (size_t size = 0; size <= last.size(); ++size) {
    SessionTable sessions(database());
    kivo_test::reset_process();
    const std::string counts = replayed(sessions, whole + last.substr(0, size));
    EXPECT_EQ(size >= last.size() - 1 ? "1; 2; 3; " : "1; 2; ", live()) << size;
    const bool is_whole = size == 0 || (last[size - 1] == '\n' && size != 25);
    EXPECT_EQ(!is_whole, counts.find("damaged 1 ") != counts.npos) << size;
  }
  EXPECT_EQ("", traced);
}

TEST(Sessions, AreFoundAgainOrNotThereWhateverFails) {
  const std::string error = "3.1013 ", no_memory = ": attribute service: out of memory\n";
  const struct {
    const char *operation;
    std::string traced;
    int n_failures;
  } table[] = {
      {"aaa_list_alloc", "make an attribute list" + no_memory, 2},
      {"kivo_create_record", "create a session: out of memory\n", 1},
      {"auth_mgr_idc_add_or_update_attr", "write a session" + no_memory, 16},
      {"kivo_index_list_create", "make a label set: out of memory\n", 1},
      {"kivo_delete_record", "delete a session: operation failed\n", 1},
  };
  for (const auto &row : table) {
    int n = 0;
    for (;; ++n) {
      SessionTable sessions(database());
      kivo_test::reset_process();
      failing = row.operation;
      calls_until_failure = n + 1;
      replayed(sessions, log_of("S1|User-Name = a@b|NAS-Port = 1 / U1|User-Name = b / N@a"));
      if (calls_until_failure > 0) break;
      EXPECT_EQ("3.1013 " + row.traced, traced) << row.operation << n;
      replayed(sessions, log_of("U1 / X1"));
      EXPECT_EQ(0u, attrdb_get_total_sessions()) << row.operation << n;
    }
    failing.clear();
    EXPECT_EQ(row.n_failures, n) << row.operation;
  }
}

// In a process of its own: databases cannot be taken back.
TEST(SessionDatabaseDeathTest, IsNotOpenedWithoutAllThatItNeeds) {
  const struct {
    const char *operation;
    const char *traced;
  } table[] = {
      {"attrdb_declare_index", "3.1001 no index of user-name: "},
      {"kivo_register_attr_change_notification", "3.1002 no watch of mac-address: out of memory"},
      {"kivo_create_database", "3.1003 no database: out of memory"},
  };
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  for (const auto &row : table) {
    const auto open_and_say = [&] {
      failing = row.operation;
      calls_until_failure = 1;
      const bool opened = database() != nullptr;
      std::fputs(traced.c_str(), stderr);
      _exit(opened ? 1 : 0);
    };
    EXPECT_EXIT(open_and_say(), testing::ExitedWithCode(0), row.traced);
  }
}

}  // namespace
