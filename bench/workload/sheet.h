// What one measuring process found: a value for each figure that it took, and a check word for each
// answer, which must be the same for every peer. Plain data: it is sent through a pipe as it is.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "workload/operations.h"

namespace workload {

class Sheet {
 public:
  void set(Op op, double value) {
    values_[index(op)] = value;
    taken_ |= bit(op);
  }
  void set_check(Op op, uint64_t word) {
    checks_[index(op)] = word;
    checked_ |= bit(op);
  }

  [[nodiscard]] bool has(Op op) const { return (taken_ & bit(op)) != 0; }
  [[nodiscard]] double value(Op op) const { return values_[index(op)]; }
  [[nodiscard]] bool has_check(Op op) const { return (checked_ & bit(op)) != 0; }
  [[nodiscard]] uint64_t check(Op op) const { return checks_[index(op)]; }

 private:
  static size_t index(Op op) { return static_cast<size_t>(op); }
  static uint32_t bit(Op op) { return uint32_t{1} << index(op); }
  static_assert(kOpCount <= 32);

  std::array<double, kOpCount> values_{};
  std::array<uint64_t, kOpCount> checks_{};
  uint32_t taken_ = 0;
  uint32_t checked_ = 0;
};

// A check word over results in their order.
class OrderedCheck {
 public:
  void add(uint64_t result) { word_ = (word_ ^ result) * 0x9e3779b97f4a7c15 + 1; }
  [[nodiscard]] uint64_t word() const { return word_; }

 private:
  uint64_t word_ = 0;
};

// A check word over labels in any order, each as often as it comes.
inline uint64_t check_of(std::span<const uint32_t> labels) {
  uint64_t sum = labels.size();
  uint64_t squares = 0;
  for (const uint64_t label : labels) {
    sum += label << 20;
    squares += label * label;
  }
  return sum ^ squares;
}

}  // namespace workload
