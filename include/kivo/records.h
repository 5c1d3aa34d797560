/* Records: create, fetch, delete, and find them by the value of an attribute. A thin, traced layer
 * over the record store (platform/attrdb.h), whose statuses it passes on. Nothing here notifies.
 *
 * The store is one for the process: the handle serves for checks and for names in traces. */
#ifndef KIVO_RECORDS_H
#define KIVO_RECORDS_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "kivo/index_list.h"
#include "platform/attrdb.h"

/* Creates a record.
 * db     not looked at; may be null.
 * label  not 0, not in use (the store's errors).
 * ctxt   an attribute context for the record to adopt, or null for a fresh one.
 * Returns the store's status. Attributes of an adopted context are not announced. */
KIVO_API uint32_t kivo_create_record(kivo_db *db, uint32_t label, auth_ctxt *ctxt) KIVO_NOEXCEPT;

/* Fetches the record of a label.
 * out  receives the record, or null when there is none (status 0). It holds until the record's
 *      deletion.
 * Returns 0; KIVO_ERR_INVALID_ARG for a null pointer (*out untouched) or label 0 (*out null); the
 * store's status (*out null). Constant time. */
KIVO_API uint32_t kivo_get_record(kivo_db *db, uint32_t label, attrdb_record **out) KIVO_NOEXCEPT;

/* Deletes the record of a label with all its attributes and its shadow record. The handle may be
 * null. Returns the store's status; a label without a record is the store's error. */
KIVO_API uint32_t kivo_delete_record(kivo_db *db, uint32_t label) KIVO_NOEXCEPT;

/* Finds all records that have a value, as labels in ascending order.
 * type   not 0. Without an index for it, the store builds one at the first look-up.
 * value  size bytes, at least 1, in the encoding of the type's kind.
 * list   address of a label set that the caller created; labels are appended.
 * count  receives their number.
 * Returns 0; KIVO_ERR_INVALID_ARG for a bad argument; the store's status (the set and the count are
 * then as the store left them). Cost: one look-up and the labels found. */
KIVO_API uint32_t kivo_match_labels_by_attr(kivo_db *db, uint32_t type, const void *value,
                                            uint32_t size, kivo_index_list **list,
                                            uint32_t *count) KIVO_NOEXCEPT;

/* Finds the lowest label that has a value, 0 when nobody has it. db is not looked at.
 * Returns 0; KIVO_ERR_INVALID_ARG (*label untouched); the store's status (*label 0). One look-up.
 */
KIVO_API uint32_t kivo_match_label_by_attr(kivo_db *db, uint32_t type, const void *value,
                                           uint32_t size, uint32_t *label) KIVO_NOEXCEPT;

/* Finds the record with the lowest label that has a value, null when nobody has it.
 * Returns 0, also when the store failed (*out null, the failure is traced); KIVO_ERR_INVALID_ARG
 * (*out untouched). One look-up. */
KIVO_API uint32_t kivo_match_record_by_attr(kivo_db *db, uint32_t type, const void *value,
                                            uint32_t size, attrdb_record **out) KIVO_NOEXCEPT;

/* The next interface id in numeric order: attrdb_get_next_if_id() of the record store. */
KIVO_API uint32_t kivo_get_next_if_id(uint32_t after, uint32_t *next) KIVO_NOEXCEPT;

/* Copies a record's attributes into an attribute list, but for the types that the list has.
 * Returns KIVO_ERR_FAILED for a null record, else the attribute service's status. db may be null.
 */
KIVO_API uint32_t kivo_merge_rec_to_list_without_replace(kivo_db *db, attrdb_record *record,
                                                         uint32_t attr_list) KIVO_NOEXCEPT;

#endif
