// What hostile or careless callers pass to every operation that takes a value: refused with a clear
// status, or stored whole, and nothing that was stored before is lost.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "kivo/kivo.h"
#include "support/process.h"

namespace {

constexpr uint32_t kLabel = 5;
constexpr uint32_t kType = AAA_ATTR_USER_NAME;

class BadInput : public ::testing::Test {
 protected:
  BadInput() {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1, {{kType, 0, KIVO_DATA_TYPE_VAR_STR}});
    EXPECT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    record_ = kivo_test::find_record(kLabel);
    EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, AAA_ATTR_DOMAIN, "kept", 4));
  }
  ~BadInput() override {
    EXPECT_EQ(4u, kivo_test::stored_bytes(kLabel, AAA_ATTR_DOMAIN).size());
    EXPECT_EQ(1u, attrdb_get_total_sessions());
  }

  kivo_db *db_;
  attrdb_record *record_;
};

// Written through each operation: the status, and how much of the value is stored then.
TEST_F(BadInput, ValuesOfEverySizeAreStoredWholeOrRefused) {
  const auto by_list = [this](auto write, uint32_t size) {
    kivo_test::AttrList list;
    const std::string value(size, 'x');
    list.add(kType, value.data(), size);
    return write(db_, kLabel, nullptr, list.handle());
  };
  using Write = std::function<uint32_t(const void *, uint32_t)>;
  const struct {
    const char *what;
    Write write;
    uint32_t empty, unannounced;  // statuses for 0 bytes and for 256 and more
  } table[] = {
      {"add or update",
       [&](auto *v, uint32_t n) {
         return kivo_add_or_update_attr(db_, kLabel, nullptr, kType, v, n);
       },
       KIVO_ERR_INVALID_ARG, KIVO_ERR_INVALID_ARG},
      {"add", [&](auto *v, uint32_t n) { return kivo_add_attr(db_, kLabel, nullptr, kType, v, n); },
       KIVO_ERR_INVALID_ARG, 0},
      {"update in record",
       [&](auto *v, uint32_t n) {
         return kivo_add_or_update_attr_to_record(db_, record_, kType, v, n);
       },
       KIVO_ERR_INVALID_ARG, 0},
      {"list update", [&](auto *, uint32_t n) { return by_list(kivo_add_or_update_attr_list, n); },
       0, 0},
      {"list clean", [&](auto *, uint32_t n) { return by_list(kivo_clean_and_add_attr_list, n); },
       KIVO_ERR_INVALID_ARG, KIVO_ERR_INVALID_ARG},
      {"list add", [&](auto *, uint32_t n) { return by_list(kivo_add_attr_list, n); },
       KIVO_ERR_INVALID_ARG, 0},
  };
  for (const auto &row : table) {
    for (const uint32_t size : {0u, 255u, 256u, 65535u}) {
      EXPECT_EQ(0u, auth_mgr_idc_remove_attr_by_type(record_->ctxt, kType));
      const std::string value(size, 'x');
      const uint32_t status = size == 0 ? row.empty : size < 256 ? 0 : row.unannounced;
      EXPECT_EQ(status, row.write(value.data(), size)) << row.what << " " << size;
      EXPECT_EQ(size, kivo_test::stored_bytes(kLabel, kType).size()) << row.what << " " << size;
    }
  }
}

TEST_F(BadInput, TypesOutsideTheDictionaryHaveNoEntryAndNoIndex) {
  for (const uint32_t type : {1491u, 0x7fffffffu, 0xffffffffu}) {
    kivo_accel_entry *entry = reinterpret_cast<kivo_accel_entry *>(1);
    EXPECT_EQ(0u, kivo_get_accel_from_type(type, db_, &entry));
    EXPECT_EQ(nullptr, entry);
    EXPECT_EQ(KIVO_SLOT_NONE, kivo_get_index_from_aaa_type(db_, type));
    EXPECT_EQ(9u, kivo_get_kivo_type_from_aaa_type(db_, type));
    void *handle[1];
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_register_attr_change_notification(db_, type, 1, handle));
    uint32_t label = 7;
    EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, kivo_match_label_by_attr(db_, type, "x", 1, &label));
    EXPECT_EQ(0u, label);
    EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, kivo_add_attr(db_, kLabel, nullptr, type, "x", 1));
    EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, kivo_remove_attr_from_record_by_type(db_, record_, type));
    kivo_maqi query;
    uint32_t flag = 0;
    EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &query));
    EXPECT_EQ(0u, kivo_add_attr_to_query(&query, type, "x", 1, &flag));
    EXPECT_EQ(1u, flag);  // stored: no record has been asked yet
  }
}

