// Label sets and their intersection. The program captures the block pool and the scratch table as
// the library makes them, so that every test ends with the blocks counted and the table empty.
#include "kivo/index_list.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/chunk.h"
#include "platform/hash_table.h"
#include "support/process.h"

using Labels = std::vector<uint32_t>;

namespace {

struct Captured {
  chunk_pool *pool = nullptr;
  std::vector<uint32_t> pool_arguments;
  hash_table *table = nullptr;
  uint32_t table_size = 0;
  hash_table_hash hash = nullptr;
  hash_table_compare compare = nullptr;
} captured;

}  // namespace

extern "C" chunk_pool *chunk_create(const char *name, uint32_t size, uint32_t per_slab,
                                    uint32_t flags, uint32_t reserved1,
                                    uint32_t reserved2) noexcept {
  static const auto real =
      reinterpret_cast<decltype(&chunk_create)>(dlsym(RTLD_NEXT, "chunk_create"));
  chunk_pool *pool = real(name, size, per_slab, flags, reserved1, reserved2);
  if (std::string(name) == "kivo index list chunk") {
    captured.pool = pool;
    captured.pool_arguments = {size, per_slab, flags, reserved1, reserved2};
  }
  return pool;
}

extern "C" hash_table *htMakeHashTable(uint32_t size, hash_table_hash hash,
                                       hash_table_compare compare) noexcept {
  static const auto real =
      reinterpret_cast<decltype(&htMakeHashTable)>(dlsym(RTLD_NEXT, "htMakeHashTable"));
  captured.table = real(size, hash, compare);
  captured.table_size = size;
  captured.hash = hash;
  captured.compare = compare;
  return captured.table;
}

namespace {

Labels counted_from(uint32_t first, uint32_t n) {
  Labels labels(n);
  std::iota(labels.begin(), labels.end(), first);
  return labels;
}

kivo_index_list *make_set(const Labels &labels) {
  kivo_index_list *list = nullptr;
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_create(&list));
  for (const uint32_t label : labels) {
    EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add(&list, label));
  }
  return list;
}

Labels walked(const kivo_index_list *list) {
  Labels labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
  EXPECT_EQ(labels.size(), cursor);
  return labels;
}

kivo_index_list *block_of(kivo_index_list *list, uint32_t number) {
  while (number-- != 0) list = list->next;
  return list;
}

uint32_t get(const kivo_index_list *list, uint32_t position) {
  uint32_t label = 0;
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_get(list, position, &label)) << position;
  return label;
}

uint64_t live_blocks() { return chunk_live_blocks(captured.pool); }

class IndexList : public testing::Test {
 protected:
  void SetUp() override {
    kivo_test::start_process();
    kivo_index_list_free(make_set({}));
    ASSERT_NE(nullptr, captured.pool);
    ASSERT_NE(nullptr, captured.table);
    live_at_start_ = live_blocks();
  }
  void TearDown() override {
    EXPECT_EQ(live_at_start_, live_blocks());
    EXPECT_EQ(0u, htItems(captured.table));
  }
  uint64_t live_at_start_ = 0;
};

TEST_F(IndexList, PoolAndScratchTableAreMadeAsAgreed) {
  EXPECT_EQ((std::vector<uint32_t>{64, 255, 0x11, 0, 0}), captured.pool_arguments);
  EXPECT_EQ(1024u, captured.table_size);
  uint32_t label;
  std::memcpy(&label, "foob", 4);
  EXPECT_EQ(0xb4b1178bu, captured.hash(&label));  // FNV-1 of the four bytes
}

TEST_F(IndexList, TableComparesLabelsWithTheirBytesReversed) {
  const uint32_t greater = 1;   // reversed 0x01000000
  const uint32_t less = 0x100;  // reversed 0x00010000
  EXPECT_EQ(1, captured.compare(&greater, &less));
  EXPECT_EQ(-1, captured.compare(&less, &greater));
  EXPECT_EQ(0, captured.compare(&less, &less));
  EXPECT_EQ(1, captured.compare(nullptr, &less));
  EXPECT_EQ(1, captured.compare(&less, nullptr));
}

