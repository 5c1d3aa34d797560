// What an accounting record means for a session: which attribute becomes which AAA type, what wins
// when several name the same, and when it happened. Expected values come from the RADIUS
// definitions (RFC 2865, 2866, 2869, 3162, 6911) and the comments of the header.
#include "sessions/accounting_event.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <array>
#include <string>
#include <vector>

#include "log_events.h"

namespace {

using kivo_test::bytes_of;
using namespace std::string_literals;
using Values = std::vector<std::string>;

class AccountingEventOfARecord : public testing::Test {
 protected:
  Values values(const std::string &lines, uint32_t type) {
    Values found;
    for (const kivod::EventValue &value : events_.read(lines).values.all()) {
      if (value.type == type) found.push_back(value.bytes);
    }
    return found;
  }

  kivo_test::LogEvents events_;
};

std::string identity(uint16_t subtype, const std::string &bytes) {
  return bytes_of(subtype) + bytes;
}

const std::string k23 = "12345678901234567890123";
const std::string kAddress1("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\1", 16);
const std::string kAddress2("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\2", 16);
const std::string kMac("\x00\x00\x5e\x00\x53\x01", 6);

TEST_F(AccountingEventOfARecord, CarriesEachValueUnderItsType) {
  const struct {
    const char *lines;
    uint32_t type;
    Values expected;
  } table[] = {
      {R"(User-Name = "alice@example.net")", AAA_ATTR_USER_NAME, {"alice@example.net"}},
      {R"(User-Name = "a\000b\tc")", AAA_ATTR_USER_NAME, {"a\0b\tc"s}},
      {R"(User-Name = "")", AAA_ATTR_USER_NAME, {}},
      {R"(Calling-Station-Id = "00-00-5E-00-53-01")", AAA_ATTR_MAC_ADDRESS, {kMac}},
      {R"(Calling-Station-Id = "0000.5e00.5301")", AAA_ATTR_CALLING_STATION, {"0000.5e00.5301"}},
      {R"(Calling-Station-Id = "198.51.100.7")", AAA_ATTR_MAC_ADDRESS, {}},
      {R"(Calling-Station-Id = "198.51.100.7")", AAA_ATTR_CALLING_STATION, {"198.51.100.7"}},
      {R"(Called-Station-Id = "02-00-5E-00-53-F3:a")",
       AAA_ATTR_CALLED_STATION,
       {"02-00-5E-00-53-F3:a"}},
      {"Framed-IP-Address = 198.51.100.7", AAA_ATTR_IPV4_ADDRESS, {"\xc6\x33\x64\x07"}},
      {"Attr-8 = 0xc6336407", AAA_ATTR_IPV4_ADDRESS, {}},
      {"Framed-IPv6-Prefix = 2001:DB8:1:2:0::/64", AAA_ATTR_IPV6_PREFIX, {"2001:db8:1:2::/64"}},
      {"NAS-Port = 50101", AAA_ATTR_PORT, {bytes_of(uint32_t{50101})}},
      {"NAS-Port-Type = Wireless-802.11", AAA_ATTR_PORT_TYPE, {bytes_of(uint32_t{19})}},
      {R"(NAS-Port-Id = "Gi1/0/1")", AAA_ATTR_INTERFACE_NAME, {"Gi1/0/1"}},
      {R"(Acct-Session-Id = "bng-4 lag-1:100")", AAA_ATTR_SESSION_ID, {"bng-4 lag-1:100"}},
  };
  for (const auto &row : table) {
    EXPECT_EQ(row.expected, values(row.lines, row.type)) << row.lines;
  }
}

TEST_F(AccountingEventOfARecord, TakesTheDomainFromTheRealmOfTheUserName) {
  const struct {
    const char *name;
    Values domain;
  } table[] = {
      {R"("alice@example.net")", {"example.net"}},
      {R"("alice@EXAMPLE.Net")", {"example.net"}},
      {R"("EXAMPLE\\alice")", {"example"}},
      {R"("a@b.example@c.example")", {"c.example"}},
      {R"("EXAMPLE\\alice@example.net")", {"example.net"}},
      {R"("@example.net")", {"example.net"}},
      {R"("alice")", {}},
      {R"("alice@")", {}},
      {R"("\\alice")", {}},
      {R"("@")", {}},
      {R"("host/pc-1.example.net")", {}},
      {R"("00005e005303")", {}},
  };
  for (const auto &row : table) {
    EXPECT_EQ(row.domain, values("User-Name = "s + row.name, AAA_ATTR_DOMAIN)) << row.name;
  }
}

TEST_F(AccountingEventOfARecord, TellsTheMethod) {
  const struct {
    const char *lines;
    Values method;
  } table[] = {
      {"Acct-Authentic = RADIUS", {"radius"}},
      {"Acct-Authentic = Local", {"local"}},
      {"Acct-Authentic = Remote", {"remote"}},
      {"Acct-Authentic = Diameter", {"diameter"}},
      {"Acct-Authentic = 0", {}},
      {"Acct-Authentic = 5", {}},
      {"Acct-Authentic = 4294967295", {}},
      {"Service-Type = Framed-User", {}},
      {"Service-Type = Call-Check", {"mac"}},
      {"Service-Type = Call-Check\nAcct-Authentic = RADIUS", {"mac"}},
      {"Acct-Authentic = RADIUS\nService-Type = Call-Check", {"mac"}},
      {"Acct-Authentic = RADIUS\nService-Type = Framed-User", {"radius"}},
  };
  for (const auto &row : table) EXPECT_EQ(row.method, values(row.lines, AAA_ATTR_METHOD));
}

TEST_F(AccountingEventOfARecord, TakesOnlyAnAuditSessionIdOf24Characters) {
  const std::string name = "Acct-Multi-Session-Id = ";
  EXPECT_EQ(Values{k23 + "4"}, values(name + k23 + "4", AAA_ATTR_AUDIT_SESSION_ID));
  EXPECT_EQ(Values{}, values(name + k23, AAA_ATTR_AUDIT_SESSION_ID));
  EXPECT_EQ(Values{}, values(name + k23 + "45", AAA_ATTR_AUDIT_SESSION_ID));
}

TEST_F(AccountingEventOfARecord, KeepsOfRepeatedAttributesWhatTheTypeCanHold) {
  const struct {
    const char *lines;
    uint32_t type;
    Values expected;
  } table[] = {
      {"User-Name = a\nUser-Name = b", AAA_ATTR_USER_NAME, {"a"}},
      {"Framed-IP-Address = 192.0.2.1\nFramed-IP-Address = 192.0.2.2",
       AAA_ATTR_IPV4_ADDRESS,
       {"\xc0\0\2\1"s}},
      {"Framed-IPv6-Address = 2001:db8::2\nFramed-IPv6-Address = 2001:db8::1",
       AAA_ATTR_IPV6_ADDRESSES,
       {kAddress2, kAddress1}},
      {"Class = 0x00ff\nClass = 0x41",
       AAA_ATTR_EXT_CLASS,
       {identity(1, "\0\xff"s), identity(2, "A")}},
      {"Class = 0x\nClass = 0x41", AAA_ATTR_EXT_CLASS, {identity(1, "A")}},
      {"NAS-IPv6-Address = 2001:db8::1\nNAS-IP-Address = 192.0.2.1",
       AAA_ATTR_ACCESS_SERVER_ADDRESS,
       {"\xc0\0\2\1"s}},
      {"NAS-IP-Address = 192.0.2.1\nNAS-IPv6-Address = 2001:db8::1",
       AAA_ATTR_ACCESS_SERVER_ADDRESS,
       {"\xc0\0\2\1"s}},
  };
  for (const auto &row : table) {
    EXPECT_EQ(row.expected, values(row.lines, row.type)) << row.lines;
  }
}

TEST_F(AccountingEventOfARecord, LeavesOutWhatCannotBeUnderstoodAndSaysWhy) {
  const std::string most(253, 'x');
  const std::string lines = "Frobnication-Level = 1\nNAS-Port = many\nUser-Name = " + most +
                            "x\nFramed-IP-Address = 192.0.2.7\nNAS-Port-Id = " + most;
  EXPECT_EQ(Values{}, values(lines, AAA_ATTR_USER_NAME));
  EXPECT_EQ(1u, events_.counts.unknown);
  EXPECT_EQ(2u, events_.counts.bad);
  ASSERT_EQ(2u, events_.complaints.size());
  EXPECT_EQ(0u, events_.complaints[0].find("3: NAS-Port: ")) << events_.complaints[0];
  EXPECT_EQ("4: the value is longer than a RADIUS attribute can be", events_.complaints[1]);
  EXPECT_EQ(Values{"\xc0\0\2\7"s}, values(lines, AAA_ATTR_IPV4_ADDRESS));
  EXPECT_EQ(Values{most}, values(lines, AAA_ATTR_INTERFACE_NAME));
}

TEST_F(AccountingEventOfARecord, HasTheTimeAtTheAccessServer) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  constexpr uint64_t kHeaderTime = 1699996400;  // Tue Nov 14 22:13:20 2023, an hour before UTC's
  const struct {
    const char *lines;
    uint64_t time;
    const char *header = "Tue Nov 14 22:13:20 2023";
  } table[] = {
      {"Event-Timestamp = 1700000000\nTimestamp = 1700000050\nAcct-Delay-Time = 9", 1700000000},
      {"Timestamp = 1700000050\nAcct-Delay-Time = 9", 1700000041},
      {"Timestamp = 1700000050", 1700000050},
      {"Event-Timestamp = \"Feb 30 2023 00:00:00 UTC\"\nTimestamp = 1700000050", 1700000050},
      {"Timestamp = 5\nAcct-Delay-Time = 9", 0},
      {"Acct-Delay-Time = 9", kHeaderTime - 9},
      {"User-Name = a", kHeaderTime},
      {"Timestamp = soon", kHeaderTime},
      {"Timestamp = 1", 1},
      {"User-Name = a", 1698539400, "Sun Oct 29 02:30:00 2023"},  // the first of two
      {"User-Name = a", 1698544800, "Sun Oct 29 03:00:00 2023"},
      {"User-Name = a", 1688169600, "Sat Jul  1 02:00:00 2023"},
      {"User-Name = a", 0, "Sun Mar 26 02:30:00 2023"},  // the clocks go from 2 to 3
      {"User-Name = a", 0, "Mon Nov 14 22:13:20 2023"},
      {"User-Name = a", 0, "Tue Nov 31 22:13:20 2023"},
      {"User-Name = a", 0, "Tue Nov 14 22:13:20 2023 or so"},
      {"User-Name = a", 0, "1699996400"},
  };
  for (const auto &row : table) {
    EXPECT_EQ(row.time, events_.read(row.lines, row.header).time()) << row.header << row.lines;
  }
}

