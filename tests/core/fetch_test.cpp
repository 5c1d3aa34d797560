// Fetches for replies: texts of 25 characters in the caller's slots, and nothing past them.
#include "kivo/fetch.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kivo/records.h"
#include "support/process.h"

namespace {

constexpr uint32_t kLabel = 5;
constexpr char kAuditId[] = "0A0000010000002A5F3C9B7E";
constexpr uint8_t kMac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr uint8_t kIpv4[4] = {192, 0, 2, 7};
constexpr uint32_t kUntouched = 0xeeeeeeee;
constexpr char kKept[] = "kept";

class Fetch : public ::testing::Test {
 protected:
  Fetch() {
    kivo_test::reset_process();
    create_other("other");
    for (auto &slot : slots_) std::snprintf(slot, sizeof(slot), "%s", kKept);
    for (uint32_t i = 0; i < kRoom; ++i) indexes_[i] = types_[i] = kUntouched;
  }

  static kivo_db *create_other(const char *name) {
    return kivo_test::create_database(2, {{AAA_ATTR_DOMAIN, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr,
                                      nullptr, name, "second");
  }
  void make_record() {
    ASSERT_EQ(0u, kivo_create_record(nullptr, kLabel, nullptr));
    store(AAA_ATTR_AUDIT_SESSION_ID, kAuditId);
    store(AAA_ATTR_MAC_ADDRESS, {reinterpret_cast<const char *>(kMac), 6});
    store(AAA_ATTR_IPV4_ADDRESS, {reinterpret_cast<const char *>(kIpv4), 4});
  }
  static void store(uint32_t type, const std::string &value) {
    ASSERT_EQ(0u, auth_mgr_idc_add_or_update_attr(kivo_test::find_record(kLabel)->ctxt, type,
                                                  value.data(), static_cast<uint32_t>(value.size()),
                                                  nullptr));
  }
  // What the slot of a value holds, whatever else the record has.
  std::string fetched(uint32_t type, kivo_data_type kind, const std::string &value) {
    kivo_test::create_database(1, {{type, 0, kind}});
    if (!value.empty()) store(type, value);
    std::snprintf(slots_[0], sizeof(slots_[0]), "%s", kKept);
    uint32_t found = 1;
    kivo_fetch_show_records_filter_by_mac_addr(kMac, &found, indexes_, slots_);
    EXPECT_EQ(1u, found);
    return slots_[0];
  }

  static constexpr uint32_t kRoom = KIVO_REPLY_SLOTS + 4;  // four to see that nothing is past them
  uint32_t indexes_[kRoom];
  kivo_data_type types_[kRoom];
  kivo_value_slot slots_[kRoom];
};

TEST_F(Fetch, RendersEveryKindIntoItsSlot) {
  make_record();
  const std::string ones(8, '\xff');
  const struct {
    uint32_t type;
    kivo_data_type kind;
    std::string value, text;
  } table[] = {
      {6, KIVO_DATA_TYPE_INT32, std::string("\xef\xbe\0\0", 4), "0x0000beef"},
      {220, KIVO_DATA_TYPE_INT32, std::string("\xef\xbe\0\0", 4), "0x0000BEEF"},
      {221, KIVO_DATA_TYPE_INT32, "42", "0x0000002A"},
      {951, KIVO_DATA_TYPE_INT32, std::string("\1\0\0\0", 4), "0x00000001"},
      {6, KIVO_DATA_TYPE_INT32, "abc", "--- Can not print ---"},
      {12, KIVO_DATA_TYPE_INT64, ones, "0x18446744073709551615"},
      {12, KIVO_DATA_TYPE_INT64, std::string("\7\0\0\0\0\0\0\0", 8), "0x               7"},
      {600, KIVO_DATA_TYPE_POINTER, "abcdefg", "--- Can not print ---"},
      {4, KIVO_DATA_TYPE_IPV4_ADDR, "\xc0\x02\x02\x07", "192.2.2.7"},
      {687, KIVO_DATA_TYPE_IPV6_ADDR, "2001:db8::/32", kKept},
      {10, KIVO_DATA_TYPE_IPV6_ADDR, std::string(16, '\1'), kKept},
      {601, KIVO_DATA_TYPE_VAR_BIN, "abc", kKept},
      {600, KIVO_DATA_TYPE_MAC_ADDR, std::string("\0\x11\x22\x33\x44\x55", 6), "0011.2233.4455"},
      {600, KIVO_DATA_TYPE_MAC_ADDR, "abcde", "--- Can not print ---"},
      {600, KIVO_DATA_TYPE_SESN_GUID, kAuditId, kAuditId},
      {1, KIVO_DATA_TYPE_VAR_STR, std::string(40, 'x'), std::string(25, 'x')},
      {1, KIVO_DATA_TYPE_VAR_STR, "ann", "ann"},
      {2, KIVO_DATA_TYPE_VAR_STR, "", "--- Data not found ---"},
      {601 + 1, KIVO_DATA_TYPE_VAR_BIN, "", "--- Data not found ---"},
  };
  for (const auto &row : table) {
    EXPECT_EQ(row.text, fetched(row.type, row.kind, row.value)) << row.type << " " << row.kind;
  }
}

TEST_F(Fetch, FindsTheRecordByEachKeyAndTellsWhenThereIsNone) {
  make_record();
  kivo_test::create_database(
      1, {{AAA_ATTR_IPV4_ADDRESS, 0, KIVO_DATA_TYPE_IPV4_ADDR}, {0, 0, KIVO_DATA_TYPE_INT32}});
  const std::string longer = std::string(kAuditId) + "more";
  const uint8_t other[6] = {};
  const struct {
    const char *what;
    std::function<void(uint32_t *)> fetch;
    uint32_t found;
  } table[] = {
      {"an unknown id",
       [&](uint32_t *f) {
         kivo_fetch_show_records_filter_by_session_id("short", f, indexes_, slots_);
       },
       0},
      {"an unknown MAC address",
       [&](uint32_t *f) { kivo_fetch_show_records_filter_by_mac_addr(other, f, indexes_, slots_); },
       0},
      {"an unknown IPv4 address",
       [&](uint32_t *f) {
         kivo_fetch_show_records_filter_by_ipv4_addr(other, f, indexes_, slots_);
       },
       0},
      {"no slots",
       [&](uint32_t *f) { kivo_fetch_show_records_filter_by_mac_addr(kMac, f, indexes_, nullptr); },
       1},
      {"an id of which 24 characters count",
       [&](uint32_t *f) {
         kivo_fetch_show_records_filter_by_session_id(longer.c_str(), f, indexes_, slots_);
       },
       1},
      {"an IPv4 address",
       [&](uint32_t *f) {
         kivo_fetch_show_records_filter_by_ipv4_addr(kIpv4, f, indexes_, slots_);
       },
       1},
  };
  for (size_t i = 0; i < std::size(table); ++i) {
    uint32_t found = 1;
    table[i].fetch(&found);
    EXPECT_EQ(table[i].found, found) << table[i].what;
    if (i < 4) {
      EXPECT_EQ(kUntouched, indexes_[0]) << table[i].what;
      EXPECT_STREQ(kKept, slots_[0]) << table[i].what;
    }
  }
  EXPECT_EQ(0u, indexes_[0]);
  EXPECT_STREQ("192.0.2.7", slots_[0]);
  EXPECT_EQ(1u, indexes_[1]);  // also where the read fails
  EXPECT_STREQ("--- Data not found ---", slots_[1]);
  EXPECT_EQ(kUntouched, indexes_[2]);
}

TEST_F(Fetch, NamesTheDatabaseAndLeavesOutputsAloneWithoutOne) {
  make_record();
  char name[KIVO_NAME_SIZE] = "before";
  char owner[KIVO_NAME_SIZE] = "before";
  uint32_t records = kUntouched;
  kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr, nullptr, "another");
  kivo_fetch_common_header(name, owner, &records);
  EXPECT_STREQ("before", name);
  EXPECT_EQ(kUntouched, records);
  EXPECT_EQ(nullptr, client_info_show.attr_cfg);

  kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}});
  kivo_fetch_common_header(nullptr, owner, nullptr);
  EXPECT_STREQ("owner", owner);
  kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr, nullptr, "another");
  create_other("ATTR_DB");
  kivo_fetch_common_header(nullptr, owner, nullptr);
  EXPECT_STREQ("second", owner);
  kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}});
  kivo_fetch_common_header(name, owner, &records);
  EXPECT_STREQ("ATTR_DB", name);
  EXPECT_STREQ("owner", owner);  // of two, the one that came to the process later stays
  EXPECT_EQ(1u, records);
  EXPECT_STREQ("owner", client_info_show.owner_name);
}

