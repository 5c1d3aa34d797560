// What both programs read and print: MAC addresses in the usual spellings and no others, texts that
// cannot steer a terminal, tables whose columns stand in line.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "text/counted.h"
#include "text/mac_address.h"
#include "text/printable.h"
#include "text/text_table.h"
#include "text/utc_time.h"

namespace {

using namespace host_text;
using namespace std::string_literals;

std::vector<std::string> split(const std::string &texts) {
  std::istringstream stream(texts);
  std::vector<std::string> found;
  for (std::string text; std::getline(stream, text, '|');) found.push_back(text);
  return found;
}

TEST(MacAddress, IsTheSameInEveryUsualSpellingAndInNoOther) {
  for (const std::string &text :
       split("90-1a-F4-AF-19-Cf|90:1a:f4:af:19:cF|90.1a.f4.af.19.cf|901a.f4af.19CF|901A-F4AF-19cf|"
             "901a:f4af:19cf|901af4-af19cf|901AF4AF19CF|  901af4af19cf\t")) {
    EXPECT_EQ((MacAddress{0x90, 0x1a, 0xf4, 0xaf, 0x19, 0xcf}), parse_mac_address(text)) << text;
  }
  for (const std::string &text :
       split("| \t |0010a42319c|0010a42319c00|00-10-A4-23-19-C|00-10-A4-23-19-C0-|0010.a423-19c0|"
             "00-10:A4-23:19-C0|00_10_a4_23_19_c0|00 10 a4 23 19 c0|-00-10-A4-23-19-C|"
             "001-0a42-319c0|0010a.42319c0|0010a42319cg|0010a42319cG|0010a42319c@|0010a42319c`|"
             "0010a42319c/|0010a42319c:|0x10a42319c0|0010a42319\xc3\xa0|0010a42319c\0|"
             "00-10-A4-23-19-C0:guest|00-10-A4-23-19-C0-00-00|0010a42319c0 0010a42319c0|"s +
             std::string(1000000, 'a') + "|" + std::string(1000000, ' '))) {
    EXPECT_FALSE(parse_mac_address(text)) << text.substr(0, 40);
  }
}

TEST(Printable, ShowsWhatShowsAsItselfAndEscapesTheRest) {
  const std::pair<std::string, std::string> rows[] = {
      {" a  b~! ", "\\x20a  b~!\\x20"},
      {"zo\u00eb \u20ac5 \u0905\u0902 \U0001f600", "zo\u00eb \u20ac5 \u0905\u0902 \U0001f600"},
      {"\\x1b\x1b[2J\\", "\\\\x1b\\x1b[2J\\\\"},
      {"a\0b\t\r\n\x7f"s, "a\\x00b\\x09\\x0d\\x0a\\x7f"},
      // No UTF-8: lone bytes, cut short, overlong, surrogates, beyond U+10FFFF; the nearest that is.
      {"\xff\x80\xc3 \xe2\x82x", "\\xff\\x80\\xc3 \\xe2\\x82x"},
      {"\xc0\xaf\xe0\x9f\xbf\xf0\x8f\xbf\xbf", "\\xc0\\xaf\\xe0\\x9f\\xbf\\xf0\\x8f\\xbf\\xbf"},
      {"\xed\xa0\x80\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},
      {"\u0800\ud7ff\U00010000", "\u0800\\xed\\x9f\\xbf\U00010000"},
  };
  for (const auto &[text, shown] : rows) EXPECT_EQ(shown, printable(text));
  // Controls, separators, format characters, ignorables, noncharacters, private use.
  for (const std::string &text :
       split("\u0080|\u009b|\u00a0|\u00ad|\u034f|\u061c|\u115f|\u1680|\u17b4|\u180b|\u2000|\u200b|"
             "\u200f|\u2028|\u2029|\u202e|\u2060|\u2065|\u2069|\u3000|\u3164|\ue000|\ufdd0|\ufe0f|"
             "\ufeff|\uffa0|\ufffb|\uffff|\U0001bca0|\U0001d173|\U0001fffe|\U000e0041|\U000e0100|"
             "\U000e0fff|\U000f0000|\U0010ffff")) {
    EXPECT_EQ(4 * text.size(), printable(text).size()) << printable(text);
  }
  EXPECT_EQ(5u, utf8_size("caf\u00e9\xff\u00e9"));
}

TEST(Printable, AlignsNumbersAndTimesAsPeopleReadThem) {
  TextTable table({"NAME", "N"});
  table.add({"zo\u00eb", counted(1, "time")});
  table.add({"e\u0301\u4e2d\u6587", counted(0, "time")});  // a combining character, two wide ones
  table.add({"alexandra", utc_time(951782399)});
  table.add({utc_time(253402300800), utc_time(253402300799)});
  char text[256] = "";
  FILE *const stream = fmemopen(text, sizeof text, "w");
  table.print(stream);
  std::fclose(stream);
  EXPECT_EQ(
      "NAME       N\nzo\u00eb        1 time\ne\u0301\u4e2d\u6587      0 times\n"
      "alexandra  2000-02-28T23:59:59Z\n           9999-12-31T23:59:59Z\n"s,
      text);
}

}  // namespace
