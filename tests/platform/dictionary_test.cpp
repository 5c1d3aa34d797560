// Names and kinds of attribute types, and types by name. The rows here are a sample that was
// written down by hand; the round trip covers the others.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/attrdb.h"

namespace {

TEST(Dictionary, GivesEachTypeItsNameAndKind) {
  const struct {
    std::uint32_t type;
    const char *name;
    std::uint32_t kind;
  } rows[] = {
      {1, "user-name", AAA_KIND_VAR_STR},
      {10, "ipv6-addresses", AAA_KIND_IPV6},
      {42, "mac-address", AAA_KIND_MAC},
      {819, "audit-session-id", AAA_KIND_SESN_GUID},
      {1124, "external-class", AAA_KIND_VAR_BIN},
      {43, "attribute-43", AAA_KIND_UNKNOWN},
      {1490, "attribute-1490", AAA_KIND_UNKNOWN},
      {0, "attribute-unknown", AAA_KIND_UNKNOWN},
      {1491, "attribute-unknown", AAA_KIND_UNKNOWN},
      {UINT32_MAX, "attribute-unknown", AAA_KIND_UNKNOWN},
  };
  for (const auto &row : rows) {
    EXPECT_STREQ(row.name, aaa_dict_get_attr_name(row.type)) << row.type;
    EXPECT_STREQ(row.name, get_attr_name_from_type(row.type)) << row.type;
    EXPECT_STREQ(row.name, attrdb_get_attr_name_from_type(row.type)) << row.type;
    EXPECT_EQ(row.kind, aaa_dict_get_attr_kind(row.type)) << row.type;
  }
}

TEST(Dictionary, FindsEveryTypeByItsName) {
  for (std::uint32_t type = 1; type <= AAA_ATTR_TYPE_MAX; ++type) {
    const char *name = aaa_dict_get_attr_name(type);
    EXPECT_EQ(type, aaa_dict_get_attr_type(name)) << name;
    EXPECT_LE(std::strlen(name), 23u) << name;
  }
}

TEST(Dictionary, FindsNoTypeUnderAnythingElse) {
  for (const char *name : {"", "user-nam", "user-names", "attribute-", "attribute-0",
                           "attribute-42", "attribute-043", "attribute-1491", "attribute-43x",
                           "attribute--43", "attribute-4294967339", "attribute-unknown", "43"}) {
    EXPECT_EQ(0u, aaa_dict_get_attr_type(name)) << name;
  }
  EXPECT_EQ(0u, aaa_dict_get_attr_type(nullptr));
}

}  // namespace
