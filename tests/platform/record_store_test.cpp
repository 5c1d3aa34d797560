// Records by label: making, adopting, finding, deleting, walking, counting. Every test ends with an
// empty store and checks that nothing is left.
#include <gtest/gtest.h>

#include <unordered_map>

#include "collected_labels.h"
#include "support/memory_faults.h"

namespace {

class RecordStore : public ::testing::Test {
 protected:
  void SetUp() override { attrdb_init(); }
  void TearDown() override {
    for (const std::uint32_t label : labels_in_walk_order()) attrdb_delete_record(label);
    EXPECT_EQ(0u, attrdb_get_total_sessions());
    EXPECT_EQ(0u, auth_mgr_idc_live_ctxts());
    EXPECT_EQ(0, shadows_alive);
  }

  static std::uint32_t create(std::uint32_t label) {
    return attrdb_create_and_insert_primary_record(nullptr, label);
  }

  static std::vector<std::uint32_t> labels_in_walk_order() {
    std::vector<std::uint32_t> labels;
    attrdb_walk_all_records(
        [](attrdb_record *record, void *arg) -> std::uint32_t {
          static_cast<std::vector<std::uint32_t> *>(arg)->push_back(record->label);
          return 1;
        },
        &labels);
    return labels;
  }
};

using Labels = std::vector<std::uint32_t>;

TEST_F(RecordStore, FindsRecordsAnywhereInTheLabelSpace) {
  const Labels labels = {1, 2, 0x10000, 0x80000000, UINT32_MAX, 77};
  for (const std::uint32_t label : labels) ASSERT_EQ(PLATFORM_OK, create(label));
  for (const std::uint32_t label : labels) {
    ASSERT_NE(nullptr, record_of(label));
    EXPECT_EQ(label, record_of(label)->label);
    EXPECT_NE(nullptr, record_of(label)->ctxt);
  }
  EXPECT_EQ(nullptr, record_of(3));
  EXPECT_EQ(nullptr, record_of(0));
  EXPECT_EQ(6u, attrdb_get_total_sessions());
  EXPECT_EQ(labels, labels_in_walk_order());
}

TEST_F(RecordStore, RefusesWhatItCannotMake) {
  auth_ctxt *ctxt = nullptr;
  auth_mgr_idc_create_ctxt(&ctxt);
  EXPECT_EQ(PLATFORM_OK, create(5));
  EXPECT_EQ(ATTRDB_ERR_LABEL_IN_USE, create(5));
  EXPECT_EQ(ATTRDB_ERR_LABEL_IN_USE, attrdb_create_and_insert_primary_record(ctxt, 5));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, create(0));
  EXPECT_EQ(ATTRDB_ERR_ADOPTED, attrdb_create_and_insert_primary_record(record_of(5)->ctxt, 6));
  EXPECT_EQ(ATTRDB_ERR_NOT_FOUND, attrdb_delete_record(6));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_record(5, nullptr));
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, attrdb_declare_index(0));
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, attrdb_declare_index(1491));
  EXPECT_EQ(2u, auth_mgr_idc_live_ctxts());
  auth_mgr_idc_destroy_ctxt(record_of(5)->ctxt);  // the record's own: left alone
  EXPECT_EQ(5u, record_of(5)->label);
  auth_mgr_idc_destroy_ctxt(ctxt);
}

TEST_F(RecordStore, AdoptsAFilledContextWithItsIndexes) {
  attrdb_declare_index(AAA_ATTR_DOMAIN);
  auth_ctxt *ctxt = nullptr;
  auth_mgr_idc_create_ctxt(&ctxt);
  write(ctxt, AAA_ATTR_DOMAIN, "blue");
  write(ctxt, AAA_ATTR_INTERFACE_ID, number(9));
  EXPECT_EQ(Labels{}, labels_with(AAA_ATTR_DOMAIN, "blue"));
  EXPECT_EQ(PLATFORM_OK, attrdb_create_and_insert_primary_record(ctxt, 40));
  EXPECT_EQ(ctxt, record_of(40)->ctxt);
  EXPECT_EQ(Labels{40}, labels_with(AAA_ATTR_DOMAIN, "blue"));
  EXPECT_EQ(1u, attrdb_get_total_domain_tree_sessions());
  EXPECT_EQ(1u, attrdb_get_total_iif_id_tree_sessions());
  ASSERT_NE(nullptr, auth_mgr_idc_get_shadow_record_in_ctxt(ctxt));
  EXPECT_EQ(40u, auth_mgr_idc_get_shadow_record_in_ctxt(ctxt)->label);
  EXPECT_EQ(PLATFORM_OK, attrdb_delete_record(40));
  EXPECT_EQ(Labels{}, labels_with(AAA_ATTR_DOMAIN, "blue"));
  EXPECT_EQ(0, shadows_alive);
}

