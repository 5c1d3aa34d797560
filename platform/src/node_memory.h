// Node memory of the ordered sets, with a reserve. The tree library makes no promise about a tree
// whose insertion ran out of memory, so none ever does: an insertion is preceded by
// fill_node_reserve(), which may fail, and then draws on the reserve when general memory is gone.
// Invariant: after a successful fill, kNodeReserve allocations of at most kNodeBytes succeed; that
// is a tree of full height split from leaf to root, with more than thirty children a node.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>

#include "absl/container/btree_map.h"
#include "internal.h"

namespace kivo_platform {

inline constexpr std::size_t kNodeBytes = 1024;
inline constexpr std::uint32_t kNodeReserve = 12;

[[nodiscard]] bool fill_node_reserve() noexcept;
void *take_from_node_reserve() noexcept;  // null when it is empty

template <typename T>
struct NodeAllocator {
  using value_type = T;

  NodeAllocator() noexcept = default;
  template <typename U>
  NodeAllocator(const NodeAllocator<U> &) noexcept {}

  T *allocate(std::size_t n) {
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    const std::size_t bytes = n * sizeof(T);
    void *node = ::operator new(bytes, std::nothrow);
    if (node == nullptr && bytes <= kNodeBytes) node = take_from_node_reserve();
    if (node == nullptr)
      stop("the node reserve was filled before an insertion", __FILE__, __LINE__);
    return static_cast<T *>(node);
  }
  void deallocate(T *node, std::size_t) noexcept { ::operator delete(node); }

  template <typename U>
  bool operator==(const NodeAllocator<U> &) const noexcept {
    return true;
  }
};

using CountByNumber = absl::btree_map<std::uint32_t, std::uint32_t, std::less<>,
                                      NodeAllocator<std::pair<const std::uint32_t, std::uint32_t>>>;

}  // namespace kivo_platform
