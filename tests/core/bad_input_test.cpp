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
    EXPECT_EQ(1u, flag);  // stored, and found in no record
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

}  // namespace