TEST_F(BadInput, ListsThatAreGoneAreRefusedByEveryOperation) {
  uint32_t gone = 0;
  {
    kivo_test::AttrList list;
    gone = list.add(kType, "ann").handle();
  }
  for (const auto write :
       {kivo_add_or_update_attr_list, kivo_clean_and_add_attr_list, kivo_add_attr_list}) {
    EXPECT_EQ(KIVO_ERR_NO_CURSOR, write(db_, kLabel, nullptr, gone));
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, write(db_, kLabel, nullptr, 0));
    EXPECT_EQ(0u, write(db_, 404, nullptr, gone));  // no record: the list is not looked at
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, write(db_, 0, nullptr, gone));
  }
  kivo_index_list *found = nullptr;
  uint32_t count = 0;
  EXPECT_EQ(KIVO_ERR_NO_CURSOR, kivo_match_sessions_from_list(db_, gone, &found, &count));
  EXPECT_EQ(AAA_ERR_STALE_LIST, kivo_merge_rec_to_list_without_replace(db_, record_, gone));
  const auto *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(record_->ctxt);
  EXPECT_EQ(0u, shadowdb_get_session_attributes(shadow, gone));
  EXPECT_TRUE(kivo_test::stored_bytes(kLabel, kType).empty());
}

// What a query says of a condition, and the sessions that it then finds.
std::pair<uint32_t, uint32_t> ask(kivo_db *db, uint32_t type, const std::string &value) {
  kivo_maqi query;
  uint32_t flag = 77;
  EXPECT_EQ(0u, kivo_start_multi_attr_query(db, &query));
  EXPECT_EQ(0u, kivo_add_attr_to_query(&query, AAA_ATTR_DOMAIN, "kept", 4, &flag));
  EXPECT_EQ(0u, kivo_add_attr_to_query(&query, type, value.data(),
                                       static_cast<uint32_t>(value.size()), &flag));
  kivo_index_list *found = nullptr;
  uint32_t count = 77;
  EXPECT_EQ(0u, kivo_get_matches_for_query(&query, &found, &count));
  kivo_index_list_free(found);
  return {flag, count};
}

// Looked for and removed by value: all of it counts, whatever its size; one other byte, or one byte
// less, is another value.
TEST_F(BadInput, ValuesOfEverySizeAreFoundAndRemovedByAllTheirBytes) {
  using Answer = std::pair<uint32_t, uint32_t>;
  db_ = kivo_test::create_database(
      1, {{kType, 0, KIVO_DATA_TYPE_VAR_STR}, {AAA_ATTR_DOMAIN, 0, KIVO_DATA_TYPE_VAR_STR}});
  for (const uint32_t size : {1u, 255u, 256u, 65535u}) {
    const std::string value(size, 'x');
    std::string other = value;
    other.back() = 'y';
    for (const uint32_t type : {kType, uint32_t{AAA_ATTR_CALLED_STATION}}) {
      EXPECT_EQ(0u, kivo_add_attr_to_record(db_, record_, type, value.data(), size));
    }
    for (const bool is_stored : {true, false}) {
      const std::string &wanted = is_stored ? value : other;
      kivo_test::AttrList list;
      list.add(kType, wanted.data(), size);
      kivo_index_list *found = nullptr;
      uint32_t count = 77;
      EXPECT_EQ(0u, kivo_match_sessions_from_list(db_, list.handle(), &found, &count)) << size;
      EXPECT_EQ(is_stored ? 1u : 0u, count) << size;
      kivo_index_list_free(found);
      uint32_t label = 77;
      EXPECT_EQ(0u, kivo_match_label_by_attr(db_, kType, wanted.data(), size, &label)) << size;
      EXPECT_EQ(is_stored ? kLabel : 0, label) << size;
      EXPECT_EQ((is_stored ? Answer{1, 1} : Answer{0, 0}), ask(db_, kType, wanted)) << size;
      // A condition that is not indexed is stored up to 255 bytes, and compared at the end.
      EXPECT_EQ((Answer{size <= 255, is_stored && size <= 255}),
                ask(db_, AAA_ATTR_CALLED_STATION, wanted))
          << size;
    }
    const auto remove = [&](const std::string &bytes) {
      return kivo_remove_attr_from_record_by_type_and_value(
          db_, record_, kType, static_cast<uint32_t>(bytes.size()), bytes.data());
    };
    EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(other)) << size;
    EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(value.substr(1))) << size;
    EXPECT_EQ(size, kivo_test::stored_bytes(kLabel, kType).size());
    EXPECT_EQ(0u, remove(value)) << size;
    EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(value)) << size;
  }
}

