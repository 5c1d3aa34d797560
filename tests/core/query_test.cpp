// Multi-attribute queries: conditions one by one, the two thresholds, the state without matches,
// and which path gives the candidates back. Label 1 to kRecords; interface 9 is everybody's.
#include "kivo/query.h"

#include <gtest/gtest.h>

#include <cstring>

#include "kivo/debug.h"
#include "kivo/records.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

using Labels = std::vector<uint32_t>;

constexpr uint32_t kRecords = 12;
constexpr uint32_t kShared = AAA_ATTR_INTERFACE_ID;   // indexed: 9 for all records
constexpr uint32_t kHalf = AAA_ATTR_DOMAIN;           // indexed: "odd" or "even"
constexpr uint32_t kPlain = AAA_ATTR_CALLED_STATION;  // not indexed: "station-" and the label
constexpr uint32_t kNoEntry = AAA_ATTR_METHOD;        // not of the database: "radius"

Labels labels_of(kivo_index_list *list) {
  Labels labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
  kivo_index_list_free(list);
  return labels;
}

class Query : public ::testing::Test {
 protected:
  Query() {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(
        1, {{kShared, 0, KIVO_DATA_TYPE_INT32},
            {kHalf, 0, KIVO_DATA_TYPE_VAR_STR},
            {kPlain, KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR},
            {AAA_ATTR_IPV6_ADDRESSES, KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_IPV6_ADDR}});
    for (uint32_t label = 1; label <= kRecords; ++label) make_record(label);
    start();
    kivo_debug_level_all = 1;
    traces(log_);
  }
  ~Query() override {
    kivo_index_list *list = nullptr;
    uint32_t count = 0;
    kivo_get_matches_for_query(&query_, &list, &count);
    kivo_index_list_free(list);
  }

  static void write(uint32_t label, uint32_t type, const std::string &value) {
    EXPECT_EQ(
        0u, auth_mgr_idc_add_or_update_attr(kivo_test::find_record(label)->ctxt, type, value.data(),
                                            static_cast<uint32_t>(value.size()), nullptr));
  }
  void make_record(uint32_t label) {
    EXPECT_EQ(0u, kivo_create_record(db_, label, nullptr));
    write(label, kShared, interface(9));
    write(label, kHalf, label % 2 != 0 ? "odd" : "even");
    write(label, kPlain, "station-" + std::to_string(label));
    write(label, kNoEntry, "radius");
  }
  static std::string interface(uint32_t id) { return {reinterpret_cast<char *>(&id), sizeof(id)}; }
  void start() { EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &query_)); }

  // The flag that comes back; it is set beforehand to what it must not stay.
  uint32_t add(uint32_t type, const std::string &value, uint32_t status = 0) {
    uint32_t flag = 77;
    EXPECT_EQ(status, kivo_add_attr_to_query(&query_, type, value.data(),
                                             static_cast<uint32_t>(value.size()), &flag));
    return flag;
  }
  Labels matches(uint32_t status = 0) {
    kivo_index_list *list = nullptr;
    uint32_t count = 77;
    EXPECT_EQ(status, kivo_get_matches_for_query(&query_, &list, &count));
    const Labels labels = labels_of(list);
    EXPECT_EQ(labels.size(), count);
    return labels;
  }
  bool holds_nothing() const {
    return query_.candidates == nullptr && query_.num_candidates == 0 && query_.num_unindexed == 0;
  }

  kivo_db *db_;
  kivo_maqi query_;
  TraceLog log_;
};

TEST_F(Query, NarrowsByIndexedConditionsInTheOrderOfTheLast) {
  EXPECT_EQ(1u, add(kShared, interface(9)));
  EXPECT_EQ(kRecords, query_.num_candidates);
  EXPECT_EQ(1u, add(kHalf, "odd"));
  EXPECT_EQ((Labels{1, 3, 5, 7, 9, 11}), matches());
  // Taken, the context takes the next query without a new start.
  EXPECT_EQ(1u, add(kHalf, "even"));
  EXPECT_EQ((Labels{2, 4, 6, 8, 10, 12}), matches());
}

TEST_F(Query, ThatCanMatchNothingStaysSoUntilItIsStartedAnew) {
  const struct {
    const char *what;
    std::vector<std::pair<uint32_t, std::string>> conditions;  // the last ends it
    const char *trace;
  } table[] = {
      {"no labels",
       {{kHalf, "none"}},
       "6 add_attr_to_multi_query index attr no matches: type 2 indexed 1"},
      {"no intersection",
       {{kHalf, "odd"}, {kHalf, "even"}},
       "6 add_attr_to_multi_query index attr no intersect: type 2 indexed 1"},
      {"no candidate of many",
       {{kShared, interface(9)}, {kPlain, "nowhere"}},
       "6 add_attr_to_multi_query unindex attr no match: type 14 indexed 0"},
      {"a fifth unindexed condition",
       {{kPlain, "s"}, {kPlain, "s"}, {kPlain, "s"}, {kNoEntry, "r"}, {kPlain, "s"}},
       "6 add_attr_to_multi_query: Too many unindexed attrs"},
      {"a condition too long to store",
       {{kPlain, std::string(256, 'x')}},
       "6 add_attr_to_multi_query: Too many unindexed attrs"},
  };
  for (const auto &row : table) {
    start();
    for (size_t i = 0; i < row.conditions.size(); ++i) {
      traces(log_);
      const uint32_t flag = add(row.conditions[i].first, row.conditions[i].second);
      EXPECT_EQ(i + 1 < row.conditions.size() ? 1u : 0u, flag) << row.what;
    }
    EXPECT_EQ(row.trace, traces(log_).back()) << row.what;
    EXPECT_TRUE(holds_nothing() && query_.may_match == 0) << row.what;
    EXPECT_EQ(0u, add(kHalf, "odd")) << row.what;
    EXPECT_EQ("6 add_attr_to_multi_query: MAQI_NO_MATCHES", traces(log_).back()) << row.what;
    EXPECT_EQ(Labels{}, matches()) << row.what;
  }
}

