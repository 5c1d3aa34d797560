// The reserve of tree nodes; see the header.
// Threads: none; the process serialises all calls.
#include "node_memory.h"

#include <array>

namespace kivo_platform {

static constinit std::array<void *, kNodeReserve> reserve{};
static constinit std::uint32_t reserved = 0;

bool fill_node_reserve() noexcept {
  while (reserved < kNodeReserve) {
    void *node = ::operator new(kNodeBytes, std::nothrow);
    if (node == nullptr) return false;
    reserve[reserved++] = node;
  }
  return true;
}

void *take_from_node_reserve() noexcept { return reserved != 0 ? reserve[--reserved] : nullptr; }

}  // namespace kivo_platform
