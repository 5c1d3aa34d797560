// The add operations: they write alike and differ in their checks, in when they announce and in
// what they return.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "kivo/attribute_write.h"
#include "kivo/debug.h"
#include "kivo/notification.h"
#include "kivo/records.h"
#include "kivo/shadow_db.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::AttrList;
using kivo_test::find_record;
using kivo_test::stored_bytes;
using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

constexpr uint32_t kUser = AAA_ATTR_USER_NAME;
constexpr uint32_t kLabel = 5;
constexpr uint32_t kNoRecord = 6;
constexpr uint32_t kUnsupported = 1491;

Texts g_changes;      // "label type/action"
std::string g_bytes;  // the last announced value
std::string g_old;    // and the old value that came with it, behind its type
void record_change(kivo_db *, uint32_t label, uint32_t, const kivo_attr_value *value,
                   const kivo_attr_value *old_value, uint32_t action, platform_queue *) {
  g_bytes.assign(reinterpret_cast<const char *>(value->data), value->size);
  g_old = std::to_string(old_value->aaa_type) + " " +
          std::string(reinterpret_cast<const char *>(old_value->data), old_value->size);
  g_changes.push_back(std::to_string(label) + " " + std::to_string(value->aaa_type) + "/" +
                      std::to_string(action));
}

class Adding : public ::testing::Test {
 protected:
  Adding() {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1,
                                     {{kUser, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {AAA_ATTR_DOMAIN, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {AAA_ATTR_EXT_USER, 0, KIVO_DATA_TYPE_VAR_BIN}},
                                     record_change);
    for (size_t i = 0; i < std::size(handles_); ++i) {
      EXPECT_EQ(0u, kivo_register_attr_change_notification(
                        db_, kTypes[i], KIVO_ACTION_ADD_OR_UPDATE | KIVO_ACTION_UNCONDITIONAL,
                        &handles_[i]));
    }
    EXPECT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    record_ = find_record(kLabel);
    g_changes.clear();
    kivo_debug_level_all = 1;
    traces(log_);
  }

  Texts changes() { return std::exchange(g_changes, {}); }
  // The traces above the level of events.
  Texts errors() {
    Texts texts = traces(log_);
    std::erase_if(texts, [](const std::string &text) { return !text.starts_with("3 "); });
    return texts;
  }

  static constexpr uint32_t kTypes[] = {kUser, AAA_ATTR_DOMAIN, AAA_ATTR_EXT_USER};
  static inline platform_queue_link handles_[3];
  kivo_db *db_;
  attrdb_record *record_;
  TraceLog log_;
};

TEST_F(Adding, AnnouncesWhetherTheRecordChanged) {
  EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, kUser, "ann", 3));
  EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, kUser, "ann", 3));
  EXPECT_EQ(0u, kivo_add_attr(db_, kLabel, nullptr, kUser, "bob", 3));
  EXPECT_EQ(0u, kivo_add_or_update_attr_to_record(db_, record_, kUser, "bob", 3));
  EXPECT_EQ((Texts{"5 1/1", "5 1/0", "5 1/1", "5 1/0"}), changes());
}

TEST_F(Adding, ChecksArgumentsInAnOrderOfItsOwn) {
  const struct {
    const char *what;
    std::function<uint32_t()> add;
    const char *trace;
  } table[] = {
      {"to record, no size",
       [&] { return kivo_add_attr_to_record(nullptr, record_, kUser, "a", 0); },
       "3 add attr to record: invalid params"},
      {"to record, no record", [&] { return kivo_add_attr_to_record(db_, nullptr, kUser, "a", 1); },
       "3 add attr to record: invalid params"},
      {"by label, type 0 before the database",
       [&] { return kivo_add_attr(nullptr, kLabel, nullptr, 0, "a", 1); },
       "3 add attr to label: invalid params"},
      {"by label, no database",
       [&] { return kivo_add_attr(nullptr, kLabel, nullptr, kUser, "a", 1); },
       "3 Add attr list: invlaid params"},
      {"list 0 before the database",
       [&] { return kivo_add_attr_list(nullptr, kLabel, nullptr, 0); },
       "3 add attr list: invalid params"},
      {"list, no database", [&] { return kivo_add_attr_list(nullptr, kLabel, nullptr, 7); },
       "3 Add attr list: invalid params"},
      {"update, no value",
       [&] { return kivo_add_or_update_attr_to_record(db_, record_, kUser, nullptr, 1); },
       "3 add or update attr to rec: invalid params"},
  };
  for (const auto &row : table) {
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, row.add()) << row.what;
    EXPECT_EQ(Texts{row.trace}, errors()) << row.what;
  }
  EXPECT_EQ(Texts{}, changes());
  EXPECT_TRUE(stored_bytes(kLabel, kUser).empty());
}

TEST_F(Adding, ByLabelWithoutARecordIsNoFailure) {
  AttrList list;
  list.add(kUser, "ann");
  EXPECT_EQ(0u, kivo_add_attr(db_, kNoRecord, nullptr, kUser, "ann", 3));
  EXPECT_EQ(0u, kivo_add_attr_list(db_, kNoRecord, nullptr, list.handle()));
  const Texts written = traces(log_);
  EXPECT_EQ(1, std::ranges::count(written, "6 add attr list:ATTR_DB rec doesn't exist"));
  EXPECT_EQ(1, std::ranges::count(written, "6 Add attr list:ATTR_DB rec doesn't exist"));
  EXPECT_EQ(Texts{}, changes());
}