TEST(Fnv32Hash, GivesThePublishedValues) {
  constexpr uint32_t kBasis = 0x811c9dc5;
  EXPECT_EQ(0x050c5d7eu, fnv_32_hash("a", 1, kBasis));
  EXPECT_EQ(0x31f0b262u, fnv_32_hash("foobar", 6, kBasis));
  EXPECT_EQ(77u, fnv_32_hash("foobar", 0, 77));
  EXPECT_EQ(77u, fnv_32_hash("foobar", -1, 77));
}

// Sizes at which a block, or the remembering of positions, begins.
class IndexListOfSize : public IndexList, public testing::WithParamInterface<uint32_t> {};

TEST_P(IndexListOfSize, FillsBlocksInOrderHoweverItIsFilled) {
  const uint32_t n = GetParam();
  const Labels labels = counted_from(1000, n);
  for (const uint32_t batch : {1u, 5u, 12u, 700u}) {
    kivo_index_list *list = make_set({});
    for (uint32_t i = 0; i < n; i += batch) {
      const uint32_t size = std::min(batch, n - i);
      ASSERT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add_many(&list, labels.data() + i, size));
    }
    uint32_t size = 0;
    EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_size(list, &size));
    EXPECT_EQ(n, size);
    EXPECT_EQ(n, list->count);
    uint32_t in_blocks = std::min(n, 12u);
    uint32_t n_blocks = 1;
    for (const kivo_index_list *block = list->next; block != nullptr; block = block->next) {
      EXPECT_EQ(KIVO_INDEX_LIST_MAGIC, block->magic);
      EXPECT_EQ(block->next != nullptr || n % 12 == 0 ? 12 : n % 12, block->count);
      in_blocks += block->count;
      ++n_blocks;
    }
    EXPECT_EQ(n, in_blocks);
    EXPECT_EQ(n == 0 ? 1 : (n + 11) / 12, n_blocks);
    EXPECT_EQ(labels, walked(list));
    for (uint32_t i = n; i-- > 0;) ASSERT_EQ(labels[i], get(list, i));
    uint32_t untouched = 4711;
    EXPECT_EQ(KIVO_INDEX_LIST_OUT_OF_RANGE, kivo_index_list_get(list, n, &untouched));
    EXPECT_EQ(4711u, untouched);
    EXPECT_EQ(live_at_start_ + n_blocks, live_blocks());
    kivo_index_list_free(list);
  }
}

INSTANTIATE_TEST_SUITE_P(Boundaries, IndexListOfSize,
                         testing::Values(0, 1, 11, 12, 13, 24, 25, 36, 768, 769, 780, 781, 1600));

void expect_refused(kivo_index_list *list) {
  kivo_index_list *good = make_set({7});
  kivo_index_list *out = good;
  uint32_t word = 4711;
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_empty(list));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add(&list, 1));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_size(list, &word));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_get(list, 0, &word));
  EXPECT_EQ(4711u, word);
  uint32_t cursor = 0;
  EXPECT_EQ(0u, kivo_index_list_next(list, &cursor));
  EXPECT_EQ(0u, cursor);
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_intersection(list, good, &out));
  EXPECT_EQ(nullptr, out);
  out = good;
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_intersection(good, list, &out));
  EXPECT_EQ(nullptr, out);
  kivo_index_list_free(list);
  kivo_index_list_free(good);
}

TEST_F(IndexList, NullPointersAreRefused) {
  expect_refused(nullptr);
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add(nullptr, 1));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add_many(nullptr, nullptr, 0));
  kivo_index_list *list = make_set({1});
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add_many(&list, nullptr, 1));
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add_many(&list, nullptr, 0));
  EXPECT_EQ(Labels{1}, walked(list));
  kivo_index_list_free(list);
}

TEST_F(IndexList, HandlesWithoutTheMarkerAreRefused) {
  kivo_index_list not_a_list = {KIVO_INDEX_LIST_MAGIC + 1, 1, nullptr, {5}};
  expect_refused(&not_a_list);
  EXPECT_EQ(KIVO_INDEX_LIST_MAGIC + 1, not_a_list.magic);
  EXPECT_EQ(1u, not_a_list.count);
}

