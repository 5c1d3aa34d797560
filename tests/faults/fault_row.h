// A row of the fault tests of queries, adding and removing: what fails, what the caller gets, the
// library's own traces, and what is left afterwards. Traces of the rooms that are merely called on
// the way (fetches, the acceleration table, the dispatch) are left out unless they are failures.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "kivo/debug.h"
#include "platform/error_text.h"
#include "support/trace_log.h"
#include "world.h"

namespace kivo_test {

constexpr uint32_t kDead = 0xdead;  // the status of the injected fault
const std::string kDeadText = "unknown status 0x0000dead";
const std::string kInvalid = error_text(KIVO_ERR_INVALID_ARG);

struct FaultRow {
  std::string name;
  std::function<uint32_t(World &)> call;
  const char *operation = nullptr;  // that fails; null: nothing is injected
  uint32_t nth = 1;
  uint32_t fault_status = kDead;
  uint32_t status = kDead;
  Texts traces = {};  // each behind its level
  std::function<void(World &)> after = nullptr;
  std::function<void(World &)> before = nullptr;
};

inline void PrintTo(const FaultRow &row, std::ostream *os) { *os << row.name; }

inline Texts own_traces(TraceLog &log) {
  Texts texts = traces(log);
  std::erase_if(texts, [](const std::string &text) {
    for (const char *other :
         {"6 get record", "6 aaa_type:", "6 get_accel_from_type", "6 Hash items",
          "6 attr_change_notification", "3 attr_change_notification: bad"}) {
      if (text.starts_with(other)) return true;
    }
    return false;
  });
  return texts;
}

inline void run_row(const FaultRow &row) {
  { const World settled; }
  const auto before = live_things();
  {
    World world;
    if (row.before != nullptr) row.before(world);
    TraceLog log;
    kivo_debug_level_all = 1;
    if (row.operation != nullptr) arm_fault(row.operation, row.nth, row.fault_status);
    const uint32_t status = row.call(world);
    EXPECT_TRUE(disarm_fault()) << "the call did not get to the fault";
    EXPECT_EQ(row.status, status);
    EXPECT_EQ(row.traces, own_traces(log));
    kivo_debug_level_all = 0;
    if (row.after != nullptr) row.after(world);
  }
  { const World anew; }
  EXPECT_EQ(before, live_things());
}

}  // namespace kivo_test
