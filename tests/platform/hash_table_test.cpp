// Hash table: equal keys, weak hashes, growth and shrinking, memory running out.
#include "platform/hash_table.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "support/failing_new.h"

namespace {

uint32_t plain_hash(const void *key) { return *static_cast<const uint32_t *>(key); }
uint32_t high_bits_hash(const void *key) { return *static_cast<const uint32_t *>(key) << 20; }
uint32_t constant_hash(const void *) { return 7; }
int compare_keys(const void *a, const void *b) {
  return *static_cast<const uint32_t *>(a) == *static_cast<const uint32_t *>(b) ? 0 : 1;
}

struct Destroy {
  void operator()(hash_table *table) const { htDestroyHashTable(table); }
};
using Table = std::unique_ptr<hash_table, Destroy>;

Table make_table(uint32_t size = 16, hash_table_hash hash = plain_hash) {
  return Table{htMakeHashTable(size, hash, compare_keys)};
}

std::vector<uint32_t> numbers(uint32_t n) {
  std::vector<uint32_t> keys(n);
  std::iota(keys.begin(), keys.end(), 1U);
  return keys;
}

TEST(HashTable, RefusesBadArguments) {
  EXPECT_EQ(nullptr, htMakeHashTable(0, plain_hash, compare_keys));
  EXPECT_EQ(nullptr, htMakeHashTable((1U << 24) + 1, plain_hash, compare_keys));
  EXPECT_EQ(nullptr, htMakeHashTable(16, nullptr, compare_keys));
  EXPECT_EQ(nullptr, htMakeHashTable(16, plain_hash, nullptr));
  Table table = make_table();
  uint32_t key = 1;
  EXPECT_EQ(1, htAdd(table.get(), nullptr, &key));
  EXPECT_EQ(1, htAdd(table.get(), &key, nullptr));
  EXPECT_EQ(0U, htItems(table.get()));
}

TEST(HashTable, NullTableIsFullAndHoldsNothing) {
  uint32_t key = 1;
  EXPECT_EQ(1, htAdd(nullptr, &key, &key));
  EXPECT_EQ(nullptr, htFind(nullptr, &key));
  EXPECT_EQ(0, htRemove(nullptr, &key));
  EXPECT_EQ(0U, htItems(nullptr));
  htDestroyHashTable(nullptr);
}

TEST(HashTable, OfEqualKeysTheNewestIsFoundAndRemoved) {
  Table table = make_table();
  uint32_t key[3] = {5, 5, 5};
  char data[3];
  for (int i = 0; i < 3; ++i) ASSERT_EQ(0, htAdd(table.get(), &key[i], &data[i]));
  const uint32_t probe = 5;
  for (int i = 2; i >= 0; --i) {
    EXPECT_EQ(static_cast<uint32_t>(i) + 1, htItems(table.get()));
    EXPECT_EQ(&data[i], htFind(table.get(), &probe));
    EXPECT_EQ(1, htRemove(table.get(), &probe));
    key[i] = 0;  // the key is the owner's again
  }
  EXPECT_EQ(nullptr, htFind(table.get(), &probe));
  EXPECT_EQ(0, htRemove(table.get(), &probe));
}

// Random additions and removals against a map from key to the data added, newest last.
void run_against_model(hash_table_hash hash, uint32_t n_keys, int n_steps) {
  Table table = make_table(1, hash);
  std::map<uint32_t, std::vector<void *>> model;
  const std::vector<uint32_t> keys = numbers(n_keys);
  std::vector<char> data(static_cast<size_t>(n_steps));
  std::mt19937 random(n_keys);
  uint32_t n_items = 0;
  for (int step = 0; step < n_steps; ++step) {
    const uint32_t &key = keys[random() % n_keys];
    const bool grows = (step / 5000) % 2 == 0;  // phases of growth and of decline
    std::vector<void *> &expected = model[key];
    if (random() % 8 < (grows ? 5U : 2U)) {
      ASSERT_EQ(0, htAdd(table.get(), &key, &data[static_cast<size_t>(step)]));
      expected.push_back(&data[static_cast<size_t>(step)]);
      ++n_items;
    } else {
      ASSERT_EQ(expected.empty() ? 0 : 1, htRemove(table.get(), &key));
      if (!expected.empty()) expected.pop_back(), --n_items;
    }
    ASSERT_EQ(n_items, htItems(table.get()));
    const uint32_t &probe = keys[random() % n_keys];
    ASSERT_EQ(model[probe].empty() ? nullptr : model[probe].back(), htFind(table.get(), &probe));
  }
}

TEST(HashTable, AgreesWithAModel) {
  run_against_model(plain_hash, 4000, 40'000);
  run_against_model(plain_hash, 10, 20'000);  // long runs of equal keys
  run_against_model(high_bits_hash, 1000, 20'000);
  run_against_model(constant_hash, 50, 20'000);
}

// A quadratic table would need 10^12 steps here, and the test would not end.
TEST(HashTable, AMillionEqualKeysCostNothingExtra) {
  Table table = make_table();
  const std::vector<uint32_t> keys(1'000'000, 42);
  for (const uint32_t &key : keys) ASSERT_EQ(0, htAdd(table.get(), &key, table.get()));
  EXPECT_EQ(1'000'000U, htItems(table.get()));
  for (const uint32_t &key : keys) ASSERT_EQ(1, htRemove(table.get(), &key));
  EXPECT_EQ(0U, htItems(table.get()));
}

TEST(HashTable, GivesMemoryBackAfterABurst) {
  const std::vector<uint32_t> distinct = numbers(300'000);
  const std::vector<uint32_t> equal(300'000, 42);
  for (const std::vector<uint32_t> *keys : {&distinct, &equal}) {
    Table table = make_table(1024);
    const size_t before = failing_new::live_bytes();
    for (const uint32_t &key : *keys) ASSERT_EQ(0, htAdd(table.get(), &key, table.get()));
    EXPECT_LT(before + 300'000 * 20, failing_new::live_bytes());
    for (const uint32_t &key : *keys) ASSERT_EQ(1, htRemove(table.get(), &key));
    EXPECT_GT(before + 2048 * 1024, failing_new::live_bytes());
  }
}

TEST(HashTable, FailedAllocationLeavesTheTableAsItWas) {
  Table table = make_table(8);
  // Distinct keys, then as many equal ones: both arrays have to grow, each several times.
  std::vector<uint32_t> keys = numbers(2000);
  keys.resize(4000, 1U);
  uint32_t n_failed = 0;
  for (uint32_t i = 0; i < keys.size(); ++i) {
    failing_new::fail_nth(1);
    if (htAdd(table.get(), &keys[i], &keys[i]) != 0) {
      ++n_failed;
      ASSERT_EQ(i, htItems(table.get()));
      ASSERT_EQ(i == 0 ? nullptr : &keys[i <= 2000 ? 0 : i - 1], htFind(table.get(), &keys[0]));
      ASSERT_EQ(0, htAdd(table.get(), &keys[i], &keys[i]));
    }
    failing_new::disarm();
  }
  EXPECT_LE(10U, n_failed);
  for (uint32_t i = 1; i < 2000; ++i) ASSERT_EQ(&keys[i], htFind(table.get(), &keys[i]));
}

TEST(HashTable, RemovesAlsoWhenTheSmallerArrayFindsNoMemory) {
  Table table = make_table(8);
  std::vector<uint32_t> keys = numbers(100'000);
  keys.resize(200'000, 1U);
  for (const uint32_t &key : keys) ASSERT_EQ(0, htAdd(table.get(), &key, table.get()));
  for (size_t i = keys.size(); i-- > 0;) {
    failing_new::fail_nth(1);
    ASSERT_EQ(1, htRemove(table.get(), &keys[i]));
  }
  failing_new::disarm();
  EXPECT_EQ(0U, htItems(table.get()));
}

TEST(HashTable, IsNotMadeWithoutMemory) {
  const int n_requests = failing_new::sweep([](int nth) {
    Table table = make_table();
    EXPECT_EQ(failing_new::pending(), table != nullptr) << "request " << nth;
  });
  EXPECT_LE(1, n_requests);
}

}  // namespace
