// Attribute pairs as RADIUS servers log them, against values worked out by hand from the attribute
// definitions (RFC 2865, 2866, 2868, 2869, 3162, 6911). Needs the dictionaries of
// freeradius-common.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "accounting_pair.h"

#ifndef KIVO_SANITIZED
#define KIVO_OWN_HEAP
static bool heap_fails;
static size_t heap_calls;
static size_t first_refused = 1;  // of the calls while it fails

static bool heap_refuses() { return heap_fails && ++heap_calls >= first_refused; }

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t n, size_t size);
void *__libc_realloc(void *block, size_t size);
void *malloc(size_t size) { return heap_refuses() ? nullptr : __libc_malloc(size); }
void *calloc(size_t n, size_t size) { return heap_refuses() ? nullptr : __libc_calloc(n, size); }
void *realloc(void *block, size_t size) {
  return heap_refuses() ? nullptr : __libc_realloc(block, size);
}
}
#endif

namespace {

using kivod::AccountingPair;
using kivod::AttributeId;
using kivod::PairDecoder;
using namespace std::string_literals;

constexpr radius_kind kText = RADIUS_KIND_TEXT;
constexpr radius_kind kOctets = RADIUS_KIND_OCTETS;
constexpr radius_kind kInteger = RADIUS_KIND_INTEGER;
constexpr radius_kind kDate = RADIUS_KIND_DATE;
constexpr radius_kind kIpv4 = RADIUS_KIND_IPV4;
constexpr radius_kind kIpv6 = RADIUS_KIND_IPV6;

// Integers as the decoder gives them: in host order.
std::string u32(uint32_t word) {
  return std::string(reinterpret_cast<const char *>(&word), sizeof word);
}

std::string u64(uint64_t word) {
  return std::string(reinterpret_cast<const char *>(&word), sizeof word);
}

std::string bytes_of(const AccountingPair &pair) {
  return std::string(pair.bytes().begin(), pair.bytes().end());
}

class Pair : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    std::string error;
    decoder_ = PairDecoder::open("", error);
    ASSERT_TRUE(decoder_) << error;
  }
  radius_status decode(std::string_view name, std::string_view value) {
    return decoder_->decode(name, value, pair_);
  }
  std::optional<PairDecoder> decoder_;
  AccountingPair pair_;
};

struct Good {
  std::string name;
  std::string value;
  AttributeId id;
  radius_kind kind;
  std::string bytes;
};

