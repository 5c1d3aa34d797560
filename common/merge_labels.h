// The labels that two ascending runs of them have in common. The library merges label sets with it,
// the platform a label set with the labels of a value.
#pragma once

#include <cstdint>
#include <cstring>

namespace kivo_common {

// Appends to `out` the labels that both runs hold, until one of them is read; `a` and `b` are left
// where this ended, and everything in front of them has been dealt with. Returns the end of what
// was appended. Calls may follow one another with a, or b, where it is and the end as `out`. In all
// they write no more than as many places as a had labels at first, those behind the end among them;
// neither run lies there. Each run ascends, each label above the one before.
// Which run is next cannot be foreseen, so nothing here branches on it. Four labels of one are
// compared with four of the other at a time: the run whose four end lower goes on.
inline uint32_t *merge_labels(const uint32_t *&a, const uint32_t *a_end, const uint32_t *&b,
                              const uint32_t *b_end, uint32_t *out) noexcept {
  using Four = uint32_t __attribute__((vector_size(16)));
  const uint32_t *at_a = a;
  const uint32_t *at_b = b;
  while (a_end - at_a >= 4 && b_end - at_b >= 4) {
    Four in_a;
    Four in_b;
    std::memcpy(&in_a, at_a, sizeof in_a);
    std::memcpy(&in_b, at_b, sizeof in_b);
    const auto common = (in_a == in_b) | (in_a == __builtin_shufflevector(in_b, in_b, 1, 2, 3, 0)) |
                        (in_a == __builtin_shufflevector(in_b, in_b, 2, 3, 0, 1)) |
                        (in_a == __builtin_shufflevector(in_b, in_b, 3, 0, 1, 2));
    for (int i = 0; i < 4; ++i) {
      *out = at_a[i];
      out += common[i] != 0 ? 1 : 0;
    }
    const uint32_t last_a = at_a[3];
    const uint32_t last_b = at_b[3];
    at_a += last_a <= last_b ? 4 : 0;
    at_b += last_b <= last_a ? 4 : 0;
  }
  while (at_a != a_end && at_b != b_end) {
    const uint32_t label_a = *at_a;
    const uint32_t label_b = *at_b;
    *out = label_a;
    out += label_a == label_b ? 1 : 0;
    at_a += label_a <= label_b ? 1 : 0;
    at_b += label_b <= label_a ? 1 : 0;
  }
  a = at_a;
  b = at_b;
  return out;
}

}  // namespace kivo_common
