// Creating databases: checks in their order, entries and their owners, what a repeated or failed
// creation leaves behind. Both entries of the process belong to clients 1 and 2, but for the
// scenarios that start a process of their own.
#include "kivo/database.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "kivo/notification.h"
#include "platform/named_alloc.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

constexpr kivo_attr_config kRows[] = {{1, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {8, 6, KIVO_DATA_TYPE_IPV4_ADDR}};
constexpr kivo_attr_config kUnindexed[] = {{1, 6, KIVO_DATA_TYPE_VAR_STR},
                                           {8, 6, KIVO_DATA_TYPE_IPV4_ADDR}};
constexpr kivo_attr_config kTypeBeyond[] = {kRows[0], {1491, 0, KIVO_DATA_TYPE_INT32}};
constexpr kivo_attr_config kKindBeyond[] = {kRows[0], {2, 6, KIVO_DATA_TYPE_MAX}};

uint32_t create(uint32_t id, const kivo_attr_config *rows, uint32_t n_rows, kivo_db **result) {
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, id, nullptr, nullptr};
  return kivo_create_database("fresh", "new", &client, rows, n_rows, result);
}

std::array<uint8_t, sizeof(kivo_db)> bytes_of(const kivo_db *db) {
  std::array<uint8_t, sizeof(kivo_db)> bytes;
  std::memcpy(bytes.data(), db, sizeof(*db));
  return bytes;
}

class Creation : public ::testing::Test {
 protected:
  Creation() {
    kivo_test::reset_process();
    first_ = kivo_test::create_database(1, {kRows[0], kRows[1]});
    second_ = kivo_test::create_database(2, {kRows[0]});
    kivo_debug_level_all = 1;
  }
  ~Creation() override { kivo_test::reset_process(); }

  kivo_db *first_ = nullptr;
  kivo_db *second_ = nullptr;
};

TEST_F(Creation, RefusesBadArgumentsInOrderAndChangesNothing) {
  const std::string name32(32, 'n');
  const char *const long_name = name32.c_str();
  const kivo_client_params valid = {1, 1, nullptr, nullptr};
  const kivo_client_params third = {1, 3, nullptr, nullptr};
  const kivo_client_params other_flags = {0xfffffffe, 1, nullptr, nullptr};
  const Texts params = {"3 create database: bad params"};
  const Texts names = {"3 create database: db/owner name lengths exceeded max:32"};
  const Texts full = {"3 register client: No free entry to store registration",
                      "3 create databse: shim_register_client failed, error:no room for a client"};
  kivo_db *result = second_;
  struct Row {
    const char *name, *db_name, *owner_name;
    const kivo_client_params *client;
    const kivo_attr_config *rows;
    kivo_db **result;
    uint32_t status;
    Texts traces;
  };
  constexpr uint32_t kBad = KIVO_ERR_INVALID_ARG;
  constexpr uint32_t kFull = KIVO_ERR_NO_ROOM;
  // clang-format off
  const Row rows[] = {
      {"NoClient",         long_name, "",        nullptr,      kRows,       &result, kBad, params},
      {"OnlyOtherFlags",   "",        "",        &other_flags, kRows,       &result, kBad, params},
      {"LongName",         long_name, nullptr,   &valid,       kTypeBeyond, &result, kBad, names},
      {"LongOwner",        nullptr,   long_name, &valid,       kRows,       &result, kBad, names},
      {"NoResult",         "",        "",        &valid,       kRows,       nullptr, kBad, params},
      {"TypeBeyondTheMap", "",        "",        &third,       kTypeBeyond, &result, kBad, params},
      {"KindWithoutASize", "",        "",        &valid,       kKindBeyond, &result, kBad, params},
      {"ThirdClient",      nullptr,   nullptr,   &third,       kRows,       &result, kFull, full},
  };
  // clang-format on
  const auto before = std::pair(bytes_of(first_), bytes_of(second_));
  const uint64_t blocks = named_live_blocks();
  TraceLog log;
  for (const Row &row : rows) {
    EXPECT_EQ(row.status, kivo_create_database(row.db_name, row.owner_name, row.client, row.rows, 2,
                                               row.result))
        << row.name;
    EXPECT_EQ(row.traces, traces(log)) << row.name;
  }
  EXPECT_EQ(second_, result);
  EXPECT_TRUE(before == std::pair(bytes_of(first_), bytes_of(second_)));
  EXPECT_EQ(blocks, named_live_blocks());
}

