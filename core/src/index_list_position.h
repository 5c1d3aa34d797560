// Where long label sets were last appended to and read: a fixed table of remembered blocks, so that
// filling and walking a set costs one step a label instead of a walk from its head.
// Invariants: (1) only sets above kRememberedFrom labels are remembered; (2) a set is forgotten
// when it is freed or emptied and when its head's address becomes a new head; (3) what is
// remembered is a hint: users check a block's marker before they go on from it. Nothing is
// allocated; when more long sets are in use than the table holds, the least recently used one of a
// row gives way.
#pragma once

#include <cstdint>

#include "kivo/index_list.h"

namespace kivo {

inline constexpr uint32_t kRememberedFrom = 768;

// A block of a set and its number, counted from the head (0).
struct BlockPosition {
  kivo_index_list *block = nullptr;
  uint32_t number = 0;
};

struct RememberedPositions {
  const kivo_index_list *head = nullptr;
  BlockPosition last_append;
  BlockPosition last_read;
  uint64_t last_use = 0;
};

// The set's positions, empty ones when it is not remembered yet.
RememberedPositions &remembered_positions(const kivo_index_list *head) noexcept;

void forget_positions(const kivo_index_list *head) noexcept;

}  // namespace kivo