TEST_F(Fetch, StopsAtTheRoomOfAReplyAlsoAcrossTwoDatabases) {
  make_record();
  std::vector<kivo_attr_config> rows;
  for (uint32_t i = 0; i < 30; ++i) rows.push_back({700 + i, 0, KIVO_DATA_TYPE_VAR_STR});
  const auto create = [&](uint32_t n_rows) {
    const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
    kivo_db *db = nullptr;
    EXPECT_EQ(0u, kivo_create_database("ATTR_DB", "owner", &client, rows.data(), n_rows, &db));
  };
  create(20);
  create_other("ATTR_DB");
  kivo_fetch_attr_name_type_data(indexes_, types_);
  EXPECT_EQ(20u, indexes_[20]);  // the other database's one type
  EXPECT_EQ(kUntouched, indexes_[21]);

  create_other("other");
  create(30);
  kivo_fetch_attr_name_type_data(indexes_, types_);
  uint32_t found = 1;
  kivo_fetch_show_records_filter_by_mac_addr(kMac, &found, indexes_, slots_);
  for (uint32_t i = 0; i < kRoom; ++i) {
    const bool has_room = i < KIVO_REPLY_SLOTS;
    EXPECT_EQ(has_room ? i : kUntouched, indexes_[i]);
    EXPECT_EQ(has_room ? KIVO_DATA_TYPE_VAR_STR : kUntouched, types_[i]);
    EXPECT_STREQ(has_room ? "--- Data not found ---" : kKept, slots_[i]);
  }
}

}  // namespace