TEST_F(IndexList, FreedHandlesAreRecognised) {
  kivo_index_list *list = make_set(counted_from(1, 900));
  kivo_index_list_free(list);
  EXPECT_EQ(live_at_start_, live_blocks());
  uint32_t size = 0;
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_size(list, &size));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add(&list, 1));
  kivo_index_list_free(list);
}

TEST_F(IndexList, DamagedBlockStopsWhatWalksOverIt) {
  kivo_index_list *list = make_set(counted_from(1, 30));
  block_of(list, 1)->magic = 0;
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add(&list, 31));
  EXPECT_EQ(30u, list->count);
  EXPECT_EQ(6u, block_of(list, 2)->count);
  EXPECT_EQ(12u, get(list, 11));
  for (const uint32_t position : {12u, 23u, 24u, 29u}) {
    uint32_t label = 4711;
    EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_get(list, position, &label));
    uint32_t cursor = position;
    EXPECT_EQ(0u, kivo_index_list_next(list, &cursor));
    EXPECT_EQ(4711u, label);
    EXPECT_EQ(position, cursor);
  }
  uint32_t size = 0;
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_size(list, &size));
  EXPECT_EQ(30u, size);
  block_of(list, 1)->magic = KIVO_INDEX_LIST_MAGIC;
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add(&list, 31));
  EXPECT_EQ(counted_from(1, 31), walked(list));
  kivo_index_list_free(list);
}

TEST_F(IndexList, BrokenChainIsRefusedAndNeverWrittenPast) {
  kivo_index_list *list = make_set(counted_from(1, 30));
  kivo_index_list *last = block_of(list, 2);
  block_of(list, 1)->next = nullptr;
  uint32_t label = 0;
  EXPECT_EQ(24u, get(list, 23));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_get(list, 24, &label));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add(&list, 31));
  EXPECT_EQ(12u, block_of(list, 1)->count);
  EXPECT_EQ(30u, list->count);
  block_of(list, 1)->next = last;
  kivo_index_list_free(list);
}

TEST_F(IndexList, ReleaseEndsAtADamagedBlock) {
  for (const bool emptied : {false, true}) {
    kivo_index_list *list = make_set(counted_from(1, 30));
    kivo_index_list *damaged = block_of(list, 1);
    damaged->magic = 0;
    if (emptied) {
      EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_empty(list));
      EXPECT_EQ(nullptr, list->next);
    }
    kivo_index_list_free(list);
    EXPECT_EQ(0u, list->magic);
    EXPECT_EQ(live_at_start_ + 2, live_blocks());
    EXPECT_EQ(KIVO_INDEX_LIST_MAGIC, damaged->next->magic);
    damaged->magic = KIVO_INDEX_LIST_MAGIC;
    kivo_index_list_free(damaged);
  }
}

TEST_F(IndexList, EmptyingKeepsTheHeadAlone) {
  for (const uint32_t n : {0u, 12u, 30u, 900u}) {
    kivo_index_list *list = make_set(counted_from(1, n));
    walked(list);
    EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_empty(list));
    EXPECT_EQ(0u, list->count);
    EXPECT_EQ(nullptr, list->next);
    EXPECT_EQ(live_at_start_ + 1, live_blocks());
    EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add(&list, 77));
    EXPECT_EQ(77u, list->labels[0]);
    const Labels more = counted_from(5000, 899);
    EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add_many(&list, more.data(), 899));
    EXPECT_EQ(5898u, get(list, 899));
    EXPECT_EQ(77u, get(list, 0));
    kivo_index_list_free(list);
  }
}

