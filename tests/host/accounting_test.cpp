// What logs say, before it means anything for a session: records out of whole, damaged and hostile
// logs, values out of their texts. Expected ones are worked out by hand from the definitions (RFC
// 2865, 2866, 2868, 2869, 3162, 6911) and the headers. Needs the dictionaries of freeradius-common.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <regex>

#include "accounting_pair.h"
#include "detail_file.h"

// Stands in for the C library's heap where no sanitizer does; refuses from a certain call on.
static size_t calls_until_refusal = SIZE_MAX;
#ifndef KIVO_SANITIZED
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t n, size_t size);
void *__libc_realloc(void *block, size_t size);
static bool refuses() {
  if (calls_until_refusal == SIZE_MAX) return false;
  return calls_until_refusal == 0 || --calls_until_refusal == 0;
}
void *malloc(size_t size) { return refuses() ? nullptr : __libc_malloc(size); }
void *calloc(size_t n, size_t size) { return refuses() ? nullptr : __libc_calloc(n, size); }
void *realloc(void *block, size_t n) { return refuses() ? nullptr : __libc_realloc(block, n); }
}
#endif

namespace {

using namespace kivod;
using namespace std::string_literals;

// ---- Records. In the tests' logs $ is a date, and ~ another one.

std::string with_dates(const std::string &text) {
  const std::string first = std::regex_replace(text, std::regex("\\$"), "Tue Nov 14 22:13:20 2023");
  return std::regex_replace(first, std::regex("~"), "Wed Nov  1 02:03:04 2023");
}

// "3 HEADER|Name=value@4; " for a record of line 3, "2/1 why; " for a fault in line 2 of the record
// of line 1.
struct Notebook : DetailSink {
  void on_record(const DetailRecord &record) override {
    text += std::to_string(record.line) + " " + std::string(record.header);
    for (const DetailPair &pair : record.pairs) {
      text.append("|").append(pair.name).append("=").append(pair.value);
      text.append("@").append(std::to_string(pair.line));
    }
    text += record.file == "log" ? "; " : "?";
  }
  void on_fault(const DetailFault &fault) override {
    text += std::to_string(fault.line) + "/" + std::to_string(fault.record_line) + " " +
            describe(fault.kind) + (fault.file == "log" ? "; " : "?");
  }
  std::string text;
};

std::string read_log(std::string_view log, size_t piece_size = SIZE_MAX) {
  Notebook notebook;
  DetailReader reader("log", notebook);
  while (!log.empty()) {
    reader.feed(log.substr(0, piece_size));
    log.remove_prefix(std::min(piece_size, log.size()));
  }
  reader.finish();
  return notebook.text;
}

const std::string kWhole = "$\n\tP = 9\n\n";
const std::string kQuote = " a value without its closing quote";
const std::string kNoPair = " an indented line that is not \"Name = value\"";
const std::string kCut = " a line cut short, with the next record behind it";
const std::string kEnd = " the file ends inside a line";
const std::string kNul = " a NUL byte";
const std::string kLong = " a line that is too long";

TEST(DetailLog, SplitsAlikeWhateverPiecesItArrivesIn) {
  const struct {
    std::string log;
    std::string found;
  } table[] = {
      {"", ""},
      {"$\n\tA = \"a\"\n\tB = 1\n\n~\n\tB = 2\n\n", "1 $|A=\"a\"@2|B=1@3; 5 ~|B=2@6; "},
      {"$\r\n\tB = 1\r\n\r\n$\r\n\tB = 2\r\n", "1 $|B=1@2; 4 $|B=2@5; "},
      {"\n \t\n$\n    B = 1  \n\n\n\t\n$\n\tB = 2\n", "3 $|B=1@4; 8 $|B=2@9; "},
      {"$\n\tB = 1\n~\n\tB = 2\n\n", "1 $|B=1@2; 3 ~|B=2@4; "},
      {"Packet 7 of $\n\tB = 1\n\npacket 8\n\tB = 2\n",
       "1 Packet 7 of $|B=1@2; 4 packet 8|B=2@5; "},
      {"$\n\tA = \"a = b\"\n\tC = x = y\n\tD = \"q\\\" \\\\\"\n\tE = \"since ~\"\n\n",
       "1 $|A=\"a = b\"@2|C=x = y@3|D=\"q\\\" \\\\\"@4|E=\"since ~\"@5; "},
  };
  // A whole record follows, and must come through.
  const struct {
    std::string log;
    std::string fault;
  } damaged[] = {
      {"$\n\tB = 1\n\tgarbled\n\tC = 2\n\n", "3/1" + kNoPair},
      {"$\n\t = 1\n\n", "2/1" + kNoPair},
      {"$\n\tC = \n\n", "2/1" + kNoPair},
      {"$\n\tA B = 1\n\n", "2/1" + kNoPair},
      {"$\n\tgarbled\n\tA = \"a\nstray\n\n", "2/1" + kNoPair},
      {"$\n\tA = \"a\n\n", "2/1" + kQuote},
      {"$\n\tA = \"a\\\"\n\n", "2/1" + kQuote},
      {"$\n\tA = \"a\"b\n\n", "2/1" + kQuote},
      {"$\n\tC = 1\nstray\n\n", "3/1 a line inside a record that is neither indented nor a date"},
      {"\tB = 1\n\tB = 2\n\n", "1/1 an attribute without a header line before it"},
      {"$\n\n", "1/1 a header line without attributes"},
      {"~\n", "1/1 a header line without attributes"},
      {"$\n\tC = \"a\0b\"\n\tB = 1\n\n"s, "2/1" + kNul},
      {std::string(5000, '\0'), "1/1" + kNul},
      {"$\n\tA = \"a" + std::string(100000, '\0'), "2/1" + kLong},
      {"$\n\tA = \"ali", "2/1" + kCut},
      {"$\n\tB = 1", "2/1" + kCut},
  };
  const auto check = [](const std::string &log, const std::string &found) {
    for (const size_t piece_size : {SIZE_MAX, size_t{1}, size_t{2}, size_t{7}}) {
      EXPECT_EQ(with_dates(found), read_log(with_dates(log), piece_size)) << log.substr(0, 99);
    }
  };
  for (const auto &row : table) check(row.log, row.found);
  for (const auto &row : damaged) {
    const std::string at = std::to_string(std::ranges::count(row.log, '\n') + 1);
    const std::string pair_at = std::to_string(std::ranges::count(row.log, '\n') + 2);
    check(row.log + kWhole, row.fault + "; " + at + " $|P=9@" + pair_at + "; ");
  }
  for (const char *rest : {"$\n\tA = \"al", "$\n\tB = 12", "$\n\t", "$\n ", "Tue No"}) {
    const std::string at = rest[0] == '$' ? "5" : "4";
    check(kWhole + rest, "1 $|P=9@2; " + at + "/4" + kEnd + "; ");
  }
}

// Lines, pairs and bytes: at the bound a record is whole, one beyond it is dropped.
TEST(DetailLog, HoldsItsBoundsToTheByte) {
  const auto lines = [](size_t n, size_t size) {
    std::string text;
    while (n-- > 0) text += "\tA = " + std::string(size - 5, 'x') + "\n";
    return text;
  };
  // The header's 24 bytes count, and of a line its name and value.
  const size_t rest = kDetailRecordMax - 24 - 15 * (kDetailLineMax - 4) + 4;
  const struct {
    std::function<std::string(size_t more)> log;
    std::string fault;
  } table[] = {
      {[&](size_t more) { return lines(1, kDetailLineMax + more); }, "2/1" + kLong},
      {[&](size_t more) { return lines(kDetailPairsMax + more, 6); },
       "4098/1 a record with too many attributes"},
      {[&](size_t more) {
         return lines(15, kDetailLineMax) + lines(1, rest + more - 100) + lines(1, 104);
       },
       "18/1 a record that is too long"},
  };
  for (const auto &row : table) {
    for (const size_t piece : {SIZE_MAX, size_t{1000}}) {
      EXPECT_EQ(0u, read_log(with_dates("$\n" + row.log(0) + "\n"), piece).find("1 Tue"));
      EXPECT_EQ(with_dates(row.fault + "; "),
                read_log(with_dates("$\n" + row.log(1) + "\n"), piece));
    }
  }
}

TEST(DetailLog, BeginsAgainAfterItsEndAndIsReadFromAPipe) {
  Notebook notebook;
  DetailReader reader("log", notebook);
  for (const std::string &log : {kWhole + "$\n\tcut", kWhole}) {
    reader.feed(with_dates(log));
    reader.finish();
  }
  EXPECT_EQ(with_dates("1 $|P=9@2; 5/4" + kEnd + "; 1 $|P=9@2; "), notebook.text);
  EXPECT_EQ(2u, reader.records());
  EXPECT_EQ(1u, reader.faults());

  int ends[2];
  ASSERT_TRUE(pipe2(ends, O_NONBLOCK) == 0 && dup2(ends[0], STDIN_FILENO) == STDIN_FILENO);
  std::string error;
  const auto file = DetailFile::open("-", notebook, error);
  ASSERT_NE(nullptr, file) << error;
  EXPECT_EQ(DetailFile::Progress::kWait, file->read_piece());
  EXPECT_EQ(2, write(ends[1], "x\n", 2));
  EXPECT_EQ(DetailFile::Progress::kMore, file->read_piece());
  close(ends[1]);
  EXPECT_EQ(DetailFile::Progress::kEnd, file->read_piece());
  EXPECT_EQ(DetailFile::Progress::kEnd, file->read_piece());
  EXPECT_EQ(1u, file->reader().faults());
}

// ---- Values

// What a pair says: number, kind, which readers give something, the bytes (numbers as they lie in
// memory), =number, /bits, :tag.
std::string told(const radius_value &value) {
  constexpr const char *kKinds[] = {"-",    "text", "octets", "int",  "int64", "signed", "date",
                                    "ipv4", "ipv6", "net4",   "net6", "ifid",  "ether"};
  const AccountingPair pair(value);
  std::string text = std::to_string(pair.id().vendor) + "." + std::to_string(pair.id().number) +
                     " " + kKinds[pair.kind()] + " ";
  if (pair.text()) text += "t";
  if (pair.integer()) text += *pair.integer() == value.integer ? "i" : "?";
  if (pair.ipv4()) text += pair.ipv4()->data() == value.bytes ? "4" : "?";
  if (pair.ipv6()) text += pair.ipv6()->data() == value.bytes ? "6" : "?";
  if (pair.ipv6_prefix()) text += pair.ipv6_prefix()->bits == value.prefix_bits ? "p" : "?";
  text += " ";
  for (const uint8_t byte : pair.bytes()) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02x", byte);
    text += pair.kind() == RADIUS_KIND_TEXT ? std::string(1, static_cast<char>(byte)) : hex;
  }
  if (value.integer != 0) text += "=" + std::to_string(static_cast<int64_t>(value.integer));
  if (value.prefix_bits != 0) text += "/" + std::to_string(value.prefix_bits);
  return pair.tag() == 0 ? text : text + ":" + std::to_string(pair.tag());
}

