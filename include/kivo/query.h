/* Queries that return sets of labels: several conditions one by one, a whole attribute list at
 * once, or all sessions.
 *
 * Conventions:
 * 1. A list that is handed out is the caller's, to be freed with kivo_index_list_free().
 * 2. Not matching is not a failure: status 0 with no list.
 * 3. An indexed condition costs one look-up of the record store and one intersection; an unindexed
 * one a read of every candidate. */
#ifndef KIVO_QUERY_H
#define KIVO_QUERY_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "kivo/index_list.h"

#define KIVO_MAQI_MAX_UNINDEXED 4u   /* unindexed conditions that a query can store */
#define KIVO_MAQI_MAX_VALUE_LEN 255u /* bytes of a stored condition's value */
#define KIVO_MAQI_EARLY_CHECK_MIN \
  11u /* candidates from which an unindexed condition is checked at once */
#define KIVO_MAQI_MANY_MATCHES 10u /* matches from which taking the result is traced */

/* A multi-attribute query. The caller provides the storage and leaves it alone between calls. A
 * query that is given up before its result is taken holds a list: take the result, or start nothing
 * anew over it. */
typedef struct kivo_maqi {
  kivo_index_list *candidates; /* null until the first indexed condition has matched */
  uint32_t num_candidates;
  kivo_attr_value unindexed[KIVO_MAQI_MAX_UNINDEXED]; /* conditions still to be checked */
  uint32_t num_unindexed;
  uint32_t may_match; /* 0 once the query can match nothing */
  kivo_db *db;
} kivo_maqi;

/* Begins a query; what the context held before is not looked at.
 * Returns 0; KIVO_ERR_INVALID_ARG for a null pointer. */
KIVO_API uint32_t kivo_start_multi_attr_query(kivo_db *db, kivo_maqi *query) KIVO_NOEXCEPT;

/* Adds a condition: records whose attribute of this type has this value. Values of types that are
 * not indexed are compared over the condition's length; of type 10 the first six addresses are.
 * type    1..1490.
 * value   length bytes, read during the call.
 * length  at least 1. An unindexed condition that is stored holds 255 bytes at the most.
 * flag    receives 1 when the query can still match, else 0; further conditions are pointless then.
 * Returns 0; KIVO_ERR_INVALID_ARG (a bad argument, or a failed look-up, intersection or read);
 * KIVO_ERR_NO_MEMORY. After a failure the query is empty; only a new start makes it match again. */
KIVO_API uint32_t kivo_add_attr_to_query(kivo_maqi *query, uint32_t type, const void *value,
                                         uint32_t length, uint32_t *flag) KIVO_NOEXCEPT;

/* Takes the result. Conditions that were stored are checked now: each must hold for one candidate
 * at least; they do not remove candidates. list   receives the labels, in the order of the last
 * indexed condition, or null. count  receives their number. Returns 0; KIVO_ERR_INVALID_ARG. After
 * a result was handed out the context takes a new query. */
KIVO_API uint32_t kivo_get_matches_for_query(kivo_maqi *query, kivo_index_list **list,
                                             uint32_t *count) KIVO_NOEXCEPT;

/* Finds the sessions that carry every accel type of an attribute list with the listed value; types
 * without an acceleration entry neither narrow nor widen the result.
 * list   receives the labels, in the order of the last attribute's answer, or null.
 * count  receives their number.
 * Returns 0; KIVO_ERR_INVALID_ARG; KIVO_ERR_NO_CURSOR; the status of a cursor step or of the store;
 * the index list results 1, 2 and 3. On failure there is no list. */
KIVO_API uint32_t kivo_match_sessions_from_list(kivo_db *db, uint32_t attr_list,
                                                kivo_index_list **list,
                                                uint32_t *count) KIVO_NOEXCEPT;

/* Lists all sessions of the record store, in the order of its walk.
 * db     only tested for presence.
 * list   receives the labels.
 * count  receives the store's number of records.
 * Returns 0; KIVO_ERR_INVALID_ARG (nothing written); KIVO_ERR_NO_MEMORY (count 0, *list untouched).
 */
KIVO_API uint32_t kivo_get_session_list(kivo_db *db, kivo_index_list **list,
                                        uint32_t *count) KIVO_NOEXCEPT;

#endif