// Above 768 labels only what passes the damage reports it.
TEST_F(IndexList, DamageInALongSetIsReportedWhereItIsPassed) {
  kivo_index_list *list = make_set(counted_from(1, 900));
  kivo_index_list *damaged = block_of(list, 3);
  damaged->magic = 0;
  uint32_t label = 0;
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add(&list, 901));
  EXPECT_EQ(901u, get(list, 900));
  EXPECT_EQ(36u, get(list, 35));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_get(list, 36, &label));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_get(list, 48, &label));
  damaged->magic = KIVO_INDEX_LIST_MAGIC;
  kivo_index_list *last = block_of(list, 75);
  ASSERT_EQ(nullptr, last->next);
  last->magic = 0;
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add(&list, 902));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_get(list, 900, &label));
  last->magic = KIVO_INDEX_LIST_MAGIC;
  EXPECT_EQ(counted_from(1, 901), walked(list));
  kivo_index_list_free(list);
}

TEST_F(IndexList, HoldsAMillionLabels) {
  constexpr uint32_t kLabels = 1000000;
  kivo_index_list *list = make_set(counted_from(1, kLabels));
  EXPECT_EQ(live_at_start_ + 83334, live_blocks());
  EXPECT_EQ(counted_from(1, kLabels), walked(list));
  for (uint32_t i = 0; i < kLabels; ++i) ASSERT_EQ(i + 1, get(list, i));
  kivo_index_list_free(list);
}

TEST_F(IndexList, LongSetsAreFilledAndWalkedInTurn) {
  constexpr uint32_t kSets = 8;
  constexpr uint32_t kLabels = 20000;
  std::vector<kivo_index_list *> sets;
  for (uint32_t s = 0; s < kSets; ++s) sets.push_back(make_set(counted_from(s + 1, 800)));
  std::vector<uint32_t> cursors(kSets, 0);
  for (uint32_t i = 0; i < kLabels; ++i) {
    for (uint32_t s = 0; s < kSets; ++s) {
      ASSERT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add(&sets[s], s + 801 + i));
      ASSERT_EQ(s + 1 + i, kivo_index_list_next(sets[s], &cursors[s]));
    }
  }
  for (uint32_t s = 0; s < kSets; ++s) {
    EXPECT_EQ(counted_from(s + 1, 800 + kLabels), walked(sets[s]));
    kivo_index_list_free(sets[s]);
  }
}

TEST_F(IndexList, MoreLongSetsThanAnyoneRemembersStayRight) {
  constexpr uint32_t kSets = 1500;
  std::vector<kivo_index_list *> sets;
  for (uint32_t s = 0; s < kSets; ++s) sets.push_back(make_set(counted_from(s + 1, 775)));
  for (uint32_t i = 775; i < 785; ++i) {
    for (uint32_t s = 0; s < kSets; ++s) {
      ASSERT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add(&sets[s], s + 1 + i));
      ASSERT_EQ(s + 1 + i - 700, get(sets[s], i - 700));
    }
  }
  for (uint32_t s = 0; s < kSets; ++s) {
    EXPECT_EQ(counted_from(s + 1, 785), walked(sets[s]));
    kivo_index_list_free(sets[s]);
  }
}

// A block that was remembered for a freed set is part of another one now.
TEST_F(IndexList, NothingIsRememberedForANewSetAtAnOldAddress) {
  kivo_index_list *old_set = make_set(counted_from(1, 2000));
  walked(old_set);
  kivo_index_list_free(old_set);
  std::vector<kivo_index_list *> sets;
  while (sets.empty() || sets.back() != old_set) {
    ASSERT_LT(sets.size(), 5000u) << "the address does not come back";
    sets.push_back(make_set({9}));
  }
  const Labels labels = counted_from(70000, 1500);
  ASSERT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_add_many(&sets.back(), labels.data(), 1500));
  EXPECT_EQ(71299u, get(sets.back(), 1300));
  Labels expected = {9};
  expected.insert(expected.end(), labels.begin(), labels.end());
  for (kivo_index_list *set : sets) {
    EXPECT_EQ(set == old_set ? expected : Labels{9}, walked(set));
    kivo_index_list_free(set);
  }
}

// What the intersection has to give, from the plain model: the labels of b that a has.
Labels common(const Labels &a, const Labels &b) {
  const std::set<uint32_t> known(a.begin(), a.end());
  Labels result;
  for (const uint32_t label : b) {
    if (known.count(label) != 0) result.push_back(label);
  }
  return result;
}

