// First creations that fail, and what they leave of the process's two entries: one that found no
// rows leaves its entry free, one that found no table leaves it claimed. Entries never become free
// again, so this program is one test.
#include <gtest/gtest.h>

#include <vector>

#include "support/faults.h"
#include "support/process.h"
#include "support/trace_log.h"

namespace kivo_test {
namespace {

struct Outcome {
  uint32_t status;
  kivo_db *db;  // null when untouched
};

Outcome create(uint32_t client_id, const std::vector<kivo_attr_config> &rows) {
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, client_id, nullptr, nullptr};
  Outcome outcome{0, nullptr};
  outcome.status = kivo_create_database("DB", "owner", &client, rows.data(),
                                        static_cast<uint32_t>(rows.size()), &outcome.db);
  EXPECT_EQ(outcome.status == 0, outcome.db != nullptr);
  return outcome;
}

Outcome create_with_fault(uint32_t client_id, const std::vector<kivo_attr_config> &rows,
                          uint32_t nth_block) {
  arm_fault("named_zalloc", nth_block);
  const Outcome outcome = create(client_id, rows);
  EXPECT_TRUE(disarm_fault());
  return outcome;
}

const std::vector<kivo_attr_config> kIndexed = {{1, 0, KIVO_DATA_TYPE_VAR_STR}};
const std::vector<kivo_attr_config> kUnindexed = {{1, 6, KIVO_DATA_TYPE_VAR_STR}};

TEST(FirstCreationThatFails, LeavesItsEntryFreeOrClaimedByHowFarItCame) {
  start_process();
  EXPECT_EQ(KIVO_ERR_FAILED, create(1, {}).status);
  EXPECT_EQ(KIVO_ERR_FAILED, create_with_fault(2, kIndexed, 1).status);
  const Outcome third = create(3, kIndexed);
  ASSERT_EQ(0u, third.status);
  EXPECT_EQ(0u, third.db->slot_index) << "both failures left the first entry free";

  EXPECT_EQ(KIVO_ERR_INVALID_ARG, create(4, kUnindexed).status);
  EXPECT_EQ(KIVO_ERR_NO_ROOM, create(5, kIndexed).status) << "the second entry is client 4's";
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, create_with_fault(4, kIndexed, 2).status);
  const Outcome fourth = create(4, kIndexed);
  ASSERT_EQ(0u, fourth.status) << "its client may try again";
  EXPECT_EQ(1u, fourth.db->slot_index);

  TraceLog log;
  kivo_debug_level_error = 1;
  EXPECT_EQ(KIVO_ERR_NO_ROOM, create(5, kIndexed).status);
  EXPECT_EQ((std::vector<std::string>{
                "register client:owner No free entry to store registration",
                "create databse:DB shim_register_client failed, error:no room for a client"}),
            log.texts(3));
}

}  // namespace
}  // namespace kivo_test
