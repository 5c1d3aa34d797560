// Label sets and answers of 4,096 labels and more: whatever way is taken, and also when it finds no
// memory on the way, the outcome is that of a plain model.
#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>

#include "kivo/index_list.h"
#include "kivo/query.h"
#include "platform/attrdb.h"
#include "support/faults.h"
#include "support/faults/replacement.h"
#include "support/process.h"

#include <gtest/gtest.h>

static uint32_t g_kept_in_store = 0;

extern "C" uint32_t attrdb_keep_labels_by_attr(uint32_t type, const void *value, uint32_t size,
                                               const uint32_t *labels, uint32_t n_labels,
                                               uint32_t *kept, uint32_t *n_kept) noexcept {
  ++g_kept_in_store;
  KIVO_TEST_FAIL_OR_FORWARD(attrdb_keep_labels_by_attr, kivo_test::fault_status(), type, value,
                            size, labels, n_labels, kept, n_kept);
}

namespace kivo_test {
namespace {

using Labels = std::vector<uint32_t>;

kivo_index_list *list_of(const Labels &labels) {
  kivo_index_list *list = nullptr;
  EXPECT_EQ(0u, kivo_index_list_create(&list));
  EXPECT_EQ(0u,
            kivo_index_list_add_many(&list, labels.data(), static_cast<uint32_t>(labels.size())));
  return list;
}

// Frees the set.
Labels taken(kivo_index_list *list) {
  Labels labels;
  for (const kivo_index_list *block = list; block != nullptr; block = block->next) {
    const size_t left = list->count - labels.size();
    labels.insert(labels.end(), block->labels,
                  block->labels + std::min<size_t>(left, KIVO_INDEX_LIST_BLOCK_LABELS));
  }
  kivo_index_list_free(list);
  return labels;
}

// Every label of b that a has, as often and in the order in which b has it.
Labels common(const Labels &a, const Labels &b) {
  const std::set<uint32_t> held(a.begin(), a.end());
  Labels labels;
  std::copy_if(b.begin(), b.end(), std::back_inserter(labels),
               [&](uint32_t label) { return held.contains(label); });
  return labels;
}

Labels every(uint32_t step, uint32_t n, uint32_t first = 1) {
  Labels labels;
  for (uint32_t i = 0; i < n; ++i) labels.push_back(first + i * step);
  return labels;
}
Labels shuffled(Labels labels, uint32_t seed = 1) {
  std::shuffle(labels.begin(), labels.end(), std::mt19937(seed));
  return labels;
}
Labels doubled(Labels labels) {
  const Labels copy = labels;
  labels.insert(labels.end(), copy.begin(), copy.end());
  return labels;
}
Labels sorted(Labels labels) {
  std::sort(labels.begin(), labels.end());
  return labels;
}
Labels with_front(uint32_t label, Labels labels) {
  labels.insert(labels.begin(), label);
  return labels;
}

struct Pair {
  const char *name;
  Labels a;
  Labels b;
};
const Pair kPairs[] = {
    {"ascending, some in common", every(2, 9000), every(3, 9000)},
    {"the same", every(7, 5000), every(7, 5000)},
    {"nothing in common", every(2, 5000), every(2, 5000, 2)},
    {"one behind the other", every(1, 5000), every(1, 5000, 5001)},
    {"few in many", every(1, 20000), every(997, 30)},
    {"many in few", every(997, 30), every(1, 20000)},
    {"any order", shuffled(every(2, 9000)), shuffled(every(3, 9000), 2)},
    {"one of them ascending", every(2, 9000), shuffled(every(3, 9000))},
    {"the other one", shuffled(every(2, 9000)), every(3, 9000)},
    {"labels twice", doubled(every(2, 5000)), doubled(every(3, 5000))},
    {"ascending, labels twice", sorted(doubled(every(2, 5000))), sorted(doubled(every(3, 5000)))},
    {"label 0 in both", with_front(0, shuffled(every(1, 5000))), with_front(0, every(2, 5000))},
    {"label 0 in one", shuffled(every(1, 5000)), with_front(0, every(2, 5000))},
    {"at the top", every(1, 5000, UINT32_MAX - 4999), shuffled(every(1, 5000, UINT32_MAX - 4999))},
    {"just large", every(1, 4096), shuffled(every(1, 4096))},
    {"just not", every(1, 4095), shuffled(every(1, 4095))},
};

class LargeSets : public testing::Test {
 protected:
  LargeSets() { reset_process(); }
  ~LargeSets() override { disarm_fault(); }
};

TEST_F(LargeSets, IntersectAsAnyOther) {
  for (const Pair &pair : kPairs) {
    kivo_index_list *a = list_of(pair.a);
    kivo_index_list *b = list_of(pair.b);
    kivo_index_list *both = nullptr;
    EXPECT_EQ(0u, kivo_index_list_intersection(a, b, &both)) << pair.name;
    const Labels expected = common(pair.a, pair.b);
    EXPECT_EQ(expected.empty(), both == nullptr) << pair.name;
    EXPECT_EQ(expected, taken(both)) << pair.name;
    EXPECT_EQ(pair.a, taken(a)) << pair.name;
    EXPECT_EQ(pair.b, taken(b)) << pair.name;
  }
}

// A walk over a set ends at a damaged block.
TEST_F(LargeSets, IntersectUpToADamagedBlock) {
  for (const Labels &labels : {every(1, 9000), shuffled(every(1, 9000))}) {
    kivo_index_list *a = list_of(labels);
    kivo_index_list *b = list_of(every(1, 9000));
    kivo_index_list *damaged = a;
    for (int i = 0; i < 500; ++i) damaged = damaged->next;
    damaged->magic = 0;
    kivo_index_list *both = nullptr;
    EXPECT_EQ(0u, kivo_index_list_intersection(a, b, &both));
    EXPECT_EQ(common({labels.begin(), labels.begin() + 6000}, every(1, 9000)), taken(both));
    damaged->magic = KIVO_INDEX_LIST_MAGIC;
    taken(a);
    taken(b);
  }
}

// Blocks that count nothing are passed over, however many lie side by side.
TEST_F(LargeSets, IntersectBehindDamagedCounts) {
  for (const Labels &labels : {every(1, 9000), shuffled(every(1, 9000))}) {
    kivo_index_list *a = list_of(labels);
    kivo_index_list *b = list_of(every(1, 9000));
    Labels left = labels;
    left.erase(left.begin() + 1200, left.begin() + 4800);
    kivo_index_list *block = a;
    for (int i = 0; i < 400; ++i, block = block->next) block->count = i < 100 ? block->count : 0;
    kivo_index_list *both = nullptr;
    EXPECT_EQ(0u, kivo_index_list_intersection(a, b, &both));
    EXPECT_EQ(common(left, every(1, 9000)), taken(both));
    kivo_index_list_free(a);
    kivo_index_list_free(b);
  }
}

// A head that counts more than there is costs no memory for it.
TEST_F(LargeSets, IntersectByTheLabelsThatAreThere) {
  kivo_index_list *a = list_of({7, 5, 9});
  kivo_index_list *b = list_of(shuffled(every(1, 5000)));
  a->count = 1 << 28;
  largest_zalloc = 0;
  kivo_index_list *both = nullptr;
  EXPECT_EQ(0u, kivo_index_list_intersection(a, b, &both));
  EXPECT_GT(size_t{4096}, largest_zalloc);
  Labels found = taken(both);
  std::erase(found, 0u);
  EXPECT_EQ((Labels{5, 7, 9}), sorted(found));
  kivo_index_list_free(a);
  kivo_index_list_free(b);
}

// Sessions of a few domains and methods, each on an interface of a dozen.
constexpr uint32_t kSessions = 12000;
constexpr uint32_t kDomain = AAA_ATTR_DOMAIN;
constexpr uint32_t kMethod = AAA_ATTR_METHOD;
constexpr uint32_t kInterface = AAA_ATTR_INTERFACE_ID;
constexpr uint32_t kMac = AAA_ATTR_MAC_ADDRESS;

using Value = std::pair<uint32_t, std::string>;
Value domain(int i) { return {kDomain, "d" + std::to_string(i)}; }
Value method(int i) { return {kMethod, "m" + std::to_string(i)}; }
Value number(uint32_t type, uint32_t i) {
  return {type, std::string(reinterpret_cast<const char *>(&i), sizeof i)};
}

class LargeAnswers : public LargeSets {
 protected:
  LargeAnswers()
      : db_(create_database(1, {{kDomain, 0, KIVO_DATA_TYPE_VAR_STR},
                                {kMethod, 0, KIVO_DATA_TYPE_VAR_STR},
                                {kInterface, 0, KIVO_DATA_TYPE_INT32},
                                {kMac, 0, KIVO_DATA_TYPE_INT32}})) {
    std::mt19937 random(7);
    for (uint32_t i = 0; i < kSessions; ++i) {
      const uint32_t label = i * 357913941u + 1;  // all over 32 bits
      EXPECT_EQ(0u, kivo_create_record(db_, label, nullptr));
      for (const Value &value :
           {domain(static_cast<int>(random() % 2)), method(static_cast<int>(random() % 2)),
            number(kInterface, i / 12), number(kMac, i)}) {
        EXPECT_EQ(0u, auth_mgr_idc_add_or_update_attr(
                          find_record(label)->ctxt, value.first, value.second.data(),
                          static_cast<uint32_t>(value.second.size()), nullptr));
        sessions_[value].insert(label);
      }
    }
  }

