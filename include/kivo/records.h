/* Records: create, fetch, delete, and find them by the value of an attribute. A thin, traced layer
 * over the record store (platform/attrdb.h), whose statuses it passes on.
 *
 * Conventions:
 * 1. Nothing here notifies. Above all, deleting a record announces none of its attributes: whoever
 *    is to hear of a session's end needs them removed before (attribute_removal.h).
 * 2. The store is one for the process: the handle serves for checks and for names in traces.
 * 3. Values are compared byte for byte with their size; type 10 is found by one address of 16
 *    bytes. External identities in shadow records are found by nothing here. */
#ifndef KIVO_RECORDS_H
#define KIVO_RECORDS_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "kivo/index_list.h"
#include "platform/attrdb.h"

/* Creates a record.
 * db     not looked at; may be null.
 * label  the caller's choice; not 0, not in use.
 * ctxt   an attribute context (platform/auth_mgr_idc.h) for the record to adopt, or null for a
 *        fresh one. It is the record's on success only. Its attributes are not announced.
 *
 * Returns the store's status: 0, ATTRDB_ERR_INVALID_ARG (label 0), ATTRDB_ERR_LABEL_IN_USE,
 * ATTRDB_ERR_ADOPTED, ATTRDB_ERR_NO_MEMORY or ATTRDB_ERR_NOT_READY; except for 0 nothing has
 * changed. Cost: constant, and an index entry for each indexed attribute. */
KIVO_API uint32_t kivo_create_record(kivo_db *db, uint32_t label, auth_ctxt *ctxt) KIVO_NOEXCEPT;

/* Fetches the record of a label.
 * db   not null.
 * out  receives the record, or null when there is none (status 0). It holds until the record's
 *      deletion.
 * Returns 0; KIVO_ERR_INVALID_ARG for a null pointer (*out untouched) or label 0 (*out null); the
 * store's status (*out null). Constant time. */
KIVO_API uint32_t kivo_get_record(kivo_db *db, uint32_t label, attrdb_record **out) KIVO_NOEXCEPT;

/* Deletes the record of a label with all its attributes and its shadow record, and tells nobody.
 * Must not be called for a record whose change is being announced (export.h).
 * db  not looked at; may be null.
 * Returns the store's status: 0, ATTRDB_ERR_NOT_FOUND for a label without a record, or
 * ATTRDB_ERR_NOT_READY. Cost: constant, and each index of the attributes it had. */
KIVO_API uint32_t kivo_delete_record(kivo_db *db, uint32_t label) KIVO_NOEXCEPT;

/* Finds all records that have a value, as labels in ascending order.
 * db     not null.
 * type   1..1490, also one that no database names. Without an index for it, the store builds one at
 *        the first look-up, by a walk over all records.
 * value  size bytes in the encoding of the type's kind (database.h).
 * size   at least 1 byte.
 * list   address of a label set's handle, which the caller created (index_list.h) and frees; labels
 *        are appended.
 * count  receives how many were appended.
 *
 * Returns 0, also when nobody has the value; KIVO_ERR_INVALID_ARG for a bad argument; the store's
 * status (the set and the count are then as the store left them). Cost: one look-up and the labels
 * found. */
KIVO_API uint32_t kivo_match_labels_by_attr(kivo_db *db, uint32_t type, const void *value,
                                            uint32_t size, kivo_index_list **list,
                                            uint32_t *count) KIVO_NOEXCEPT;

/* Finds the lowest label that has a value.
 * db     not looked at; may be null.
 * type, value, size  as above.
 * label  receives the label, 0 when nobody has the value.
 * Returns 0; KIVO_ERR_INVALID_ARG (*label untouched); the store's status (*label 0). Cost: one
 * look-up. */
KIVO_API uint32_t kivo_match_label_by_attr(kivo_db *db, uint32_t type, const void *value,
                                           uint32_t size, uint32_t *label) KIVO_NOEXCEPT;

/* Finds the record with the lowest label that has a value.
 * db   not null.
 * type, value, size  as above.
 * out  receives the record, null when nobody has the value. It holds until the record's deletion.
 * Returns 0, also when the store failed (*out null, the failure is traced); KIVO_ERR_INVALID_ARG
 * (*out untouched). Cost: one look-up. */
KIVO_API uint32_t kivo_match_record_by_attr(kivo_db *db, uint32_t type, const void *value,
                                            uint32_t size, attrdb_record **out) KIVO_NOEXCEPT;

/* The next interface id (AAA_ATTR_INTERFACE_ID) in numeric order that a session has.
 * after  ids above this one count.
 * next   receives the id, 0 when there is none.
 * Returns the status of attrdb_get_next_if_id(), which it is. Cost: logarithmic. */
KIVO_API uint32_t kivo_get_next_if_id(uint32_t after, uint32_t *next) KIVO_NOEXCEPT;

/* Copies a record's attributes into an attribute list, but for the types that the list has. Type 10
 * becomes an attribute for each address. External identities in the shadow record are not copied
 * (shadow_db.h does that).
 * db         not looked at; may be null.
 * record     at hand.
 * attr_list  an attribute list (platform/aaa.h); stays the caller's.
 * Returns 0; KIVO_ERR_FAILED for a null record; the attribute service's status (the list may then
 * hold some of them). Cost: the attributes. */
KIVO_API uint32_t kivo_merge_rec_to_list_without_replace(kivo_db *db, attrdb_record *record,
                                                         uint32_t attr_list) KIVO_NOEXCEPT;

#endif
