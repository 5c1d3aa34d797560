// Records and look-ups by value: checks, traces, and what the store's answers become.
#include "kivo/records.h"

#include <gtest/gtest.h>

#include <cstring>

#include "kivo/notification.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::find_record;
using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

int g_changes = 0;

constexpr uint32_t kUser = 1;
constexpr uint32_t kInterfaceId = 220;
constexpr uint32_t kOutsideTheDictionary = 1491;

class Records : public ::testing::Test {
 protected:
  Records() {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1, {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}},
                                     [](auto...) { ++g_changes; });
    EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_create(&set_));
    kivo_debug_level_all = 1;
  }
  ~Records() override {
    kivo_index_list_free(set_);
    kivo_test::reset_process();
  }

  static attrdb_record *make_record(uint32_t label, uint32_t type, const std::string &value) {
    EXPECT_EQ(0u, kivo_create_record(nullptr, label, nullptr));
    attrdb_record *record = find_record(label);
    EXPECT_EQ(0u, auth_mgr_idc_add_or_update_attr(record->ctxt, type, value.data(),
                                                  static_cast<uint32_t>(value.size()), nullptr));
    return record;
  }
  std::vector<uint32_t> labels() const {
    std::vector<uint32_t> labels;
    uint32_t cursor = 0;
    while (const uint32_t label = kivo_index_list_next(set_, &cursor)) labels.push_back(label);
    return labels;
  }

  kivo_db *db_ = nullptr;
  kivo_index_list *set_ = nullptr;
  uint32_t count_ = 77;
  uint32_t label_ = 77;
  attrdb_record *record_ = nullptr;
};

using LookUp = Records;

TEST_F(LookUp, RefusesBadArgumentsAndLeavesItsOutputs) {
  attrdb_record *const sentinel = make_record(5, kUser, "eve");
  record_ = sentinel;
  struct Row {
    const char *name;
    kivo_db *db;
    uint32_t type;
    const char *value;
    uint32_t size;
    bool out;
  };
  const Row rows[] = {{"Size0", db_, kUser, "eve", 0, true},
                      {"Type0", db_, 0, "eve", 3, true},
                      {"Type0AndNoDatabase", nullptr, 0, "eve", 3, true},
                      {"NoValue", db_, kUser, nullptr, 3, true},
                      {"NoOutput", db_, kUser, "eve", 3, false}};
  TraceLog log;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_match_labels_by_attr(row.db, row.type, row.value, row.size,
                                                              &set_, row.out ? &count_ : nullptr));
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_match_label_by_attr(row.db, row.type, row.value, row.size,
                                                             row.out ? &label_ : nullptr));
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_match_record_by_attr(row.db, row.type, row.value, row.size,
                                                              row.out ? &record_ : nullptr));
    EXPECT_EQ(
        (Texts{"3 match labels by attr: invalid params", "3 match label by attr: invalid params",
               "3 match record by attr: invalid params"}),
        traces(log));
  }
  EXPECT_EQ(KIVO_ERR_INVALID_ARG,
            kivo_match_labels_by_attr(db_, kUser, "eve", 3, nullptr, &count_));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG,
            kivo_match_labels_by_attr(nullptr, kUser, "eve", 3, &set_, &count_));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_match_record_by_attr(nullptr, kUser, "eve", 3, &record_));
  EXPECT_EQ(
      (Texts{"3 match labels by attr: invalid params", "3 match records by attr: invalid params",
             "3 match record by attr: invalid params"}),
      traces(log));
  EXPECT_EQ(sentinel, record_);
  EXPECT_EQ(77u, count_);
  EXPECT_EQ(77u, label_);
  EXPECT_TRUE(labels().empty());
}

