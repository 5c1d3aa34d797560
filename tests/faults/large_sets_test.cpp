// Label sets and answers of 4,096 labels and more: whatever way is taken, also when it finds no
// memory on the way or damage, the outcome is that of a plain model.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "platform/named_alloc.h"
#include "support/faults.h"
#include "support/faults/replacement.h"
#include "world.h"

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
  kivo_index_list_create(&list);
  kivo_index_list_add_many(&list, labels.data(), static_cast<uint32_t>(labels.size()));
  return list;
}
Labels labels_of(const kivo_index_list *list) {
  Labels labels;
  for (const auto *block = list; block != nullptr; block = block->next) {
    const size_t left = list->count - labels.size();
    labels.insert(labels.end(), block->labels, block->labels + std::min<size_t>(left, 12));
  }
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
Labels with_zero(Labels labels) {
  labels.insert(labels.begin(), 0);
  return labels;
}

const std::pair<Labels, Labels> kPairs[] = {
    {every(2, 9000), every(3, 9000)},
    {every(2, 5000), every(2, 5000, 2)},
    {every(1, 5000), every(1, 5000, 5001)},
    {every(1, 20000), every(997, 30)},
    {every(997, 30), every(1, 20000)},
    {shuffled(every(2, 9000)), shuffled(every(3, 9000), 2)},
    {every(2, 9000), shuffled(every(3, 9000))},
    {shuffled(every(2, 9000)), every(3, 9000)},
    {doubled(every(2, 5000)), doubled(every(3, 5000))},
    {sorted(doubled(every(2, 5000))), sorted(doubled(every(3, 5000)))},
    {with_zero(shuffled(every(1, 5000))), with_zero(every(2, 5000))},
    {shuffled(every(1, 5000)), with_zero(every(2, 5000))},
    {every(1, 5000, UINT32_MAX - 4999), shuffled(every(1, 5000, UINT32_MAX - 4999))},
    {every(1, 4096), shuffled(every(1, 4096))},
    {every(1, 4095), shuffled(every(1, 4095))},
};

// Of memory that lacks at any point only that of the result's own blocks matters.
TEST(LargeSets, IntersectAsAnyOther) {
  World w;
  for (const auto &[labels_a, labels_b] : kPairs) {
    kivo_index_list *a = list_of(labels_a), *b = list_of(labels_b);
    const Labels expected = common(labels_a, labels_b);
    const uint64_t live = named_live_blocks() + chunk_live_blocks(label_block_pool);
    for (const char *fault : {"none", "named_zalloc", "chunk_malloc"}) {
      for (const uint32_t nth : {1u, 2u, 90u}) {
        arm_fault(fault, nth);
        kivo_index_list *both = nullptr;
        const uint32_t status = kivo_index_list_intersection(a, b, &both);
        const bool reached = disarm_fault();
        const bool fails = reached && fault[0] == 'c' && (nth == 1 || status != 0);
        EXPECT_EQ(fails ? KIVO_INDEX_LIST_INVALID : 0u, status);
        EXPECT_EQ(fails ? Labels() : expected, labels_of(both));
        kivo_index_list_free(both);
        EXPECT_EQ(live, named_live_blocks() + chunk_live_blocks(label_block_pool));
      }
    }
    EXPECT_EQ(labels_a, labels_of(a));
    EXPECT_EQ(labels_b, labels_of(b));
    kivo_index_list_free(a);
    kivo_index_list_free(b);
  }
}

// A walk ends at a damaged block, passes blocks that count nothing, however many lie side by side,
// and a head that counts more than there is costs no memory for it.
TEST(LargeSets, IntersectByTheLabelsThatAreThere) {
  World w;
  for (const Labels &labels : {every(1, 9000), shuffled(every(1, 9000))}) {
    kivo_index_list *a = list_of(labels), *b = list_of(every(1, 9000));
    Labels left(labels.begin(), labels.begin() + 6000);
    left.erase(left.begin() + 1200, left.begin() + 4800);
    kivo_index_list *block = a;
    for (int i = 0; i < 500; ++i, block = block->next) {
      if (i >= 100 && i < 400) block->count = 0;
    }
    block->magic = 0;
    kivo_index_list *both = nullptr;
    EXPECT_EQ(0u, kivo_index_list_intersection(a, b, &both));
    EXPECT_EQ(common(left, every(1, 9000)), labels_of(both));
    block->magic = KIVO_INDEX_LIST_MAGIC;
    for (kivo_index_list *list : {a, b, both}) kivo_index_list_free(list);
  }
  kivo_index_list *few = list_of({7, 5, 9}), *many = list_of(shuffled(every(1, 5000)));
  few->count = 1 << 28;
  largest_zalloc = 0;
  kivo_index_list *both = nullptr;
  EXPECT_EQ(0u, kivo_index_list_intersection(few, many, &both));
  EXPECT_GT(size_t{4096}, largest_zalloc);
  EXPECT_EQ((Labels{5, 7, 9}), sorted(labels_of(both)));
  for (kivo_index_list *list : {few, many, both}) kivo_index_list_free(list);
}

// ---- Answers of the store

using Value = std::pair<uint32_t, std::string>;
Value number(uint32_t type, uint32_t i) {
  return {type, std::string(reinterpret_cast<const char *>(&i), sizeof i)};
}
constexpr uint32_t kDomain = AAA_ATTR_DOMAIN, kMethod = AAA_ATTR_METHOD, kMac = 42, kPort = 220;

class LargeAnswers : public testing::Test {
 protected:
  LargeAnswers() {
    reset_process();
    db_ = create_database(1, {{kDomain, 0, 0}, {kMethod, 0, 0}, {kPort, 0, 0}, {kMac, 0, 0}});
    std::mt19937 random(7);
    for (uint32_t i = 0; i < 12000; ++i) {
      const uint32_t label = i * 357913941u + 1;  // all over 32 bits
      EXPECT_EQ(0u, kivo_create_record(db_, label, nullptr));
      for (const Value &value : {number(kDomain, static_cast<uint32_t>(random() % 2)),
                                 number(kMethod, static_cast<uint32_t>(random() % 2)),
                                 number(kPort, i / 12), number(kMac, i)}) {
        auth_mgr_idc_add_or_update_attr(find_record(label)->ctxt, value.first, value.second.data(),
                                        4, nullptr);
        sessions_[value].insert(label);
      }
    }
  }

  // What a query of these conditions finds, with a platform call of the last one failing.
  Labels found(const std::vector<Value> &conditions, const char *fault, uint32_t nth) {
    kivo_maqi query;
    uint32_t flag = 1, count = 0;
    EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &query));
    for (size_t i = 0; i < conditions.size() && flag == 1; ++i) {
      if (i + 1 == conditions.size()) arm_fault(fault, nth);
      EXPECT_EQ(0u, kivo_add_attr_to_query(&query, conditions[i].first, conditions[i].second.data(),
                                           4, &flag));
      disarm_fault();
    }
    kivo_index_list *list = nullptr;
    EXPECT_EQ(0u, kivo_get_matches_for_query(&query, &list, &count));
    const Labels labels = labels_of(list);
    EXPECT_EQ(count, labels.size());
    kivo_index_list_free(list);
    return labels;
  }

  kivo_db *db_;
  std::map<Value, std::set<uint32_t>> sessions_;
};

