// See index_list_position.h.
#include "index_list_position.h"

#include <array>
#include <cstddef>

namespace kivo {
namespace {

constexpr size_t kRows = 256;
constexpr size_t kPerRow = 4;
using Row = std::array<RememberedPositions, kPerRow>;

std::array<Row, kRows> table;
uint64_t uses = 0;

Row &row_of(const kivo_index_list *head) noexcept {
  // Blocks are 64 bytes apart; a multiplicative hash spreads their numbers over the rows.
  const uint64_t number = reinterpret_cast<uintptr_t>(head) / sizeof(kivo_index_list);
  return table[(number * UINT64_C(0x9e3779b97f4a7c15)) >> 56];
}
static_assert(kRows == 256, "row_of takes the upper eight bits");

}  // namespace

RememberedPositions &remembered_positions(const kivo_index_list *head) noexcept {
  Row &row = row_of(head);
  RememberedPositions *oldest = row.data();
  for (RememberedPositions &positions : row) {
    if (positions.head == head) {
      positions.last_use = ++uses;
      return positions;
    }
    if (positions.last_use < oldest->last_use) oldest = &positions;
  }
  *oldest = RememberedPositions{};
  oldest->head = head;
  oldest->last_use = ++uses;
  return *oldest;
}

void forget_positions(const kivo_index_list *head) noexcept {
  for (RememberedPositions &positions : row_of(head)) {
    if (positions.head == head) positions = RememberedPositions{};
  }
}

}  // namespace kivo
