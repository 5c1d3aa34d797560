// Reads a label set from its start in pieces that lie together, for rooms that go through large
// sets. It stops where every walk over a set does: at the end of the chain, at a damaged block, and
// after as many labels as the head counts. The set must not change meanwhile.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "index_list.h"

namespace kivo {

class LabelReader {
 public:
  static constexpr uint32_t kPiece = 85 * KIVO_INDEX_LIST_BLOCK_LABELS;

  explicit LabelReader(const kivo_index_list *list) noexcept : block_(list), left_(list->count) {}

  // The labels that come next, at most kPiece; none at the end. They hold until the next call.
  std::span<const uint32_t> next() noexcept {
    uint32_t n = 0;
    // Counted in labels: of damaged blocks that count none, any number is passed over.
    for (; block_ != nullptr && is_marked(block_) && left_ != 0 && n <= kPiece - kBlockLabels;
         block_ = block_->next) {
      const uint32_t in_block = std::min({block_->count, left_, kBlockLabels});
      // A block is copied whole: its size is known then, and the piece has room for all of them.
      std::memcpy(piece_ + n, block_->labels, sizeof block_->labels);
      n += in_block;
      left_ -= in_block;
    }
    return {piece_, n};
  }

 private:
  static constexpr uint32_t kBlockLabels = KIVO_INDEX_LIST_BLOCK_LABELS;

  const kivo_index_list *block_;
  uint32_t left_;
  uint32_t piece_[kPiece];
};

// Tells whether labels that are read piece by piece ascend, each above the one before.
class AscentCheck {
 public:
  bool ascends(std::span<const uint32_t> piece) noexcept {
    if (piece.empty()) return true;
    bool ascends = !begun_ || piece.front() > last_;
    for (size_t i = 1; i < piece.size(); ++i) ascends &= piece[i - 1] < piece[i];
    begun_ = true;
    last_ = piece.back();
    return ascends;
  }

 private:
  bool begun_ = false;
  uint32_t last_ = 0;
};

}  // namespace kivo
