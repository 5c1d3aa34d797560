// Registry of subsystems, from load time on. The registry is one for the process: every test counts
// with its own records only.
#include "platform/subsys.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/status.h"
#include "platform/trace.h"

namespace {

std::string g_order;

template <char kLetter>
void note() {
  g_order += kLetter;
}

subsys_record record_of(void (*start)(), uint64_t phase, uint64_t priority, uint64_t enabled = 1) {
  return {SUBSYS_RECORD_VERSION, "test", phase, enabled, start, priority, {}};
}

// What a library does: it registers before main, and may read its module id as early.
subsys_record g_early = {SUBSYS_RECORD_VERSION, "early", 1, 1, note<'e'>, 10, {}};
uint32_t g_early_status = 99;
uint16_t g_early_id = 0;
__attribute__((constructor(101))) void register_early() {
  g_early_status = subsys_enqueue(&g_early);
  g_early_id = zel_debug_modules[1924];
}

class SubsysTest : public ::testing::Test {
 protected:
  SubsysTest() {
    subsys_start();  // what others have registered
    g_order.clear();
  }
};

TEST(Subsys, RegistrationBeforeMainIsStartedLater) {
  EXPECT_EQ(PLATFORM_OK, g_early_status);
  EXPECT_EQ(1924U, g_early_id);
  g_order.clear();
  EXPECT_LE(1U, subsys_start());
  EXPECT_NE(std::string::npos, g_order.find('e'));
}

TEST(Subsys, ModuleSlotsHoldTheirOwnNumber) {
  for (uint32_t slot = 0; slot < ZEL_DEBUG_MODULES; ++slot) {
    ASSERT_EQ(slot, zel_debug_modules[slot]);
  }
}

TEST_F(SubsysTest, RunsByPhaseThenPriorityThenRegistrationAndOnce) {
  static subsys_record records[] = {record_of(note<'d'>, 2, 1), record_of(note<'b'>, 1, 20),
                                    record_of(note<'a'>, 1, 5), record_of(note<'c'>, 1, 20),
                                    record_of(note<'x'>, 1, 1, 0)};
  for (const subsys_record &record : records) ASSERT_EQ(PLATFORM_OK, subsys_enqueue(&record));
  EXPECT_EQ(PLATFORM_OK, subsys_enqueue(&records[0]));  // twice is once
  EXPECT_EQ(4U, subsys_start());
  EXPECT_EQ("abcd", g_order);
  EXPECT_EQ(0U, subsys_start());
  records[4].enabled = 1;
  EXPECT_EQ(1U, subsys_start());
  EXPECT_EQ("abcdx", g_order);
}

TEST_F(SubsysTest, StartFunctionMayRegisterAnother) {
  static const subsys_record late = record_of(note<'b'>, 1, 5);
  static const subsys_record last = record_of(note<'c'>, 3, 1);
  static const subsys_record first = record_of(
      [] {
        g_order += 'a';
        EXPECT_EQ(PLATFORM_OK, subsys_enqueue(&late));
        EXPECT_EQ(0U, subsys_start());  // the outer call does it
      },
      2, 1);
  ASSERT_EQ(PLATFORM_OK, subsys_enqueue(&last));
  ASSERT_EQ(PLATFORM_OK, subsys_enqueue(&first));
  EXPECT_EQ(3U, subsys_start());
  EXPECT_EQ("abc", g_order);
}

TEST_F(SubsysTest, RefusesBadRecords) {
  static subsys_record other_version = record_of(note<'v'>, 1, 1);
  static const subsys_record no_start = record_of(nullptr, 1, 1);
  other_version.version = SUBSYS_RECORD_VERSION + 1;
  EXPECT_EQ(AAA_ERR_INVALID_ARG, subsys_enqueue(nullptr));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, subsys_enqueue(&other_version));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, subsys_enqueue(&no_start));
  EXPECT_EQ(0U, subsys_start());
}

// A process of its own: it leaves the registry full.
TEST_F(SubsysTest, RefusesMoreThanItHolds) {
  EXPECT_EXIT(
      {
        static std::vector<subsys_record> records(SUBSYS_MAX + 1, record_of(note<'r'>, 1, 1));
        uint32_t n_accepted = 0;
        while (n_accepted <= SUBSYS_MAX && subsys_enqueue(&records[n_accepted]) == PLATFORM_OK) {
          ++n_accepted;
        }
        const bool refused =
            n_accepted < records.size() && subsys_enqueue(&records[n_accepted]) == AAA_ERR_NO_ROOM;
        const bool started = n_accepted > SUBSYS_MAX / 2 && subsys_start() == n_accepted;
        std::_Exit(refused && started ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