TEST_F(Query, StoresAnUnindexedConditionBelowElevenCandidatesAndChecksItAtOnceFromThere) {
  for (const uint32_t n : {10u, 11u}) {
    for (uint32_t label = 1; label <= kRecords; ++label) {
      write(label, kHalf, label <= n ? "in" : "out");
    }
    start();
    EXPECT_EQ(1u, add(kHalf, "in"));
    EXPECT_EQ(1u, add(kPlain, "station-3"));
    EXPECT_EQ(n == 10 ? 1u : 0u, query_.num_unindexed);
    traces(log_);
    EXPECT_EQ(n, matches().size());  // a condition must hold for one, and removes none
    EXPECT_EQ("6 get_matches_to_multi_query: TOO MANY MATCHES " + std::to_string(n),
              traces(log_)[1]);
  }
}

TEST_F(Query, ChecksStoredConditionsWhenTheResultIsTaken) {
  EXPECT_EQ(1u, add(kPlain, "station-4"));  // of one with an even number
  EXPECT_EQ(1u, add(kNoEntry, std::string("radius")));
  EXPECT_EQ(Labels{}, matches());  // nothing is given up: there are no candidates yet
  EXPECT_EQ(2u, query_.num_unindexed);
  EXPECT_EQ(1u, add(kHalf, "even"));
  EXPECT_EQ(6u, matches().size());
  EXPECT_EQ(1u, add(kHalf, "odd"));
  EXPECT_EQ(1u, add(kPlain, "station-4"));
  EXPECT_EQ(Labels{}, matches());
  EXPECT_TRUE(holds_nothing() && query_.may_match == 0);
}

TEST_F(Query, ComparesOverTheConditionsLengthAndNeverBeyondWhatIsStored) {
  const std::string zeros(16, '\0');
  std::string addresses;
  for (char i = 1; i <= 7; ++i) addresses += i + zeros.substr(1);
  for (char i = 1; i <= 7; ++i) write(2, AAA_ATTR_IPV6_ADDRESSES, i + zeros.substr(1));
  const struct {
    const char *what;
    uint32_t type;
    std::string value;
    bool matches;
  } table[] = {
      {"a beginning", kPlain, "station-", true},
      {"more than any stores", kPlain, "station-12 and on", false},
      {"the sixth address", AAA_ATTR_IPV6_ADDRESSES, '\6' + zeros.substr(1), true},
      {"the seventh is not looked at", AAA_ATTR_IPV6_ADDRESSES, '\7' + zeros.substr(1), false},
      {"longer than an address", AAA_ATTR_IPV6_ADDRESSES, addresses.substr(0, 17), false},
      {"an absent attribute", AAA_ATTR_SESSION_ID, "x", false},
      {"a value of a type without an entry", kNoEntry, "rad", true},
  };
  for (const auto &row : table) {
    start();
    EXPECT_EQ(1u, add(kShared, interface(9)));
    EXPECT_EQ(row.matches ? 1u : 0u, add(row.type, row.value)) << row.what;
    matches();
  }
}

TEST_F(Query, TakesARecordThatHasGoneForNoMatch) {
  EXPECT_EQ(1u, add(kShared, interface(9)));
  EXPECT_EQ(0u, kivo_delete_record(db_, 3));
  EXPECT_EQ(1u, add(kPlain, "station-4"));
  EXPECT_EQ(0u, add(kPlain, "station-3"));
}

TEST_F(Query, RefusesBadArgumentsAndForgetsItsCandidates) {
  uint32_t flag = 77;
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_start_multi_attr_query(nullptr, &query_));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_add_attr_to_query(nullptr, kHalf, "odd", 3, &flag));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_get_matches_for_query(&query_, nullptr, &flag));
  const struct {
    const char *value;
    uint32_t length;
    uint32_t *flag;
  } table[] = {{nullptr, 3, &flag}, {"odd", 0, &flag}, {"odd", 3, nullptr}};
  for (const auto &row : table) {
    EXPECT_EQ(1u, add(kHalf, "odd"));
    EXPECT_EQ(KIVO_ERR_INVALID_ARG,
              kivo_add_attr_to_query(&query_, kHalf, row.value, row.length, row.flag));
    EXPECT_EQ("3 add_attr_to_multi_query: Invalid params", traces(log_).back());
    EXPECT_TRUE(holds_nothing() && query_.may_match == 1 && flag == 77);
  }
  EXPECT_EQ(0u, add(0, "odd", KIVO_ERR_INVALID_ARG));
  EXPECT_EQ((Texts{"6 kivo_add_attr_to_query", "3 check_attr_indxed_int: invalid params",
                   "3 add_attr_to_multi_query failed: type 0 indexed 0"}),
            traces(log_));
  EXPECT_EQ(0u, query_.may_match);
}

}  // namespace
