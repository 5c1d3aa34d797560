// Label sets as the library's other rooms use them; kivo/index_list.h has the exported operations.
#pragma once

#include <cstdint>
#include <memory>

#include "kivo/index_list.h"

namespace kivo {

inline bool is_marked(const kivo_index_list *block) noexcept {
  return block->magic == KIVO_INDEX_LIST_MAGIC;
}

// A handle with the marker. Not the same as an undamaged chain.
inline bool is_list(const kivo_index_list *list) noexcept {
  return list != nullptr && is_marked(list);
}

// A list that is given back on every path unless release() hands it out.
struct FreeIndexList {
  void operator()(kivo_index_list *list) const noexcept { kivo_index_list_free(list); }
};
using IndexListPtr = std::unique_ptr<kivo_index_list, FreeIndexList>;

// An empty set, null without memory.
kivo_index_list *make_list() noexcept;

// Appends to a set whose head has the marker. KIVO_INDEX_LIST_OK, _INVALID or _NO_MEMORY; what was
// appended before a failure stays.
uint32_t append_labels(kivo_index_list *head, const uint32_t *labels, uint32_t n_labels) noexcept;

}  // namespace kivo
