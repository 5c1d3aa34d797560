// Intersection of label sets through one process-wide hash table: the labels of a go in, those of b
// are looked up, those of a come out again. Large sets take a shorter way (large_sets.h).
// Invariant: the table is empty between calls; its entries point at label slots inside a's blocks
// and own nothing. One intersection runs at a time.
#include <algorithm>

#include "index_list.h"
#include "large_sets.h"
#include "platform/hash_table.h"
#include "trace.h"

namespace kivo {
namespace {

constexpr uint32_t kFnvPrime = 16777619;
constexpr uint32_t kFnvBasis = 0x811c9dc5;
constexpr uint32_t kTableSize = 1024;

hash_table *label_table = nullptr;

uint32_t kivo_index_list_label_hash(const void *key) noexcept {
  return fnv_32_hash(key, sizeof(uint32_t), kFnvBasis);
}

// Labels compare in the byte order of their values' memory.
int kivo_index_list_label_compare(const void *key_a, const void *key_b) noexcept {
  if (key_a == nullptr || key_b == nullptr) return 1;
  const uint32_t a = __builtin_bswap32(*static_cast<const uint32_t *>(key_a));
  const uint32_t b = __builtin_bswap32(*static_cast<const uint32_t *>(key_b));
  if (a == b) return 0;
  return a < b ? -1 : 1;
}

// Calls visit(slot) for the labels of a set, in their order, until it returns false. Stops at the
// end of the chain, at a damaged block, and after as many labels as the head counts.
template <typename Visit>
void visit_labels(const kivo_index_list *list, Visit &&visit) noexcept {
  uint32_t left = list->count;
  for (const kivo_index_list *block = list; block != nullptr && is_marked(block) && left != 0;
       block = block->next) {
    const uint32_t n = std::min({block->count, left, KIVO_INDEX_LIST_BLOCK_LABELS});
    for (uint32_t i = 0; i < n; ++i) {
      if (!visit(&block->labels[i])) return;
    }
    left -= n;
  }
}

void unhash(const kivo_index_list *list) noexcept {
  visit_labels(list, [](const uint32_t *slot) noexcept {
    htRemove(label_table, slot);
    return true;
  });
}

// Takes the labels of whole blocks out of the table until at least n are covered; what never went
// in is removed to no effect.
void kivo_index_list_hash_cleanup(const kivo_index_list *list, uint32_t n) noexcept {
  uint32_t covered = 0;
  for (const kivo_index_list *block = list; block != nullptr && is_marked(block) && covered < n;
       block = block->next) {
    const uint32_t in_block = std::min(block->count, KIVO_INDEX_LIST_BLOCK_LABELS);
    for (uint32_t i = 0; i < in_block; ++i) htRemove(label_table, &block->labels[i]);
    covered += in_block;
  }
  kivo_trace_event(msg::kHashItems,
                   label_table != nullptr ? static_cast<int>(htItems(label_table)) : 0);
}

// Puts the labels of a set into the table. On failure the table is empty again.
bool hash_labels(const kivo_index_list *list, uint32_t &n_hashed) noexcept {
  n_hashed = 0;
  bool ok = true;
  visit_labels(list, [&](const uint32_t *slot) noexcept {
    ok = label_table != nullptr && htAdd(label_table, slot, const_cast<uint32_t *>(slot)) == 0;
    if (ok) {
      ++n_hashed;
    } else {
      kivo_trace_error(msg::kHashAddFailed, *slot);
    }
    return ok;
  });
  if (!ok) kivo_index_list_hash_cleanup(list, n_hashed);
  return ok;
}

// Appends the labels of a set that the table knows.
bool append_known_labels(const kivo_index_list *list, kivo_index_list *result) noexcept {
  bool ok = true;
  visit_labels(list, [&](const uint32_t *slot) noexcept {
    if (htFind(label_table, slot) != nullptr) {
      ok = append_labels(result, slot, 1) == KIVO_INDEX_LIST_OK;
    }
    return ok;
  });
  return ok;
}

uint32_t intersect_by_calls(const kivo_index_list *a, const kivo_index_list *b,
                            kivo_index_list *result) noexcept {
  uint32_t n_hashed = 0;
  if (!hash_labels(a, n_hashed)) return KIVO_INDEX_LIST_HASH_FAILED;
  if (!append_known_labels(b, result)) {
    kivo_index_list_hash_cleanup(a, n_hashed);
    return KIVO_INDEX_LIST_INVALID;
  }
  unhash(a);
  return KIVO_INDEX_LIST_OK;
}

}  // namespace
}  // namespace kivo

using namespace kivo;

uint32_t fnv_32_hash(const void *buffer, int64_t length, uint32_t hash) noexcept {
  const auto *byte = static_cast<const uint8_t *>(buffer);
  for (int64_t i = 0; i < length; ++i) hash = (hash * kFnvPrime) ^ byte[i];
  return hash;
}

void kivo_index_list_hashtable_init(void) noexcept {
  if (label_table != nullptr) return;
  label_table =
      htMakeHashTable(kTableSize, kivo_index_list_label_hash, kivo_index_list_label_compare);
  if (label_table == nullptr) kivo_trace_error(msg::kHashTableFailed);
}

uint32_t kivo_index_list_intersection(const kivo_index_list *a, const kivo_index_list *b,
                                      kivo_index_list **out) noexcept {
  if (out == nullptr) return KIVO_INDEX_LIST_INVALID;
  *out = nullptr;
  if (!is_list(a) || !is_list(b) || a->count == 0 || b->count == 0) return KIVO_INDEX_LIST_INVALID;
  IndexListPtr result(make_list());
  if (result == nullptr) return KIVO_INDEX_LIST_INVALID;
  if (label_table == nullptr || !intersect_large(a, b, result.get())) {
    const uint32_t status = intersect_by_calls(a, b, result.get());
    if (status != KIVO_INDEX_LIST_OK) return status;
  }
  if (result->count != 0) *out = result.release();
  return KIVO_INDEX_LIST_OK;
}
