// Which containers the record store is made of, and what the others would have cost.
// Two questions: the table from a value that one session holds to that session (a million values of
// 24 bytes, as session ids are), and the set of labels behind a value that many share (125,000).
// Memory is counted by replacing operator new; "slowest" is the longest single insertion, which is
// where a table that grows all at once stops its caller. Times are processor times.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "absl/container/btree_set.h"
#include "absl/container/flat_hash_map.h"
#include "absl/container/flat_hash_set.h"
#include "absl/hash/hash.h"
#include "absl/strings/string_view.h"

// The store's own containers are hidden in its library, so they are compiled in.
#include "../platform/src/label_set.cpp"
#include "../platform/src/pages.cpp"
#include "../platform/src/ref_table.h"
#include "../platform/src/slabs.cpp"
#include "../platform/src/value_digest.cpp"

namespace {

int64_t g_live_bytes = 0;

void *counted(void *block) {
  if (block == nullptr) std::abort();
  g_live_bytes += static_cast<int64_t>(malloc_usable_size(block)) + 8;  // and the heap's header
  return block;
}

void discounted(void *block) {
  if (block != nullptr) g_live_bytes -= static_cast<int64_t>(malloc_usable_size(block)) + 8;
  std::free(block);
}

}  // namespace

void *operator new(size_t size) { return counted(std::malloc(size)); }
void *operator new(size_t size, const std::nothrow_t &) noexcept {
  return counted(std::malloc(size));
}
void *operator new(size_t size, std::align_val_t alignment, const std::nothrow_t &) noexcept {
  return counted(std::aligned_alloc(static_cast<size_t>(alignment), size));
}
void operator delete(void *block) noexcept { discounted(block); }
void operator delete(void *block, size_t) noexcept { discounted(block); }
void operator delete(void *block, std::align_val_t) noexcept { discounted(block); }

namespace {

constexpr uint32_t kIdBytes = 24;
constexpr uint32_t kShared = 125'000;

// Where sessions keep their values: a block of some 192 bytes each, the id in the middle of it.
struct Block {
  char before[80];
  char id[kIdBytes];
  char after[88];
};

// The ids of n sessions, an order to ask for them in, and the questions in that order. A question
// is a copy of its own, as a caller's is: asking must not fetch the session's block.
struct Ids {
  explicit Ids(uint32_t n) : blocks(n), order(n), questions(n) {
    for (uint32_t i = 0; i < n; ++i) {
      char text[kIdBytes + 1];
      std::snprintf(text, sizeof text, "%08X%016llX", i, 0x9e3779b97f4a7c15ULL * (i + 1ULL));
      std::copy_n(text, kIdBytes, blocks[i].id);
    }
    std::iota(order.begin(), order.end(), 0U);
    std::shuffle(order.begin(), order.end(), std::mt19937(20240117));
    for (uint32_t i = 0; i < n; ++i)
      std::copy_n(blocks[order[i]].id, kIdBytes, questions[i].data());
  }
  std::string_view operator[](uint32_t i) const { return {blocks[i].id, kIdBytes}; }
  std::string_view question(uint32_t i) const { return {questions[i].data(), kIdBytes}; }
  uint32_t size() const { return static_cast<uint32_t>(blocks.size()); }

  std::vector<Block> blocks;
  std::vector<uint32_t> order;
  std::vector<std::array<char, kIdBytes>> questions;
};

const Ids &ids(uint32_t n) {
  static std::unique_ptr<Ids> made;
  if (made == nullptr || made->size() != n) made = std::make_unique<Ids>(n);
  return *made;
}

// One table under test: add, find, remove of a session under its id.
template <typename Map>
class KeyedMap {
 public:
  explicit KeyedMap(const Ids &) {}
  void add(std::string_view id, uint32_t session) { map_.emplace(std::string(id), session); }
  uint32_t find(std::string_view id) const { return map_.find(id)->second; }
  void remove(std::string_view id, uint32_t) { map_.erase(map_.find(id)); }

 private:
  Map map_;
};

class ByDigest {
 public:
  explicit ByDigest(const Ids &) {
    if (!kivo_platform::draw_digest_keys()) std::abort();
  }
  ~ByDigest() { table_.release(); }
  ByDigest(const ByDigest &) = delete;
  ByDigest &operator=(const ByDigest &) = delete;

  // A value that is there already would be shared: the store looks before it adds.
  void add(std::string_view id, uint32_t session) {
    const ValueDigest digest = kivo_platform::digest_of(id);
    if (look_up(digest) || !table_.reserve()) std::abort();
    table_.insert(digest.hash, {session, digest.tag});
  }
  uint32_t find(std::string_view id) { return look_up(kivo_platform::digest_of(id))->session; }
  void remove(std::string_view id, uint32_t) {
    const ValueDigest digest = kivo_platform::digest_of(id);
    table_.erase(digest.hash, look_up(digest));
  }

 private:
  using ValueDigest = kivo_platform::ValueDigest;
  struct Entry {
    uint32_t session;
    std::array<uint32_t, 3> tag;
  };
  using Table = kivo_platform::RefTable<Entry, 256>;
  Table::Place look_up(const ValueDigest &digest) {
    return table_.find(digest.hash, [&](const Entry &entry) { return entry.tag == digest.tag; });
  }

