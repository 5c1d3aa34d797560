// Acceleration table: what an entry says about its type, and the three look-ups.
#include <gtest/gtest.h>

#include "kivo/database.h"
#include "platform/attrdb.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

class AccelTable : public ::testing::Test {
 protected:
  AccelTable() {
    kivo_test::reset_process();
    kivo_debug_level_all = 1;
    TraceLog log;
    db_ = kivo_test::create_database(1, {{5, 0, KIVO_DATA_TYPE_INT32},
                                         {9, 6, KIVO_DATA_TYPE_VAR_STR},
                                         {5, 6, KIVO_DATA_TYPE_VAR_BIN},
                                         {0, 1, KIVO_DATA_TYPE_INT64},
                                         {1490, 0xffffffff, KIVO_DATA_TYPE_MAC_ADDR}});
    creation_traces_ = traces(log);
  }
  ~AccelTable() override { kivo_test::reset_process(); }

  kivo_db *db_ = nullptr;
  Texts creation_traces_;
};

TEST_F(AccelTable, AnswersByTypeWithTheLaterOfTwoRows) {
  EXPECT_EQ((Texts{"3 create_acceleration_table tbl slot = 0 already taken attr_type = 5"}),
            creation_traces_);
  struct Row {
    uint32_t type, slot, data_type, indexed, layout_offset;
    const char *trace;
  };
  // Type 1490 lies behind values of 4 bytes at 16 and of 8 bytes at 72.
  constexpr Row kRows[] = {
      {5, 0, KIVO_DATA_TYPE_VAR_BIN, 0, 0, "6 aaa_type: server-id accln tbl index: 0"},
      {9, 1, KIVO_DATA_TYPE_VAR_STR, 0, 0, "6 aaa_type: interface-name accln tbl index: 1"},
      {1490, 3, KIVO_DATA_TYPE_MAC_ADDR, 1, 128, "6 aaa_type: attribute-1490 accln tbl index: 3"}};
  TraceLog log;
  for (const Row &row : kRows) {
    kivo_accel_entry *entry = nullptr;
    EXPECT_EQ(0u, kivo_get_accel_from_type(row.type, db_, &entry));
    ASSERT_EQ(&db_->accel_tbl[row.slot], entry) << row.type;
    EXPECT_EQ(Texts{row.trace}, traces(log));
    EXPECT_EQ(row.type, entry->aaa_type);
    EXPECT_EQ(row.data_type, entry->data_type) << row.type;
    EXPECT_EQ(row.indexed, entry->indexed) << row.type;
    EXPECT_EQ(row.layout_offset, entry->layout_offset) << row.type;
    EXPECT_EQ(nullptr, queue_get_next(&entry->notify_regs, nullptr));
    EXPECT_EQ(attrdb_kivo_type_to_attrdb_type(row.data_type),
              kivo_get_kivo_type_from_aaa_type(db_, row.type));
    traces(log);
    EXPECT_EQ(row.slot, kivo_get_index_from_aaa_type(db_, row.type));
    EXPECT_EQ(Texts{}, traces(log));
  }
  const kivo_accel_entry &trailing = db_->accel_tbl[4];  // no type maps to it
  EXPECT_EQ(0u, trailing.aaa_type);
  EXPECT_EQ(nullptr, queue_get_next(&trailing.notify_regs, nullptr));
}

TEST_F(AccelTable, HasNoEntryForTypesWithoutARow) {
  struct Row {
    uint32_t type;
    const char *name, *number;
  };
  constexpr Row kRows[] = {{8, "ipv4-address", "8"},
                           {1489, "attribute-1489", "1489"},
                           {1491, "attribute-unknown", "1491"},
                           {0x7fffffff, "attribute-unknown", "2147483647"}};
  TraceLog log;
  for (const Row &row : kRows) {
    kivo_accel_entry *entry = db_->accel_tbl;
    EXPECT_EQ(0u, kivo_get_accel_from_type(row.type, db_, &entry));
    EXPECT_EQ(nullptr, entry);
    EXPECT_EQ((Texts{std::string("6 aaa_type: ") + row.name + " accln tbl index: -1",
                     std::string("6 get_accel_from_type failed tbl (nil), type ") + row.number +
                         ": none accel type"}),
              traces(log));
    EXPECT_EQ(9u, kivo_get_kivo_type_from_aaa_type(db_, row.type));
    EXPECT_EQ(KIVO_SLOT_NONE, kivo_get_index_from_aaa_type(db_, row.type));
    traces(log);
  }
}

TEST_F(AccelTable, RefusesType0AndNullPointersWithoutATrace) {
  kivo_accel_entry *entry = db_->accel_tbl;
  TraceLog log;
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_get_accel_from_type(0, db_, &entry));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_get_accel_from_type(5, nullptr, &entry));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_get_accel_from_type(5, db_, nullptr));
  EXPECT_EQ(db_->accel_tbl, entry);
  EXPECT_EQ(9u, kivo_get_kivo_type_from_aaa_type(nullptr, 5));
  EXPECT_EQ(9u, kivo_get_kivo_type_from_aaa_type(db_, 0));
  EXPECT_EQ(KIVO_SLOT_NONE, kivo_get_index_from_aaa_type(nullptr, 5));
  EXPECT_EQ(2u, kivo_get_index_from_aaa_type(db_, 0));  // a row has type 0
  EXPECT_EQ(Texts{}, traces(log));
}

}  // namespace
