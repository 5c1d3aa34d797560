// Sessions from an attribute list, and the list of all sessions.
#include <gtest/gtest.h>

#include "kivo/debug.h"
#include "kivo/query.h"
#include "kivo/records.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::AttrList;
using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

using Labels = std::vector<uint32_t>;

constexpr uint32_t kUser = AAA_ATTR_USER_NAME;
constexpr uint32_t kDomain = AAA_ATTR_DOMAIN;
constexpr uint32_t kUnindexed = AAA_ATTR_CALLED_STATION;
constexpr uint32_t kNoEntry = AAA_ATTR_METHOD;

class SessionMatch : public ::testing::Test {
 protected:
  SessionMatch() {
    kivo_test::reset_process();
    db_ =
        kivo_test::create_database(1, {{kUser, 0, KIVO_DATA_TYPE_VAR_STR},
                                       {kDomain, 0, KIVO_DATA_TYPE_VAR_STR},
                                       {kUnindexed, KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR}});
    for (uint32_t label = 6; label >= 1; --label) {
      EXPECT_EQ(0u, kivo_create_record(db_, label, nullptr));
      write(label, kUser, label <= 4 ? "ann" : "bob");
      write(label, kDomain, label % 2 == 0 ? "even" : "odd");
      write(label, kUnindexed, "here");
    }
    kivo_debug_level_all = 1;
  }

  static void write(uint32_t label, uint32_t type, const std::string &value) {
    EXPECT_EQ(
        0u, auth_mgr_idc_add_or_update_attr(kivo_test::find_record(label)->ctxt, type, value.data(),
                                            static_cast<uint32_t>(value.size()), nullptr));
  }

  Labels match(uint32_t attr_list, uint32_t status = 0) {
    kivo_index_list *list = reinterpret_cast<kivo_index_list *>(1);
    uint32_t count = 77;
    traces(log_);
    EXPECT_EQ(status, kivo_match_sessions_from_list(db_, attr_list, &list, &count));
    Labels labels;
    uint32_t cursor = 0;
    while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
    EXPECT_EQ(labels.size(), count);
    EXPECT_EQ(labels.empty(), list == nullptr);
    kivo_index_list_free(list);
    return labels;
  }

  kivo_db *db_;
  TraceLog log_;
};

TEST_F(SessionMatch, HoldsTheSessionsThatCarryEveryAccelType) {
  const struct {
    const char *what;
    std::vector<std::pair<uint32_t, const char *>> attrs;
    Labels labels;
  } table[] = {
      {"two types", {{kUser, "ann"}, {kDomain, "even"}}, {2, 4}},
      {"a type without an entry does not count", {{kNoEntry, "radius"}, {kUser, "bob"}}, {5, 6}},
      {"a type that is not indexed does", {{kUnindexed, "here"}, {kDomain, "odd"}}, {1, 3, 5}},
      {"the same type twice", {{kUser, "ann"}, {kUser, "ann"}}, {1, 2, 3, 4}},
      {"no common session", {{kUser, "ann"}, {kUser, "bob"}, {kDomain, "odd"}}, {}},
      {"a value nobody has", {{kUser, "carol"}, {kDomain, "odd"}}, {}},
      {"no accel type", {{kNoEntry, "radius"}}, {}},
      {"an empty list", {}, {}},
  };
  for (const auto &row : table) {
    AttrList list;
    for (const auto &[type, text] : row.attrs) list.add(type, text);
    EXPECT_EQ(row.labels, match(list.handle())) << row.what;
  }
}

TEST_F(SessionMatch, TellsWhyNothingMatched) {
  AttrList list;
  list.add(kUser, "ann").add(kUser, "bob").add(kDomain, "odd");
  match(list.handle());
  const Texts written = traces(log_);
  ASSERT_LE(2u, written.size());
  EXPECT_EQ("6 match_sessions_from_list: Intersection is 0, error:success",
            written[written.size() - 2]);
  EXPECT_TRUE(written.back().starts_with("6 match_sessions_from_list: No matches db_handle:["));
}

TEST_F(SessionMatch, PassesFailuresOn) {
  EXPECT_EQ(Labels{}, match(0x7fffffff, KIVO_ERR_NO_CURSOR));
  uint32_t count = 77;
  kivo_index_list *list = nullptr;
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_match_sessions_from_list(db_, 0, &list, &count));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_match_sessions_from_list(nullptr, 1, &list, &count));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_match_sessions_from_list(db_, 1, nullptr, &count));
  EXPECT_EQ("3 match_sessions_from_list: invalid params", traces(log_).back());
  EXPECT_EQ(77u, count);
}

TEST_F(SessionMatch, ListsAllSessions) {
  kivo_index_list *list = nullptr;
  uint32_t count = 0;
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_get_session_list(nullptr, &list, &count));
  ASSERT_EQ(0u, kivo_get_session_list(db_, &list, &count));
  EXPECT_EQ(6u, count);
  Labels labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
  EXPECT_EQ((Labels{6, 5, 4, 3, 2, 1}), labels);  // the order of creation
  kivo_index_list_free(list);
}

}  // namespace