class Values : public testing::Test {
 protected:
  // Reads without any memory from the heap.
  radius_status parse(const std::string &name, const std::string &text) {
    calls_until_refusal = 0;
    const radius_status status = radius_dictionary_parse(dictionary_, name.data(), name.size(),
                                                         text.data(), text.size(), &value_);
    calls_until_refusal = SIZE_MAX;
    return status;
  }
  void SetUp() override {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ASSERT_NE(nullptr, dictionary_ = radius_dictionary_open(nullptr, error_, sizeof error_));
  }
  void TearDown() override { radius_dictionary_close(dictionary_); }

  char error_[RADIUS_ERROR_MAX] = "";
  radius_dictionary *dictionary_ = nullptr;
  radius_value value_{};
};

TEST_F(Values, AreWhatTheServerMeant) {
  const std::string most(RADIUS_VALUE_MAX, 'a');
  const std::string v6 = "20010db800000000000000000000000", wide = "4294967295.1 int64 i ";
  const struct {
    std::string name;
    std::string text;
    std::string told;
  } table[] = {
      {"user-name", "\"alice@example.net\"", "0.1 text t alice@example.net"},
      {"User-Name", "\"\"", "0.1 text t "},
      {"User-Name", R"("q\"\\ \n\r\t \303\251 \000z")", "0.1 text t q\"\\ \n\r\t \303\251 \0z"s},
      {"User-Name", "\"%{User-Name} `x` $y\"", "0.1 text t %{User-Name} `x` $y"},
      {"User-Name", "'a\"b'", "0.1 text t a\"b"},
      {"User-Name", most, "0.1 text t " + most},
      {"User-Name", "\"\\n" + most.substr(4) + "\"", "0.1 text t \n" + most.substr(4)},
      {"Class", "0x" + most.substr(2), "0.25 octets t " + most.substr(2)},
      {"Acct-Status-Type", "Interim-Update", "0.40 int i 03000000=3"},
      {"Acct-Status-Type", "200", "0.40 int i c8000000=200"},
      {"NAS-Port", "4294967295", "0.5 int i ffffffff=4294967295"},
      {"NAS-Port", "010", "0.5 int i 0a000000=10"},
      {"NAS-Port", "0x1F", "0.5 int i 1f000000=31"},
      {"NAS-Port", "0XaF", "0.5 int i af000000=175"},
      {"Tmp-Cast-Byte", "255", "0.1860 int i ff000000=255"},
      {"Tmp-Cast-Short", "65535", "0.1861 int i ffff0000=65535"},
      {"Tmp-Cast-Integer64", "18446744073709551615", "0.1869 int64 i ffffffffffffffff=-1"},
      {"Tmp-Cast-Signed", "2147483647", "0.1863 signed  ffffff7f=2147483647"},
      {"Tmp-Cast-Signed", "-2147483648", "0.1863 signed  00000080=-2147483648"},
      {"NAS-IP-Address", "192.0.2.17", "0.4 ipv4 4 c0000211"},
      {"NAS-IPv6-Address", "2001:DB8::0:7", "0.95 ipv6 6 " + v6 + "7"},
      {"ALU-AAA-Address-0", "192.0.2.17", "831.108 ipv4 4 c0000211"},
      {"ALU-AAA-Address-0", "2001:db8::7", "831.108 ipv6 6 " + v6 + "7"},
      {"Framed-IPv6-Prefix", "2001:db8::7/56", "0.97 net6 p " + v6 + "0/56"},
      {"Tmp-Cast-IPv4Prefix", "192.0.2.17/28", "0.1870 net4  c0000210/28"},
      {"Framed-Interface-Id", "0:0:0:7", "0.96 ifid  0000000000000007"},
      {"Tmp-Cast-Ethernet", "00:00:5e:00:53:01", "0.1862 ether  00005e005301"},
      {"Class", "0x00ff41", "0.25 octets t 00ff41"},
      {"Class", "0x", "0.25 octets t "},
      {"Class", "\"a\\\"b\"", "0.25 octets t 612262"},
      {"Tmp-Cast-Abinary", "\"ip in\"", "0.1855 octets t 697020696e"},
      {"Attr-26.9.250", "0X4142", "9.250 octets t 4142"},
      {"Attr-8", "0x0a00", "0.8 octets t 0a00"},
      {"Tunnel-Type:3", "VLAN", "0.64 int i 0d000000=13:3"},
      {"Tunnel-Private-Group-Id:31", "\"100\"", "0.81 text t 100:31"},
      {"Tunnel-Private-Group-Id:0", "\"100\"", "0.81 text t 100"},
      {"Event-Timestamp", "\"Nov 14 2023 22:13:20 UTC\"", "0.55 date i 00f15365=1700000000"},
      {"Event-Timestamp", "\"Nov 14 2023 23:13:20 CET\"", "0.55 date i 00f15365=1700000000"},
      // The hour that occurs twice when summer time ends: at 00:30 and at 01:30 UTC.
      {"Event-Timestamp", "\"Oct 29 2023 02:30:00 CEST\"", "0.55 date i 88a73d65=1698539400"},
      {"Event-Timestamp", "\"Oct 29 2023 02:30:00 CET\"", "0.55 date i 98b53d65=1698543000"},
      {"Event-Timestamp", "\"Jan  1 1970 00:00:00 GMT\"", "0.55 date i 00000000"},
      {"Event-Timestamp", "\"Feb  7 2106 06:28:15 UTC\"", "0.55 date i ffffffff=4294967295"},
      {"Event-Timestamp", "4294967295", "0.55 date i ffffffff=4294967295"},
      {"timestamp", "9223372036854775807", wide + "ffffffffffffff7f=9223372036854775807"},
  };
  for (const auto &row : table) {
    ASSERT_EQ(RADIUS_OK, parse(row.name, row.text)) << radius_dictionary_error(dictionary_);
    EXPECT_EQ(row.told, told(value_)) << row.name << " = " << row.text;
  }
}