TEST_F(Pair, HasTheBytesThatTheServerMeant) {
  const std::string v6("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x07", 16);
  const Good table[] = {
      {"User-Name", "\"alice@example.net\"", {0, 1}, kText, "alice@example.net"},
      {"user-name", "alice", {0, 1}, kText, "alice"},
      {"User-Name", "\"\"", {0, 1}, kText, ""},
      {"User-Name",
       "\"q\\\"\\\\ \\n\\r\\t \\303\\251 \\000z\"",
       {0, 1},
       kText,
       "q\"\\ \n\r\t \303\251 \0z"s},
      {"User-Name", "\"%{User-Name} `x` $y\"", {0, 1}, kText, "%{User-Name} `x` $y"},
      {"User-Name", "'a\"b'", {0, 1}, kText, "a\"b"},
      {"User-Name", std::string(4000, 'x'), {0, 1}, kText, std::string(4000, 'x')},
      {"Acct-Status-Type", "Start", {0, 40}, kInteger, u32(1)},
      {"Acct-Status-Type", "Interim-Update", {0, 40}, kInteger, u32(3)},
      {"Acct-Status-Type", "Accounting-On", {0, 40}, kInteger, u32(7)},
      {"Acct-Status-Type", "200", {0, 40}, kInteger, u32(200)},
      {"NAS-Port-Type", "Ethernet", {0, 61}, kInteger, u32(15)},
      {"Acct-Authentic", "RADIUS", {0, 45}, kInteger, u32(1)},
      {"NAS-Port", "4294967295", {0, 5}, kInteger, u32(4294967295)},
      {"NAS-Port", "010", {0, 5}, kInteger, u32(10)},
      {"NAS-Port", "0x1F", {0, 5}, kInteger, u32(31)},
      {"NAS-IP-Address", "192.0.2.17", {0, 4}, kIpv4, "\xc0\x00\x02\x11"s},
      {"Client-IP-Address", "192.0.2.1", {0, 1052}, kIpv4, "\xc0\x00\x02\x01"s},
      {"Packet-Src-IP-Address", "192.0.2.1", {0, 1084}, kIpv4, "\xc0\x00\x02\x01"s},
      {"NAS-IPv6-Address", "2001:db8::7", {0, 95}, kIpv6, v6},
      {"Framed-IPv6-Address", "2001:DB8:0:0:0:0:0:7", {0, 168}, kIpv6, v6},
      {"Framed-Interface-Id", "0:0:0:7", {0, 96}, RADIUS_KIND_INTERFACE_ID, "\0\0\0\0\0\0\0\7"s},
      {"3GPP2-GMT-Time-Zone-Offset", "-3600", {5535, 143}, RADIUS_KIND_SIGNED, u32(-3600u)},
      {"3GPP2-GMT-Time-Zone-Offset", "3600", {5535, 143}, RADIUS_KIND_SIGNED, u32(3600)},
      {"Class", "0x00ff41", {0, 25}, kOctets, "\0\xff\x41"s},
      {"Class", "0x", {0, 25}, kOctets, ""},
      {"Class", "\"a\\\"b\"", {0, 25}, kOctets, "a\"b"},
      {"WISPr-Location-Name", "\"Lobby, east\"", {14122, 2}, kText, "Lobby, east"},
      {"Attr-26.9.250", "0x4142", {9, 250}, kOctets, "AB"},
      {"Attr-8", "0x0a00", {0, 8}, kOctets, "\x0a\0"s},
      {"Event-Timestamp", "\"Nov 14 2023 22:13:20 UTC\"", {0, 55}, kDate, u32(1700000000)},
      {"Event-Timestamp", "\"Nov 14 2023 23:13:20 CET\"", {0, 55}, kDate, u32(1700000000)},
      // The hour that occurs twice when summer time ends: 2023-10-29 02:30, at 00:30 and 01:30 UTC.
      {"Event-Timestamp", "\"Oct 29 2023 02:30:00 CEST\"", {0, 55}, kDate, u32(1698539400)},
      {"Event-Timestamp", "\"Oct 29 2023 02:30:00 CET\"", {0, 55}, kDate, u32(1698543000)},
      {"Event-Timestamp", "\"Jan  1 1970 00:00:01 GMT\"", {0, 55}, kDate, u32(1)},
      {"Event-Timestamp", "1700000000", {0, 55}, kDate, u32(1700000000)},
      {"Timestamp", "1700000000", kivod::attribute::kTimestamp, RADIUS_KIND_INTEGER64,
       u64(1700000000)},
      {"Timestamp", "99999999999", kivod::attribute::kTimestamp, RADIUS_KIND_INTEGER64,
       u64(99999999999)},
  };
  for (const Good &row : table) {
    SCOPED_TRACE(row.name + " = " + row.value);
    ASSERT_EQ(RADIUS_OK, decode(row.name, row.value)) << decoder_->error();
    EXPECT_EQ(row.id.vendor, pair_.id().vendor);
    EXPECT_EQ(row.id.number, pair_.id().number);
    EXPECT_EQ(row.kind, pair_.kind());
    EXPECT_EQ(row.bytes, bytes_of(pair_));
  }
}

TEST_F(Pair, IsRefusedWithAReasonWhenItMeansNothing) {
  constexpr radius_status kUnknown = RADIUS_UNKNOWN_ATTRIBUTE;
  constexpr radius_status kBad = RADIUS_BAD_VALUE;
  const struct {
    radius_status status;
    std::string name;
    std::string value;
  } table[] = {
      {kUnknown, "Frobnication-Level", "1"},
      {kUnknown, "", "1"},
      {kUnknown, "User-Name\0x"s, "a"},
      {kUnknown, std::string(5000, 'A'), "1"},
      {kUnknown, "Attr-", "0x41"},
      {kUnknown, "Attr-x.y", "0x41"},
      {kUnknown, "User-Name:1", "a"},
      {kUnknown, "Tunnel-Type:99", "VLAN"},
      {kBad, "Attr-26.9.250", "text"},
      {kBad, "Acct-Status-Type", "Sometimes"},
      {kBad, "Acct-Status-Type", ""},
      {kBad, "NAS-Port", "4294967296"},
      {kBad, "NAS-Port", "99999999999999999999999"},
      {kBad, "NAS-Port", "-1"},
      {kBad, "3GPP2-GMT-Time-Zone-Offset", "2147483648"},
      {kBad, "3GPP2-GMT-Time-Zone-Offset", "-2147483649"},
      {kBad, "NAS-Port", "12abc"},
      {kBad, "NAS-Port", "0x"},
      {kBad, "NAS-Port", "\"\""},
      {kBad, "Framed-IP-Address", "192.0.2"},
      {kBad, "Framed-IP-Address", "192.0.2.7/24"},
      {kBad, "Framed-IP-Address", "*"},
      {kBad, "Framed-IP-Address", "localhost"},
      {kBad, "Framed-IP-Address", "\"\""},
      {kBad, "Framed-IPv6-Address", "192.0.2.7"},
      {kBad, "Framed-IPv6-Prefix", "2001:db8::/129"},
      {kBad, "Framed-IPv6-Prefix", "2001:db8::/"},
      {kBad, "Class", "0x123"},
      {kBad, "Class", "0xgg"},
      {kBad, "User-Name", "\"alice"},
      {kBad, "User-Name", "\"alice\\\""},
      {kBad, "User-Name", "\"a\" b"},
      {kBad, "User-Name", "\""},
      {kBad, "User-Name", "a\0b"s},
      {kBad, "User-Name", std::string(RADIUS_VALUE_MAX + 1, 'x')},
      {kBad, "Vendor-Specific", "0x41"},
      {kBad, "Event-Timestamp", "\"Feb 30 2023 00:00:00 UTC\""},
      {kBad, "Event-Timestamp", "\"Nov 14 2023 24:13:20 UTC\""},
      {kBad, "Event-Timestamp", "\"Nov 14 2023 22:13:20 PST\""},
      {kBad, "Event-Timestamp", "\"Nov 14 2023 22:13:20 CEST\""},
      {kBad, "Event-Timestamp", "\"Nov 14 2023 22:13:20\""},
      {kBad, "Event-Timestamp", "\"Nov 14 1969 22:13:20 UTC\""},
      {kBad, "Timestamp", "soon"},
  };
  for (const auto &row : table) {
    SCOPED_TRACE(row.name.substr(0, 40) + " = " + row.value.substr(0, 40));
    EXPECT_EQ(row.status, decode(row.name, row.value));
    const std::string name = row.name.substr(0, 60);
    EXPECT_NE(nullptr, strstr(decoder_->error(), name.c_str())) << decoder_->error();
    EXPECT_STRNE("", decoder_->error());
    EXPECT_TRUE(pair_.bytes().empty());
  }
}