TEST_F(LargeAnswers, AreNarrowedInTheStoreOrGatheredWithTheSameOutcome) {
  const std::vector<Value> queries[] = {
      {number(kDomain, 0), number(kMethod, 1)},
      {number(kDomain, 1), number(kPort, 5)},
      {number(kPort, 5), number(kDomain, 1)},
      {number(kMac, 77), number(kDomain, 0)},
      {number(kDomain, 0), number(kMac, 77)},
      {number(kDomain, 1), number(kMac, 77)},
      {number(kDomain, 0), number(kDomain, 1)},
      {number(kDomain, 0), number(kDomain, 7)},
      {number(kDomain, 0), number(kMethod, 0), number(kPort, 3), number(kDomain, 0)},
  };
  g_kept_in_store = 0;
  for (const auto &query : queries) {
    std::set<uint32_t> expected = sessions_[query[0]];
    for (const Value &value : query) {
      std::erase_if(expected, [&](uint32_t label) { return !sessions_[value].contains(label); });
    }
    for (const char *fault : {"none", "attrdb_keep_labels_by_attr", "chunk_malloc"}) {
      if (sessions_[query.back()].empty() && fault[0] != 'n') continue;  // asked by calls alone
      for (const uint32_t nth : {1u, 2u, 7u}) {
        EXPECT_EQ(Labels(expected.begin(), expected.end()), found(query, fault, nth)) << fault;
      }
    }
  }
  EXPECT_GT(g_kept_in_store, 20u);
  // Candidates whose head counts none fail a condition that somebody meets, in the store too.
  const Value first = number(kDomain, 0);
  for (const Value &second : {number(kDomain, 1), number(kMac, 77)}) {
    kivo_maqi query;
    uint32_t flag = 0;
    EXPECT_EQ(0u, kivo_start_multi_attr_query(db_, &query));
    EXPECT_EQ(0u, kivo_add_attr_to_query(&query, kDomain, first.second.data(), 4, &flag));
    query.candidates->count = 0;
    EXPECT_EQ(KIVO_ERR_INVALID_ARG,
              kivo_add_attr_to_query(&query, second.first, second.second.data(), 4, &flag));
    EXPECT_EQ(nullptr, query.candidates);
  }
}

}  // namespace
}  // namespace kivo_test
