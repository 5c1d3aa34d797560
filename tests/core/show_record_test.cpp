// One record on the console, reached through the database show: its external identities, then every
// configured attribute by its kind. Compared byte for byte.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kivo/kivo.h"
#include "platform/named_alloc.h"
#include "support/console_capture.h"
#include "support/process.h"

namespace {

using kivo_test::create_database;

constexpr uint32_t kLabel = 5;
constexpr char kAuditId[] = "0A0000010000002A5F3C9B7E";

const std::string kHeader = "\n" + std::string(66, '-') +
                            "\nDATABASE          : ATTR_DB\nOWNER             : owner"
                            "\nNUMBER OF RECORDS : 1";
const std::string kFrame =
    "\n--------------------------------------------\n\n        ATTRIBUTE     VALUE"
    "\n--------------------  ------------------------";
const std::string kOpening = kHeader + "\n\nSession Opaque Attributes" + kFrame;

constexpr char kCanNotPrint[] = "--- Can not print ---";
constexpr char kNotFound[] = "--- Data not found ---";

std::string word32(uint32_t value) { return {reinterpret_cast<const char *>(&value), 4}; }
std::string word64(uint64_t value) { return {reinterpret_cast<const char *>(&value), 8}; }

// 2001:db8::n
std::string ipv6(char n) { return std::string("\x20\x01\x0d\xb8", 4) + std::string(11, '\0') + n; }

class ShowRecord : public testing::Test {
 protected:
  void SetUp() override {
    kivo_test::reset_process();
    create_database(2, {{1, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr, nullptr, "other");
    ASSERT_EQ(0u, kivo_create_record(nullptr, kLabel, nullptr));
    store(819, kAuditId);
  }
  static void store(uint32_t type, const std::string &value) {
    uint32_t changed = 0;
    ASSERT_EQ(0u, auth_mgr_idc_add_or_update_attr(kivo_test::find_record(kLabel)->ctxt, type,
                                                  value.data(), static_cast<uint32_t>(value.size()),
                                                  &changed));
  }
  std::string show() {
    const uint64_t live = named_live_blocks();
    kivo_show_db(KIVO_SHOW_BY_AUDIT_SESSION, reinterpret_cast<uint64_t>(kAuditId));
    EXPECT_EQ(live, named_live_blocks());
    return console_.take();
  }
  // What is shown for a value of a type and kind behind "name : ".
  std::string shown(kivo_data_type kind, uint32_t type, const std::string &value) {
    create_database(1, {{type, 0, kind}});
    store(type, value);
    store(3, "what may lie behind it");
    const std::string text = show();
    auth_ctxt *ctxt = kivo_test::find_record(kLabel)->ctxt;
    EXPECT_EQ(0u, auth_mgr_idc_remove_attr_by_type(ctxt, type));
    EXPECT_EQ(0u, auth_mgr_idc_remove_attr_by_type(ctxt, 3));
    // Behind the opening: the second frame, a line break, the name in 30 columns and " : ".
    const size_t begin = kOpening.size() + kFrame.size() + 34;
    EXPECT_EQ(kOpening + kFrame, text.substr(0, kOpening.size() + kFrame.size()));
    EXPECT_EQ(" : ", text.substr(begin - 3, 3));
    return text.substr(begin);
  }

  kivo_test::ConsoleCapture console_;
};

TEST_F(ShowRecord, ShowsIdentitiesAndEveryConfiguredAttribute) {
  create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR},
                      {6, 6, KIVO_DATA_TYPE_INT32},
                      {12, 6, KIVO_DATA_TYPE_INT64},
                      {8, 0, KIVO_DATA_TYPE_IPV4_ADDR},
                      {10, 0, KIVO_DATA_TYPE_IPV6_ADDR},
                      {42, 0, KIVO_DATA_TYPE_MAC_ADDR},
                      {819, 0, KIVO_DATA_TYPE_SESN_GUID},
                      {600, 6, KIVO_DATA_TYPE_POINTER},
                      {601, 6, KIVO_DATA_TYPE_VAR_BIN},
                      {2, 0, KIVO_DATA_TYPE_VAR_STR},
                      {0, 0, KIVO_DATA_TYPE_INT32},
                      {951, 6, KIVO_DATA_TYPE_INT32}});
  store(1, "alice@example.org");
  store(6, word32(0x2a));
  store(12, word64(1709251199));
  store(8, std::string("\xc0\x00\x02\x01", 4));
  store(10, ipv6(1) + ipv6(2));
  store(42, std::string("\x00\x11\x22\x33\x44\xff", 6));
  store(600, word64(4096));
  store(601, std::string("\x00\x7f\xff", 3));
  store(951, word32(1));
  store(3, "a type without a row");
  uint32_t changed = 0;
  const uint8_t identity[] = {1, 0, 0xab};
  ASSERT_EQ(0u, shadowdb_add_or_update_attr(
                    auth_mgr_idc_get_shadow_record_in_ctxt(kivo_test::find_record(kLabel)->ctxt), 0,
                    1124, identity, 3, &changed));
  EXPECT_EQ(kOpening + "\nexternal-class                 : 01 00 ab \n" + kFrame +
                "\nuser-name                      : alice@example.org"
                "\nport                           : 0x0000002a"
                "\nstart-time                     : 0x      1709251199"
                "\nipv4-address                   : 192.0.2.1"
                "\nipv6-addresses                 : 2001:db8::1, 2001:db8::2"
                "\nmac-address                    : 0011223344ff"
                "\naudit-session-id               : 0A0000010000002A5F3C9B7E"
                "\nattribute-600                  : 0x            4096"
                "\nattribute-601                  : 007fff"
                "\ndomain                         : --- Data not found ---"
                "\nattribute-unknown              : --- Data not found ---"
                "\nauthorization-token            : ",
            show());
}