TEST_F(Pair, OfATaggedAttributeHasItsTag) {
  ASSERT_EQ(RADIUS_OK, decode("Tunnel-Type:3", "VLAN"));
  EXPECT_EQ(64u, pair_.id().number);
  EXPECT_EQ(3, pair_.tag());
  EXPECT_EQ(13u, pair_.integer());
  ASSERT_EQ(RADIUS_OK, decode("Tunnel-Private-Group-Id:0", "\"100\""));
  EXPECT_EQ(0, pair_.tag());
  EXPECT_EQ("100", pair_.text());
}

TEST_F(Pair, IsReadOnlyAsWhatItIs) {
  ASSERT_EQ(RADIUS_OK, decode("Framed-IPv6-Prefix", "2001:db8:1:2::/56"));
  ASSERT_TRUE(pair_.ipv6_prefix());
  EXPECT_EQ(56, pair_.ipv6_prefix()->bits);
  EXPECT_EQ("\x20\x01\x0d\xb8\0\1\0\0\0\0\0\0\0\0\0\0"s, bytes_of(pair_));
  EXPECT_FALSE(pair_.ipv6());
  EXPECT_FALSE(pair_.text());

  ASSERT_EQ(RADIUS_OK, decode("Framed-IP-Address", "192.0.2.7"));
  ASSERT_TRUE(pair_.ipv4());
  EXPECT_EQ(7, (*pair_.ipv4())[3]);
  EXPECT_FALSE(pair_.integer());

  ASSERT_EQ(RADIUS_OK, decode("Attr-8", "0xc0000207"));
  EXPECT_FALSE(pair_.ipv4());
  EXPECT_FALSE(AccountingPair().text());
}

TEST_F(Pair, PutsNothingUnprintableIntoItsError) {
  ASSERT_EQ(RADIUS_BAD_VALUE, decode("NAS-Port", "\x1b[2J\r\n\x9b"));
  for (const char *c = decoder_->error(); *c != '\0'; ++c) {
    EXPECT_TRUE(*c >= ' ' && *c <= '~') << static_cast<int>(*c);
  }
}