void expect_intersection(const Labels &a, const Labels &b, const Labels &expected) {
  kivo_index_list *set_a = make_set(a);
  kivo_index_list *set_b = make_set(b);
  kivo_index_list *out = set_a;
  ASSERT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_intersection(set_a, set_b, &out));
  EXPECT_EQ(expected.empty(), out == nullptr);
  EXPECT_EQ(expected, walked(out));
  EXPECT_EQ(0u, htItems(captured.table));
  EXPECT_EQ(a, walked(set_a));
  EXPECT_EQ(b, walked(set_b));
  for (kivo_index_list *set : {set_a, set_b, out}) kivo_index_list_free(set);
}

TEST_F(IndexList, IntersectionKeepsTheOrderAndTheRepetitionsOfTheSecondSet) {
  expect_intersection({5, 7, 9}, {9, 1, 5, 9}, {9, 5, 9});
  expect_intersection({5, 7, 9}, {1, 2}, {});
  expect_intersection({4, 4, 4}, {4}, {4});
  expect_intersection({4}, {4, 4, 4}, {4, 4, 4});
  expect_intersection({0xffffffff, 1}, {1, 0xffffffff}, {1, 0xffffffff});
  expect_intersection({0x01000000, 0x010000}, {1, 0x100, 0x010000}, {0x010000});
}

TEST_F(IndexList, IntersectionCoversWholeLongSets) {
  const Labels a = counted_from(1, 100000);
  Labels b = counted_from(99001, 2000);
  std::reverse(b.begin(), b.end());
  expect_intersection(a, b, common(a, b));
  EXPECT_EQ(1000u, common(a, b).size());
}

TEST_F(IndexList, RandomIntersectionsAgreeWithAPlainModel) {
  std::mt19937 random(20240229);
  const auto labels = [&random] {
    Labels result(1 + random() % 90);
    for (uint32_t &label : result) label = static_cast<uint32_t>(1 + random() % 120);
    return result;
  };
  for (int round = 0; round < 300; ++round) {
    const Labels a = labels();
    const Labels b = labels();
    expect_intersection(a, b, common(a, b));
  }
}

TEST_F(IndexList, IntersectsWithItselfButNotWithAnEmptySet) {
  kivo_index_list *set = make_set({3, 1, 3, 2});
  kivo_index_list *empty = make_set({});
  kivo_index_list *out = set;
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_intersection(set, empty, &out));
  EXPECT_EQ(nullptr, out);
  out = set;
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_intersection(empty, set, &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_intersection(set, set, nullptr));
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_intersection(set, set, &out));
  EXPECT_EQ((Labels{3, 1, 3, 2}), walked(out));
  EXPECT_NE(set, out);
  for (kivo_index_list *list : {set, empty, out}) kivo_index_list_free(list);
}

TEST_F(IndexList, IntersectionSeesTheLabelsInFrontOfDamage) {
  kivo_index_list *a = make_set(counted_from(1, 30));
  kivo_index_list *b = make_set(counted_from(1, 30));
  block_of(a, 2)->magic = 0;
  block_of(b, 1)->magic = 0;
  kivo_index_list *out = nullptr;
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_intersection(a, b, &out));
  EXPECT_EQ(counted_from(1, 12), walked(out));
  kivo_index_list_free(out);
  EXPECT_EQ(KIVO_INDEX_LIST_OK, kivo_index_list_intersection(b, a, &out));
  EXPECT_EQ(counted_from(1, 12), walked(out));
  block_of(a, 2)->magic = KIVO_INDEX_LIST_MAGIC;
  block_of(b, 1)->magic = KIVO_INDEX_LIST_MAGIC;
  for (kivo_index_list *set : {a, b, out}) kivo_index_list_free(set);
}

TEST_F(IndexList, UnionAndUniqueAreNotProvided) {
  kivo_index_list *set = make_set({1, 1});
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_union(set, set, nullptr));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_unique(set));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_unique(nullptr));
  EXPECT_EQ((Labels{1, 1}), walked(set));
  kivo_index_list_free(set);
}

}  // namespace
