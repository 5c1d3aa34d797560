// The platform in a process without the library: what needs the library says so, nothing crashes.
// Means something only in a program that is not linked with the library, and is skipped otherwise.
#include <gtest/gtest.h>

#include <cstdint>

#include "platform/attrdb.h"

extern "C" __attribute__((weak)) std::uint32_t kivo_index_list_add_many(kivo_index_list **,
                                                                        const std::uint32_t *,
                                                                        std::uint32_t);

namespace {

TEST(WithoutTheLibrary, LabelSetsAreRefusedAndSessionsHaveNoShadow) {
  if (kivo_index_list_add_many != nullptr)
    GTEST_SKIP() << "this program is linked with the library";
  attrdb_init();
  ASSERT_EQ(PLATFORM_OK, attrdb_create_and_insert_primary_record(nullptr, 1));
  attrdb_record *record = nullptr;
  ASSERT_EQ(PLATFORM_OK, attrdb_get_record(1, &record));
  auth_mgr_idc_add_or_update_attr(record->ctxt, 1, "alice", 5, nullptr);
  kivo_index_list *list = nullptr;
  std::uint32_t count = 7;
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_get_labels_by_attr(1, "alice", 5, &list, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_add_session_to_list(record, &list));
  attrdb_walk_all_records(attrdb_add_session_to_list, &list);
  EXPECT_EQ(nullptr, auth_mgr_idc_get_shadow_record_in_ctxt(record->ctxt));
  std::uint32_t label = 0;
  EXPECT_EQ(PLATFORM_OK, attrdb_get_label_by_attr(1, "alice", 5, &label));
  EXPECT_EQ(1u, label);
  EXPECT_EQ(PLATFORM_OK, attrdb_delete_record(1));
}

}  // namespace
