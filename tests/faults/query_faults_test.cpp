// Queries, session matches and the session list when a step fails: status, traces, and that every
// list is given back, each once. Beside the platform's operations the library's own size and
// look-up are replaced here, whose failures nothing else brings about, and the giving back, which
// is watched.
#include "fault_row.h"
#include "support/faults/replacement.h"

namespace {
uint32_t g_given_back = 0;
uint32_t g_given_back_twice = 0;
}  // namespace

extern "C" uint32_t kivo_index_list_size(const kivo_index_list *list, uint32_t *count) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(kivo_index_list_size, kivo_test::fault_status(), list, count);
}

extern "C" uint32_t kivo_get_accel_from_type(uint32_t type, kivo_db *db,
                                             kivo_accel_entry **out) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(kivo_get_accel_from_type, kivo_test::fault_status(), type, db, out);
}

// A list that was given back before has lost its marker; the pool keeps that until the next use.
extern "C" void kivo_index_list_free(kivo_index_list *list) noexcept {
  KIVO_TEST_REAL(kivo_index_list_free);
  if (list != nullptr && list->magic != KIVO_INDEX_LIST_MAGIC) ++g_given_back_twice;
  if (list != nullptr) ++g_given_back;
  real(list);
}

namespace kivo_test {
namespace {

constexpr uint32_t kName = AAA_ATTR_USER_NAME;     // indexed: "ann" has thirteen sessions
constexpr uint32_t kIpv4 = AAA_ATTR_IPV4_ADDRESS;  // indexed: kAddress has nine of them
constexpr uint32_t kId = AAA_ATTR_SESSION_ID;      // not indexed: the first session's is "s-1"
constexpr uint32_t kUnknown = AAA_ATTR_TYPE_MAX + 1;
constexpr uint32_t kInvalidList = KIVO_INDEX_LIST_INVALID;
constexpr uint32_t kCallsMax = 200;

using Labels = std::vector<uint32_t>;
using Types = std::vector<uint32_t>;

const Labels kNine = {kSession, 101, 102, 103, 104, 105, 106, 107, 108};

std::string value_of(uint32_t type) {
  if (type == kName) return "ann";
  if (type == kIpv4) return std::string(reinterpret_cast<const char *>(&kAddress), 4);
  return "s-1";
}

void fill(World &w) {
  w.write(kIpv4, value_of(kIpv4));
  w.write(kId, value_of(kId));
  for (uint32_t label = 101; label <= 112; ++label) {
    kivo_create_record(w.db, label, nullptr);
    auth_ctxt *ctxt = find_record(label)->ctxt;
    auth_mgr_idc_add_or_update_attr(ctxt, kName, "ann", 3, nullptr);
    if (label <= 108) auth_mgr_idc_add_or_update_attr(ctxt, kIpv4, &kAddress, 4, nullptr);
  }
}

// ---- Queries

struct QueryCase {
  std::string name;
  Types before;   // conditions that are taken without a fault
  uint32_t type;  // the condition in whose adding the fault lies; 0: it lies in taking the result
  const char *operation;
  uint32_t nth;
  uint32_t status;
  Texts traces;  // behind the operation's own
  uint32_t fault_status = kDead;
};

uint32_t add(kivo_maqi &query, uint32_t type, uint32_t &flag) {
  const std::string value = value_of(type);
  return kivo_add_attr_to_query(&query, type, value.data(), static_cast<uint32_t>(value.size()),
                                &flag);
}

Labels take(kivo_maqi &query, uint32_t expected_status) {
  auto *list = reinterpret_cast<kivo_index_list *>(1);
  uint32_t count = 77;
  EXPECT_EQ(expected_status, kivo_get_matches_for_query(&query, &list, &count));
  Labels labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
  EXPECT_EQ(labels.size(), count);
  EXPECT_EQ(labels.empty(), list == nullptr);
  kivo_index_list_free(list);
  return labels;
}

// Nothing is held, nothing more can match, and taking nothing twice is no failure.
void has_no_matches(kivo_maqi &query) {
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(nullptr, query.candidates);
    EXPECT_EQ(0u, query.num_candidates | query.num_unindexed | query.may_match);
    uint32_t flag = 77;
    EXPECT_EQ(0u, add(query, kName, flag));
    EXPECT_EQ(0u, flag);
    EXPECT_EQ(Labels{}, take(query, 0));
  }
}

const std::string kUnindexedFailed = "3 add_attr_to_multi_query:  unindexed attrs failed";
const std::string kIntersectFailed =
    "3 add_attr_to_multi_query lists intersect failed: type 8 indexed 1";

// clang-format off
const std::vector<QueryCase> kQueryCases = {
    {"FirstLookUpOfEntry", {}, kName, "kivo_get_accel_from_type", 1, KIVO_ERR_INVALID_ARG, {"3 check_attr_indxed_int: Error in accl_tbl type 1, error:" + kDeadText, "3 add_attr_to_multi_query failed: type 1 indexed 0"}},
    {"LaterLookUpOfEntry", {kIpv4, kId}, kName, "kivo_get_accel_from_type", 1, KIVO_ERR_INVALID_ARG, {"3 check_attr_indxed_int: Error in accl_tbl type 1, error:" + kDeadText, "3 add_attr_to_multi_query failed: type 1 indexed 0"}},
    {"FirstList", {}, kName, "chunk_malloc", 1, KIVO_ERR_NO_MEMORY, {"3 add_attr_to_multi_query list create failed: type 1 indexed 1"}},
    {"LaterList", {kName, kId}, kIpv4, "chunk_malloc", 1, KIVO_ERR_NO_MEMORY, {"3 add_attr_to_multi_query list create failed: type 8 indexed 1"}},
    {"GrowingOfList", {}, kName, "chunk_malloc", 2, KIVO_ERR_INVALID_ARG, {"3 add_attr_to_multi_query get failed: type 1 indexed 1"}},
    {"FirstLookUpOfLabels", {}, kName, "attrdb_get_labels_by_attr", 1, KIVO_ERR_INVALID_ARG, {"3 add_attr_to_multi_query get failed: type 1 indexed 1"}},
    {"LaterLookUpOfLabels", {kName}, kIpv4, "attrdb_get_labels_by_attr", 1, KIVO_ERR_INVALID_ARG, {"3 add_attr_to_multi_query get failed: type 8 indexed 1"}},
    {"ListOfIntersection", {kName}, kIpv4, "chunk_malloc", 2, KIVO_ERR_INVALID_ARG, {kIntersectFailed}},
    {"HashingOfFirstLabel", {kName}, kIpv4, "htAdd", 1, KIVO_ERR_INVALID_ARG, {"3 Failed to add index 7 to kivo index list hashtable", kIntersectFailed}},
    {"HashingOfLastLabel", {kName}, kIpv4, "htAdd", 13, KIVO_ERR_INVALID_ARG, {"3 Failed to add index 112 to kivo index list hashtable", kIntersectFailed}},
    {"SizeOfIntersection", {kName}, kIpv4, "kivo_index_list_size", 1, KIVO_ERR_INVALID_ARG, {"3 add_attr_to_multi_query lists size failed: type 8 indexed 1"}, kInvalidList},
    {"SizeInEarlyCheck", {kName}, kId, "kivo_index_list_size", 1, KIVO_ERR_INVALID_ARG, {kUnindexedFailed}, kInvalidList},
    // The first candidate matches; the last one's failure counts.
    {"LastRecordInEarlyCheck", {kName}, kId, "attrdb_get_record", 13, KIVO_ERR_INVALID_ARG, {kUnindexedFailed}},
    {"LastValueInEarlyCheck", {kName}, kId, "auth_mgr_idc_get_attr", 13, KIVO_ERR_INVALID_ARG, {kUnindexedFailed}},
    {"SizeInLateCheck", {kIpv4, kId}, 0, "kivo_index_list_size", 1, KIVO_ERR_INVALID_ARG, {}, kInvalidList},
    {"LastRecordInLateCheck", {kIpv4, kId}, 0, "attrdb_get_record", 9, KIVO_ERR_INVALID_ARG, {}},
    {"ValueInSecondLateCheck", {kIpv4, kId, kId}, 0, "auth_mgr_idc_get_attr", 10, KIVO_ERR_INVALID_ARG, {}},
    // A type outside the dictionary needs no fault: no record can be asked for it.
    {"EarlyCheckOfUnknownType", {kName}, kUnknown, nullptr, 0, KIVO_ERR_INVALID_ARG, {"6 check_attr_indxed_int: not accel type 1491, ", kUnindexedFailed}},
    {"LateCheckOfUnknownType", {kIpv4, kUnknown}, 0, nullptr, 0, KIVO_ERR_INVALID_ARG, {}},
};
// clang-format on

void PrintTo(const QueryCase &c, std::ostream *os) { *os << c.name; }

class QueryFault : public testing::TestWithParam<QueryCase> {};

// The row of a case; the context outlives the call.
FaultRow row_of(const QueryCase &c, kivo_maqi &query) {
  const auto prepare = [&c, &query](World &w) {
    fill(w);
    EXPECT_EQ(0u, kivo_start_multi_attr_query(w.db, &query));
    uint32_t flag = 0;
    for (const uint32_t type : c.before) EXPECT_EQ(0u, add(query, type, flag));
  };
  const auto call = [&c, &query](World &) {
    uint32_t flag = 77;
    if (c.type != 0) {
      const uint32_t status = add(query, c.type, flag);
      EXPECT_EQ(0u, flag);
      return status;
    }
    EXPECT_EQ(Labels{}, take(query, c.status));
    return c.status;
  };
  const auto after = [&query](World &w) {
    has_no_matches(query);
    EXPECT_EQ(0u, kivo_start_multi_attr_query(w.db, &query));
    uint32_t flag = 0;
    for (const uint32_t type : {kName, kIpv4, kId}) EXPECT_EQ(0u, add(query, type, flag));
    EXPECT_EQ(kNine, take(query, 0));
  };
  Texts traces = {c.type != 0 ? "6 kivo_add_attr_to_query" : "6 kivo_get_matches_for_query"};
  traces.insert(traces.end(), c.traces.begin(), c.traces.end());
  return {c.name, call, c.operation, c.nth, c.fault_status, c.status, traces, after, prepare};
}

TEST_P(QueryFault, EndsTheQueryAndGivesEveryListBackOnce) {
  g_given_back_twice = 0;
  kivo_maqi query;
  run_row(row_of(GetParam(), query));
  EXPECT_EQ(0u, g_given_back_twice);
}

INSTANTIATE_TEST_SUITE_P(Cases, QueryFault, testing::ValuesIn(kQueryCases),
                         [](const auto &c) { return c.param.name; });

// ---- Session matches and the session list

// By name, by a type without an entry, by address. A failure leaves null and 0.
uint32_t match(World &w) {
  auto *list = reinterpret_cast<kivo_index_list *>(1);
  uint32_t count = 77;
  const uint32_t status = kivo_match_sessions_from_list(w.db, w.list.handle(), &list, &count);
  EXPECT_EQ(status == 0 ? 9u : 0u, count);
  EXPECT_EQ(status == 0, list != nullptr);
  kivo_index_list_free(list);
  return status;
}

uint32_t list_all(World &w) {
  auto *const untouched = reinterpret_cast<kivo_index_list *>(1);
  kivo_index_list *list = untouched;
  uint32_t count = 77;
  const uint32_t status = kivo_get_session_list(w.db, &list, &count);
  EXPECT_EQ(status == 0 ? 13u : 0u, count);
  EXPECT_EQ(status != 0, list == untouched);
  if (status == 0) kivo_index_list_free(list);
  return status;
}

void fill_list(World &w) {
  fill(w);
  w.list.add(kName, "ann").add(AAA_ATTR_METHOD, "mac").add_u32(kIpv4, kAddress);
}

void matches_anew(World &w) { EXPECT_EQ(0u, match(w)); }

std::vector<FaultRow> match_rows() {
  const std::string begin = "6 match sessions from list :ATTR_DB";
  const std::string no_entry = "6 match_sessions_from_list: type 3 not accel type";
  const std::string prefix = "3 match_sessions_from_list: ";
  // clang-format off
  const struct {
    const char *name;
    const char *operation;
    uint32_t nth, fault_status, status;
    Texts traces;
  } table[] = {
      {"Cursor", "aaa_cursor_alloc", 1, kDead, KIVO_ERR_NO_CURSOR, {begin}},
      {"FirstMove", "aaa_cursor_get_next", 1, kDead, kDead, {begin}},
      {"SecondMove", "aaa_cursor_get_next", 2, kDead, kDead, {begin}},
      {"SecondValue", "aaa_cursor_get_value", 2, kDead, kDead, {begin, prefix + "get attr failed, error:" + kDeadText}},
      {"SecondEntry", "kivo_get_accel_from_type", 2, kDead, kDead, {begin, prefix + "accel lookup error, error:" + kDeadText}},
      {"FirstList", "chunk_malloc", 1, kDead, KIVO_INDEX_LIST_NO_MEMORY, {begin}},
      {"SecondList", "chunk_malloc", 3, kDead, KIVO_INDEX_LIST_NO_MEMORY, {begin, no_entry}},
      {"FirstLabels", "attrdb_get_labels_by_attr", 1, kDead, kDead, {begin, prefix + "get labels by attr failed, error:" + kDeadText}},
      {"SecondLabels", "attrdb_get_labels_by_attr", 2, kDead, kDead, {begin, no_entry, prefix + "get labels by attr failed, error:" + kDeadText}},
      {"ListOfIntersection", "chunk_malloc", 4, kDead, kInvalidList, {begin, no_entry, prefix + "Intersection failed, error:" + error_text(kInvalidList)}},
      {"Hashing", "htAdd", 2, kDead, KIVO_INDEX_LIST_HASH_FAILED, {begin, no_entry, "3 Failed to add index 101 to kivo index list hashtable", prefix + "Intersection failed, error:" + error_text(KIVO_INDEX_LIST_HASH_FAILED)}},
      {"Size", "kivo_index_list_size", 1, kInvalidList, kInvalidList, {begin, no_entry, prefix + "Fail in get list size, error:" + error_text(kInvalidList)}},
  };
  // clang-format on
  std::vector<FaultRow> rows;
  for (const auto &row : table) {
    rows.push_back({row.name, match, row.operation, row.nth, row.fault_status, row.status,
                    row.traces, matches_anew, fill_list});
  }
  rows.push_back({"ListOfAllSessions",
                  list_all,
                  "chunk_malloc",
                  1,
                  kDead,
                  KIVO_ERR_NO_MEMORY,
                  {"6 get session list", "3 get session list: list create failed"},
                  nullptr,
                  fill});
  // The first block holds twelve. A walk that ends early is not detected: the count is the store's.
  rows.push_back({"GrowthOfAllSessions",
                  list_all,
                  "chunk_malloc",
                  2,
                  kDead,
                  0,
                  {"6 get session list"},
                  nullptr,
                  fill});
  return rows;
}

class MatchFault : public testing::TestWithParam<FaultRow> {};

TEST_P(MatchFault, GivesEveryListBackOnce) {
  g_given_back_twice = 0;
  run_row(GetParam());
  EXPECT_EQ(0u, g_given_back_twice);
}

INSTANTIATE_TEST_SUITE_P(Rows, MatchFault, testing::ValuesIn(match_rows()),
                         [](const auto &row) { return row.param.name; });

// ---- Every call failing in turn

// Starts, adds and takes; a query that failed can match nothing.
uint32_t run_query(World &w, const Types &types) {
  kivo_maqi query;
  uint32_t flag = 0;
  uint32_t status = kivo_start_multi_attr_query(w.db, &query);
  for (size_t i = 0; i < types.size() && status == 0; ++i) status = add(query, types[i], flag);
  kivo_index_list *list = nullptr;
  uint32_t count = 0;
  if (status == 0) status = kivo_get_matches_for_query(&query, &list, &count);
  EXPECT_EQ(status == 0 ? 9u : 0u, count);
  EXPECT_EQ(status == 0, list != nullptr);
  EXPECT_EQ(status == 0 ? 1u : 0u, query.may_match);
  EXPECT_EQ(nullptr, query.candidates);
  EXPECT_EQ(0u, query.num_candidates | query.num_unindexed);
  kivo_index_list_free(list);
  return status;
}

TEST(QuerySweep, GivesEveryListBackOnceWhicheverCallFails) {
  const Types sequences[] = {{kName, kIpv4, kId}, {kId, kIpv4, kName}, {kName, kId, kIpv4, kIpv4}};
  g_given_back = g_given_back_twice = 0;
  { const World settled; }
  const auto before = live_things();
  for (const Types &types : sequences) {
    bool is_reached = true;
    uint32_t nth = 0;
    while (is_reached && nth < kCallsMax) {
      {
        World world;
        fill(world);
        arm_fault("", ++nth, kDead);
        const uint32_t status = run_query(world, types);
        is_reached = disarm_fault();
        EXPECT_EQ(is_reached, status != 0) << "call " << nth << ", " << failed_operation();
        EXPECT_TRUE(status == 0 || status == KIVO_ERR_INVALID_ARG || status == KIVO_ERR_NO_MEMORY);
        EXPECT_EQ(0u, run_query(world, types)) << "after call " << nth;
      }
      { const World anew; }
      ASSERT_EQ(before, live_things()) << "call " << nth << ", " << failed_operation();
    }
    EXPECT_GT(nth, 20u);
    EXPECT_LT(nth, kCallsMax);
  }
  EXPECT_GT(g_given_back, 100u) << "the library's own calls are not seen";
  EXPECT_EQ(0u, g_given_back_twice);
}

}  // namespace
}  // namespace kivo_test
