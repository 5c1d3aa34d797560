// What operators write behind --match.
#include <gtest/gtest.h>

#include "conditions.h"
#include "platform/aaa_dictionary.h"
#include "sessions/value_text.h"

namespace {

using kivod::AttrCondition;
using kivod::parse_conditions;
using namespace std::string_literals;

TEST(Conditions, AreReadByNameAndShownAsTheyAreStored) {
  const struct {
    const char *text;
    uint32_t type;
    std::string bytes;
    const char *shown;
  } table[] = {
      {"domain=Example.NET", AAA_ATTR_DOMAIN, "example.net", "example.net"},
      {"  user-name = \"A, b\" ", AAA_ATTR_USER_NAME, "A, b", "A, b"},
      {"user-name=a\x1b[2J\n", AAA_ATTR_USER_NAME, "a\x1b[2J\n", "a\\x1b[2J\\x0a"},
      {"port=258", AAA_ATTR_PORT, "\x02\x01\0\0"s, "258"},
      {"port=0x102", AAA_ATTR_PORT, "\x02\x01\0\0"s, "258"},
      {"start-time=1", AAA_ATTR_START_TIME, "\1\0\0\0\0\0\0\0"s, "1970-01-01T00:00:01Z"},
      {"update-time=1970-01-02T00:00:00Z", AAA_ATTR_UPDATE_TIME, "\x80\x51\1\0\0\0\0\0"s,
       "1970-01-02T00:00:00Z"},
      {"start-time=253402300800", AAA_ATTR_START_TIME, "\x80\x41\xf4\xff\x3a\0\0\0"s,
       "253402300800"},  // the year 10000
      {"ipv4-address=192.0.2.1", AAA_ATTR_IPV4_ADDRESS, "\xc0\0\x02\x01"s, "192.0.2.1"},
      {"server-address=2001:DB8:0::1", AAA_ATTR_ACCESS_SERVER_ADDRESS,
       "\x20\x01\x0d\xb8"s + std::string(11, '\0') + '\1', "2001:db8::1"},
      {"mac-address=00-00-5E-00-53-01", AAA_ATTR_MAC_ADDRESS, "\0\0\x5e\0\x53\1"s,
       "0000.5e00.5301"},
      {"interface=17", AAA_ATTR_INTERFACE, "17", "17"},
      {"interface=0x11", AAA_ATTR_INTERFACE, "17", "17"},
      {"ipv6-prefix=2001:DB8:FFFF::1/47", AAA_ATTR_IPV6_PREFIX, "2001:db8:fffe::/47",
       "2001:db8:fffe::/47"},
      {"ipv6-prefix=::1/0", AAA_ATTR_IPV6_PREFIX, "::/0", "::/0"},
      {"audit-session-id=00000001AFAAC1F00000001a", AAA_ATTR_AUDIT_SESSION_ID,
       "00000001AFAAC1F00000001a", "00000001AFAAC1F00000001a"},
      {"external-class=0x00FF", AAA_ATTR_EXT_CLASS, "\0\xff"s, "0x00ff"},
      {"external-class=abc", AAA_ATTR_EXT_CLASS, "abc", "abc"},
      {"external-class=0x3078", AAA_ATTR_EXT_CLASS, "0x", "0x3078"},
      {"attribute-600=any text", 600, "any text", "any text"},
  };
  for (const auto &row : table) {
    std::string error;
    const auto conditions = parse_conditions(row.text, error);
    ASSERT_EQ(1u, conditions.size()) << row.text << ": " << error;
    EXPECT_EQ(row.type, conditions[0].type) << row.text;
    EXPECT_EQ(row.bytes, conditions[0].bytes) << row.text;
    EXPECT_EQ(row.shown, kivod::shown_value(row.type, row.bytes)) << row.text;
  }
  std::string error;
  EXPECT_EQ(2u, parse_conditions("domain=a,method=mac", error).size());
}

TEST(Conditions, ThatCannotBeReadAreNamed) {
  const struct {
    const char *text;
    const char *error;
  } table[] = {
      {"", "'' is not name=value"},
      {"domain", "'domain' is not name=value"},
      {"domain=a,,method=b", "'' is not name=value"},
      {"colour=red", "there is no attribute 'colour'"},
      {"port=4294967296", "'4294967296' is no value of port"},
      {"port=1x", "'1x' is no value of port"},
      {"ipv4-address=192.0.2", "'192.0.2' is no value of ipv4-address"},
      {"mac-address=00:00", "'00:00' is no value of mac-address"},
      {"external-class=0xabc", "'0xabc' is no value of external-class"},
      {"interface=Gi1", "'Gi1' is no value of interface"},
      {"ipv6-prefix=2001:db8::", "'2001:db8::' is no value of ipv6-prefix"},
      {"ipv6-prefix=2001:db8::/129", "'2001:db8::/129' is no value of ipv6-prefix"},
      {"audit-session-id=1", "'1' is no value of audit-session-id"},
      {"start-time=2026-02-30T00:00:00Z", "'2026-02-30T00:00:00Z' is no value of start-time"},
      {"domain=", "'' is no value of domain"},
  };
  for (const auto &row : table) {
    std::string error;
    EXPECT_TRUE(parse_conditions(row.text, error).empty()) << row.text;
    EXPECT_EQ(row.error, error) << row.text;
  }
}

}  // namespace