TEST_F(Adding, ToARecordSurvivesANotificationThatIsRefused) {
  EXPECT_EQ(0u, kivo_add_attr_to_record(nullptr, record_, kUser, "ann", 3));
  EXPECT_EQ(3u, stored_bytes(kLabel, kUser).size());
  EXPECT_EQ("3 kivo_add_attr_to_record: Notify failed, error:invalid argument", errors().back());
  const std::string long_value(256, 'x');
  EXPECT_EQ(0u, kivo_add_attr(db_, kLabel, nullptr, kUser, long_value.data(), 256));
  EXPECT_EQ(256u, stored_bytes(kLabel, kUser).size());
  EXPECT_EQ(Texts{}, changes());
}

TEST_F(Adding, OfAnUnsupportedTypeSaysSoAndTellsNobody) {
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, kivo_add_attr(db_, kLabel, nullptr, kUnsupported, "a", 1));
  EXPECT_EQ((Texts{"3 kivo_add_attr_to_record: Add attr failed, error:attribute type not supported",
                   "3 kivo_add_attr: Add failed, error:attribute type not supported"}),
            errors());
}

TEST_F(Adding, AListAnnouncesTwiceAndEndsAtTheFirstFailure) {
  AttrList list;
  list.add(kUser, "ann").add(AAA_ATTR_DOMAIN, "x").add(AAA_ATTR_METHOD, "", 0).add(kUser, "bob");
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_add_attr_list(db_, 404, record_, list.handle()));
  // The first announcement has the record's label, the second the caller's.
  EXPECT_EQ((Texts{"5 1/1", "404 1/1", "5 2/1", "404 2/1"}), changes());
  EXPECT_EQ((std::vector<uint8_t>{'a', 'n', 'n'}), stored_bytes(kLabel, kUser));

  AttrList unchanged;
  unchanged.add(kUser, "ann").add(kUnsupported, "x").add(AAA_ATTR_DOMAIN, "y");
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, kivo_add_attr_list(db_, kLabel, nullptr, unchanged.handle()));
  EXPECT_EQ((Texts{"5 1/0", "5 1/1"}), changes());
  EXPECT_EQ(KIVO_ERR_NO_CURSOR, kivo_add_attr_list(db_, kLabel, nullptr, 0x7fffffff));
}

TEST_F(Adding, OrUpdatingAnnouncesAfterAFailedWriteToo) {
  // A type above the dictionary has no entry, so that a type of the database must fail to write.
  const std::string too_long(65536, 'x');
  EXPECT_EQ(AAA_ERR_NO_ROOM,
            kivo_add_or_update_attr_to_record(db_, record_, kUser, too_long.data(), 65536));
  const Texts failed = errors();
  ASSERT_EQ(3u, failed.size());
  EXPECT_EQ("3 add or update attr to rec: failed, error:attribute service: no room", failed[0]);
  EXPECT_EQ("3 Add/update attr to rec: Notify failed, error:invalid argument", failed[2]);
}

TEST_F(Adding, NeverRoutesToTheShadowRecord) {
  const char identity[] = "\x05\x00tail";
  AttrList list;
  list.add(AAA_ATTR_EXT_USER, identity, 6);
  EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, AAA_ATTR_EXT_USER, identity, 6));
  EXPECT_EQ(0u, kivo_add_attr(db_, kLabel, nullptr, AAA_ATTR_EXT_USER, identity, 6));
  EXPECT_EQ(0u, kivo_add_attr_list(db_, kLabel, nullptr, list.handle()));
  EXPECT_EQ(0u, kivo_add_or_update_attr_to_record(db_, record_, AAA_ATTR_EXT_USER, identity, 6));
  EXPECT_EQ(6u, stored_bytes(kLabel, AAA_ATTR_EXT_USER).size());
  EXPECT_EQ(0u, auth_mgr_idc_get_shadow_record_in_ctxt(record_->ctxt)->has_identities);
}

TEST_F(Adding, LeavesTheOldValueToTheCaller) {
  AttrList list;
  list.add(kUser, "cem");
  const std::function<uint32_t()> adds[] = {
      [&] { return kivo_add_attr_to_record(db_, record_, kUser, "ann", 3); },
      [&] { return kivo_add_attr(db_, kLabel, nullptr, kUser, "bob", 3); },
      [&] { return kivo_add_attr_list(db_, kLabel, nullptr, list.handle()); },
      [&] { return kivo_add_or_update_attr_to_record(db_, record_, kUser, "dan", 3); }};
  EXPECT_EQ(0u, kivo_set_notify_old_attr_value(AAA_ATTR_METHOD, 3, "old"));
  for (const auto &add : adds) {
    g_old.clear();
    EXPECT_EQ(0u, add());
    EXPECT_EQ(std::to_string(AAA_ATTR_METHOD) + " old", g_old);
  }
}

TEST_F(Adding, OfAValueThatLiesInTheRecordAnnouncesItsBytes) {
  const std::string domain(200, 'd');
  EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, AAA_ATTR_DOMAIN, domain.data(), 200));
  for (const auto add : {kivo_add_attr_to_record, kivo_add_or_update_attr_to_record}) {
    EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, kUser, "x", 1));
    const void *value = nullptr;
    uint32_t size = 0;
    uint32_t count = 0;
    ASSERT_EQ(0u, auth_mgr_idc_get_attr(record_->ctxt, AAA_ATTR_DOMAIN, &value, &size, &count));
    EXPECT_EQ(0u, add(db_, record_, kUser, value, size));
    EXPECT_EQ(domain, g_bytes);
    EXPECT_EQ(200u, stored_bytes(kLabel, kUser).size());
    EXPECT_EQ(200u, stored_bytes(kLabel, AAA_ATTR_DOMAIN).size());
  }
}

}  // namespace
