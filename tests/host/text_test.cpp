// What both programs read and print: MAC addresses in the usual spellings and no others, texts that
// cannot steer a terminal, tables whose columns stand in line.
#include <gtest/gtest.h>

#include <string>

#include "text/mac_address.h"
#include "text/printable.h"
#include "text/text_table.h"

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

// A text prints as itself, or as these bytes escaped.
TEST(Printable, ShowsWhatShowsAsItselfAndEscapesTheRest) {
  using namespace std::string_literals;
  const struct {
    std::string text, shown;
  } table[] = {
      {"plain  ~!", "plain  ~!"},
      {" a b ", "\\x20a b\\x20"},
      {"zo\u00eb \u20ac5 \u0905\u0902 \U0001f600", "zo\u00eb \u20ac5 \u0905\u0902 \U0001f600"},
      {"\x1b[2J", "\\x1b[2J"},
      {"\\x1b[2J\\", "\\\\x1b[2J\\\\"},
      {"a\0b\t\r\n\x7f"s, "a\\x00b\\x09\\x0d\\x0a\\x7f"},
      // No UTF-8: lone bytes, cut short, overlong, a surrogate, beyond U+10FFFF.
      {"\xff\x80\xc3", "\\xff\\x80\\xc3"},
      {"\xe2\x82x", "\\xe2\\x82x"},
      {"\xc0\xaf\xc1\xbf", "\\xc0\\xaf\\xc1\\xbf"},
      {"\xe0\x9f\xbf", "\\xe0\\x9f\\xbf"},
      {"\xf0\x8f\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf"},
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {"\xf5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},
      // The nearest that are.
      {"\u0800\ud7ff\U00010000", "\u0800\\xed\\x9f\\xbf\U00010000"},
  };
  for (const auto &row : table) EXPECT_EQ(row.shown, host_text::printable(row.text));
}

// Controls, separators, format characters, ignorables, noncharacters, private use.
TEST(Printable, EscapesWhatSteersHidesOrPassesForABlank) {
  for (const std::string text :
       {"\u0080",     "\u009b",     "\u00a0",     "\u00ad",     "\u034f",     "\u061c",
        "\u115f",     "\u1160",     "\u1680",     "\u17b4",     "\u180b",     "\u180e",
        "\u2000",     "\u200b",     "\u200d",     "\u200f",     "\u2028",     "\u2029",
        "\u202a",     "\u202e",     "\u202f",     "\u205f",     "\u2060",     "\u2065",
        "\u2066",     "\u2069",     "\u206f",     "\u3000",     "\u3164",     "\ue000",
        "\ufdd0",     "\ufe00",     "\ufe0f",     "\ufeff",     "\uffa0",     "\ufff9",
        "\ufffb",     "\ufffe",     "\uffff",     "\U0001bca0", "\U0001d173", "\U0001fffe",
        "\U000e0001", "\U000e0041", "\U000e0100", "\U000e0fff", "\U000f0000", "\U0010ffff"}) {
    EXPECT_EQ(4 * text.size(), host_text::printable(text).size()) << host_text::printable(text);
  }
}

TEST(TextTable, AlignsColumnsByWhatIsSeen) {
  host_text::TextTable table({"NAME", "N"});
  table.add({"zo\u00eb", "1"});
  table.add({"e\u0301\u4e2d\u6587", "2"});  // a combining character, and two wide ones
  table.add({"alexandra", "33"});
  char *text = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  table.print(stream);
  std::fclose(stream);
  EXPECT_EQ("NAME       N\nzo\u00eb        1\ne\u0301\u4e2d\u6587      2\nalexandra  33\n",
            std::string(text, size));
  std::free(text);
}

}  // namespace
