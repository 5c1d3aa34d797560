/* Writing attributes into records, singly or as whole attribute lists, with notification.
 *
 * Conventions:
 * 1. A record is named by its label, or by its pointer and its label: a given pointer is used
 *    directly, and the label is what callbacks are told.
 * 2. A label without a record is not an error: status 0, nothing written, nobody notified.
 * 3. Nothing is rolled back: what was written before a failure stays written. */
#ifndef KIVO_ATTRIBUTE_WRITE_H
#define KIVO_ATTRIBUTE_WRITE_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/attrdb.h"

/* Adds or updates one attribute and announces it with action 1, or 0 when nothing changed. External
 * identities go to the record's own attributes here, not to its shadow record.
 * label   of the record; may be 0 when record is given.
 * record  may be null: fetched by label.
 * type    1..1490.
 * value   size bytes; may lie in the record itself.
 * size    1 to 65,535 bytes. Above 255 the value is written, but cannot be announced: the status is
 *         then KIVO_ERR_INVALID_ARG.
 * Returns 0; KIVO_ERR_INVALID_ARG for a bad argument; the status of the fetch, of the attribute
 * service (nothing written), or of the notification (written).
 * Cost: the write, and one look at the acceleration table. */
KIVO_API uint32_t kivo_add_or_update_attr(kivo_db *db, uint32_t label, attrdb_record *record,
                                          uint32_t type, const void *value,
                                          uint32_t size) KIVO_NOEXCEPT;

/* Writes every attribute of a list, in its order; each write is announced right after it, with
 * action 1 when it changed the record, else 0. External identities (shadow_db.h) go to the record's
 * shadow record and always count as changed. Types that the store does not support are skipped.
 * attr_list  an attribute list (platform/aaa.h), not 0; stays the caller's. Callbacks may free it.
 *
 * kivo_add_or_update_attr_list goes on when a notification fails (a value of no or more than 255
 * bytes cannot be announced) and does not report it; kivo_clean_and_add_attr_list stops there and
 * returns its status. Neither removes anything.
 * Returns 0; KIVO_ERR_INVALID_ARG (db null, attr_list 0); KIVO_ERR_NO_CURSOR; the status of the
 * fetch, of a cursor step or of a write that failed, which ends the walk. */
KIVO_API uint32_t kivo_add_or_update_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                               uint32_t attr_list) KIVO_NOEXCEPT;
KIVO_API uint32_t kivo_clean_and_add_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                               uint32_t attr_list) KIVO_NOEXCEPT;

/* Adds one attribute to a record at hand and announces it, with action 1 when it changed the
 * record, else 0. As with all the add operations below, a value that is there is replaced, as by an
 * update; they differ in their checks, in when they notify and in what they return. External
 * identities go to the record's own attributes. db      not checked: with a null one the attribute
 * is written, and nobody is told. record  not null; its label is what callbacks are told. value
 * size bytes; may lie in the record itself. size    1 to 65,535 bytes. Above 255 the value is
 * written, but cannot be announced. Returns 0, also when the notification fails (traced);
 * KIVO_ERR_INVALID_ARG; the attribute service's status (nothing written, nobody told). */
KIVO_API uint32_t kivo_add_attr_to_record(kivo_db *db, attrdb_record *record, uint32_t type,
                                          const void *value, uint32_t size) KIVO_NOEXCEPT;

/* The same for a record given by label, or by pointer.
 * Returns as above; also KIVO_ERR_INVALID_ARG for a null database, and the status of the fetch. */
KIVO_API uint32_t kivo_add_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                                const void *value, uint32_t size) KIVO_NOEXCEPT;

/* Adds every attribute of a list, in its order. Each is announced twice: as kivo_add_attr_to_record
 * does, with the record's label, and once more with action 1 and the label argument.
 * Returns 0; KIVO_ERR_INVALID_ARG (attr_list 0, db null, an empty value in the list);
 * KIVO_ERR_NO_CURSOR; the status of the fetch, of a cursor step or of a write, an unsupported type
 * included, which ends the walk. A failed notification is traced only. */
KIVO_API uint32_t kivo_add_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                     uint32_t attr_list) KIVO_NOEXCEPT;

/* Adds or updates one attribute of a record at hand and announces it whatever became of the write:
 * after a failed one with action 0, unless the store says that the record changed.
 * Arguments as of kivo_add_attr_to_record().
 * Returns 0; KIVO_ERR_INVALID_ARG; the status of the write. The notification's is traced only. */
KIVO_API uint32_t kivo_add_or_update_attr_to_record(kivo_db *db, attrdb_record *record,
                                                    uint32_t type, const void *value,
                                                    uint32_t size) KIVO_NOEXCEPT;

#endif
