// Reading one attribute of a record, held or named by its label.
#include "kivo/attribute_read.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kivo/debug.h"
#include "kivo/records.h"
#include "support/process.h"
#include "support/trace_log.h"

namespace {

using kivo_test::TraceLine;

constexpr uint32_t kLabel = 21;
const char kUntouched[] = "untouched";

TraceLine error(const std::string &text) { return {kivo_trace_id, 3, text}; }
TraceLine event(const std::string &text) { return {kivo_trace_id, 6, text}; }

class AttributeRead : public testing::Test {
 protected:
  void SetUp() override {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}});
    ASSERT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    record_ = kivo_test::find_record(kLabel);
    store(1, "alice");
    kivo_debug_level_all = 1;
  }
  void TearDown() override { kivo_debug_level_all = 0; }

  void store(uint32_t type, const std::string &value) {
    uint32_t changed = 0;
    ASSERT_EQ(0u, auth_mgr_idc_add_or_update_attr(record_->ctxt, type, value.data(),
                                                  static_cast<uint32_t>(value.size()), &changed));
  }
  // What the two outputs say; "untouched" when they were left alone.
  std::string output() {
    if (value_ == nullptr) return length_ == 0 ? "none" : "length without a value";
    if (value_ == kUntouched && length_ == 4711) return kUntouched;
    return {static_cast<const char *>(value_), length_};
  }
  uint32_t read_from_record(kivo_db *db, attrdb_record *record, uint32_t type) {
    value_ = kUntouched;
    length_ = 4711;
    log_.take();
    return kivo_get_attr_from_record(db, record, type, &value_, &length_);
  }
  uint32_t read(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type) {
    value_ = kUntouched;
    length_ = 4711;
    log_.take();
    return kivo_get_attr(db, label, record, type, &value_, &length_);
  }

  kivo_test::TraceLog log_;
  kivo_db *db_ = nullptr;
  attrdb_record *record_ = nullptr;
  const void *value_ = nullptr;
  uint32_t length_ = 0;
};

TEST_F(AttributeRead, GivesTheStoredBytes) {
  EXPECT_EQ(0u, read_from_record(db_, record_, 1));
  EXPECT_EQ("alice", output());
  EXPECT_EQ(std::vector{event(">>>>> get attr: for attr_type user-name")}, log_.take());
  EXPECT_EQ(0u, read(db_, kLabel, nullptr, 1));
  EXPECT_EQ("alice", output());
  EXPECT_EQ((std::vector{event("get record"), event(">>>>> get attr: for attr_type user-name")}),
            log_.take());
}

TEST_F(AttributeRead, RecordAtHandNeedsNoHandleAndMakesTheLabelIdle) {
  EXPECT_EQ(0u, read_from_record(nullptr, record_, 1));
  EXPECT_EQ("alice", output());
  for (const uint32_t label : {0u, 999u}) {
    EXPECT_EQ(0u, read(db_, label, record_, 1));
    EXPECT_EQ("alice", output());
    EXPECT_EQ(std::vector{event(">>>>> get attr: for attr_type user-name")}, log_.take());
  }
}

TEST_F(AttributeRead, AbsentAndEmptyValuesHaveNoLength) {
  EXPECT_EQ(0u, read_from_record(db_, record_, 2));
  EXPECT_EQ("none", output());
  store(2, "");
  EXPECT_EQ(0u, read(db_, kLabel, nullptr, 2));
  EXPECT_EQ(0u, length_);
}

TEST_F(AttributeRead, MultiValuedTypeGivesAllItsBytes) {
  std::string addresses(48, '\0');
  for (size_t i = 0; i < addresses.size(); ++i) addresses[i] = static_cast<char>(i);
  store(10, addresses);
  EXPECT_EQ(0u, read(db_, kLabel, nullptr, 10));
  EXPECT_EQ(addresses, output());
}

TEST_F(AttributeRead, LabelWithoutARecordLeavesTheOutputsAlone) {
  EXPECT_EQ(0u, read(db_, 999, nullptr, 1));
  EXPECT_EQ(kUntouched, output());
  EXPECT_EQ((std::vector{event("get record"), event("get attrs: rec doesn't exist attr_type 1")}),
            log_.take());
}

TEST_F(AttributeRead, FailedFetchIsPassedOn) {
  EXPECT_EQ(0xa0030600u, read(db_, 0, nullptr, 1));
  EXPECT_EQ(kUntouched, output());
  EXPECT_EQ((std::vector{
                event("get record"), error("get record, unique label: invalid input params"),
                error("Add/update attr list: get record internal failed, error:invalid argument")}),
            log_.take());
}

TEST_F(AttributeRead, StatusOfTheServiceIsShownInTheTraceOnly) {
  const TraceLine failed = error("get attr: Could not get attr from db - rc 2");
  EXPECT_EQ(0xa0030200u, read_from_record(db_, record_, 1491));
  EXPECT_EQ((std::vector{event(">>>>> get attr: for attr_type attribute-unknown"), failed}),
            log_.take());
  EXPECT_EQ(0xa0030200u, read(db_, kLabel, nullptr, 1491));
  EXPECT_EQ(failed, log_.take().back());
}

TEST_F(AttributeRead, BadArgumentsAreRefusedFirst) {
  const std::vector refused = {error("get attr: invalid params")};
  EXPECT_EQ(0xa0030600u, read_from_record(db_, nullptr, 1));
  EXPECT_EQ(refused, log_.take());
  EXPECT_EQ(0xa0030600u, read_from_record(db_, record_, 0));
  EXPECT_EQ(refused, log_.take());
  EXPECT_EQ(0xa0030600u, kivo_get_attr_from_record(db_, record_, 1, nullptr, &length_));
  EXPECT_EQ(0xa0030600u, kivo_get_attr_from_record(db_, record_, 1, &value_, nullptr));
  EXPECT_EQ(kUntouched, output());

  EXPECT_EQ(0xa0030600u, read(nullptr, kLabel, record_, 1));
  EXPECT_EQ(refused, log_.take());
  EXPECT_EQ(0xa0030600u, read(db_, kLabel, nullptr, 0));
  EXPECT_EQ(refused, log_.take());
  EXPECT_EQ(0xa0030600u, kivo_get_attr(db_, kLabel, nullptr, 1, nullptr, &length_));
  EXPECT_EQ(0xa0030600u, kivo_get_attr(db_, kLabel, nullptr, 1, &value_, nullptr));
  EXPECT_EQ(kUntouched, output());
}

}  // namespace
