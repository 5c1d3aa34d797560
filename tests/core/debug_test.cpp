// Debug flags, the gate, the two trace classes, and prefixed debug messages.
#include "kivo/debug.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <utility>

#include "kivo/records.h"
#include "platform/error_text.h"
#include "platform/named_alloc.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::TraceLine;
using kivo_test::TraceLog;

namespace {
int g_error_texts = 0;
}

// In place of the platform's: counts how often a trace works out the text of a status.
const char *error_text(uint32_t status) noexcept {
  static const auto real =
      reinterpret_cast<const char *(*)(uint32_t)>(dlsym(RTLD_NEXT, "error_text"));
  ++g_error_texts;
  return real(status);
}

namespace {

struct Flags {
  const char *name;
  int32_t all, error, event;
  void set() const {
    kivo_debug_level_all = all;
    kivo_debug_level_error = error;
    kivo_debug_level_event = event;
  }
};
constexpr Flags kNone = {"None", 0, 0, 0};
constexpr Flags kAll = {"All", 0x10000, 0, 0};
constexpr Flags kError = {"Error", 0, -1, 0};
constexpr Flags kEvent = {"Event", 0, 0, 0x10000};

class Debug : public ::testing::Test {
 protected:
  Debug() {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}});
  }
  ~Debug() override { kivo_test::reset_process(); }

  kivo_db *db_ = nullptr;
};

using Gate = Debug;
using TraceClasses = Debug;
using DebugMessage = Debug;

TEST_F(Gate, FollowsTheFlagOfItsKindAndErrorWhenHonoured) {
  struct Row {
    Flags flags;
    const char *open, *open_honouring_error;  // for the kinds 0, 1, 2, 3, 4 and the greatest
  };
  constexpr Row kRows[] = {{kNone, "000000", "000000"},
                           {kAll, "111111", "111111"},
                           {kError, "001000", "111111"},
                           {kEvent, "000100", "000100"}};
  for (const Row &row : kRows) {
    row.flags.set();
    std::string open, honouring;
    for (uint32_t kind : {0u, 1u, 2u, 3u, 4u, UINT32_MAX}) {
      open += std::to_string(kivo_debugging_event_active(kind, 0));
      honouring += std::to_string(kivo_debugging_event_active(kind, 0x100));
    }
    EXPECT_EQ(row.open, open) << row.flags.name;
    EXPECT_EQ(row.open_honouring_error, honouring) << row.flags.name;
    EXPECT_EQ(row.flags.all != 0 ? 1u : 0u, kivo_debugging_all_on()) << row.flags.name;
  }
}

TEST_F(Gate, AloneReadsTheFlagsThroughThePointerTable) {
  EXPECT_EQ(nullptr, kivo_debug_level[0]);
  for (uint32_t level = 1; level <= 3; ++level) {
    int32_t elsewhere = 1;
    int32_t *const flag = std::exchange(kivo_debug_level[level], &elsewhere);
    EXPECT_EQ(1u, kivo_debugging_event_active(level, 0)) << level;
    EXPECT_EQ(0u, kivo_debugging_all_on());
    elsewhere = 0;
    *flag = 1;
    EXPECT_EQ(0u, kivo_debugging_event_active(level, 1)) << level;
    EXPECT_EQ(level == 1 ? 1u : 0u, kivo_debugging_all_on());
    *flag = 0;
    kivo_debug_level[level] = flag;
  }
}

TEST_F(TraceClasses, NeedTheFacilityAndThenTheirFlags) {
  const TraceLine event{1924, 6, "get record"};
  const TraceLine error{1924, 3, "get record, unique label: invalid input params"};
  struct Row {
    Flags flags;
    uint32_t facility_level;
    std::vector<TraceLine> written;
  };
  const Row rows[] = {{kNone, 8, {}},       {kAll, 8, {event, error}}, {kError, 8, {event, error}},
                      {kEvent, 8, {event}}, {kAll, 6, {event, error}}, {kAll, 5, {error}},
                      {kAll, 2, {}}};
  TraceLog log;
  for (const Row &row : rows) {
    trace_set_level(kivo_trace_id, row.facility_level);
    row.flags.set();
    attrdb_record *record = nullptr;
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_get_record(db_, 0, &record));
    EXPECT_TRUE(row.written == log.take()) << row.flags.name << " " << row.facility_level;
  }
}

TEST_F(TraceClasses, WorkOutArgumentsOnlyForTracesThatAreWritten) {
  struct Row {
    Flags flags;
    uint32_t facility_level;
    int texts;
  };
  constexpr Row kRows[] = {{kNone, 8, 0}, {kEvent, 8, 0}, {kAll, 2, 0}, {kAll, 3, 1}};
  TraceLog log;
  for (const Row &row : kRows) {
    trace_set_level(kivo_trace_id, row.facility_level);
    row.flags.set();
    g_error_texts = 0;
    EXPECT_NE(0u, kivo_delete_record(nullptr, 404));
    EXPECT_EQ(row.texts, g_error_texts) << row.flags.name << " " << row.facility_level;
  }
}

TEST_F(DebugMessage, CarriesAPrefixWithFlagNameAndLine) {
  struct Row {
    uint32_t kind;
    uint64_t line;
    const char *text;
  };
  constexpr Row kRows[] = {
      {2, 42, "[KIVO:KIVO:ERROR:42] label 7 of ATTR_DB"},
      {1, 1, "[KIVO:KIVO:ALL:1] label 7 of ATTR_DB"},
      {3, UINT64_MAX, "[KIVO:KIVO:EVENT:18446744073709551615] label 7 of ATTR_DB"},
      {0, 0, "[KIVO:] label 7 of ATTR_DB"},
      {4, 0, "[KIVO:] label 7 of ATTR_DB"},
      {7, 7, "[KIVO::7] label 7 of ATTR_DB"}};
  kAll.set();
  const uint64_t blocks = named_live_blocks();
  TraceLog log;
  for (const Row &row : kRows) {
    kivo_buginf(row.kind, row.line, "label %d of %s", 7, "ATTR_DB");
    EXPECT_TRUE((std::vector<TraceLine>{{1924, 6, row.text}}) == log.take()) << row.text;
  }
  EXPECT_EQ(blocks, named_live_blocks());
}

TEST_F(DebugMessage, IsCutAt511CharactersWithItsPrefix) {
  kAll.set();
  TraceLog log;
  for (size_t length : {502u, 503u, 504u, 2000u}) {
    kivo_buginf(KIVO_DEBUG_KIND_NONE, 0, "%s", std::string(length, 'x').c_str());
    EXPECT_EQ("[KIVO:] " + std::string(std::min<size_t>(length, 503), 'x'), log.texts().at(0));
  }
}

TEST_F(DebugMessage, PassesTheGateOfItsKindWithErrorHonoured) {
  struct Row {
    Flags flags;
    uint32_t facility_level;
    const char *kinds;  // of the messages that come through
  };
  constexpr Row kRows[] = {{kNone, 8, ""},   {kAll, 8, "01239"}, {kError, 8, "01239"},
                           {kEvent, 8, "3"}, {kAll, 6, "01239"}, {kAll, 5, ""}};
  TraceLog log;
  for (const Row &row : kRows) {
    trace_set_level(kivo_trace_id, row.facility_level);
    row.flags.set();
    std::string kinds;
    for (uint32_t kind : {0u, 1u, 2u, 3u, 9u}) {
      kivo_buginf(kind, 1, "text");
      if (!log.take().empty()) kinds += std::to_string(kind);
    }
    EXPECT_EQ(row.kinds, kinds) << row.flags.name << " " << row.facility_level;
  }
}

}  // namespace
