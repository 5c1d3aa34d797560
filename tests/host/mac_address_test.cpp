// Spellings of MAC addresses: the usual ones all mean the same six bytes, and nothing else is taken
// for an address.
#include "text/mac_address.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using host_text::MacAddress;
using host_text::parse_mac_address;

constexpr MacAddress kExpected = {0x00, 0x10, 0xa4, 0x23, 0x19, 0xc0};

TEST(MacAddress, IsTheSameInEveryUsualSpelling) {
  for (const char *text :
       {"00-10-A4-23-19-C0", "00-10-a4-23-19-c0", "00:10:a4:23:19:c0", "00.10.a4.23.19.c0",
        "0010.a423.19c0", "0010-A423-19C0", "0010:a423:19c0", "0010a4-2319c0", "0010a42319c0",
        "0010A42319C0", "00:10:A4:23:19:c0", "  0010a42319c0\t"}) {
    EXPECT_EQ(kExpected, parse_mac_address(text)) << text;
  }
}

TEST(MacAddress, IsNothingThatOnlyLooksLikeOne) {
  using namespace std::string_literals;
  const std::string table[] = {"",
                               " \t ",
                               "0010a42319c",                  // a digit short
                               "0010a42319c00",                // a digit too many
                               "00-10-A4-23-19-C",             //
                               "00-10-A4-23-19-C0-",           //
                               "00-10:A4-23:19-C0",            // two separators
                               "0010.a423-19c0",               //
                               "00_10_a4_23_19_c0",            // no separator in use
                               "00 10 a4 23 19 c0",            //
                               "-00-10-A4-23-19-C",            // a separator out of its place
                               "001-0a42-319c0",               //
                               "0010a.42319c0",                //
                               "0010a42319cg",                 // no digit
                               "0x10a42319c0",                 //
                               "+010a42319c0",                 //
                               "0010a42319\xc3\xa0",           //
                               "0010a42319c\0"s,               //
                               "00-10-A4-23-19-C0:guest",      // a called station's network name
                               "00-10-A4-23-19-C0-00-00",      // an EUI-64
                               "2001:db8::1:2:3:4",            //
                               "198.51.100.17",                //
                               std::string(1000000, 'a'),      //
                               std::string(1000000, ' '),      //
                               "0010a42319c0 0010a42319c0"s};  //
  for (const std::string &text : table) {
    EXPECT_FALSE(parse_mac_address(text)) << text.substr(0, 40);
  }
}

}  // namespace