TEST_F(Creation, FillsTheHandleFromCopies) {
  const std::string name31 = std::string(30, 'd') + "!";
  kivo_client_params params = {0xffffffff, 2, [](auto...) {}, nullptr};
  kivo_attr_config rows[] = {kRows[0], kRows[1], {42, 7, KIVO_DATA_TYPE_MAC_ADDR}};
  kivo_db *db = nullptr;
  TraceLog log;
  ASSERT_EQ(0u, kivo_create_database(name31.c_str(), nullptr, &params, rows, 3, &db));
  EXPECT_EQ(Texts{}, traces(log));
  rows[0] = {};
  EXPECT_EQ(second_, db);
  EXPECT_EQ(0u, db->reserved64 | db->reserved32);
  EXPECT_EQ(0xffffffffu, db->client.flags);
  EXPECT_EQ(2u, db->client.client_id);
  EXPECT_EQ(params.notify_cb, db->client.notify_cb);
  EXPECT_EQ(nullptr, db->client.handle_name_cb);
  EXPECT_EQ(1u, db->slot_index);
  EXPECT_EQ(2u, db->client_id);
  EXPECT_EQ(name31, db->db_name);
  EXPECT_STREQ("", db->owner_name);
  EXPECT_EQ(2u, db->indexed_count);
  EXPECT_EQ(1u, db->unindexed_count);
  EXPECT_EQ(0, std::memcmp(kRows, db->attr_cfg, sizeof(kRows)));
  EXPECT_EQ(42u, db->attr_cfg[2].aaa_type);
}

TEST_F(Creation, LaysFixedSizeValuesOutApartForIndexedAndUnindexedRows) {
  // A value of size s at o moves the end to o + s + 48, rounded up to a multiple of 8.
  kivo_test::create_database(1, {{11, 0, KIVO_DATA_TYPE_INT32},
                                 {21, 6, KIVO_DATA_TYPE_INT64},
                                 {12, 0, KIVO_DATA_TYPE_IPV6_ADDR},
                                 {22, 6, KIVO_DATA_TYPE_VAR_STR},
                                 {13, 0, KIVO_DATA_TYPE_SESN_GUID},
                                 {23, 6, KIVO_DATA_TYPE_IPV4_ADDR},
                                 {14, 0, KIVO_DATA_TYPE_MAC_ADDR},
                                 {15, 0, KIVO_DATA_TYPE_VAR_BIN},
                                 {24, 6, KIVO_DATA_TYPE_POINTER}});
  std::vector<uint32_t> offsets;
  for (int slot = 0; slot < 9; ++slot) offsets.push_back(first_->accel_tbl[slot].layout_offset);
  EXPECT_EQ((std::vector<uint32_t>{16, 16, 72, 0, 136, 72, 208, 0, 128}), offsets);
  EXPECT_EQ(264u, first_->indexed_area_size);
  EXPECT_EQ(208u, first_->indexed_last_offset);
  EXPECT_EQ(184u, first_->unindexed_area_size);
  EXPECT_EQ(128u, first_->unindexed_last_offset);
}