TEST_F(RecordStore, CountsTheRecordsThatHoldAnAttribute) {
  const struct {
    std::uint32_t type;
    std::uint32_t (*total)();
  } rows[] = {
      {AAA_ATTR_MAC_ADDRESS, attrdb_get_total_mac_tree_sessions},
      {AAA_ATTR_INTERFACE, attrdb_get_total_swidb_tree_sessions},
      {AAA_ATTR_INTERFACE_ID, attrdb_get_total_iif_id_tree_sessions},
      {AAA_ATTR_DOMAIN, attrdb_get_total_domain_tree_sessions},
      {AAA_ATTR_METHOD, attrdb_get_total_method_tree_sessions},
      {AAA_ATTR_AUDIT_SESSION_ID, attrdb_get_total_audit_sess_id_tree_sessions},
      {AAA_ATTR_SESSION_ID, attrdb_get_total_session_id_tree_sessions},
  };
  for (std::uint32_t label = 1; label <= 3; ++label) create(label);
  for (const auto &row : rows) {
    const auto other_totals = [&] {
      std::uint32_t sum = 0;
      for (const auto &other : rows) sum += other.type != row.type ? other.total() : 0;
      return sum;
    };
    write(record_of(1)->ctxt, row.type, "same");
    write(record_of(2)->ctxt, row.type, "same");
    write(record_of(2)->ctxt, row.type, "other");
    EXPECT_EQ(2u, row.total()) << row.type;
    EXPECT_EQ(0u, other_totals()) << row.type;
    auth_mgr_idc_remove_attr_by_type(record_of(1)->ctxt, row.type);
    auth_mgr_idc_remove_attr_by_type(record_of(1)->ctxt, row.type);
    EXPECT_EQ(1u, row.total()) << row.type;
    auth_mgr_idc_remove_attr_by_type(record_of(2)->ctxt, row.type);
    EXPECT_EQ(0u, row.total()) << row.type;
  }
}

TEST_F(RecordStore, WalksInSlotOrderAndReusesTheSlotFreedLast) {
  for (std::uint32_t label = 1; label <= 6; ++label) create(label);
  attrdb_delete_record(2);
  attrdb_delete_record(5);
  create(70);
  create(80);
  create(90);
  EXPECT_EQ((Labels{1, 80, 3, 4, 70, 6, 90}), labels_in_walk_order());
}

TEST_F(RecordStore, WalkSurvivesDeletionAndCreation) {
  for (std::uint32_t label = 1; label <= 5000; ++label) create(label);
  Labels visited;
  attrdb_walk_all_records(
      [](attrdb_record *record, void *arg) -> std::uint32_t {
        const std::uint32_t label = record->label;
        static_cast<Labels *>(arg)->push_back(label);
        if (label > 5000) return 0;
        attrdb_delete_record(label);
        attrdb_delete_record(label + 1);  // in front of the walk
        create(label + 1000000);
        return 0;
      },
      &visited);
  Labels odd;
  for (const std::uint32_t label : visited) {
    if (label <= 5000) odd.push_back(label);
  }
  Labels expected;
  for (std::uint32_t label = 1; label <= 5000; label += 2) expected.push_back(label);
  EXPECT_EQ(expected, odd);
  EXPECT_EQ(2500u, attrdb_get_total_sessions());
}

TEST_F(RecordStore, AppendsAllLabelsInBulkInTheOrderOfTheWalk) {
  for (std::uint32_t label = 1; label <= 3000; ++label) create(label * 7);
  for (std::uint32_t label = 1; label <= 3000; label += 3) attrdb_delete_record(label * 7);
  kivo_index_list all;
  kivo_index_list *list = &all;
  attrdb_walk_all_records(attrdb_add_session_to_list, &list);
  EXPECT_EQ(labels_in_walk_order(), all.labels);
  EXPECT_LT(all.batches.size(), 10u);

  kivo_index_list small{{}, 1500, {}};
  list = &small;
  attrdb_walk_all_records(attrdb_add_session_to_list, &list);
  EXPECT_LE(small.labels.size(), 1500u);

  kivo_index_list one;
  list = &one;
  EXPECT_EQ(0u, attrdb_add_session_to_list(record_of(14), &list));
  EXPECT_EQ(Labels{14}, one.labels);
  EXPECT_NE(0u, attrdb_add_session_to_list(nullptr, &list));
  EXPECT_NE(0u, attrdb_add_session_to_list(record_of(14), nullptr));
}

