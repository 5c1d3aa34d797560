// Intersections of two sets of n labels that have half of them in common, ascending and in an order
// that was drawn: the library's label sets, sorted vectors merged, an Abseil set filled with one
// and asked for the other. What is measured begins with the sets at hand and ends with the result;
// sorting, where the vectors are not, belongs to it.
#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <numeric>
#include <span>
#include <vector>

#include "workload/clock.h"
#include "workload/data.h"
#include "workload/label_set.h"
#include "workload/peers.h"

namespace workload {
namespace {

using LabelVector = std::vector<uint32_t>;

constexpr clockid_t kClock = CLOCK_PROCESS_CPUTIME_ID;

struct Operands {
  LabelVector a;
  LabelVector b;
  bool ascending;
};

// Labels of the sessions 0 to n and n/2 to n + n/2.
Operands make_operands(uint32_t n, bool ascending) {
  Operands operands{shuffled_numbers(n, 21), shuffled_numbers(n, 22), ascending};
  for (uint32_t &number : operands.a) number = label_of(number);
  for (uint32_t &number : operands.b) number = label_of(number + n / 2);
  if (ascending) {
    std::ranges::sort(operands.a);
    std::ranges::sort(operands.b);
  }
  return operands;
}

struct LibrarySets {
  explicit LibrarySets(const Operands &operands) {
    fill(operands.a, a);
    fill(operands.b, b);
  }
  LabelSet intersect() {
    LabelSet common;
    kivo_index_list_intersection(a.get(), b.get(), common.receive());
    return common;
  }
  static void fill(const LabelVector &labels, LabelSet &set) {
    kivo_index_list_create(set.receive());
    kivo_index_list_add_many(set.receive(), labels.data(), static_cast<uint32_t>(labels.size()));
  }

  LabelSet a;
  LabelSet b;
};

struct Vector {
  LabelVector values;
  [[nodiscard]] const LabelVector &labels() const { return values; }
};

struct MergedVectors {
  explicit MergedVectors(const Operands &its_operands) : operands(its_operands) {}
  Vector intersect() {
    if (operands.ascending) return merge(operands.a, operands.b);
    LabelVector a = operands.a;
    LabelVector b = operands.b;
    std::ranges::sort(a);
    std::ranges::sort(b);
    return merge(a, b);
  }
  static Vector merge(const LabelVector &a, const LabelVector &b) {
    Vector common;
    std::ranges::set_intersection(a, b, std::back_inserter(common.values));
    return common;
  }

  const Operands &operands;
};

struct AbseilSet {
  explicit AbseilSet(const Operands &its_operands) : operands(its_operands) {}
  Vector intersect() {
    const absl::flat_hash_set<uint32_t> set(operands.a.begin(), operands.a.end());
    Vector common;
    std::ranges::copy_if(operands.b, std::back_inserter(common.values),
                         [&](uint32_t label) { return set.contains(label); });
    return common;
  }

  const Operands &operands;
};

// The mean of several; the memory has been fetched from the operating system before.
template <typename Sets>
void measure(Op op, uint32_t n, bool ascending, Sheet &sheet) {
  const Operands operands = make_operands(n, ascending);
  Sets sets(operands);
  sheet.set_check(op, check_of(sets.intersect().labels()));
  const uint32_t times = std::clamp(4'000'000 / n, 2u, 50u);
  double ns = 0;
  for (uint32_t i = 0; i < times; ++i) {
    const double before = now_ns(kClock);
    const auto common = sets.intersect();
    ns += now_ns(kClock) - before;
    keep(common);
  }
  sheet.set(op, ns / times / 1e6);
}

template <typename Sets>
bool measure_both(uint32_t n, Sheet &sheet) {
  measure<Sets>(Op::kIntersectAscending, n, true, sheet);
  measure<Sets>(Op::kIntersectShuffled, n, false, sheet);
  return true;
}

}  // namespace

bool intersect_kivo(uint32_t n, std::span<uint64_t>, Sheet &sheet) {
  kivo_index_list_hashtable_init();
  return measure_both<LibrarySets>(n, sheet);
}

bool intersect_vectors(uint32_t n, std::span<uint64_t>, Sheet &sheet) {
  return measure_both<MergedVectors>(n, sheet);
}

bool intersect_abseil(uint32_t n, std::span<uint64_t>, Sheet &sheet) {
  return measure_both<AbseilSet>(n, sheet);
}

}  // namespace workload