  Table table_;
};

double seconds_of_process() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Table>
std::unique_ptr<Table> filled(const Ids &values) {
  auto table = std::make_unique<Table>(values);
  for (uint32_t i = 0; i < values.size(); ++i) table->add(values[i], i);
  return table;
}

template <typename Table>
void add_ids(benchmark::State &state) {
  const Ids &values = ids(static_cast<uint32_t>(state.range(0)));
  for (auto _ : state) {
    const int64_t before = g_live_bytes;
    auto table = filled<Table>(values);
    state.PauseTiming();
    state.counters["bytes"] =
        static_cast<double>(g_live_bytes - before) / static_cast<double>(values.size());
    table.reset();
    table = std::make_unique<Table>(values);
    double slowest = 0;
    for (uint32_t i = 0; i < values.size(); ++i) {
      const double start = seconds_of_process();
      table->add(values[i], i);
      slowest = std::max(slowest, seconds_of_process() - start);
    }
    state.counters["slowest_ms"] = slowest * 1e3;
    table.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Table>
void find_ids(benchmark::State &state) {
  const Ids &values = ids(static_cast<uint32_t>(state.range(0)));
  const auto table = filled<Table>(values);
  for (auto _ : state) {
    for (uint32_t i = 0; i < values.size(); ++i) {
      if (table->find(values.question(i)) != values.order[i]) std::abort();
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Table>
void move_ids(benchmark::State &state) {
  const Ids &values = ids(static_cast<uint32_t>(state.range(0)));
  const auto table = filled<Table>(values);
  for (auto _ : state) {
    for (uint32_t i = 0; i < values.size(); ++i) {
      table->remove(values.question(i), values.order[i]);
      table->add(values.question(i), values.order[i]);
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Both maps are asked with a view, so that no question makes a string.
struct IdHash {
  using is_transparent = void;
  size_t operator()(std::string_view id) const {
    return absl::Hash<absl::string_view>()(absl::string_view(id.data(), id.size()));
  }
};

using StdMap = KeyedMap<std::unordered_map<std::string, uint32_t, IdHash, std::equal_to<>>>;
using FlatMap = KeyedMap<absl::flat_hash_map<std::string, uint32_t, IdHash, std::equal_to<>>>;

#define TABLE_BENCHMARKS(Table)                                                    \
  BENCHMARK_TEMPLATE(add_ids, Table)->Arg(100'000)->Arg(1'000'000)->Iterations(1); \
  BENCHMARK_TEMPLATE(find_ids, Table)->Arg(100'000)->Arg(1'000'000)->MinTime(0.3); \
  BENCHMARK_TEMPLATE(move_ids, Table)->Arg(100'000)->Arg(1'000'000)->MinTime(0.3)
TABLE_BENCHMARKS(ByDigest);
TABLE_BENCHMARKS(FlatMap);
TABLE_BENCHMARKS(StdMap);

// A vector that is kept sorted, with a set's operations.
class SortedVector {
 public:
  void insert(uint32_t label) {
    const auto at = std::lower_bound(labels_.begin(), labels_.end(), label);
    if (at == labels_.end() || *at != label) labels_.insert(at, label);
  }
  void erase(uint32_t label) {
    const auto at = std::lower_bound(labels_.begin(), labels_.end(), label);
    if (at != labels_.end() && *at == label) labels_.erase(at);
  }
  auto begin() const { return labels_.begin(); }
  auto end() const { return labels_.end(); }
  size_t size() const { return labels_.size(); }

 private:
  std::vector<uint32_t> labels_;
};

// The store's own, with the reserve that precedes an insertion.
class StoreSet {
 public:
  void insert(uint32_t label) {
    if (!kivo_platform::LabelSet::reserve()) std::abort();
    set_.insert(label);
  }
  void erase(uint32_t label) { set_.erase(label); }
  void copy_to(uint32_t *out) const {
    for (kivo_platform::LabelSet::Runs runs(set_); !runs.run().empty(); runs.next()) {
      out = std::copy(runs.run().begin(), runs.run().end(), out);
    }
  }

 private:
  kivo_platform::LabelSet set_;
};

const std::vector<uint32_t> &labels() {
  static const std::vector<uint32_t> made = [] {
    std::mt19937 random(20261122);
    std::set<uint32_t> distinct;
    while (distinct.size() < kShared) distinct.insert(static_cast<uint32_t>(random()));
    std::vector<uint32_t> in_random_order(distinct.begin(), distinct.end());
    std::shuffle(in_random_order.begin(), in_random_order.end(), random);
    return in_random_order;
  }();
  return made;
}

template <typename Set>
void fill(Set &set) {
  for (const uint32_t label : labels()) set.insert(label);
}

template <typename Set>
void move_label(benchmark::State &state) {
  labels();
  const int64_t before = g_live_bytes;
  Set set;
  fill(set);
  state.counters["bytes"] = static_cast<double>(g_live_bytes - before) / kShared;
  size_t i = 0;
  for (auto _ : state) {
    const uint32_t label = labels()[i++ % kShared];
    set.erase(label);
    set.insert(label);
  }
}

template <typename Set>
void list_ascending(benchmark::State &state) {
  Set set;
  fill(set);
  std::vector<uint32_t> out(kShared);
  for (auto _ : state) {
    if constexpr (std::is_same_v<Set, StoreSet>) {
      set.copy_to(out.data());
    } else {
      std::copy(set.begin(), set.end(), out.begin());
    }
    if constexpr (std::is_same_v<Set, absl::flat_hash_set<uint32_t>>) {
      std::sort(out.begin(), out.end());
    }
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kShared);
}

#define SET_BENCHMARKS(...)                                  \
  BENCHMARK_TEMPLATE(move_label, __VA_ARGS__)->MinTime(0.2); \
  BENCHMARK_TEMPLATE(list_ascending, __VA_ARGS__)->MinTime(0.2)
SET_BENCHMARKS(StoreSet);
SET_BENCHMARKS(absl::btree_set<uint32_t>);
SET_BENCHMARKS(SortedVector);
SET_BENCHMARKS(absl::flat_hash_set<uint32_t>);
SET_BENCHMARKS(std::set<uint32_t>);

}  // namespace

BENCHMARK_MAIN();
