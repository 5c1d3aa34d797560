// Label sets: chains of 64-byte blocks from one pool. Invariants: every block but the last is full;
// the head counts the labels of the whole set, a later block its own; apart from the head of an
// empty set no block is without labels. A block's marker is cleared before it goes back to the
// pool, which keeps those bytes until the block is taken again: a stale handle is recognised.
#include "index_list.h"

#include <algorithm>
#include <cstring>

#include "index_list_position.h"
#include "platform/chunk.h"
#include "trace.h"

namespace kivo {
namespace {

constexpr uint32_t kBlockLabels = KIVO_INDEX_LIST_BLOCK_LABELS;
constexpr uint32_t kPoolPerSlab = 255;
constexpr uint32_t kPoolFlags = 0x11;

static_assert(sizeof(kivo_index_list) == 64 && offsetof(kivo_index_list, labels) == 16);

chunk_pool *block_pool = nullptr;

// Made at the first need; a failure is not remembered.
chunk_pool *get_pool() noexcept {
  if (block_pool == nullptr) {
    block_pool = chunk_create("kivo index list chunk", sizeof(kivo_index_list), kPoolPerSlab,
                              kPoolFlags, 0, 0);
  }
  return block_pool;
}

// A zeroed block with the marker, null without memory.
kivo_index_list *take_block() noexcept {
  chunk_pool *pool = get_pool();
  auto *block = pool == nullptr ? nullptr : static_cast<kivo_index_list *>(chunk_malloc(pool));
  if (block == nullptr) return nullptr;
  std::memset(block, 0, sizeof(*block));
  block->magic = KIVO_INDEX_LIST_MAGIC;
  return block;
}

// Gives back the chain that starts here; a block without the marker ends it.
void give_back_chain(kivo_index_list *block) noexcept {
  while (block != nullptr && is_marked(block)) {
    kivo_index_list *next = block->next;
    block->magic = 0;
    chunk_free(block_pool, block);
    block = next;
  }
}

// The last block of a set, null when a block on the way is damaged. A long set is entered where it
// was last appended to.
kivo_index_list *find_last_block(kivo_index_list *head) noexcept {
  kivo_index_list *block = head;
  if (head->count > kRememberedFrom) {
    const BlockPosition &last = remembered_positions(head).last_append;
    if (last.block != nullptr) block = last.block;
  }
  while (is_marked(block)) {
    if (block->next == nullptr) return block;
    block = block->next;
  }
  return nullptr;
}

// The block of a number, null when the chain ends before it or is damaged. A long set is entered
// where it was last read, or appended to, whichever is nearer.
kivo_index_list *find_block(const kivo_index_list *list, uint32_t number) noexcept {
  BlockPosition at{const_cast<kivo_index_list *>(list), 0};
  RememberedPositions *remembered = nullptr;
  if (list->count > kRememberedFrom) {
    remembered = &remembered_positions(list);
    for (const BlockPosition &hint : {remembered->last_read, remembered->last_append}) {
      if (hint.block != nullptr && hint.number <= number && hint.number > at.number) at = hint;
    }
  }
  while (at.block != nullptr && is_marked(at.block)) {
    if (at.number == number) {
      if (remembered != nullptr) remembered->last_read = at;
      return at.block;
    }
    at = {at.block->next, at.number + 1};
  }
  return nullptr;
}

// The slots in use of a set's last block, or kBlockLabels + 1 when its counts contradict the chain.
uint32_t used_slots(const kivo_index_list *head, const kivo_index_list *last) noexcept {
  if (head->count % kBlockLabels == 0) return head->count == 0 ? 0 : kBlockLabels;
  const uint32_t used = last->count;
  return used < kBlockLabels ? used : kBlockLabels + 1;
}

// Copies labels into the free slots of the last block; returns how many went in.
uint32_t fill_block(kivo_index_list *head, kivo_index_list *last, uint32_t used,
                    const uint32_t *labels, uint32_t n_labels) noexcept {
  const uint32_t n = std::min(n_labels, kBlockLabels - used);
  std::memcpy(last->labels + used, labels, n * sizeof(*labels));
  if (last != head) last->count += n;
  head->count += n;
  return n;
}

}  // namespace

kivo_index_list *make_list() noexcept {
  kivo_index_list *head = take_block();
  if (head != nullptr) forget_positions(head);
  return head;
}

uint32_t append_labels(kivo_index_list *head, const uint32_t *labels, uint32_t n_labels) noexcept {
  kivo_index_list *last = find_last_block(head);
  if (last == nullptr) return KIVO_INDEX_LIST_INVALID;
  uint32_t used = used_slots(head, last);
  if (used > kBlockLabels) return KIVO_INDEX_LIST_INVALID;
  if (n_labels > UINT32_MAX - head->count) return KIVO_INDEX_LIST_NO_MEMORY;
  uint32_t result = KIVO_INDEX_LIST_OK;
  while (n_labels != 0) {
    if (used == kBlockLabels) {
      kivo_index_list *block = take_block();
      if (block == nullptr) {
        result = KIVO_INDEX_LIST_NO_MEMORY;
        break;
      }
      last->next = block;
      last = block;
      used = 0;
    }
    const uint32_t n = fill_block(head, last, used, labels, n_labels);
    used += n;
    labels += n;
    n_labels -= n;
  }
  if (head->count > kRememberedFrom) {
    remembered_positions(head).last_append = {last, (head->count - 1) / kBlockLabels};
  }
  return result;
}

}  // namespace kivo

