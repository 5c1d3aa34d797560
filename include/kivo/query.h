/* Queries that return sets of labels: several conditions one by one, a whole attribute list at
 * once, or all sessions.
 *
 * Conventions:
 * 1. A list that is handed out is the caller's, to be freed with kivo_index_list_free().
 * 2. Not matching is not a failure: status 0 with no list.
 * 3. An indexed condition, of an accel type whose row is indexed, narrows: only records that meet
 *    it stay candidates. An unindexed one tests but does not narrow: when no candidate meets it the
 *    query matches nothing, and when one does all candidates stay. So the result of a query with
 *    unindexed conditions is what may match; the caller reads the records for the rest.
 * 4. Candidates come from indexed conditions: a query without one matches nothing.
 * 5. An indexed condition costs one look-up of the record store and one intersection; an unindexed
 *    one a read of every candidate.
 * 6. Nothing here notifies. External identities in shadow records meet no condition. */
#ifndef KIVO_QUERY_H
#define KIVO_QUERY_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "kivo/index_list.h"

#define KIVO_MAQI_MAX_UNINDEXED 4u   /* unindexed conditions that a query can store */
#define KIVO_MAQI_MAX_VALUE_LEN 255u /* bytes of a stored condition's value */
/* Candidates from which an unindexed condition is checked at once. */
#define KIVO_MAQI_EARLY_CHECK_MIN 11u
#define KIVO_MAQI_MANY_MATCHES    10u /* matches from which taking the result is traced */

/* A multi-attribute query. The caller provides the storage and leaves it alone between calls. A
 * query that can still match may hold a list: take the result, and free it, before the storage goes
 * or a new query is started over it. */
typedef struct kivo_maqi {
  kivo_index_list *candidates; /* null until the first indexed condition has matched */
  uint32_t num_candidates;
  kivo_attr_value unindexed[KIVO_MAQI_MAX_UNINDEXED]; /* conditions still to be checked */
  uint32_t num_unindexed;
  uint32_t may_match; /* 0 once the query can match nothing */
  kivo_db *db;
} kivo_maqi;

/* Begins a query.
 * db     whose acceleration table tells indexed types from others; not null.
 * query  what it held before is not looked at.
 * Returns 0; KIVO_ERR_INVALID_ARG for a null pointer. Constant time. */
KIVO_API uint32_t kivo_start_multi_attr_query(kivo_db *db, kivo_maqi *query) KIVO_NOEXCEPT;

/* Adds a condition: records whose attribute of this type has this value. An indexed value is equal
 * when bytes and size are. An unindexed one is compared over the condition's length, so that a
 * longer stored value that begins with it is equal too; of type 10 the first six addresses are.
 * From KIVO_MAQI_EARLY_CHECK_MIN candidates on an unindexed condition is checked at once, before
 * that it is stored, and checked when the result is taken.
 * type    1..1490.
 * value   length bytes, copied.
 * length  at least 1 byte.
 * flag    receives 1 when the query can still match. Else 0, and further conditions are pointless:
 *         no record can meet all so far, or this one was to be stored and is the fifth, or above
 *         255 bytes. Untouched after a null value or a length of 0.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG (a bad argument, or a failed look-up, intersection or read);
 * KIVO_ERR_NO_MEMORY (no label set for an answer). A failure empties the query: after a null value
 * or flag, or a length of 0, it goes on as if just started; after any other it matches nothing
 * until it is started anew. Cost: convention 5. */
KIVO_API uint32_t kivo_add_attr_to_query(kivo_maqi *query, uint32_t type, const void *value,
                                         uint32_t length, uint32_t *flag) KIVO_NOEXCEPT;

/* Takes the result. Conditions that were stored are checked now: each must hold for one candidate
 * at least. Labels are those of the time when the conditions were added: a record deleted since may
 * be among them.
 * list   receives the labels, in the order of the last indexed condition, or null.
 * count  receives their number.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG: for a null pointer nothing has changed, for a failed read there
 * is no list. After a result was handed out the context takes a new query without a start; a query
 * without an indexed condition yet goes on with those that it has; any other without a result needs
 * a new start. Cost: a read of every candidate for each stored condition. */
KIVO_API uint32_t kivo_get_matches_for_query(kivo_maqi *query, kivo_index_list **list,
                                             uint32_t *count) KIVO_NOEXCEPT;

/* Finds the sessions that carry every accel type of an attribute list with the listed value; types
 * without an acceleration entry neither narrow nor widen the result. Every accel type narrows here:
 * for one that is not indexed the store builds an index at the first look-up, by a walk over all
 * records.
 * db         not null.
 * attr_list  an attribute list (platform/aaa.h), not 0; stays the caller's.
 * list       receives the labels, in the order of the last attribute's answer, or null.
 * count      receives their number.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG (nothing written); KIVO_ERR_NO_CURSOR (no such list, or no memory
 * for a cursor); the status of a cursor step or of the store; the index list results 1, 2 and 3
 * (index_list.h). On failure there is no list. Cost: a look-up and an intersection for each accel
 * type. */
KIVO_API uint32_t kivo_match_sessions_from_list(kivo_db *db, uint32_t attr_list,
                                                kivo_index_list **list,
                                                uint32_t *count) KIVO_NOEXCEPT;

/* Lists all sessions of the record store, in the order of its walk.
 * db     only tested for presence.
 * list   receives the labels.
 * count  receives the store's number of records; when memory ran out on the way the list is
 *        shorter, which kivo_index_list_size() tells.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG (nothing written); KIVO_ERR_NO_MEMORY (count 0, *list untouched).
 * Cost: a walk over all records. */
KIVO_API uint32_t kivo_get_session_list(kivo_db *db, kivo_index_list **list,
                                        uint32_t *count) KIVO_NOEXCEPT;

#endif
