/* Named allocator: general memory whose every block is counted under the call site that took it.
 *
 * Conventions:
 * 1. A call site is a static named_site, made by NAMED_ZALLOC() and NAMED_ALLOC() or declared with
 *    NAMED_SITE(). It is enrolled at its first allocation and must live as long as the process.
 * 2. Blocks are aligned to 16 bytes and carry a header of 16 bytes. Size 0 gives a block.
 * 3. Null means that there was no memory; nothing has changed then. */
#ifndef PLATFORM_NAMED_ALLOC_H
#define PLATFORM_NAMED_ALLOC_H

#include <stddef.h>
#include <stdint.h>

#include "platform/export.h"

/* Where blocks are taken: who asks, under which tag, and what is live. Written by the allocator. */
typedef struct named_site {
  const char *name; /* what the blocks are; static text */
  uint32_t tag;     /* the subsystem's tag, a small identifier in its low 20 bits */
  uint32_t line;    /* of the call */
  const char *file; /* of the call */
  uint64_t live_blocks;
  uint64_t live_bytes;   /* as asked for, without headers */
  uint64_t total_blocks; /* ever taken */
  struct named_site *next;
  uint64_t enrolled;
} named_site;

#define NAMED_SITE(name_text, tag_number) \
  { (name_text), (tag_number), __LINE__, __FILE__, 0, 0, 0, NULL, 0 }

/* A zero-filled block of `size` bytes, or null. Constant time apart from the zeroing. A null site
 * counts the block under the name "unnamed". */
PLATFORM_API void *named_zalloc(named_site *site, size_t size) PLATFORM_NOEXCEPT;

/* The same with undefined contents. */
PLATFORM_API void *named_alloc(named_site *site, size_t size) PLATFORM_NOEXCEPT;

/* Gives a block back; null is accepted. A block that is not live (given back twice, damaged header)
 * stops the process with a trace, as far as its header still shows it. */
PLATFORM_API void named_free(void *block) PLATFORM_NOEXCEPT;

/* Live blocks and bytes over all call sites. Constant time. */
PLATFORM_API uint64_t named_live_blocks(void) PLATFORM_NOEXCEPT;
PLATFORM_API uint64_t named_live_bytes(void) PLATFORM_NOEXCEPT;

/* Calls fn once for every enrolled call site, in the order of their first allocation. The size
 * classes of variable pools (chunk.h) are call sites too. fn must not allocate here. */
PLATFORM_API void named_walk_sites(void (*fn)(const named_site *site, void *arg),
                                   void *arg) PLATFORM_NOEXCEPT;

/* For C++ (C callers declare a static named_site each):
 * NAMED_ZALLOC(tag, name, size), NAMED_ALLOC(tag, name, size): take a block at this call site. */
#ifdef __cplusplus
#define NAMED_CALL_SITE_INT(tag_number, name_text)                       \
  ([]() noexcept -> named_site * {                                       \
    static named_site call_site_int = NAMED_SITE(name_text, tag_number); \
    return &call_site_int;                                               \
  }())
#define NAMED_ZALLOC(tag_number, name_text, size) \
  named_zalloc(NAMED_CALL_SITE_INT(tag_number, name_text), (size))
#define NAMED_ALLOC(tag_number, name_text, size) \
  named_alloc(NAMED_CALL_SITE_INT(tag_number, name_text), (size))
#endif

#endif
