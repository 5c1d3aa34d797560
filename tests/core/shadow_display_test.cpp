// Reading shadow records: copies into attribute lists, and the console listing.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "kivo/kivo.h"
#include "support/console_capture.h"
#include "support/process.h"
#include "support/trace_log.h"

namespace {

using Bytes = std::vector<uint8_t>;
using kivo_test::AttrList;
using Attributes = std::vector<std::pair<uint32_t, Bytes>>;

constexpr uint32_t kLabel = 7;
constexpr uint32_t kAll = 99;  // all slots, not one
const std::string kMargin(33, ' ');

Bytes identity(uint16_t subtype, uint32_t length) {
  Bytes value(length);
  std::iota(value.begin(), value.end(), uint8_t{0});
  std::memcpy(value.data(), &subtype, 2);
  return value;
}

Attributes attributes_of(uint32_t list) {
  Attributes found;
  aaa_cursor *cursor = nullptr;
  EXPECT_EQ(0u, aaa_cursor_alloc(&cursor, list));
  uint32_t type = 0;
  while (aaa_cursor_get_next(cursor, &type) == 0 && type != 0) {
    uint32_t size = 0;
    const void *value = nullptr;
    EXPECT_EQ(0u, aaa_cursor_get_value(cursor, &size, &value));
    const auto *bytes = static_cast<const uint8_t *>(value);
    found.emplace_back(type, Bytes(bytes, bytes + size));
  }
  aaa_cursor_free(cursor);
  return found;
}

class ShadowDisplay : public testing::Test {
 protected:
  void SetUp() override {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}});
    ASSERT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    record_ = auth_mgr_idc_get_shadow_record_in_ctxt(kivo_test::find_record(kLabel)->ctxt);
    ASSERT_NE(nullptr, record_);
  }
  void write(uint32_t type, const Bytes &value) {
    uint32_t slot = 99;
    uint32_t changed = 0;
    ASSERT_EQ(1u, kivo_check_is_shadow_attrib(type, &slot));
    ASSERT_EQ(0u, shadowdb_add_or_update_attr(record_, slot, type, value.data(),
                                              static_cast<uint32_t>(value.size()), &changed));
  }
  // The host module's traces since the last call, level and text.
  void expect_traces(const std::vector<std::pair<uint32_t, std::string>> &expected) {
    std::vector<std::pair<uint32_t, std::string>> lines;
    for (const kivo_test::TraceLine &line : log_.take()) {
      if (line.module == TRACE_MODULE_HOST_APP) lines.emplace_back(line.level, line.text);
    }
    EXPECT_EQ(expected, lines);
  }

  kivo_test::TraceLog log_;
  kivo_db *db_ = nullptr;
  shadowdb_rec *record_ = nullptr;
};

TEST_F(ShadowDisplay, IdentitiesAreCopiedInTheOrderOfTheSlotsNewestFirst) {
  write(1248, identity(1, 2));
  write(1124, identity(2, 4));
  write(1126, identity(5, 3));
  write(1124, identity(3, 2));
  AttrList all;
  all.add(1, "x");
  log_.take();
  EXPECT_EQ(0u, shadowdb_get_session_attributes(record_, all.handle()));
  expect_traces({{8, "7: Added external-class atribute to the list"},
                 {8, "7: Added external-class atribute to the list"},
                 {8, "7: Added external-device atribute to the list"},
                 {8, "7: Added external-location atribute to the list"}});
  EXPECT_EQ((Attributes{{1, {'x'}},
                        {1124, identity(3, 2)},
                        {1124, identity(2, 4)},
                        {1126, identity(5, 3)},
                        {1248, identity(1, 2)}}),
            attributes_of(all.handle()));
  AttrList one;
  EXPECT_EQ(0u, shadowdb_get_session_attribute(record_, one.handle(), 0));
  EXPECT_EQ((Attributes{{1124, identity(3, 2)}, {1124, identity(2, 4)}}),
            attributes_of(one.handle()));
}

TEST_F(ShadowDisplay, FailedCopiesAreTracedAndPassedOver) {
  write(1126, identity(5, 3));
  write(1129, identity(6, 2));
  uint32_t freed = 0;
  ASSERT_EQ(0u, aaa_list_alloc(&freed));
  ASSERT_EQ(0u, aaa_list_free(freed));
  log_.take();
  EXPECT_EQ(0u, shadowdb_get_session_attributes(record_, freed));
  expect_traces({{3, "external-device: Failed to add aaa attribute"},
                 {3, "external-cert: Failed to add aaa attribute"}});
  EXPECT_EQ(0u, shadowdb_get_session_attribute(record_, freed, 2));
  expect_traces({{3, "external-device: Failed to add aaa attribute"}});
}

