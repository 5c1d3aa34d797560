// Ways with large label sets that save calls and have the outcome of the calls: what may be
// observed of a set, of its order and of statuses is the same. A way that does not apply, or that
// has no memory, is not taken and leaves nothing behind; the caller then goes through the calls.
// docs/performance.md has the measurements behind the thresholds.
#pragma once

#include <cstdint>

#include "index_list.h"

namespace kivo {

// With fewer labels on each side everything goes call by call.
inline constexpr uint32_t kLargeSet = 4096;

// Appends to `result`, which is empty, the labels of b that a holds too, in b's order.
// False: not taken.
[[nodiscard]] bool intersect_large(const kivo_index_list *a, const kivo_index_list *b,
                                   kivo_index_list *result) noexcept;

// Makes the set of those candidates whose sessions have an attribute's value, by the record store's
// own sets, which it need not hand out for that. Null: not taken.
[[nodiscard]] IndexListPtr narrow_in_store(const kivo_index_list *candidates, uint32_t type,
                                           const void *value, uint32_t length) noexcept;

}  // namespace kivo