TEST_F(Creation, MakesZeroRowsOfANullConfiguration) {
  kivo_db *db = nullptr;
  TraceLog log;
  ASSERT_EQ(0u, create(1, nullptr, 3, &db));
  EXPECT_EQ(Texts(2, "3 create_acceleration_table tbl slot = 0 already taken attr_type = 0"),
            traces(log));
  EXPECT_EQ(3u, db->indexed_count);
  EXPECT_EQ(0u, db->unindexed_count);
  EXPECT_EQ(0, db->accel_slot[0]);
  EXPECT_EQ(-1, db->accel_slot[1]);
  EXPECT_EQ(1u, db->accel_tbl[0].indexed);
  EXPECT_EQ(KIVO_DATA_TYPE_INT32, db->accel_tbl[0].data_type);
  EXPECT_EQ(128u, db->accel_tbl[0].layout_offset);  // the third row's, behind 16 and 72
}

TEST_F(Creation, AnewGivesTheSameHandleWithoutRegistrations) {
  platform_queue_link handles[2] = {};
  const uint64_t blocks = named_live_blocks();
  EXPECT_EQ(0u, kivo_register_attr_change_notification(first_, 1, 1, &handles[0]));
  EXPECT_EQ(0u, kivo_register_attr_change_notification(first_, 8, 4, &handles[1]));
  EXPECT_EQ(blocks + 2, named_live_blocks());

  EXPECT_EQ(first_, kivo_test::create_database(1, {{8, 0, KIVO_DATA_TYPE_IPV4_ADDR}}));
  EXPECT_EQ(blocks, named_live_blocks());
  EXPECT_EQ(KIVO_SLOT_NONE, kivo_get_index_from_aaa_type(first_, 1));
  ASSERT_EQ(0u, kivo_get_index_from_aaa_type(first_, 8));
  EXPECT_EQ(nullptr, queue_get_next(&first_->accel_tbl[0].notify_regs, nullptr));
}

TEST_F(Creation, AnewTakesTheHandlesOwnFieldsAsArguments) {
  kivo_db *db = nullptr;
  ASSERT_EQ(0u, kivo_create_database(first_->db_name, first_->owner_name, &first_->client,
                                     first_->attr_cfg, 2, &db));
  EXPECT_EQ(first_, db);
  EXPECT_STREQ("ATTR_DB", db->db_name);
  EXPECT_STREQ("owner", db->owner_name);
  EXPECT_EQ(0, std::memcmp(kRows, db->attr_cfg, sizeof(kRows)));
}

TEST_F(Creation, ThatFailsKeepsTheOldTableAndItsRegistrations) {
  struct Row {
    const kivo_attr_config *rows;
    uint32_t n_rows, status;
    const char *db_name;  // afterwards
    Texts traces;
  };
  const Row rows[] = {
      {kRows,
       0,
       KIVO_ERR_FAILED,
       "ATTR_DB",
       {"3 register client:new Couldn't allocate memory for attributes",
        "3 create databse:fresh shim_register_client failed, error:operation failed"}},
      {kUnindexed,
       2,
       KIVO_ERR_INVALID_ARG,
       "fresh",
       {"3 create_acceleration_table failed", "3 create acceleration_table failed",
        "3 create databse:fresh shim_register_client failed, error:invalid argument"}}};
  for (const Row &row : rows) {
    kivo_test::create_database(1, {kRows[0], kRows[1]});
    platform_queue_link handle = {};
    EXPECT_EQ(0u, kivo_register_attr_change_notification(first_, 8, 1, &handle));
    const uint64_t blocks = named_live_blocks();
    const kivo_accel_entry *const table = first_->accel_tbl;
    kivo_db *result = second_;
    TraceLog log;
    EXPECT_EQ(row.status, create(1, row.rows, row.n_rows, &result));
    EXPECT_EQ(row.traces, traces(log));
    EXPECT_EQ(second_, result);
    EXPECT_EQ(blocks - 1, named_live_blocks());  // without the old configuration
    EXPECT_EQ(nullptr, first_->attr_cfg);
    EXPECT_EQ(0u, first_->indexed_count);
    EXPECT_EQ(row.n_rows, first_->unindexed_count);
    EXPECT_STREQ(row.db_name, first_->db_name);
    kivo_accel_entry *entry = nullptr;
    EXPECT_EQ(0u, kivo_get_accel_from_type(8, first_, &entry));
    ASSERT_EQ(&table[1], entry);
    EXPECT_NE(nullptr, queue_get_next(&entry->notify_regs, nullptr));

    EXPECT_EQ(0u, create(1, kRows, 2, &result));
    EXPECT_EQ(first_, result);
    EXPECT_EQ(blocks - 1, named_live_blocks());  // without the registration
  }
}

