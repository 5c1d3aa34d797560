/* Chunk pools: blocks of fixed size, taken and given back in constant time.
 *
 * Conventions:
 * 1. A pool grows by slabs and lives as long as the process. A slab is never unmapped: a block that
 *    was given back stays readable, and its first eight bytes stay as the owner left them until the
 *    block is taken again. (Users mark dead blocks there.)
 * 2. Blocks are uninitialised and aligned to 64 bytes when the element size is a multiple of 64,
 *    else to 16.
 * 3. Giving a block back twice, or to another pool, stops the process with a trace.
 * 4. Null means that there was no memory; nothing has changed then. */
#ifndef PLATFORM_CHUNK_H
#define PLATFORM_CHUNK_H

#include <stddef.h>
#include <stdint.h>

#include "platform/export.h"

typedef struct chunk_pool chunk_pool;

/* Makes a pool. No slab is taken before the first block. Slabs have a power of two of bytes, at
 * most 256 KiB; blocks of a fresh slab come in ascending address order, released ones come first,
 * the one released last at the head.
 * name      static text, for traces; may be null.
 * size      element size in bytes, 1 to 65,536; rounded up to a multiple of 16.
 * per_slab  elements by which the pool grows, 1 to 65,535. A slab holds at least as many, or what
 *           fits 256 KiB; all that its power of two has room for is used.
 * flags     bit 0 the pool may grow, else it has exactly per_slab elements; bit 4 elements are
 *           aligned to their cache line (always so for sizes that are multiples of 64). Other bits
 *           are ignored.
 * reserved1, reserved2  0.
 * Returns the pool, or null for a bad size or without memory. */
PLATFORM_API chunk_pool *chunk_create(const char *name, uint32_t size, uint32_t per_slab,
                                      uint32_t flags, uint32_t reserved1,
                                      uint32_t reserved2) PLATFORM_NOEXCEPT;

/* Takes a block; null for a null pool, without memory, or from a full pool that may not grow.
 * Constant time, apart from a slab taken now and then. */
PLATFORM_API void *chunk_malloc(chunk_pool *pool) PLATFORM_NOEXCEPT;

/* Gives a block back; a null block is accepted. */
PLATFORM_API void chunk_free(chunk_pool *pool, void *block) PLATFORM_NOEXCEPT;

/* Blocks of the pool that are out. Constant time; 0 for a null pool. */
PLATFORM_API uint64_t chunk_live_blocks(const chunk_pool *pool) PLATFORM_NOEXCEPT;

typedef struct variable_chunk_pool variable_chunk_pool;

/* One size class of a variable pool. */
typedef struct variable_chunk_class {
  uint32_t element_size;  /* bytes; 0 marks the class of general memory, which must be the last */
  uint32_t element_count; /* elements by which the class grows */
  uint32_t flags;         /* as for chunk_create() */
  const char *name;       /* static text; null is shown as "unnamed" */
  uint64_t reserved[3];   /* 0 */
} variable_chunk_class;

/* Gives a class name's allocation tag. Each class is a call site of the named allocator (name and
 * tag; see named_walk_sites()), where its blocks are counted with the element size as their bytes,
 * those of general memory with the size asked for. */
typedef uint32_t (*variable_chunk_name_to_id)(const char *name);

/* Makes a pool of several size classes.
 * classes     n_classes rows in strictly ascending element size (1 to 65,536 bytes, 1 to 65,535
 *             elements), the general-memory class (if any) last.
 *             Read during the call only; the names must live as long as the pool.
 * n_classes   1 to 16.
 * options     0.
 * name_to_id  called once for every class, never with a null name; may be null (tag 0).
 * Returns the pool, or null for bad classes or without memory. */
PLATFORM_API variable_chunk_pool *variable_chunk_create_ext(
    const variable_chunk_class *classes, uint32_t n_classes, uint32_t options,
    variable_chunk_name_to_id name_to_id) PLATFORM_NOEXCEPT;

/* Takes a block of at least `size` bytes from the smallest class that holds it. A class that may
 * not grow and is full, or finds no memory for a slab, leaves the request to the next larger one,
 * the last to general memory. Size 0 gives a block of the smallest class. Aligned to 16 bytes. Null
 * for a null pool, without memory, or when no class is left. Constant time on average. */
PLATFORM_API void *variable_chunk_malloc(variable_chunk_pool *pool, size_t size) PLATFORM_NOEXCEPT;

/* Gives a block back to the pool it came from; a null block is accepted. Constant time: one look-up
 * by address. Convention 1 does not hold for blocks of general memory. */
PLATFORM_API void variable_chunk_free(variable_chunk_pool *pool, void *block) PLATFORM_NOEXCEPT;

/* Blocks of the pool that are out, all classes. Constant time; 0 for a null pool. */
PLATFORM_API uint64_t variable_chunk_live_blocks(const variable_chunk_pool *pool) PLATFORM_NOEXCEPT;

#endif
