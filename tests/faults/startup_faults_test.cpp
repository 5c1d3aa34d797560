// Start-up without memory: nothing is reported, and the operations that need a service which could
// not be made fail as such, until it is made by a later call. A start happens once in a process, so
// this program is one test.
#include <gtest/gtest.h>

#include "platform/named_alloc.h"
#include "platform/subsys.h"
#include "support/faults.h"
#include "support/process.h"
#include "support/trace_log.h"

namespace kivo_test {
namespace {

const std::string kNotReady = "record store: not initialised";

TraceLine error_trace(const std::string &text) { return {KIVO_TRACE_MODULE_SLOT, 3, text}; }
TraceLine event_trace(const std::string &text) { return {KIVO_TRACE_MODULE_SLOT, 6, text}; }

// A set made by hand: no pool is needed for it.
kivo_index_list set_of(uint32_t label) {
  return {.magic = KIVO_INDEX_LIST_MAGIC, .count = 1, .next = nullptr, .labels = {label}};
}

uint32_t write_identity(shadowdb_rec *shadow) {
  uint32_t changed = 0;
  return shadowdb_add_or_update_attr(shadow, 0, AAA_ATTR_EXT_CLASS, "abc", 3, &changed);
}

void expect_no_record_store(TraceLog &log) {
  attrdb_record *record = nullptr;
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, kivo_create_record(nullptr, 7, nullptr));
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, kivo_delete_record(nullptr, 7));
  EXPECT_EQ((std::vector<TraceLine>{event_trace("Inserting record with label: 7"),
                                    error_trace("Delete record: failederror:" + kNotReady)}),
            log.take());
  EXPECT_EQ(0u, kivo_match_record_by_attr(create_database(1, {{1, 0, KIVO_DATA_TYPE_INT32}}), 1,
                                          "ann", 3, &record));
  EXPECT_EQ(nullptr, record);
  EXPECT_EQ((std::vector<std::string>{"get record by attr: get record failed, error:" + kNotReady}),
            log.texts(3));
}

// A failure to make the pool is not remembered: the next need tries again.
void expect_pool_of_label_sets_is_tried_again() {
  kivo_index_list one = set_of(5);
  kivo_index_list *result = &one;
  arm_fault("chunk_create", 1);
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_intersection(&one, &one, &result));
  EXPECT_TRUE(disarm_fault());
  EXPECT_EQ(nullptr, result);
  arm_fault("chunk_create", 1);
  EXPECT_EQ(KIVO_INDEX_LIST_NO_MEMORY, kivo_index_list_create(&result));
  EXPECT_TRUE(disarm_fault());
  EXPECT_EQ(nullptr, result);
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_create(&result));
  kivo_index_list_free(result);
  EXPECT_EQ(0u, chunk_live_blocks(label_block_pool));
}

void expect_no_intersections(TraceLog &log) {
  kivo_index_list one = set_of(5);
  kivo_index_list *result = &one;
  log.take();
  EXPECT_EQ(KIVO_INDEX_LIST_HASH_FAILED, kivo_index_list_intersection(&one, &one, &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_EQ(0u, chunk_live_blocks(label_block_pool)) << "the result's block is given back";
  EXPECT_EQ(
      (std::vector<TraceLine>{error_trace("Failed to add index 5 to kivo index list hashtable"),
                              event_trace("Hash items after cleanup =0")}),
      log.take());
}

void expect_no_identities() {
  EXPECT_EQ(nullptr, shadow_attr_chunk);
  const uint64_t before = named_live_blocks();
  shadowdb_rec *shadow = shadowdb_alloc_record(7);
  ASSERT_NE(nullptr, shadow);
  EXPECT_EQ(KIVO_ERR_NO_MEMORY, write_identity(shadow));
  EXPECT_EQ(0u, shadow->has_identities);
  EXPECT_EQ(nullptr, shadow->attr_lists[0]);
  EXPECT_EQ(1u, shadowdb_destroy_record(shadow));
  EXPECT_EQ(before, named_live_blocks());
}

void expect_pool_of_identities_is_tried_again() {
  arm_fault("variable_chunk_create_ext", 1);
  kivo_shadowdb_init();
  EXPECT_TRUE(disarm_fault());
  EXPECT_EQ(nullptr, shadow_attr_chunk);
  kivo_shadowdb_init();
  ASSERT_NE(nullptr, shadow_attr_chunk);
  const variable_chunk_pool *made = shadow_attr_chunk;
  arm_fault("variable_chunk_create_ext", 1);
  kivo_shadowdb_init();
  EXPECT_FALSE(disarm_fault()) << "a pool that is there is kept";
  EXPECT_EQ(made, shadow_attr_chunk);
  shadowdb_rec *shadow = shadowdb_alloc_record(7);
  EXPECT_EQ(0u, write_identity(shadow));
  shadowdb_destroy_record(shadow);
}

TEST(StartWithoutMemory, IsReportedByTheOperationsThatNeedTheServices) {
  EXPECT_EQ(0u, kivo_trace_id);
  TraceLog log;
  kivo_debug_level_error = 1;
  arm_fault("attrdb_init", 1);
  arm_further_fault("htMakeHashTable", 1);
  arm_further_fault("variable_chunk_create_ext", 1);
  start_process();
  EXPECT_TRUE(disarm_fault());
  EXPECT_EQ(KIVO_TRACE_MODULE_SLOT, kivo_trace_id);
  EXPECT_EQ((std::vector<TraceLine>{error_trace("Failed to initialize kivo index list hashtable")}),
            log.take());

  expect_no_record_store(log);
  expect_pool_of_label_sets_is_tried_again();
  expect_no_intersections(log);
  expect_no_identities();
  expect_pool_of_identities_is_tried_again();

  kivo_init();  // makes what is missing
  EXPECT_EQ(0u, kivo_create_record(nullptr, 7, nullptr));
  kivo_index_list one = set_of(5);
  kivo_index_list *result = nullptr;
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_intersection(&one, &one, &result));
  EXPECT_NE(nullptr, result);
  kivo_index_list_free(result);
  EXPECT_EQ(0u, htItems(label_table));
}

}  // namespace
}  // namespace kivo_test