TEST_F(Values, AreRefusedWithAReasonWhenTheyMeanNothing) {
  const std::string most(RADIUS_VALUE_MAX + 1, 'x'), date = " 2023 22:13:20 ";
  const struct {
    std::string name;
    std::vector<std::string> texts;
    radius_status status = RADIUS_BAD_VALUE;
  } table[] = {
      {"Frobnication-Level", {"1"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {"", {"1"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {"User-Name\0x"s, {"a"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {std::string(5000, 'A'), {"1"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {std::string(128, 'A'), {"1"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {"Attr-", {"0x41"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {"Attr-x.y", {"0x41"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {"User-Name:1", {"a"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {"Tunnel-Type:32", {"VLAN"}, RADIUS_UNKNOWN_ATTRIBUTE},
      {"Attr-26.9.250", {"text"}},
      {"Acct-Status-Type", {"Sometimes", "", std::string(200, 'x')}},
      {"NAS-Port", {"4294967296", "99999999999999999999999", "-1", "12abc", "0x", "\"\""}},
      {"NAS-Port", {"\x1b[2J\r\n\x9b\x7f", "18446744073709551616"}},
      {"Tmp-Cast-Byte", {"256"}},
      {"Tmp-Cast-Short", {"65536"}},
      {"Tmp-Cast-Integer64", {"18446744073709551616"}},
      {"Tmp-Cast-Signed", {"2147483648", "-2147483649", "--1", "-", "x"}},
      {"Framed-IP-Address", {"192.0.2", "192.0.2.7/24", "*", "localhost", "\"\"", "nowhere"}},
      {"Framed-IPv6-Address", {"192.0.2.7"}},
      {"Framed-IPv6-Prefix", {"2001:db8::/129", "2001:db8::/"}},
      {"Class", {"0x123", "0xgg"}},
      {"User-Name", {"\"alice", "\"alice\\\"", "\"a\" b", "\"", "a\0b"s, most}},
      {"Vendor-Specific", {"0x41"}},
      {"Event-Timestamp", {"\"Feb 30" + date + "UTC\"", "\"Nov 14 2023 24:13:20 UTC\""}},
      {"Event-Timestamp", {"\"Nov 14" + date + "PST\"", "\"Nov 14" + date + "CEST\""}},
      {"Event-Timestamp", {"\"Nov 14" + date + "\"", "\"Nov 14" + date + "UTC or so\""}},
      {"Event-Timestamp", {"\"Dec 31 1969 23:59:59 UTC\"", "\"Feb  7 2106 06:28:16 UTC\""}},
      {"Event-Timestamp", {"\"Nov 14" + date + "UTC" + std::string(40, ' ') + "\"", "4294967296"}},
      {"Timestamp", {"soon", "9223372036854775808"}},
  };
  for (const auto &row : table) {
    for (const std::string &text : row.texts) {
      EXPECT_EQ(row.status, parse(row.name, text)) << row.name << text;
      const std::string why = radius_dictionary_error(dictionary_);
      EXPECT_NE(why.npos, why.find(row.name.substr(0, 60).c_str())) << why;
      EXPECT_TRUE(std::ranges::all_of(why, [](char c) { return c >= ' ' && c <= '~'; })) << why;
      EXPECT_EQ("0.0 -  ", told(value_));
    }
  }
}

// A process loads dictionaries once. What was loaded is shared, and outlives who asked for it.
TEST_F(Values, OfOtherDictionariesAreNotToBeHad) {
  std::string error;
  AccountingPair one;
  AccountingPair two;
  auto first = PairDecoder::open("", error);
  auto second = PairDecoder::open("", error);
  ASSERT_TRUE(first && second) << error;
  EXPECT_EQ(RADIUS_OK, first->decode("User-Name", "\"alice\"", one));
  EXPECT_EQ(RADIUS_OK, second->decode("User-Name", "\"bob\"", two));
  EXPECT_EQ("alice", one.text());
  first.reset();
  EXPECT_EQ("bob", two.text());
  EXPECT_FALSE(PairDecoder::open("/no\033[2J", error));
  EXPECT_EQ("cannot load the RADIUS dictionaries of /no?[2J: others are loaded already", error);
}

TEST(ValuesDeathTest, AreRefusedToWhoFindsNoMemoryForTheDictionaries) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // in a process that has loaded none
  [[maybe_unused]] const auto open_while_memory_goes = [] {
    for (const size_t first : {1u, 5u, 10u, 20u, 30u, 31u, 32u, 33u, 1000u, 1001u, 20001u}) {
      const pid_t child = fork();
      if (child == 0) {
        char error[RADIUS_ERROR_MAX] = "";
        calls_until_refusal = first;
        const auto *opened = radius_dictionary_open(nullptr, error, sizeof error);
        _exit(opened != nullptr || std::string_view(error).ends_with(' ') ? 1 : 0);
      }
      int status = -1;
      if (waitpid(child, &status, 0) != child || status != 0) _exit(1);
    }
    _exit(0);
  };
#ifndef KIVO_SANITIZED
  EXPECT_EXIT(open_while_memory_goes(), testing::ExitedWithCode(0), "");
#endif
}

}  // namespace