TEST_F(RecordStore, KeepsRecordAddressesAndFindsAllWhileItGrowsAndShrinks) {
  const auto random = random_numbers(7);
  std::unordered_map<std::uint32_t, attrdb_record *> model;
  while (model.size() < 60000) {
    const std::uint32_t label = random() | 1;
    if (create(label) == PLATFORM_OK) model[label] = record_of(label);
  }
  for (auto it = model.begin(); it != model.end();) {
    ASSERT_EQ(it->second, record_of(it->first));
    if (random() % 3 != 0) {
      ASSERT_EQ(PLATFORM_OK, attrdb_delete_record(it->first));
      ASSERT_EQ(nullptr, record_of(it->first));
      it = model.erase(it);
    } else {
      ++it;
    }
  }
  EXPECT_EQ(model.size(), attrdb_get_total_sessions());
  for (const auto &[label, record] : model) ASSERT_EQ(record, record_of(label));
}

TEST_F(RecordStore, MakesAWholeRecordOrNothingWhicheverAllocationFails) {
  const std::uint32_t types[] = {1, 2, AAA_ATTR_IPV6_ADDRESSES, AAA_ATTR_INTERFACE_ID};
  for (const std::uint32_t type : types) attrdb_declare_index(type);
  // Values that two sessions share: with the second one the store needs memory for each.
  const auto pair_of = [](std::uint32_t label) {
    return "pair of sessions " + std::to_string(label / 2);
  };
  const auto fill = [&](auth_ctxt *ctxt, std::uint32_t label) {
    write(ctxt, 1, "shared");
    write(ctxt, 2, pair_of(label));
    write(ctxt, AAA_ATTR_IPV6_ADDRESSES,
          address(1) + address(100000 + label / 2) + address(200000 + label / 2));
    write(ctxt, AAA_ATTR_INTERFACE_ID, number(11));
  };
  create(1);
  fill(record_of(1)->ctxt, 1);
  std::uint32_t next_label = 2;
  int failures = 0;
  // Memory is taken in pieces for many sessions. Whenever it is, the first allocation fails, then
  // the second, and so on, until the creation has what it cannot do without; for every other
  // session all behind it fail too.
  for (std::uint64_t nth = 1; next_label < 30000;) {
    auth_ctxt *ctxt = nullptr;
    ASSERT_EQ(PLATFORM_OK, auth_mgr_idc_create_ctxt(&ctxt));
    fill(ctxt, next_label);
    memory_faults::arm(nth, next_label % 2 == 0);
    const std::uint32_t status = attrdb_create_and_insert_primary_record(ctxt, next_label);
    const bool failed = memory_faults::disarm();
    if (status == PLATFORM_OK) {
      ++next_label;
      nth = 1;
      continue;
    }
    ASSERT_EQ(ATTRDB_ERR_NO_MEMORY, status);
    ASSERT_TRUE(failed);
    ASSERT_EQ(nullptr, record_of(next_label));
    auth_mgr_idc_destroy_ctxt(ctxt);
    ++failures;
    ++nth;
    const std::uint32_t records = next_label - 1;
    const Labels pair =
        records % 2 == 1 && records > 1 ? Labels{records - 1, records} : Labels{records};
    ASSERT_EQ(pair, labels_with(2, pair_of(records)));
    ASSERT_EQ(records, attrdb_get_total_sessions());
    ASSERT_EQ(records, attrdb_get_total_domain_tree_sessions());
    ASSERT_EQ(records, labels_with(1, "shared").size());
    ASSERT_EQ(records, labels_with(10, address(1)).size());
    ASSERT_EQ(pair, labels_with(10, address(100000 + records / 2)));
    ASSERT_EQ(pair, labels_with(10, address(200000 + records / 2)));
  }
  EXPECT_GT(failures, 10);
  for (std::uint32_t label = 1; label < next_label; ++label) attrdb_delete_record(label);
  EXPECT_EQ(Labels{}, labels_with(1, "shared"));
  std::uint32_t next = 7;
  EXPECT_EQ(PLATFORM_OK, attrdb_get_next_if_id(0, &next));
  EXPECT_EQ(0u, next);
}

TEST_F(RecordStore, CreatesNothingWithoutMemoryForAFreshContext) {
  std::uint32_t label = 1;
  std::uint32_t status = PLATFORM_OK;
  memory_faults::arm(1, true);
  while (status == PLATFORM_OK) status = create(label++);  // until what is at hand is used up
  EXPECT_TRUE(memory_faults::disarm());
  EXPECT_EQ(ATTRDB_ERR_NO_MEMORY, status);
  EXPECT_EQ(label - 2, attrdb_get_total_sessions());
  EXPECT_EQ(label - 2, auth_mgr_idc_live_ctxts());
  EXPECT_EQ(PLATFORM_OK, create(label - 1));
}

}  // namespace