TEST_F(ShowRecord, ValuesAreRenderedByKindAndType) {
  const struct {
    const char *name;
    kivo_data_type kind;
    uint32_t type;
    std::string value;
    std::string text;
  } rows[] = {
      {"Int32", KIVO_DATA_TYPE_INT32, 6, word32(0xdeadbeef), "0xdeadbeef"},
      {"Int32Short", KIVO_DATA_TYPE_INT32, 6, "abc", kCanNotPrint},
      {"Int32Long", KIVO_DATA_TYPE_INT32, 6, word32(1) + "x", "0x00000001"},
      {"InterfaceId", KIVO_DATA_TYPE_INT32, 220, word32(0xdeadbeef), "0xDEADBEEF"},
      {"InterfaceIdShort", KIVO_DATA_TYPE_INT32, 220, "abc", kCanNotPrint},
      {"Interface", KIVO_DATA_TYPE_INT32, 221, "3735928559", "0xDEADBEEF"},
      {"InterfaceOfOneDigit", KIVO_DATA_TYPE_INT32, 221, "7", "0x00000007"},
      {"InterfaceIsDecimal", KIVO_DATA_TYPE_INT32, 221, "010", "0x0000000A"},
      {"InterfaceLowBits", KIVO_DATA_TYPE_INT32, 221, "4294967298", "0x00000002"},
      {"InterfaceNegative", KIVO_DATA_TYPE_INT32, 221, "-1", "0xFFFFFFFF"},
      {"InterfaceNoNumber", KIVO_DATA_TYPE_INT32, 221, "eth0", "0x00000000"},
      {"InterfaceStoredEmpty", KIVO_DATA_TYPE_INT32, 221, "", kNotFound},
      {"TokenShort", KIVO_DATA_TYPE_INT32, 951, "x", ""},
      {"Int64Greatest", KIVO_DATA_TYPE_INT64, 12, word64(UINT64_MAX), "0x18446744073709551615"},
      {"Int64Zero", KIVO_DATA_TYPE_INT64, 12, word64(0), "0x               0"},
      {"Int64Short", KIVO_DATA_TYPE_INT64, 12, "1234567", kCanNotPrint},
      {"PointerShort", KIVO_DATA_TYPE_POINTER, 600, "1234567", kCanNotPrint},
      {"Ipv4Short", KIVO_DATA_TYPE_IPV4_ADDR, 8, "abc", "616263"},
      {"Ipv4OfSixteenBytes", KIVO_DATA_TYPE_IPV4_ADDR, 4, ipv6(1), "2001:db8::1"},
      {"Ipv4OfFiveBytes", KIVO_DATA_TYPE_IPV4_ADDR, 8, "\x01\x02\x03\x04\x05", "0102030405"},
      {"Ipv6Prefix", KIVO_DATA_TYPE_IPV6_ADDR, 687, "2001:db8::/64", "2001:db8::/64"},
      {"Ipv6One", KIVO_DATA_TYPE_IPV6_ADDR, 10, ipv6(7), "2001:db8::7"},
      {"Ipv6Three", KIVO_DATA_TYPE_IPV6_ADDR, 10, ipv6(3) + ipv6(1) + ipv6(2),
       "2001:db8::3, 2001:db8::1, 2001:db8::2"},
      {"Ipv6OfAnotherType", KIVO_DATA_TYPE_IPV6_ADDR, 700, ipv6(1), ""},
      {"MacShort", KIVO_DATA_TYPE_MAC_ADDR, 42, "12345", kCanNotPrint},
      {"MacLong", KIVO_DATA_TYPE_MAC_ADDR, 42, "123456789", "313233343536"},
      {"GuidShort", KIVO_DATA_TYPE_SESN_GUID, 600, "0A00", "0A00"},
      {"GuidLong", KIVO_DATA_TYPE_SESN_GUID, 600, std::string(30, 'g'), std::string(30, 'g')},
      {"BinaryOfThirtyTwo", KIVO_DATA_TYPE_VAR_BIN, 601, std::string(32, '\xa5'),
       std::string("a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5")},
      {"BinaryOfForty", KIVO_DATA_TYPE_VAR_BIN, 601, std::string(40, '\0'), std::string(64, '0')},
      {"TextOfOne", KIVO_DATA_TYPE_VAR_STR, 1, "a", "a"},
      {"TextWithPercent", KIVO_DATA_TYPE_VAR_STR, 1, "100%s", "100%s"},
      {"TextAsLongAsItGets", KIVO_DATA_TYPE_VAR_STR, 1, std::string(65535, 't'),
       std::string(65535, 't')},
      {"TextStoredEmpty", KIVO_DATA_TYPE_VAR_STR, 1, "", kNotFound},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(row.text, shown(row.kind, row.type, row.value)) << row.name;
  }
}

TEST_F(ShowRecord, DatabaseWithoutAttributesShowsIdentitiesOnly) {
  create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}});
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  kivo_db *db = nullptr;
  ASSERT_NE(0u, kivo_create_database("ATTR_DB", "owner", &client, nullptr, 0, &db));
  EXPECT_EQ(kOpening + kFrame + "\nNo Attributes Found.", show());
}

}  // namespace