using namespace kivo;

uint32_t kivo_index_list_create(kivo_index_list **list) noexcept {
  kivo_index_list *head = make_list();
  if (head == nullptr) return KIVO_INDEX_LIST_NO_MEMORY;
  *list = head;
  return KIVO_INDEX_LIST_OK;
}

void kivo_index_list_free(kivo_index_list *list) noexcept {
  if (list == nullptr) return;
  forget_positions(list);
  give_back_chain(list);
}

uint32_t kivo_index_list_empty(kivo_index_list *list) noexcept {
  if (!is_list(list)) return KIVO_INDEX_LIST_INVALID;
  forget_positions(list);
  list->count = 0;
  give_back_chain(list->next);
  list->next = nullptr;
  return KIVO_INDEX_LIST_OK;
}

uint32_t kivo_index_list_add(kivo_index_list **list, uint32_t label) noexcept {
  return kivo_index_list_add_many(list, &label, 1);
}

uint32_t kivo_index_list_add_many(kivo_index_list **list, const uint32_t *labels,
                                  uint32_t n_labels) noexcept {
  if (list == nullptr || !is_list(*list)) return KIVO_INDEX_LIST_INVALID;
  if (labels == nullptr && n_labels != 0) return KIVO_INDEX_LIST_INVALID;
  return append_labels(*list, labels, n_labels);
}

uint32_t kivo_index_list_size(const kivo_index_list *list, uint32_t *count) noexcept {
  if (!is_list(list)) return KIVO_INDEX_LIST_INVALID;
  *count = list->count;
  return KIVO_INDEX_LIST_OK;
}

uint32_t kivo_index_list_get(const kivo_index_list *list, uint32_t position,
                             uint32_t *label) noexcept {
  if (!is_list(list)) return KIVO_INDEX_LIST_INVALID;
  if (position >= list->count) return KIVO_INDEX_LIST_OUT_OF_RANGE;
  const kivo_index_list *block = find_block(list, position / kBlockLabels);
  if (block == nullptr) return KIVO_INDEX_LIST_INVALID;
  *label = block->labels[position % kBlockLabels];
  return KIVO_INDEX_LIST_OK;
}

uint32_t kivo_index_list_next(const kivo_index_list *list, uint32_t *cursor) noexcept {
  uint32_t label = 0;
  if (kivo_index_list_get(list, *cursor, &label) != KIVO_INDEX_LIST_OK) return 0;
  ++*cursor;
  return label;
}

uint32_t kivo_index_list_union(const kivo_index_list *, const kivo_index_list *,
                               kivo_index_list **) noexcept {
  return KIVO_INDEX_LIST_INVALID;
}

uint32_t kivo_index_list_unique(kivo_index_list *) noexcept { return KIVO_INDEX_LIST_INVALID; }