TEST_F(LookUp, FindsEveryLabelAndTheLowest) {
  for (uint32_t label : {30u, 0xfffffff0u, 4u}) make_record(label, kUser, "eve");
  make_record(2, kUser, "ev");
  ASSERT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add(&set_, 99));
  TraceLog log;
  EXPECT_EQ(0u, kivo_match_labels_by_attr(db_, kUser, "eve", 3, &set_, &count_));
  EXPECT_EQ((std::vector<uint32_t>{99, 4, 30, 0xfffffff0}), labels());
  EXPECT_EQ(3u, count_);
  EXPECT_EQ(0u, kivo_match_label_by_attr(nullptr, kUser, "eve", 3, &label_));
  EXPECT_EQ(4u, label_);
  EXPECT_EQ(0u, kivo_match_record_by_attr(db_, kUser, "eve", 3, &record_));
  EXPECT_EQ(find_record(4), record_);
  const Texts progress = {"6 match records by attr:ATTR_DB, attr type:1",
                          "6 match label by attr type:1",
                          "6 match record by attr:ATTR_DB, attr type:1"};
  EXPECT_EQ(progress, traces(log));

  EXPECT_EQ(0u, kivo_match_labels_by_attr(db_, kUser, "bob", 3, &set_, &count_));
  EXPECT_EQ(0u, count_);
  EXPECT_EQ(4u, labels().size());
  EXPECT_EQ(0u, kivo_match_label_by_attr(db_, kUser, "bob", 3, &label_));
  EXPECT_EQ(0u, label_);
  EXPECT_EQ(0u, kivo_match_record_by_attr(db_, kUser, "bob", 3, &record_));
  EXPECT_EQ(nullptr, record_);
  EXPECT_EQ(progress, traces(log));
}

TEST_F(LookUp, TellsTheStoresFailureExceptOfARecord) {
  constexpr uint32_t kType = kOutsideTheDictionary;
  record_ = make_record(4, kUser, "eve");
  TraceLog log;
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR,
            kivo_match_labels_by_attr(db_, kType, "x", 1, &set_, &count_));
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, kivo_match_label_by_attr(db_, kType, "x", 1, &label_));
  EXPECT_EQ(0u, label_);
  EXPECT_EQ(0u, kivo_match_record_by_attr(db_, kType, "x", 1, &record_));
  EXPECT_EQ(nullptr, record_);
  EXPECT_EQ(
      (Texts{
          "6 match records by attr:ATTR_DB, attr type:1491",
          "3 get records by attr 1491: get records failed, error:attribute type not supported",
          "3 get label by attr: get record failed, error:attribute type not supported, rec (nil)",
          "6 match record by attr:ATTR_DB, attr type:1491",
          "3 get record by attr: get record failed, error:attribute type not supported"}),
      traces(log));
}

TEST_F(Records, AreCreatedWithTheirLabel) {
  TraceLog log;
  EXPECT_EQ(0u, kivo_create_record(nullptr, 0xabcd1234, nullptr));
  ASSERT_NE(nullptr, find_record(0xabcd1234));
  EXPECT_EQ(0xabcd1234, find_record(0xabcd1234)->label);
  EXPECT_EQ(ATTRDB_ERR_LABEL_IN_USE, kivo_create_record(db_, 0xabcd1234, nullptr));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, kivo_create_record(db_, 0, nullptr));
  EXPECT_EQ((Texts{"6 Inserting record with label: abcd1234",
                   "6 Inserting record with label: abcd1234", "6 Inserting record with label: 0"}),
            traces(log));
}

TEST_F(Records, AdoptAContextOnSuccessOnlyAndNotifyNobody) {
  platform_queue_link handle = {};
  ASSERT_EQ(0u, kivo_register_attr_change_notification(db_, kUser, 4, &handle));
  auth_ctxt *ctxt = nullptr;
  ASSERT_EQ(0u, auth_mgr_idc_create_ctxt(&ctxt));
  ASSERT_EQ(0u, auth_mgr_idc_add_or_update_attr(ctxt, kUser, "bob", 3, nullptr));
  make_record(1, kUser, "eve");
  EXPECT_EQ(ATTRDB_ERR_LABEL_IN_USE, kivo_create_record(db_, 1, ctxt));
  EXPECT_EQ(0u, kivo_match_label_by_attr(db_, kUser, "bob", 3, &label_));
  EXPECT_EQ(0u, label_);
  EXPECT_EQ(0u, kivo_create_record(db_, 2, ctxt));
  EXPECT_EQ(ctxt, find_record(2)->ctxt);
  EXPECT_EQ(0u, kivo_match_label_by_attr(db_, kUser, "bob", 3, &label_));
  EXPECT_EQ(2u, label_);
  EXPECT_EQ(0, g_changes);
}