TEST_F(Pair, IsDecodedWithoutAnyMemoryFromTheHeap) {
#ifdef KIVO_OWN_HEAP
  const std::string most(RADIUS_VALUE_MAX, 'x');
  const std::string escapes =
      "\"" + std::string(RADIUS_VALUE_MAX - 2, 'x').replace(0, 2, "\\n") + "\"";
  const std::string hex = "0x" + std::string(RADIUS_VALUE_MAX - 2, 'a');
  const struct {
    radius_status status;
    std::string_view name;
    std::string_view value;
  } table[] = {
      {RADIUS_OK, "User-Name", most},
      {RADIUS_OK, "User-Name", escapes},
      {RADIUS_OK, "Class", hex},
      {RADIUS_OK, "Class", most},
      {RADIUS_OK, "Attr-26.9.250", hex},
      {RADIUS_OK, "Ascend-Data-Filter", "\"ip in forward\""},
      {RADIUS_OK, "Framed-IPv6-Prefix", "2001:db8::/64"},
      {RADIUS_OK, "Event-Timestamp", "\"Nov 14 2023 23:13:20 CET\""},
      {RADIUS_BAD_VALUE, "Framed-IP-Address", "nowhere"},
      {RADIUS_BAD_VALUE, "Class", "0xgg"},
      {RADIUS_BAD_VALUE, "NAS-Port", most},
      {RADIUS_UNKNOWN_ATTRIBUTE, "Frobnication-Level", "1"},
  };
  for (const auto &row : table) {
    heap_fails = true;
    const radius_status status = decode(row.name, row.value);
    heap_fails = false;
    EXPECT_EQ(row.status, status) << row.name;
    EXPECT_EQ(0u, heap_calls) << row.name;
    heap_calls = 0;
  }
#else
  GTEST_SKIP() << "the sanitizers have a heap of their own";
#endif
}

class Dictionaries : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(directory_); }
  void TearDown() override { std::filesystem::remove_all(directory_); }
  std::ofstream dictionary() const { return std::ofstream(directory_ / "dictionary"); }

  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("dictionaries." + std::to_string(getpid()));
};

TEST_F(Dictionaries, AreSharedByDecodersAndSurviveThem) {
  std::string error;
  auto first = PairDecoder::open("", error);
  auto second = PairDecoder::open("", error);
  ASSERT_TRUE(first && second) << error;
  AccountingPair one;
  AccountingPair two;
  EXPECT_EQ(RADIUS_OK, first->decode("User-Name", "\"alice\"", one));
  EXPECT_EQ(RADIUS_OK, second->decode("User-Name", "\"bob\"", two));
  EXPECT_EQ("alice", one.text());
  first.reset();
  EXPECT_EQ("bob", two.text());
  second.reset();
  EXPECT_TRUE(PairDecoder::open("", error)) << error;
}

TEST_F(Dictionaries, ThatAreMissingOrNotTheLoadedOnesAreNamedInTheError) {
  std::string error;
  EXPECT_FALSE(PairDecoder::open("/no\033[2J", error));
  EXPECT_EQ(0u, error.find("cannot load the RADIUS dictionaries of /no?[2J: ")) << error;
  ASSERT_TRUE(PairDecoder::open("", error)) << error;
  dictionary() << "ATTRIBUTE\tUser-Name\t1\tstring\n";
  EXPECT_FALSE(PairDecoder::open(directory_, error));
  EXPECT_NE(std::string::npos, error.find(directory_.string() + ": others are loaded already"))
      << error;
}

// A process loads dictionaries once, so each bad set gets one of its own.
using DictionariesDeathTest = Dictionaries;

TEST_F(DictionariesDeathTest, ThatDoNotServeAreRefused) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const struct {
    const char *text;
    const char *reason;
  } table[] = {
      {"ATTRIBUTE\tUser-Name\t7\tstring\n", "another number for User-Name"},
      {"ATTRIBUTE\tUser-Name\t1\tstring\n", "no attribute NAS-IP-Address"},
      {"ATTRIBUTE\tUser-Name\t1\tnonsense\n", "nonsense"},
      {"$INCLUDE elsewhere\n", "elsewhere"},
  };
  for (const auto &row : table) {
    const auto open_and_say = [&] {
      dictionary() << row.text;
      std::string error;
      const bool opened = PairDecoder::open(directory_, error).has_value();
      std::cerr << error;
      std::filesystem::remove_all(directory_);
      _exit(opened ? 1 : 0);
    };
    EXPECT_EXIT(open_and_say(), testing::ExitedWithCode(0), row.reason);
  }
}

TEST_F(DictionariesDeathTest, ThatFindNoMemoryAreRefused) {
#ifdef KIVO_OWN_HEAP
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto open_while_memory_goes = [] {
    for (size_t first : {1u, 5u, 10u, 20u, 30u, 31u, 32u, 33u, 1000u, 1001u, 20001u}) {
      const pid_t child = fork();
      if (child == 0) {
        char error[RADIUS_ERROR_MAX];
        first_refused = first;
        heap_fails = true;
        const bool opened = radius_dictionary_open(nullptr, error, sizeof error) != nullptr;
        _exit(opened || error[strlen(error) - 1] == ' ' ? 1 : 0);
      }
      int status = -1;
      if (waitpid(child, &status, 0) != child || status != 0) _exit(1);
    }
    _exit(0);
  };
  EXPECT_EXIT(open_while_memory_goes(), testing::ExitedWithCode(0), "");
#else
  GTEST_SKIP() << "the sanitizers have a heap of their own";
#endif
}

}  // namespace
