// What operators write behind --match.
#include <gtest/gtest.h>

#include "conditions.h"
#include "platform/aaa_dictionary.h"

namespace {

using kivod::AttrCondition;
using kivod::parse_conditions;

TEST(Conditions, AreReadByNameInTheEncodingOfTheType) {
  const struct {
    const char *text;
    uint32_t type;
    std::string bytes;
  } table[] = {
      {"domain=example.net", AAA_ATTR_DOMAIN, "example.net"},
      {"  user-name = \"a, b\" ", AAA_ATTR_USER_NAME, "a, b"},
      {"port=258", AAA_ATTR_PORT, std::string("\x02\x01\0\0", 4)},
      {"port=0x102", AAA_ATTR_PORT, std::string("\x02\x01\0\0", 4)},
      {"start-time=1", AAA_ATTR_START_TIME, std::string("\1\0\0\0\0\0\0\0", 8)},
      {"ipv4-address=192.0.2.1", AAA_ATTR_IPV4_ADDRESS, std::string("\xc0\0\x02\x01", 4)},
      {"server-address=2001:db8::1", AAA_ATTR_ACCESS_SERVER_ADDRESS,
       std::string("\x20\x01\x0d\xb8", 4) + std::string(11, '\0') + '\1'},
      {"mac-address=0000.5e00.5301", AAA_ATTR_MAC_ADDRESS, std::string("\0\0\x5e\0\x53\1", 6)},
      {"interface=17", AAA_ATTR_INTERFACE, "17"},
      {"ipv6-prefix=2001:db8::/32", AAA_ATTR_IPV6_PREFIX, "2001:db8::/32"},
      {"external-class=0x00ff", AAA_ATTR_EXT_CLASS, std::string("\0\xff", 2)},
      {"attribute-600=any text", 600, "any text"},
  };
  for (const auto &row : table) {
    std::string error;
    const auto conditions = parse_conditions(row.text, error);
    ASSERT_EQ(1u, conditions.size()) << row.text << ": " << error;
    EXPECT_EQ(row.type, conditions[0].type) << row.text;
    EXPECT_EQ(row.bytes, conditions[0].bytes) << row.text;
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
      {"external-class=abc", "'abc' is no value of external-class"},
      {"domain=", "'' is no value of domain"},
  };
  for (const auto &row : table) {
    std::string error;
    EXPECT_TRUE(parse_conditions(row.text, error).empty()) << row.text;
    EXPECT_EQ(row.error, error) << row.text;
  }
}

}  // namespace
