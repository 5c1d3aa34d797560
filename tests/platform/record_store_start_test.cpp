// The record store before attrdb_init() and after one that had no memory or no random numbers: a
// program of its own, since a process has one store.
#include <gtest/gtest.h>
#include <sys/random.h>

#include "platform/attrdb.h"
#include "support/memory_faults.h"

namespace {
bool no_random_numbers = false;
}

// Stands in for the C library's.
extern "C" int getentropy(void *buffer, size_t size) {
  if (no_random_numbers) return -1;
  return getrandom(buffer, size, 0) == static_cast<ssize_t>(size) ? 0 : -1;
}

namespace {

TEST(RecordStore, IsNotReadyBeforeItsStartNorAfterOneThatFailed) {
  attrdb_record *record = nullptr;
  std::uint32_t label = 7;
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_create_and_insert_primary_record(nullptr, 1));
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_get_record(1, &record));
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_delete_record(1));
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_declare_index(1));
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_get_label_by_attr(1, "x", 1, &label));
  EXPECT_EQ(0u, label);
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_get_next_if_id(0, &label));
  EXPECT_EQ(0u, attrdb_get_total_sessions());
  EXPECT_EQ(0u, attrdb_get_total_mac_tree_sessions());

  memory_faults::arm(1, true);
  attrdb_init();
  EXPECT_TRUE(memory_faults::disarm());
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_delete_record(1));
  no_random_numbers = true;
  attrdb_init();
  no_random_numbers = false;
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_delete_record(1));
  attrdb_init();
  EXPECT_EQ(ATTRDB_ERR_NOT_FOUND, attrdb_delete_record(1));
}

}  // namespace
