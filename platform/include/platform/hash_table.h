/* Hash table from keys to data, with the caller's hash and compare functions.
 *
 * Conventions:
 * 1. The table keeps the addresses that it is given and owns no memory behind them.
 * 2. Equal keys are kept side by side: adding never replaces. Entries with equal keys cost nothing
 *    extra to add and to remove; the newest of them is the one that is found and removed.
 * 3. The hash of a key is computed once, mixed (so a hash may be plain, but different keys should
 *    have different hashes) and remembered; hashes are compared before keys.
 * 4. A null table is tolerated: it is full, and holds nothing. */
#ifndef PLATFORM_HASH_TABLE_H
#define PLATFORM_HASH_TABLE_H

#include <stdint.h>

#include "platform/export.h"

typedef struct hash_table hash_table;
typedef uint32_t (*hash_table_hash)(const void *key);
/* Less than, equal to or greater than 0; only equality matters here. */
typedef int (*hash_table_compare)(const void *a, const void *b);

/* Makes a table.
 * size  buckets at the start, and never fewer later; 1 to 2^24, rounded up to a power of two, at
 *       least 8. 24 bytes each.
 * Returns null for another size, a null function or without memory. */
PLATFORM_API hash_table *htMakeHashTable(uint32_t size, hash_table_hash hash,
                                         hash_table_compare compare) PLATFORM_NOEXCEPT;

/* Adds an entry. key and data must not be null and must stay while the entry does.
 * Returns 0; 1 for null arguments, without memory, or beyond 2^32 - 1 entries, and then nothing has
 * changed.
 * Constant time on average; grows with the number of entries. */
PLATFORM_API int htAdd(hash_table *table, const void *key, void *data) PLATFORM_NOEXCEPT;

/* The data of the newest entry with an equal key, null when there is none. Constant time on
 * average. */
PLATFORM_API void *htFind(const hash_table *table, const void *key) PLATFORM_NOEXCEPT;

/* Removes one entry with an equal key, the newest. Returns 1, or 0 when there is none; cannot run
 * out of memory. Memory that a burst took is given back as the table empties, down to some
 * 1.5 MiB. Constant time on average. */
PLATFORM_API int htRemove(hash_table *table, const void *key) PLATFORM_NOEXCEPT;

/* The number of entries; 0 for a null table. */
PLATFORM_API uint32_t htItems(const hash_table *table) PLATFORM_NOEXCEPT;

/* Releases the table; null is accepted. Keys and data are the caller's. */
PLATFORM_API void htDestroyHashTable(hash_table *table) PLATFORM_NOEXCEPT;

#endif
