// What loading the library does before main, and what start-up makes of it.
#include "kivo/startup.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>

#include "kivo/debug.h"
#include "kivo/shadow_db.h"
#include "platform/hash_table.h"
#include "platform/subsys.h"
#include "support/process.h"

namespace {

constinit const subsys_record *g_enrolled = nullptr;
constinit int g_enrolments = 0;
constinit const char *g_steps[8] = {};
constinit size_t g_n_steps = 0;

// Notes a call to a replaced operation, and gives the platform's own.
template <typename Function>
Function *note_call(const char *name, Function *) {
  if (g_n_steps < std::size(g_steps)) g_steps[g_n_steps++] = name;
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// In place of the platform's.
uint32_t subsys_enqueue(const subsys_record *record) noexcept {
  g_enrolled = record;
  ++g_enrolments;
  return reinterpret_cast<uint32_t (*)(const subsys_record *)>(dlsym(RTLD_NEXT, "subsys_enqueue"))(
      record);
}
void attrdb_init(void) noexcept { note_call("attrdb_init", &attrdb_init)(); }
hash_table *htMakeHashTable(uint32_t size, hash_table_hash hash, hash_table_compare cmp) noexcept {
  return note_call("htMakeHashTable", &htMakeHashTable)(size, hash, cmp);
}
variable_chunk_pool *variable_chunk_create_ext(const variable_chunk_class *classes, uint32_t n,
                                               uint32_t options,
                                               variable_chunk_name_to_id name_to_id) noexcept {
  return note_call("variable_chunk_create_ext", &variable_chunk_create_ext)(classes, n, options,
                                                                            name_to_id);
}

namespace {

// Filled before main. The process numbers the two trace modules here.
const struct AtLoad {
  int enrolments = g_enrolments;
  size_t n_steps = g_n_steps;
  int32_t ids_and_flags = kivo_trace_id | kivo_attr_trace_id | kivo_debug_level_all |
                          kivo_debug_level_error | kivo_debug_level_event;
  AtLoad() {
    zel_debug_modules[1924] = 711;
    zel_debug_modules[1944] = 712;
  }
} at_load;

TEST(Load, EnrolsARecordOfTenWordsAndInitialisesNothing) {
  EXPECT_EQ(1, at_load.enrolments);
  EXPECT_EQ(0u, at_load.n_steps);
  EXPECT_EQ(0, at_load.ids_and_flags);
  ASSERT_NE(nullptr, g_enrolled);
  uint64_t words[10] = {};
  static_assert(sizeof(words) == sizeof(subsys_record));
  std::memcpy(words, g_enrolled, sizeof(words));
  EXPECT_STREQ("kivo", reinterpret_cast<const char *>(words[1]));
  const uint64_t expected[10] = {2, words[1], 1, 1, reinterpret_cast<uint64_t>(&kivo_init), 10};
  EXPECT_EQ(std::vector(std::begin(expected), std::end(expected)),
            std::vector(std::begin(words), std::end(words)));
}

TEST(StartUp, TakesTheModuleIdsAndInitialisesServicesInOrderOnce) {
  kivo_test::start_process();
  EXPECT_EQ(0u, subsys_start());
  EXPECT_EQ(711, kivo_trace_id);
  EXPECT_EQ(712, kivo_attr_trace_id);
  EXPECT_EQ(
      (std::vector<std::string>{"attrdb_init", "htMakeHashTable", "variable_chunk_create_ext"}),
      std::vector<std::string>(g_steps, g_steps + g_n_steps));
  EXPECT_NE(nullptr, shadow_attr_chunk);
}

}  // namespace
