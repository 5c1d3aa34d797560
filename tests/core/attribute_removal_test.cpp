// Removing attributes: by type what goes is announced first, by type and value afterwards.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <utility>

#include "kivo/attribute_removal.h"
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
constexpr uint32_t kAddresses = AAA_ATTR_IPV6_ADDRESSES;
constexpr uint32_t kLabel = 5;

Texts g_changes;                      // "type/action size first-byte stored-bytes-then"
std::function<void()> g_in_callback;  // runs in every callback
void record_change(kivo_db *, uint32_t label, uint32_t, const kivo_attr_value *value,
                   const kivo_attr_value *old_value, uint32_t action, platform_queue *) {
  EXPECT_EQ(0u, old_value->aaa_type | old_value->size | old_value->data[0]);
  g_changes.push_back(std::to_string(value->aaa_type) + "/" + std::to_string(action) + " " +
                      std::to_string(value->size) + " " + std::to_string(value->data[0]) + " " +
                      std::to_string(stored_bytes(label, value->aaa_type).size()));
  if (g_in_callback) g_in_callback();
}

class Removal : public ::testing::Test {
 protected:
  Removal() {
    kivo_test::reset_process();
    g_in_callback = nullptr;
    db_ = kivo_test::create_database(1,
                                     {{kUser, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {kAddresses, 0, KIVO_DATA_TYPE_IPV6_ADDR},
                                      {AAA_ATTR_EXT_USER, 0, KIVO_DATA_TYPE_VAR_BIN}},
                                     record_change);
    for (size_t i = 0; i < std::size(handles_); ++i) {
      EXPECT_EQ(0u, kivo_register_attr_change_notification(db_, kTypes[i], KIVO_ACTION_REMOVE,
                                                           &handles_[i]));
    }
    EXPECT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    record_ = find_record(kLabel);
    g_changes.clear();
  }

  // Stores n addresses whose first byte is 1, 2, ...
  void store_addresses(uint8_t n) {
    for (uint8_t i = 1; i <= n; ++i) {
      const uint8_t address[16] = {i};
      EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, kAddresses, address, 16));
    }
  }
  void store(uint32_t type, const char *text) {
    EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, type, text,
                                          static_cast<uint32_t>(std::strlen(text))));
  }
  // Every removal is preceded by an old value that must not be seen.
  Texts changes_of(const std::function<uint32_t()> &remove, uint32_t status = 0) {
    EXPECT_EQ(0u, kivo_set_notify_old_attr_value(kUser, 3, "old"));
    EXPECT_EQ(status, remove());
    return std::exchange(g_changes, {});
  }

  static constexpr uint32_t kTypes[] = {kUser, kAddresses, AAA_ATTR_EXT_USER};
  static inline platform_queue_link handles_[3];
  kivo_db *db_;
  attrdb_record *record_;
};

TEST_F(Removal, ByTypeAnnouncesBeforeAndByValueAfterwards) {
  store(kUser, "ann");
  EXPECT_EQ((Texts{"1/2 3 97 3"}),
            changes_of([&] { return kivo_remove_attr_from_record_by_type(db_, record_, kUser); }));
  store(kUser, "bob");
  EXPECT_EQ((Texts{"1/2 3 98 0"}), changes_of([&] {
              return kivo_remove_attr_from_record_by_type_and_value(db_, record_, kUser, 3, "bob");
            }));
  EXPECT_EQ(Texts{},
            changes_of([&] { return kivo_remove_attr_from_record_by_type(db_, record_, kUser); }));
  // An empty value stays.
  EXPECT_EQ(0u, auth_mgr_idc_add_or_update_attr(record_->ctxt, kUser, "", 0, nullptr));
  EXPECT_EQ(Texts{},
            changes_of([&] { return kivo_remove_attr_from_record_by_type(db_, record_, kUser); }));
  EXPECT_EQ(0u, auth_mgr_idc_remove_attr_by_type_and_value(record_->ctxt, kUser, "", 0));
}

TEST_F(Removal, OfEightAddressesAnnouncesSixAndRemovesAll) {
  store_addresses(8);
  EXPECT_EQ(
      (Texts{"10/2 16 1 128", "10/2 16 2 128", "10/2 16 3 128", "10/2 16 4 128", "10/2 16 5 128",
             "10/2 16 6 128"}),
      changes_of([&] { return kivo_remove_attr_from_record_by_type(db_, record_, kAddresses); }));
  EXPECT_TRUE(stored_bytes(kLabel, kAddresses).empty());
}