TEST_F(BadInput, MissingArgumentsAreRefusedAndNoOutputIsWritten) {
  const auto untouched_list = reinterpret_cast<kivo_index_list *>(1);
  const auto untouched_record = reinterpret_cast<attrdb_record *>(1);
  kivo_index_list *list = untouched_list;
  attrdb_record *record = untouched_record;
  const void *value = &list;
  uint32_t n = 77;
  kivo_maqi query;
  const uint32_t types[] = {AAA_ATTR_DOMAIN};
  kivo_test::AttrList attrs;
  const uint32_t attr_list = attrs.add(kType, "ann").handle();
  const auto remove_value = kivo_remove_attr_from_record_by_type_and_value;
  // clang-format off
  const struct {
    const char *what;
    std::function<uint32_t()> call;
  } table[] = {
      {"add to no record", [&] { return kivo_add_attr_to_record(db_, nullptr, kType, "a", 1); }},
      {"add type 0 to record", [&] { return kivo_add_attr_to_record(db_, record_, 0, "a", 1); }},
      {"add no value to record", [&] { return kivo_add_attr_to_record(db_, record_, kType, nullptr, 1); }},
      {"add to label 0", [&] { return kivo_add_attr(db_, 0, nullptr, kType, "a", 1); }},
      {"add without database", [&] { return kivo_add_attr(nullptr, kLabel, record_, kType, "a", 1); }},
      {"add no value", [&] { return kivo_add_attr(db_, kLabel, nullptr, kType, nullptr, 1); }},
      {"add list to label 0", [&] { return kivo_add_attr_list(db_, 0, nullptr, attr_list); }},
      {"add list without database", [&] { return kivo_add_attr_list(nullptr, kLabel, record_, attr_list); }},
      {"update in no record", [&] { return kivo_add_or_update_attr_to_record(db_, nullptr, kType, "a", 1); }},
      {"update type 0", [&] { return kivo_add_or_update_attr_to_record(db_, record_, 0, "a", 1); }},
      {"remove from no record", [&] { return kivo_remove_attr_from_record_by_type(db_, nullptr, AAA_ATTR_DOMAIN); }},
      {"remove type 0", [&] { return kivo_remove_attr_from_record_by_type(db_, record_, 0); }},
      {"remove types from label 0", [&] { return kivo_remove_attrs_by_type(db_, 0, nullptr, types, 1); }},
      {"remove without database", [&] { return kivo_remove_attrs_by_type(nullptr, kLabel, record_, types, 1); }},
      {"remove no types", [&] { return kivo_remove_attrs_by_type(db_, kLabel, nullptr, nullptr, 1); }},
      {"remove 0 types", [&] { return kivo_remove_attrs_by_type(db_, kLabel, nullptr, types, 0); }},
      {"remove value from no record", [&] { return remove_value(db_, nullptr, AAA_ATTR_DOMAIN, 4, "kept"); }},
      {"remove value without database", [&] { return remove_value(nullptr, record_, AAA_ATTR_DOMAIN, 4, "kept"); }},
      {"remove value of type 0", [&] { return remove_value(db_, record_, 0, 4, "kept"); }},
      {"query without database", [&] { return kivo_start_multi_attr_query(nullptr, &query); }},
      {"query without context", [&] { return kivo_start_multi_attr_query(db_, nullptr); }},
      {"condition without context", [&] { return kivo_add_attr_to_query(nullptr, kType, "a", 1, &n); }},
      {"matches without context", [&] { return kivo_get_matches_for_query(nullptr, &list, &n); }},
      {"matches without list", [&] { return kivo_get_matches_for_query(&query, nullptr, &n); }},
      {"matches without count", [&] { return kivo_get_matches_for_query(&query, &list, nullptr); }},
      {"match without database", [&] { return kivo_match_sessions_from_list(nullptr, attr_list, &list, &n); }},
      {"match list 0", [&] { return kivo_match_sessions_from_list(db_, 0, &list, &n); }},
      {"match without list", [&] { return kivo_match_sessions_from_list(db_, attr_list, nullptr, &n); }},
      {"match without count", [&] { return kivo_match_sessions_from_list(db_, attr_list, &list, nullptr); }},
      {"sessions without database", [&] { return kivo_get_session_list(nullptr, &list, &n); }},
      {"sessions without list", [&] { return kivo_get_session_list(db_, nullptr, &n); }},
      {"sessions without count", [&] { return kivo_get_session_list(db_, &list, nullptr); }},
      {"labels of type 0", [&] { return kivo_match_labels_by_attr(db_, 0, "a", 1, &list, &n); }},
      {"labels of no bytes", [&] { return kivo_match_labels_by_attr(db_, kType, "a", 0, &list, &n); }},
      {"label of type 0", [&] { return kivo_match_label_by_attr(db_, 0, "a", 1, &n); }},
      {"record of no value", [&] { return kivo_match_record_by_attr(db_, kType, nullptr, 1, &record); }},
      {"record without database", [&] { return kivo_get_record(nullptr, kLabel, &record); }},
      {"value of type 0", [&] { return kivo_get_attr(db_, kLabel, nullptr, 0, &value, &n); }},
      {"value of no record", [&] { return kivo_get_attr_from_record(db_, nullptr, kType, &value, &n); }},
      {"registration of type 0", [&] { return kivo_register_attr_change_notification(db_, 0, 1, &list); }},
      {"registration without handle", [&] { return kivo_register_attr_change_notification(db_, kType, 1, nullptr); }},
  };
  // clang-format on
  EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &query));
  for (const auto &row : table) {
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, row.call()) << row.what;
    EXPECT_TRUE(list == untouched_list && record == untouched_record && n == 77 && value == &list)
        << row.what;
  }
  EXPECT_TRUE(kivo_test::stored_bytes(kLabel, kType).empty());
}

}  // namespace