  // The labels that a query of these conditions finds; `flags` receives what each one said.
  Labels found(const std::vector<Value> &conditions, std::string &flags) const {
    kivo_maqi query;
    EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &query));
    for (const auto &[type, bytes] : conditions) {
      uint32_t flag = 2;
      EXPECT_EQ(0u, kivo_add_attr_to_query(&query, type, bytes.data(),
                                           static_cast<uint32_t>(bytes.size()), &flag));
      flags += std::to_string(flag);
    }
    kivo_index_list *list = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(0u, kivo_get_matches_for_query(&query, &list, &count));
    EXPECT_EQ(list == nullptr, count == 0);
    Labels labels = taken(list);
    EXPECT_EQ(count, labels.size());
    return labels;
  }
  void expect_model_says(const std::vector<Value> &conditions) const {
    std::set<uint32_t> expected;
    std::string expected_flags;
    for (size_t i = 0; i < conditions.size(); ++i) {
      const auto held = sessions_.find(conditions[i]);
      const std::set<uint32_t> labels =
          held != sessions_.end() ? held->second : std::set<uint32_t>();
      if (i == 0) expected = labels;
      std::erase_if(expected, [&](uint32_t label) { return !labels.contains(label); });
      expected_flags += expected.empty() ? "0" : "1";
    }
    std::string flags;
    EXPECT_EQ(Labels(expected.begin(), expected.end()), found(conditions, flags));
    EXPECT_EQ(expected_flags, flags);
  }