// A server logs an attribute of the wrong size as bare octets under its number.
TEST_F(AccountingEventOfARecord, GoesByTheFirstStatusAndTimeAsByTheFirstOfOtherValues) {
  EXPECT_EQ(1u, events_.read("Acct-Status-Type = Start\nAcct-Status-Type = Stop").status);
  EXPECT_EQ(1u, events_.read("Acct-Status-Type = Start\nAttr-40 = 0x02").status);
  EXPECT_EQ(1u, events_.read("Attr-40 = 0x02\nAcct-Status-Type = Start").status);
  EXPECT_FALSE(events_.read("Attr-40 = 0x02").status);
  EXPECT_EQ(7u, events_.read("Event-Timestamp = 7\nEvent-Timestamp = 8").time());
}

TEST_F(AccountingEventOfARecord, KnowsTheAccessServerByAddressElseByIdentifier) {
  const auto key = [this](const char *lines) { return events_.read(lines).server_key(); };
  const std::string ipv4 = key("NAS-IP-Address = 192.0.2.65");
  const std::string ipv6 = key("NAS-IPv6-Address = 2001:db8::1");
  const struct {
    const char *lines;
    std::string key;
  } same[] = {
      {"NAS-Identifier = a\nNAS-IP-Address = 192.0.2.65", ipv4},
      {"NAS-IPv6-Address = 2001:db8::1\nNAS-IP-Address = 192.0.2.65", ipv4},
      {"NAS-IP-Address = 192.0.2.65\nNAS-IP-Address = 192.0.2.66", ipv4},
      {"NAS-Identifier = a\nNAS-IPv6-Address = 2001:db8::1", ipv6},
      {"User-Name = a", ""},
  };
  for (const auto &row : same) EXPECT_EQ(row.key, key(row.lines)) << row.lines;
  EXPECT_NE(ipv4, ipv6);
  EXPECT_NE(key("NAS-Identifier = a"), key("NAS-Identifier = b"));
  // An identifier of the same bytes as the address 65.66.67.68.
  EXPECT_NE(key("NAS-Identifier = ABCD"), key("NAS-IP-Address = 65.66.67.68"));
}

TEST_F(AccountingEventOfARecord, KeepsNothingOfTheEventBefore) {
  events_.read("Acct-Status-Type = Start\nTimestamp = 9\nUser-Name = a\nClass = 0x41");
  const kivod::AccountingEvent &next = events_.read("Acct-Session-Time = 4");
  EXPECT_FALSE(next.status);
  EXPECT_NE(9u, next.log_time);
  EXPECT_EQ(4u, next.session_time_s);
  EXPECT_TRUE(next.values.all().empty());
}

}  // namespace
