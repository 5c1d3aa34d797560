// Texts of values, by type code and by size of an address: what fits, what does not, what is cut.
// Values lie in memory of exactly their size, so that a read past one is found.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/attrdb.h"

namespace {

using namespace std::string_literals;

// Prints from memory of exactly the value's size: the address sanitizer sees a read past it.
std::string printed(const std::string &value, std::uint32_t code) {
  const std::unique_ptr<char[]> exact(new char[value.size()]);
  value.copy(exact.get(), value.size());
  char text[ATTRDB_PRINT_TEXT_MAX];
  const char *result = attrdb_print_data_with_kivo_type(
      exact.get(), static_cast<std::uint32_t>(value.size()), text, code);
  EXPECT_EQ(text, result);
  return result;
}

std::string as_address(const std::string &value) {
  return auth_mgr_safe_printable_mac(value.data(), static_cast<std::uint32_t>(value.size()));
}

TEST(PrintValue, FollowsTheTypeCode) {
  const std::string prefix16 = "2001:db8:12::/48";
  const struct {
    std::string value;
    std::uint32_t code;
    std::string text;
  } rows[] = {
      {"\x2a\0\0\0"s, AAA_KIND_INT32, "0x2a"},
      {"\0\0\0\0\1\0\0\0"s, AAA_KIND_INT64, "0x100000000"},
      {"\x0a\0\0\xff"s, AAA_KIND_IPV4, "10.0.0.255"},
      {"\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\1"s, AAA_KIND_IPV6, "2001:db8::1"},
      {"2001:db8::/32", AAA_KIND_IPV6, "2001:db8::/32"},
      {prefix16, AAA_KIND_IPV6, prefix16},
      {"\x00\x11\x22\x33\x44\x5f"s, AAA_KIND_MAC, "0011.2233.445f"},
      {"ABCDEFGHIJKLMNOPQRSTUVWX", AAA_KIND_SESN_GUID, "ABCDEFGHIJKLMNOPQRSTUVWX"},
      {"\xff\0\0\0\0\0\0\0"s, AAA_KIND_POINTER, "0xff"},
      {"\x00\x41"s, AAA_KIND_VAR_BIN, "0041"},
      {"al\x1b\xff \"\\~"s, AAA_KIND_VAR_STR, "al\\x1b\\xff \"\\~"},
      {"", AAA_KIND_VAR_STR, ""},
      {"A", ATTRDB_TYPE_UNKNOWN, "41"},
      {"A", 77, "41"},
  };
  for (const auto &row : rows) EXPECT_EQ(row.text, printed(row.value, row.code)) << row.text;
}

TEST(PrintValue, IsHexadecimalWhenTheSizeDoesNotFitTheCode) {
  for (const std::uint32_t code : {AAA_KIND_INT32, AAA_KIND_INT64, AAA_KIND_IPV4, AAA_KIND_IPV6,
                                   AAA_KIND_MAC, AAA_KIND_SESN_GUID, AAA_KIND_POINTER}) {
    EXPECT_EQ("313233", printed("123", code)) << code;
    EXPECT_EQ("", printed("", code)) << code;
  }
}

TEST(PrintValue, CutsWhatIsTooLong) {
  EXPECT_EQ(std::string(508, 'x'), printed(std::string(508, 'x'), AAA_KIND_VAR_STR));
  EXPECT_EQ(std::string(508, 'x') + "...", printed(std::string(509, 'x'), AAA_KIND_VAR_STR));
  EXPECT_EQ(std::string(508, '3') + "...", printed(std::string(65535, '3'), AAA_KIND_VAR_BIN));
  // An escape is never cut in half: 507 characters leave no room for four.
  EXPECT_EQ(std::string(507, 'x') + "...", printed(std::string(507, 'x') + "\n", AAA_KIND_VAR_STR));
}

TEST(PrintValue, TakesNullForNothing) {
  char text[ATTRDB_PRINT_TEXT_MAX] = "before";
  EXPECT_STREQ("", attrdb_print_data_with_kivo_type(nullptr, 4, text, AAA_KIND_INT32));
  EXPECT_STREQ("", text);
  EXPECT_STREQ("", attrdb_print_data_with_kivo_type("x", 1, nullptr, AAA_KIND_VAR_STR));
}

TEST(PrintAddress, FollowsTheSize) {
  EXPECT_EQ("192.0.2.1", as_address("\xc0\0\2\1"s));
  EXPECT_EQ("0011.2233.4455", as_address("\x00\x11\x22\x33\x44\x55"s));
  EXPECT_EQ("fe80::1", as_address("\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\1"s));
  EXPECT_EQ("0102030405", as_address("\1\2\3\4\5"s));
  EXPECT_EQ(std::string(128, '1'), as_address(std::string(64, '\x11')));
  EXPECT_EQ(std::string(128, '1') + "...", as_address(std::string(65, '\x11')));
  EXPECT_STREQ("", auth_mgr_safe_printable_mac(nullptr, 6));
}

TEST(PrintAddress, HoldsForSevenMoreCalls) {
  const char *first = auth_mgr_safe_printable_mac("\1", 1);
  for (int i = 0; i < 7; ++i) auth_mgr_safe_printable_mac("\2", 1);
  EXPECT_STREQ("01", first);
}

TEST(TypeCodes, AreTheKindsAndUnknownForOthers) {
  for (std::uint32_t kind = 0; kind <= 8; ++kind) {
    EXPECT_EQ(kind, attrdb_kivo_type_to_attrdb_type(kind));
  }
  EXPECT_EQ(9u, attrdb_kivo_type_to_attrdb_type(9));
  EXPECT_EQ(9u, attrdb_kivo_type_to_attrdb_type(UINT32_MAX));
}

}  // namespace
