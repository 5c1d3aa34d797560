/* Label sets: growable lists of record labels in blocks of one cache line.
 *
 * Conventions:
 * 1. A list is known by the address of its first block, the head. Labels keep the order of
 *    appending and may repeat; label number i lies in block i / 12, slot i % 12.
 * 2. Whoever creates a list, or receives one, frees it. A freed handle must not be used.
 * 3. Results are the small numbers below, not statuses of platform/status.h. In the comments they
 *    stand without their prefix: OK, NO_MEMORY, INVALID, HASH_FAILED, OUT_OF_RANGE. A null list is
 *    INVALID; other pointers must not be null.
 * 4. The chain is checked where it is walked: a block without the marker is INVALID. Up to 768
 *    labels every operation walks from the head. Above that appending and reading go on from a
 *    block that the library remembers, so that filling and walking are linear in all; damage in
 *    front of that block is seen by the operations that pass it.
 * 5. Blocks come from one pool for the process. One scratch table serves all intersections.
 * 6. Nothing here notifies, and everything may be called from a callback. */
#ifndef KIVO_INDEX_LIST_H
#define KIVO_INDEX_LIST_H

#include "kivo/export.h"

#define KIVO_INDEX_LIST_OK           UINT32_C(0)
#define KIVO_INDEX_LIST_NO_MEMORY    UINT32_C(1)
#define KIVO_INDEX_LIST_INVALID      UINT32_C(2) /* no list, a broken one, an empty operand */
#define KIVO_INDEX_LIST_HASH_FAILED  UINT32_C(3)
#define KIVO_INDEX_LIST_OUT_OF_RANGE UINT32_C(4)

#define KIVO_INDEX_LIST_MAGIC        UINT32_C(0xabcde666)
#define KIVO_INDEX_LIST_BLOCK_LABELS 12u

/* One block. Read-only for clients. */
typedef struct kivo_index_list {
  uint32_t magic; /* KIVO_INDEX_LIST_MAGIC while the block belongs to a list, 0 afterwards */
  uint32_t count; /* in the head the labels of the whole list, in a later block its own */
  struct kivo_index_list *next; /* null in the last block */
  uint32_t labels[KIVO_INDEX_LIST_BLOCK_LABELS];
} kivo_index_list;

/* FNV-1 hash, 32-bit (http://www.isthe.com/chongo/tech/comp/fnv/).
 * buffer  length bytes; not read when there are none.
 * length  in bytes; below 1 the result is `hash`.
 * hash    the initial value; the usual basis is 0x811c9dc5. */
KIVO_API uint32_t fnv_32_hash(const void *buffer, int64_t length, uint32_t hash) KIVO_NOEXCEPT;

/* Makes the scratch table of the intersections; done at start-up. A failure is traced. A second
 * call has no effect. */
KIVO_API void kivo_index_list_hashtable_init(void) KIVO_NOEXCEPT;

/* Makes an empty list. Returns OK or NO_MEMORY (*list untouched). Constant time. */
KIVO_API uint32_t kivo_index_list_create(kivo_index_list **list) KIVO_NOEXCEPT;

/* Frees a list; null and a handle without the marker are ignored. A damaged block ends the walk,
 * and what follows is lost. Cost: the blocks. */
KIVO_API void kivo_index_list_free(kivo_index_list *list) KIVO_NOEXCEPT;

/* Empties a list and keeps its head. Returns OK or INVALID. Cost: the blocks. */
KIVO_API uint32_t kivo_index_list_empty(kivo_index_list *list) KIVO_NOEXCEPT;

/* Appends a label.
 * list   address of the handle, which keeps its value.
 * label  any; but a 0 looks like the end to kivo_index_list_next().
 * Returns OK; INVALID, also for a null address; NO_MEMORY. On error the list is unchanged. */
KIVO_API uint32_t kivo_index_list_add(kivo_index_list **list, uint32_t label) KIVO_NOEXCEPT;

/* Appends many labels, as adding them one by one would; what was appended before a failure stays.
 * labels  n_labels entries outside the list; null only when n_labels is 0.
 * Returns OK; INVALID; NO_MEMORY. Cost: the labels, and one walk to the end. */
KIVO_API uint32_t kivo_index_list_add_many(kivo_index_list **list, const uint32_t *labels,
                                           uint32_t n_labels) KIVO_NOEXCEPT;

/* The number of labels. Returns OK or INVALID (*count untouched). Constant time. */
KIVO_API uint32_t kivo_index_list_size(const kivo_index_list *list, uint32_t *count) KIVO_NOEXCEPT;

/* Label number `position`, counting from 0. Returns OK; INVALID; OUT_OF_RANGE. On error *label is
 * untouched. */
KIVO_API uint32_t kivo_index_list_get(const kivo_index_list *list, uint32_t position,
                                      uint32_t *label) KIVO_NOEXCEPT;

/* The label at the cursor, which moves on; 0, with the cursor left alone, at the end and for a bad
 * list. A walk starts with *cursor 0; *cursor is the position that comes next. */
KIVO_API uint32_t kivo_index_list_next(const kivo_index_list *list, uint32_t *cursor) KIVO_NOEXCEPT;

/* Makes the list of every label of b that some label of a equals, in b's order, as often as b has
 * it.
 * a, b  neither empty; may be the same list. They stay as they are.
 * out   receives a list of the caller's, or null when nothing is in common.
 * Returns OK; INVALID (a null, bad or empty operand, out null, no memory); HASH_FAILED (a label
 * found no place in the scratch table). On error *out is null. Cost: for each label of a an entry
 * made and removed, for each of b a look-up. */
KIVO_API uint32_t kivo_index_list_intersection(const kivo_index_list *a, const kivo_index_list *b,
                                               kivo_index_list **out) KIVO_NOEXCEPT;

/* Declared, not provided: they look at nothing and return INVALID. */
KIVO_API uint32_t kivo_index_list_union(const kivo_index_list *a, const kivo_index_list *b,
                                        kivo_index_list **out) KIVO_NOEXCEPT;
KIVO_API uint32_t kivo_index_list_unique(kivo_index_list *list) KIVO_NOEXCEPT;

#endif
