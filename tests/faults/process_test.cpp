// What happens once in a process, each in one of its own: loading, starting with and without
// memory, and which of the two entries a client gets.
#include <dlfcn.h>

#include <cstring>
#include <vector>

#include "platform/subsys.h"
#include "support/faults.h"
#include "support/trace_words.h"
#include "world.h"

namespace {
constinit const subsys_record *g_enrolled = nullptr;
constinit int g_enrolments = 0;
}  // namespace

// In place of the platform's, before main.
uint32_t subsys_enqueue(const subsys_record *record) noexcept {
  g_enrolled = record;
  ++g_enrolments;
  return reinterpret_cast<decltype(&subsys_enqueue)>(dlsym(RTLD_NEXT, "subsys_enqueue"))(record);
}

namespace kivo_test {
namespace {

// Filled before main. The process numbers the two trace modules here.
const struct AtLoad {
  int enrolments = g_enrolments;
  int32_t ids_and_flags = kivo_trace_id | kivo_attr_trace_id | kivo_debug_level_all |
                          kivo_debug_level_error | kivo_debug_level_event;
  bool pools = shadow_attr_chunk != nullptr || label_table != nullptr;
} at_load;

void in_fresh_process(void (*scenario)()) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [&] {
    scenario();
    std::exit(testing::Test::HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(LoadDeathTest, EnrolsTheLibraryAndStartsNothing) {
  in_fresh_process([] {
    EXPECT_EQ(1, at_load.enrolments);
    EXPECT_EQ(0, at_load.ids_and_flags);
    EXPECT_FALSE(at_load.pools);
    uint64_t words[10] = {};
    std::memcpy(words, g_enrolled, sizeof(words));
    EXPECT_STREQ("kivo", reinterpret_cast<const char *>(words[1]));
    const uint64_t expected[10] = {2, words[1], 1, 1, reinterpret_cast<uint64_t>(&kivo_init), 10};
    EXPECT_EQ(0, std::memcmp(expected, words, sizeof words));
    zel_debug_modules[1924] = 711;
    zel_debug_modules[1944] = 712;
    start_process();
    EXPECT_EQ(0u, subsys_start());
    EXPECT_EQ(711, kivo_trace_id);
    EXPECT_EQ(712, kivo_attr_trace_id);
    EXPECT_NE(nullptr, shadow_attr_chunk);
    EXPECT_NE(nullptr, label_table);
  });
}

uint32_t write_identity(shadowdb_rec *shadow) {
  uint32_t changed = 0;
  return shadowdb_add_or_update_attr(shadow, 0, AAA_ATTR_EXT_CLASS, "abc", 3, &changed);
}

// A set made by hand: no pool is needed for it.
uint32_t intersect_with_itself() {
  kivo_index_list one = {KIVO_INDEX_LIST_MAGIC, 1, nullptr, {5}};
  kivo_index_list *result = &one;
  const uint32_t status = kivo_index_list_intersection(&one, &one, &result);
  EXPECT_EQ(status != 0, result == nullptr);
  kivo_index_list_free(result);
  return status;
}

// Nothing is reported but a trace; what needs a service that is not there fails, until a later call
// has made it.
TEST(StartDeathTest, WithoutMemoryIsMadeUpForLater) {
  in_fresh_process([] {
    TraceWords log;
    kivo_debug_level_error = 1;
    arm_fault("attrdb_init", 1);
    arm_further_fault("htMakeHashTable", 1);
    arm_further_fault("variable_chunk_create_ext", 1);
    start_process();
    EXPECT_TRUE(disarm_fault());
    EXPECT_EQ("600", log.take());
    EXPECT_EQ(ATTRDB_ERR_NOT_READY, kivo_create_record(nullptr, 7, nullptr));
    EXPECT_EQ(ATTRDB_ERR_NOT_READY, kivo_delete_record(nullptr, 7));
    EXPECT_EQ("300(7) 304(notready)", log.take());
    arm_fault("chunk_create", 1);  // not remembered: the next need tries again
    EXPECT_EQ(KIVO_INDEX_LIST_INVALID, intersect_with_itself());
    EXPECT_TRUE(disarm_fault());
    EXPECT_EQ(KIVO_INDEX_LIST_HASH_FAILED, intersect_with_itself());
    EXPECT_EQ("601(5) 602(0)", log.take());
    EXPECT_EQ(0u, chunk_live_blocks(label_block_pool));
    shadowdb_rec *shadow = shadowdb_alloc_record(7);
    EXPECT_EQ(KIVO_ERR_NO_MEMORY, write_identity(shadow));
    EXPECT_EQ(nullptr, shadow->attr_lists[0]);
    kivo_init();
    EXPECT_EQ(0u, write_identity(shadow));
    EXPECT_EQ(0u, intersect_with_itself());
    EXPECT_EQ(0u, kivo_create_record(nullptr, 7, nullptr));
    const variable_chunk_pool *made = shadow_attr_chunk;
    kivo_shadowdb_init();
    EXPECT_EQ(made, shadow_attr_chunk);
    EXPECT_EQ(1u, shadowdb_destroy_record(shadow));
  });
}

// The entry that a creation by this client gets, or its status.
std::string slot_of(uint32_t id, const std::vector<kivo_attr_config> &rows = {{1, 0, 8}},
                    uint32_t without_block = 0) {
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, id, nullptr, nullptr};
  kivo_db *db = nullptr;
  if (without_block != 0) arm_fault("named_zalloc", without_block);
  const uint32_t status = kivo_create_database("DB", "o", &client, rows.data(),
                                               static_cast<uint32_t>(rows.size()), &db);
  EXPECT_TRUE(disarm_fault());
  return db != nullptr ? std::to_string(db->slot_index) : status_name(status);
}

TEST(EntriesDeathTest, GoToClientsByTheirFirstCreationThatCameFarEnough) {
  in_fresh_process([] {
    start_process();
    EXPECT_EQ("failed", slot_of(1, {}));
    EXPECT_EQ("failed", slot_of(2, {{1, 0, 8}}, 1));
    EXPECT_EQ("0", slot_of(3));
    EXPECT_EQ("invalid", slot_of(4, {{1, 6, 8}}));
    EXPECT_EQ("noroom", slot_of(5));
    EXPECT_EQ("invalid", slot_of(4, {{1, 0, 8}}, 2));
    EXPECT_EQ("1", slot_of(4));
    EXPECT_EQ("0", slot_of(3));
  });
  in_fresh_process([] {
    start_process();
    std::string slots;
    for (const uint32_t id : {0u, 4u, 0u, 5u, 0u}) slots += slot_of(id) + " ";
    EXPECT_EQ("0 0 1 1 noroom ", slots);
  });
}

TEST(ShadowClassDeathTest, NamesItsTagsAndStopsForNoName) {
  start_process();
  EXPECT_EQ(0x3b0001au, shadow_class_tag("Shadow malloc"));
  EXPECT_EQ(0x3b00016u, shadow_class_tag("Shadow 32"));
  EXPECT_EQ(0u, shadow_class_tag("Shadow 3"));
  EXPECT_DEATH(shadow_class_tag(nullptr), "name.*core/src/shadow_db.*603");
}

}  // namespace
}  // namespace kivo_test