// The order of the checks shows where several would fail.
TEST_F(ShadowDisplay, ReadsAreRefusedInTheOrderOfTheChecks) {
  AttrList list;
  const std::string bad_list = "7: Invalid identity list passed to get session identities";
  const struct {
    const char *name;
    bool written;
    bool has_record;
    uint32_t slot;
    bool has_list;
    uint32_t status;
    uint32_t level;
    std::string trace;
  } rows[] = {
      {"SlotSeven", false, false, 7, false, 0xa0030600, 3, "Attr Index 7 is invalid."},
      {"NullRecord", false, false, 6, false, 0xa0030600, 3, "Record is invalid."},
      {"NullRecordAllSlots", false, false, kAll, false, 0xa0030600, 3, "Record is invalid."},
      {"NothingWritten", false, true, 2, false, 0, 7, "No external identities present in DB."},
      {"NothingWrittenAllSlots", false, true, kAll, false, 0, 7,
       "No external identities present in DB."},
      {"NoList", true, true, 3, false, 0xa0030600, 3, bad_list},
      {"NoListAllSlots", true, true, kAll, false, 0xa0030600, 3, bad_list},
      {"EmptySlot", true, true, 3, true, 0xa0030600, 3, "No attr entries for index 3"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    if (row.written) write(1126, identity(5, 3));
    log_.take();
    shadowdb_rec *record = row.has_record ? record_ : nullptr;
    const uint32_t handle = row.has_list ? list.handle() : 0;
    EXPECT_EQ(row.status, row.slot == kAll
                              ? shadowdb_get_session_attributes(record, handle)
                              : shadowdb_get_session_attribute(record, handle, row.slot));
    expect_traces({{row.level, row.trace}});
    EXPECT_TRUE(attributes_of(list.handle()).empty());
  }
}

TEST_F(ShadowDisplay, RecordWhoseIdentitiesAreGoneHasNoEntriesLeft) {
  write(1126, identity(5, 3));
  ASSERT_EQ(0u, shadowdb_remove_attr(record_, 2, 1126, 3, identity(5, 3).data()));
  AttrList list;
  EXPECT_EQ(0xa0030600u, shadowdb_get_session_attribute(record_, list.handle(), 2));
  EXPECT_EQ(0u, shadowdb_get_session_attributes(record_, list.handle()));
  EXPECT_TRUE(attributes_of(list.handle()).empty());
}

TEST_F(ShadowDisplay, ListingHoldsSixteenBytesALine) {
  kivo_test::ConsoleCapture console;
  write(1248, {});
  write(1129, identity(0x1f, 33));
  write(1128, identity(0x1f, 17));
  write(1124, identity(0x0a0b, 2));
  write(1124, identity(0xff, 16));
  EXPECT_EQ(0u, shadowdb_show_rec(db_, kLabel));
  EXPECT_EQ(
      "\nexternal-class                 : ff 00 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f \n"
      "\nexternal-class                 : 0b 0a \n"
      "\nexternal-tag                   : 1f 00 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f \n" +
          kMargin + "10 \n" +
          "\nexternal-cert                  : 1f 00 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e "
          "0f \n" +
          kMargin + "10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f \n" + kMargin + "20 \n" +
          "\nexternal-location              : \n",
      console.take());
}

TEST_F(ShadowDisplay, ListingTellsTheTraceWhatIsMissing) {
  kivo_test::ConsoleCapture console;
  const struct {
    const char *name;
    bool has_db;
    uint32_t label;
    uint32_t status;
    const char *trace;
  } rows[] = {
      {"NoIdentities", true, kLabel, 0, nullptr},
      {"NoDatabase", false, kLabel, 0xa0030600, "show attr: invalid params"},
      {"LabelZero", true, 0, 0xa0030600, "Get record failed"},
      {"NoRecord", true, 99, 0xa0031200, "Failed to get the shadow rec"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    log_.take();
    EXPECT_EQ(row.status, shadowdb_show_rec(row.has_db ? db_ : nullptr, row.label));
    if (row.trace != nullptr) {
      expect_traces({{3, row.trace}});
    } else {
      expect_traces({});
    }
    EXPECT_EQ("", console.take());
  }
}

}  // namespace