TEST_F(Creation, IsTheOnlyWayToRegisterAndNothingEndsIt) {
  const auto before = bytes_of(first_);
  EXPECT_EQ(KIVO_ERR_FAILED, kivo_destroy_database(first_));
  EXPECT_EQ(KIVO_ERR_FAILED, kivo_register_client(first_, nullptr));
  EXPECT_EQ(KIVO_ERR_FAILED, kivo_unregister_client(first_, 1));
  EXPECT_TRUE(before == bytes_of(first_));
}

TEST(Kinds, HaveTheirSizesAndPoolNames) {
  EXPECT_EQ((std::vector<uint32_t>{4, 8, 4, 16, 6, 24, 8, 0, 0}),
            std::vector(std::begin(KIVO_ATTR_SIZES_NEW), std::end(KIVO_ATTR_SIZES_NEW)));
  EXPECT_EQ(
      (Texts{"kivo small chunk", "kivo medium chunk", "kivo large chunk", "kivo malloc mem"}),
      Texts(std::begin(kivo_record_config_name_info), std::end(kivo_record_config_name_info)));
}

// The entry that a creation by this client gets, -1 when it fails with the given status.
int slot_got(uint32_t id, uint32_t status = 0, const kivo_attr_config *rows = kRows,
             uint32_t n_rows = 2) {
  kivo_db *db = nullptr;
  EXPECT_EQ(status, create(id, rows, n_rows, &db)) << "client " << id;
  return db == nullptr ? -1 : static_cast<int>(db->slot_index);
}

// Runs a scenario in a process of its own, both of whose entries are free.
void in_fresh_process(void (*scenario)()) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [&] {
    kivo_test::start_process();
    scenario();
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

TEST(EntriesDeathTest, GoToClientsInTheOrderOfTheirFirstCreation) {
  in_fresh_process([] {
    EXPECT_EQ(0, slot_got(7));
    EXPECT_EQ(1, slot_got(9));
    EXPECT_EQ(-1, slot_got(8, KIVO_ERR_NO_ROOM));
    EXPECT_EQ(1, slot_got(9));
    EXPECT_EQ(0, slot_got(7));
  });
}

TEST(EntriesDeathTest, StayFreeWhenThereAreNoRows) {
  in_fresh_process([] {
    EXPECT_EQ(-1, slot_got(5, KIVO_ERR_FAILED, kRows, 0));
    EXPECT_EQ(0, slot_got(6));
    EXPECT_EQ(1, slot_got(7));
    EXPECT_EQ(-1, slot_got(5, KIVO_ERR_NO_ROOM));
  });
}

TEST(EntriesDeathTest, AreClaimedByAFailureBehindTheConfiguration) {
  in_fresh_process([] {
    const uint64_t blocks = named_live_blocks();
    EXPECT_EQ(-1, slot_got(5, KIVO_ERR_INVALID_ARG, kUnindexed));
    EXPECT_EQ(blocks, named_live_blocks());
    EXPECT_EQ(1, slot_got(6));
    EXPECT_EQ(-1, slot_got(7, KIVO_ERR_NO_ROOM));
    EXPECT_EQ(0, slot_got(5));
  });
}

TEST(EntriesDeathTest, LookFreeAfterACreationByClient0) {
  in_fresh_process([] {
    EXPECT_EQ(0, slot_got(0));
    EXPECT_EQ(0, slot_got(4));
    EXPECT_EQ(1, slot_got(0));
    EXPECT_EQ(1, slot_got(5));
    EXPECT_EQ(-1, slot_got(0, KIVO_ERR_NO_ROOM));
  });
}

}  // namespace