  kivo_db *db_;
  std::map<Value, std::set<uint32_t>> sessions_;
};

const std::vector<Value> kQueries[] = {
    {domain(0), method(1)},
    {domain(1), number(kInterface, 5)},
    {number(kInterface, 5), domain(1)},
    {number(kMac, 77), domain(0)},
    {domain(0), number(kMac, 77)},
    {domain(1), number(kMac, 77)},
    {domain(0), domain(1)},
    {domain(0), {kDomain, "nobody's"}},
    {domain(0), method(0), number(kInterface, 3), domain(0)},
};

TEST_F(LargeAnswers, AreNarrowedWhereTheStoreHasThem) {
  g_kept_in_store = 0;
  for (const auto &query : kQueries) expect_model_says(query);
  EXPECT_GT(g_kept_in_store, 20u);
}

// Candidates whose head counts none fail a condition that somebody meets, in the store too.
TEST_F(LargeAnswers, AreRefusedForCandidatesThatCountNone) {
  for (const Value &second : {domain(1), number(kMac, 77)}) {
    kivo_maqi query;
    uint32_t flag = 0;
    const auto add = [&](const Value &value) {
      return kivo_add_attr_to_query(&query, value.first, value.second.data(),
                                    static_cast<uint32_t>(value.second.size()), &flag);
    };
    EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &query));
    EXPECT_EQ(0u, add(domain(0)));
    query.candidates->count = 0;
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, add(second));
    EXPECT_EQ(nullptr, query.candidates);
  }
}

