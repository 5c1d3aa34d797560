// Listings on the console: index trees, every record, attribute types. Compared byte for byte for a
// database that has every kind of value.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "kivo/display.h"
#include "kivo/shadow_db.h"
#include "platform/named_alloc.h"
#include "support/console_capture.h"
#include "support/process.h"

namespace {

const std::string kRule66(66, '-');
const std::string kHeader =
    "\n" + kRule66 + "\nDATABASE          : ATTR_DB\nOWNER             : owner";

// A line of a record listing: the name in 30 columns.
std::string line(const char *name, const std::string &value) {
  std::string text(name);
  text.resize(30, ' ');
  return "\n" + text + ": " + value;
}
std::string record_heading(int number, int total, const char *label) {
  return "\n\nDisplaying Record: [" + std::to_string(number) + "/" + std::to_string(total) +
         "]\nUnique Label: " + label + "\nAttribute Name                : Value\n" +
         std::string(64, '-');
}

class Listings : public ::testing::Test {
 protected:
  Listings() {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1, {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR},
                                         {AAA_ATTR_PORT, 6, KIVO_DATA_TYPE_INT32},
                                         {AAA_ATTR_START_TIME, 6, KIVO_DATA_TYPE_INT64},
                                         {AAA_ATTR_IPV4_ADDRESS, 0, KIVO_DATA_TYPE_IPV4_ADDR},
                                         {AAA_ATTR_IPV6_ADDRESSES, 0, KIVO_DATA_TYPE_IPV6_ADDR},
                                         {AAA_ATTR_MAC_ADDRESS, 0, KIVO_DATA_TYPE_MAC_ADDR},
                                         {AAA_ATTR_AUDIT_SESSION_ID, 0, KIVO_DATA_TYPE_SESN_GUID},
                                         {600, 6, KIVO_DATA_TYPE_POINTER},
                                         {601, 6, KIVO_DATA_TYPE_VAR_BIN},
                                         {0, 6, KIVO_DATA_TYPE_INT32},
                                         {AAA_ATTR_DOMAIN, 0, KIVO_DATA_TYPE_VAR_STR}});
  }

  static void store(uint32_t label, uint32_t type, const std::string &value) {
    ASSERT_EQ(
        0u, auth_mgr_idc_add_or_update_attr(kivo_test::find_record(label)->ctxt, type, value.data(),
                                            static_cast<uint32_t>(value.size()), nullptr));
  }
  static std::string address(char last) {
    return std::string("\x20\x01\x0d\xb8", 4) + std::string(11, '\0') + last;
  }
  void make_full_record(uint32_t label) {
    ASSERT_EQ(0u, attrdb_create_and_insert_primary_record(nullptr, label));
    store(label, AAA_ATTR_USER_NAME, "ann");
    store(label, AAA_ATTR_PORT, std::string("\x2a\0\0\0", 4));
    store(label, AAA_ATTR_START_TIME, std::string("\x01\0\0\0\x02\0\0\0", 8));
    store(label, AAA_ATTR_IPV4_ADDRESS, "\xc0\x02\x02\x07");
    store(label, AAA_ATTR_IPV6_ADDRESSES, address(1) + address(2));
    store(label, AAA_ATTR_MAC_ADDRESS, std::string("\0\0\x5e\0\x53\x01", 6));
    store(label, AAA_ATTR_AUDIT_SESSION_ID, "0A0000010000002A5F3C9B7E");
    store(label, 600, std::string("\xff\0\0\0\0\0\0\0", 8));
    store(label, 601, "\xde\xad");
    store(label, AAA_ATTR_DOMAIN, "example.net");
  }

  kivo_db *db_;
  kivo_test::ConsoleCapture console_;
};

TEST_F(Listings, OfEveryRecordHaveEveryKindAndTheIdentities) {
  make_full_record(0x1f);
  ASSERT_EQ(0u, attrdb_create_and_insert_primary_record(nullptr, 7));
  uint32_t changed = 0;
  shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(kivo_test::find_record(7)->ctxt);
  ASSERT_EQ(0u,
            shadowdb_add_or_update_attr(shadow, 1, AAA_ATTR_EXT_USER, "\x05\x00x", 3, &changed));
  const uint64_t live = named_live_blocks();
  kivo_show_all_records(1);
  EXPECT_EQ(live, named_live_blocks());
  EXPECT_EQ(kHeader + record_heading(0, 2, "0x1f") + line("user-name", "ann") +
                line("port", "0x2a") + line("start-time", "0x200000001") +
                line("ipv4-address", "192.2.2.7") + line("ipv6-addresses", "2001:db8::1") +
                line("ipv6-addresses", "2001:db8::2") + line("mac-address", "0000.5e00.5301") +
                line("audit-session-id", "0A0000010000002A5F3C9B7E") +
                line("attribute-600", "0xff") + line("attribute-601", "dead") +
                line("domain", "example.net") + record_heading(1, 2, "0x7") +
                "\nexternal-user                  : 05 00 78 \n",
            console_.take());
}

TEST_F(Listings, OfAnEmptyStoreHaveTheHeaderOnly) {
  kivo_show_all_records(1);
  EXPECT_EQ(kHeader, console_.take());
}

TEST_F(Listings, ReadFourteenEntriesAtTheMost) {
  std::vector<kivo_attr_config> rows;
  for (uint32_t i = 0; i < 15; ++i) rows.push_back({700 + i, 0, KIVO_DATA_TYPE_VAR_STR});
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  ASSERT_EQ(0u, kivo_create_database("ATTR_DB", "owner", &client, rows.data(), 15, &db_));
  ASSERT_EQ(0u, attrdb_create_and_insert_primary_record(nullptr, 7));
  store(7, 713, "fourteenth");
  store(7, 714, "fifteenth");
  kivo_show_all_records(1);
  EXPECT_EQ(kHeader + record_heading(0, 1, "0x7") + line("attribute-713", "fourteenth"),
            console_.take());
}

TEST_F(Listings, CountTheSessionsOfEachTree) {
  make_full_record(1);
  ASSERT_EQ(0u, attrdb_create_and_insert_primary_record(nullptr, 2));
  store(2, AAA_ATTR_INTERFACE_ID, std::string(4, '\1'));
  store(2, AAA_ATTR_METHOD, "mac");
  kivo_show_all_records(0);
  EXPECT_EQ(kHeader +
                "\nTotal Sessions    : 2\nMAC Sessions      : 1\nSwidb Sessions    : 0"
                "\nIIF-ID Sessions    : 1\nDomain Sessions   : 1\nMethod Sessions   : 1"
                "\nAudit Sessions    : 1\nSess-id Sessions  : 0",
            console_.take());
}

TEST_F(Listings, NameTheAttributeTypesWithTheirNumbers) {
  kivo_test::create_database(1, {{AAA_ATTR_EXT_LOCATION, 6, KIVO_DATA_TYPE_VAR_BIN},
                                 {AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR}});
  kivo_show_attrs_short(db_);
  EXPECT_EQ(
      "\n\nAttribute Name                  Id          Type      "
      "\nexternal-location              1248       VAR BIN   "
      "\nuser-name                      1          VAR STR   ",
      console_.take());
}

TEST_F(Listings, OfNothingWriteNothing) {
  kivo_show_attrs_short(nullptr);
  kivo_show_walk_ctx context = {db_, 1, 0};
  EXPECT_EQ(0u, kivo_show_record_attrs_test(nullptr, &context));
  kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr, nullptr, "another");
  kivo_show_all_records(0);
  EXPECT_EQ("", console_.take());
}

}  // namespace
