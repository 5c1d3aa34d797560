// A label set of the library, given back at the end of a scope.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "kivo/index_list.h"

namespace workload {

class LabelSet {
 public:
  LabelSet() = default;
  ~LabelSet() { kivo_index_list_free(list_); }
  LabelSet(LabelSet &&other) noexcept : list_(std::exchange(other.list_, nullptr)) {}
  LabelSet &operator=(LabelSet &&) = delete;

  [[nodiscard]] const kivo_index_list *get() const { return list_; }
  // For operations that hand a set out. This one must be new.
  [[nodiscard]] kivo_index_list **receive() { return &list_; }

  [[nodiscard]] std::vector<uint32_t> labels() const {
    std::vector<uint32_t> labels;
    uint32_t cursor = 0;
    while (const uint32_t label = kivo_index_list_next(list_, &cursor)) labels.push_back(label);
    return labels;
  }

 private:
  kivo_index_list *list_ = nullptr;
};

}  // namespace workload