TEST_F(Records, AreFetchedByLabel) {
  attrdb_record *const made = make_record(7, kUser, "eve");
  struct Row {
    kivo_db *db;
    uint32_t label, status;
    attrdb_record *out;  // afterwards; it holds the record before
  };
  const Row rows[] = {{db_, 7, 0, made},
                      {db_, 8, 0, nullptr},
                      {db_, 0, KIVO_ERR_INVALID_ARG, nullptr},
                      {nullptr, 0, KIVO_ERR_INVALID_ARG, made}};
  for (const Row &row : rows) {
    TraceLog log;
    record_ = made;
    EXPECT_EQ(row.status, kivo_get_record(row.db, row.label, &record_)) << row.label;
    EXPECT_EQ(row.out, record_) << row.label;
    Texts expected = {"6 get record"};
    if (row.status != 0 && row.db != nullptr) {
      expected.push_back("3 get record, unique label: invalid input params");
    }
    EXPECT_EQ(expected, traces(log)) << row.label;
  }
  TraceLog log;
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_get_record(db_, 7, nullptr));
  EXPECT_EQ(Texts{"6 get record"}, traces(log));
}

TEST_F(Records, AreDeletedWithoutAHandleAndLeaveTheIndexes) {
  make_record(7, kUser, "eve");
  TraceLog log;
  EXPECT_EQ(0u, kivo_delete_record(nullptr, 7));
  EXPECT_EQ(nullptr, find_record(7));
  EXPECT_EQ(ATTRDB_ERR_NOT_FOUND, kivo_delete_record(db_, 7));
  EXPECT_EQ(Texts{"3 Delete record: failederror:record store: no such record"}, traces(log));
  EXPECT_EQ(0u, kivo_match_label_by_attr(db_, kUser, "eve", 3, &label_));
  EXPECT_EQ(0u, label_);
}

TEST_F(Records, GiveInterfaceIdsInNumericOrder) {
  uint32_t label = 10;
  for (uint32_t id : {300u, 0x80000000u, 2u}) {
    make_record(label++, kInterfaceId, {reinterpret_cast<const char *>(&id), 4});
  }
  TraceLog log;
  uint32_t after = 0;
  for (uint32_t expected : {2u, 300u, 0x80000000u, 0u}) {
    uint32_t next = 77;
    EXPECT_EQ(0u, kivo_get_next_if_id(after, &next));
    EXPECT_EQ(expected, next) << "after " << after;
    after = next;
  }
  EXPECT_EQ(Texts{}, traces(log));
}

TEST_F(Records, AreMergedIntoAListThatKeepsWhatItHas) {
  attrdb_record *const record = make_record(4, kUser, "eve");
  ASSERT_EQ(0u, auth_mgr_idc_add_or_update_attr(record->ctxt, 9, "port", 4, nullptr));
  kivo_test::AttrList list;
  list.add(kUser, "mallory");
  TraceLog log;
  EXPECT_EQ(KIVO_ERR_FAILED, kivo_merge_rec_to_list_without_replace(db_, nullptr, list.handle()));
  EXPECT_EQ(AAA_ERR_STALE_LIST, kivo_merge_rec_to_list_without_replace(db_, record, 0xdeadbeef));
  EXPECT_EQ(0u, kivo_merge_rec_to_list_without_replace(nullptr, record, list.handle()));
  EXPECT_EQ(Texts{}, traces(log));
  Texts contents;
  aaa_cursor *cursor = nullptr;
  ASSERT_EQ(0u, aaa_cursor_alloc(&cursor, list.handle()));
  uint32_t type = 0;
  while (aaa_cursor_get_next(cursor, &type) == 0 && type != 0) {
    uint32_t size = 0;
    const void *value = nullptr;
    EXPECT_EQ(0u, aaa_cursor_get_value(cursor, &size, &value));
    contents.emplace_back(static_cast<const char *>(value), size);
  }
  aaa_cursor_free(cursor);
  EXPECT_EQ((Texts{"mallory", "port"}), contents);
}

}  // namespace