TEST_F(LargeAnswers, AreGatheredWhenTheyCannotBeNarrowedThere) {
  for (const char *operation : {"attrdb_keep_labels_by_attr", "chunk_malloc", "named_zalloc"}) {
    for (const uint32_t nth : {1u, 2u, 7u}) {
      for (const auto &query : kQueries) {
        // What nobody has is asked for by the calls alone.
        if (!sessions_.contains(query[1])) continue;
        std::string ignored;
        const Labels undisturbed = found(query, ignored);
        kivo_maqi maqi;
        EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &maqi));
        uint32_t flag = 0;
        EXPECT_EQ(0u, kivo_add_attr_to_query(&maqi, query[0].first, query[0].second.data(),
                                             static_cast<uint32_t>(query[0].second.size()), &flag));
        arm_fault(operation, nth);
        for (size_t i = 1; i < query.size() && flag == 1; ++i) {
          EXPECT_EQ(0u,
                    kivo_add_attr_to_query(&maqi, query[i].first, query[i].second.data(),
                                           static_cast<uint32_t>(query[i].second.size()), &flag))
              << operation << " " << nth;
          disarm_fault();
        }
        kivo_index_list *list = nullptr;
        uint32_t count = 0;
        EXPECT_EQ(0u, kivo_get_matches_for_query(&maqi, &list, &count));
        EXPECT_EQ(undisturbed, taken(list)) << operation << " " << nth;
      }
    }
  }
}

TEST_F(LargeSets, IntersectByCallsWithoutMemoryForAShorterWay) {
  for (const Pair &pair : kPairs) {
    kivo_index_list *a = list_of(pair.a);
    kivo_index_list *b = list_of(pair.b);
    const bool ascending = std::is_sorted(pair.a.begin(), pair.a.end()) &&
                           std::is_sorted(pair.b.begin(), pair.b.end());
    if (ascending || std::max(pair.a.size(), pair.b.size()) < 4096) {
      taken(a);
      taken(b);
      continue;
    }
    arm_fault("named_zalloc", 1);
    kivo_index_list *both = nullptr;
    EXPECT_EQ(0u, kivo_index_list_intersection(a, b, &both)) << pair.name;
    EXPECT_TRUE(disarm_fault()) << pair.name;
    EXPECT_EQ(common(pair.a, pair.b), taken(both)) << pair.name;
    taken(a);
    taken(b);
  }
}

// The store's own words on large answers.
TEST_F(LargeAnswers, AreCountedAndKeptByTheStore) {
  const auto &[type, bytes] = domain(0);
  const auto size = static_cast<uint32_t>(bytes.size());
  uint32_t count = 7;
  EXPECT_EQ(0u, attrdb_count_labels_by_attr(type, bytes.data(), size, &count));
  EXPECT_EQ(sessions_[domain(0)].size(), count);
  EXPECT_EQ(0u, attrdb_count_labels_by_attr(type, "x", 1, &count));
  EXPECT_EQ(0u, count);
  uint32_t kept[3] = {};
  uint32_t n = 7;
  const uint32_t first = *sessions_[domain(0)].begin();
  const uint32_t labels[] = {first, first + 1};
  EXPECT_EQ(0u, attrdb_keep_labels_by_attr(type, bytes.data(), size, labels, 2, kept, &n));
  EXPECT_EQ(1u, n);
  EXPECT_EQ(first, kept[0]);
  const struct {
    uint32_t type;
    const void *value;
    const uint32_t *labels;
    uint32_t *kept;
    uint32_t status;
  } rows[] = {
      {type, bytes.data(), nullptr, kept, ATTRDB_ERR_INVALID_ARG},
      {type, bytes.data(), labels, nullptr, ATTRDB_ERR_INVALID_ARG},
      {type, nullptr, labels, kept, ATTRDB_ERR_INVALID_ARG},
      {0, bytes.data(), labels, kept, AAA_ERR_UNSUPPORTED_ATTR},
  };
  for (const auto &row : rows) {
    n = 7;
    EXPECT_EQ(row.status,
              attrdb_keep_labels_by_attr(row.type, row.value, size, row.labels, 2, row.kept, &n));
    EXPECT_EQ(0u, n);
  }
}

}  // namespace
}  // namespace kivo_test