TEST_F(Removal, AnnouncesTheAddressesAsTheyWereWhateverCallbacksWrite) {
  store_addresses(3);
  g_in_callback = [&] {
    const uint8_t first[16] = {static_cast<uint8_t>(g_changes.size())};
    EXPECT_EQ(0u, auth_mgr_idc_remove_attr_by_type_and_value(record_->ctxt, kAddresses, first, 16));
    store(AAA_ATTR_METHOD, g_changes.size() % 2 != 0 ? "a longer value than before" : "x");
  };
  EXPECT_EQ((Texts{"10/2 16 1 48", "10/2 16 2 32", "10/2 16 3 16"}), changes_of([&] {
              return kivo_remove_attr_from_record_by_type(db_, record_, kAddresses);
            }));
  EXPECT_TRUE(stored_bytes(kLabel, kAddresses).empty());
}

TEST_F(Removal, OfAValueThatLiesInTheRecordAnnouncesItsBytes) {
  store_addresses(2);
  const void *value = nullptr;
  uint32_t size = 0;
  uint32_t count = 0;
  ASSERT_EQ(0u, auth_mgr_idc_get_attr(record_->ctxt, kAddresses, &value, &size, &count));
  EXPECT_EQ((Texts{"10/2 16 1 16"}), changes_of([&] {
              return kivo_remove_attr_from_record_by_type_and_value(db_, record_, kAddresses, 16,
                                                                    value);
            }));
}

TEST_F(Removal, OfSeveralTypesGoesOnAndReturnsTheLastFailure) {
  store(kUser, "ann");
  const uint32_t types[] = {1491, kUser, 0, AAA_ATTR_METHOD};
  EXPECT_EQ((Texts{"1/2 3 97 3"}),
            changes_of([&] { return kivo_remove_attrs_by_type(db_, kLabel, nullptr, types, 4); },
                       KIVO_ERR_INVALID_ARG));
  EXPECT_EQ(Texts{},
            changes_of([&] { return kivo_remove_attrs_by_type(db_, 404, nullptr, types, 4); }));
}

TEST_F(Removal, ReachesIdentitiesByValueOnly) {
  const char identity[] = "\x05\x00tail";
  AttrList list;
  list.add(AAA_ATTR_EXT_USER, identity, 6);
  EXPECT_EQ(0u, kivo_add_or_update_attr_list(db_, kLabel, record_, list.handle()));
  const shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(record_->ctxt);
  EXPECT_EQ(Texts{}, changes_of([&] {
              return kivo_remove_attr_from_record_by_type(db_, record_, AAA_ATTR_EXT_USER);
            }));
  EXPECT_NE(nullptr, shadow->attr_lists[1]);
  // Another subtype is not there: nothing goes, and that is announced all the same.
  for (const char *value : {"\x06\x00", "\x05\x00other"}) {
    EXPECT_EQ(1u, changes_of([&] {
                    return kivo_remove_attr_from_record_by_type_and_value(
                        db_, record_, AAA_ATTR_EXT_USER, 2, value);
                  }).size());
  }
  EXPECT_EQ(nullptr, shadow->attr_lists[1]);
}

TEST_F(Removal, RefusesBadArgumentsWithItsOwnTexts) {
  store(kUser, "ann");
  const uint32_t types[] = {kUser};
  const struct {
    const char *what;
    std::function<uint32_t()> remove;
    uint32_t status;
    const char *trace;
  } table[] = {
      {"by type, no record", [&] { return kivo_remove_attr_from_record_by_type(db_, nullptr, 1); },
       KIVO_ERR_INVALID_ARG, "3 remove attrs: invalid params"},
      {"several, no database",
       [&] { return kivo_remove_attrs_by_type(nullptr, 5, nullptr, types, 1); },
       KIVO_ERR_INVALID_ARG, "3 remove attrs: invalid params"},
      {"several, none", [&] { return kivo_remove_attrs_by_type(db_, 5, nullptr, types, 0); },
       KIVO_ERR_INVALID_ARG, "3 remove attrs: invalid params"},
      {"by value, no record before no database",
       [&] { return kivo_remove_attr_from_record_by_type_and_value(nullptr, nullptr, 1, 1, "a"); },
       KIVO_ERR_INVALID_ARG, "3 remove attrs: invalid rec"},
      {"by value, type 0",
       [&] { return kivo_remove_attr_from_record_by_type_and_value(db_, record_, 0, 1, "a"); },
       KIVO_ERR_INVALID_ARG, "3 remove attrs: invalid params"},
      {"by value, not there",
       [&] { return kivo_remove_attr_from_record_by_type_and_value(db_, record_, kUser, 1, "a"); },
       AAA_ERR_NOT_FOUND,
       "3 Remove attr by type/val: Remove attr failed, error:attribute service: no such value"},
  };
  TraceLog log;
  kivo_debug_level_error = 1;
  for (const auto &row : table) {
    traces(log);
    EXPECT_EQ(row.status, row.remove()) << row.what;
    const Texts written = traces(log);
    ASSERT_FALSE(written.empty()) << row.what;
    EXPECT_EQ(row.trace, written.back()) << row.what;
  }
  EXPECT_EQ(3u, stored_bytes(kLabel, kUser).size());
  EXPECT_EQ(Texts{}, g_changes);
}

}  // namespace
