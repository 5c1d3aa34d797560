/* Writing attributes into records, singly or as whole attribute lists, with notification.
 *
 * Conventions:
 * 1. A record is named by its label, or by its pointer and its label: a pointer is used directly,
 *    and the label is what callbacks are told.
 * 2. A label without a record is not an error: status 0, nothing written, nobody notified.
 * 3. A type has one value in a record: writing replaces it. Of type 10, whose values are runs of
 *    16-byte addresses, those that are not there yet are appended.
 * 4. A change is announced right after its write, when the record holds the new value already:
 *    with action 1 when the stored bytes changed, else with action 0, which only unconditional
 *    registrations hear. A value of no or of more than 255 bytes cannot be announced: it is written
 *    all the same.
 * 5. Nothing is rolled back: what was written before a failure stays written.
 * 6. The old value (notification.h) is left alone, as the process last set it. */
#ifndef KIVO_ATTRIBUTE_WRITE_H
#define KIVO_ATTRIBUTE_WRITE_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/attrdb.h"

/* Adds or updates one attribute and announces it. An external identity goes to the record's own
 * attributes here, not to its shadow record.
 * db      not null.
 * label   of the record; may be 0 when record is not null.
 * record  may be null: fetched by label.
 * type    1..1490.
 * value   size bytes, copied; may lie in the record itself.
 * size    1 to 65,535 bytes. Above 255 the value is written, and the status is then
 *         KIVO_ERR_INVALID_ARG, that of the announcement.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG for a bad argument; the status of the fetch, of the attribute
 * service (nothing written), or of the announcement (written).
 * Cost: the write, and one look at the acceleration table. */
KIVO_API uint32_t kivo_add_or_update_attr(kivo_db *db, uint32_t label, attrdb_record *record,
                                          uint32_t type, const void *value,
                                          uint32_t size) KIVO_NOEXCEPT;

/* Write every attribute of a list, in its order, and announce each. External identities go to the
 * record's shadow record (shadow_db.h) and always count as changed. Types that the store does not
 * support are skipped. The two differ in one thing: kivo_add_or_update_attr_list goes on when an
 * announcement fails and does not report it; kivo_clean_and_add_attr_list stops there and returns
 * its status. Neither removes anything.
 * db         not null.
 * label      as above.
 * record     as above.
 * attr_list  an attribute list (platform/aaa.h), not 0; stays the caller's. Callbacks may free it.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG (db null, attr_list 0); KIVO_ERR_NO_CURSOR (no such list, or no
 * memory for a cursor); the status of the fetch, of a cursor step or of a write that failed, which
 * ends the walk: of the attribute service or of shadowdb_add_or_update_attr().
 * Cost: as above for each attribute. */
KIVO_API uint32_t kivo_add_or_update_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                               uint32_t attr_list) KIVO_NOEXCEPT;
KIVO_API uint32_t kivo_clean_and_add_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                               uint32_t attr_list) KIVO_NOEXCEPT;

/* Adds one attribute to a record at hand and announces it. As with all the add operations below, a
 * value that is there is replaced, as by an update; they differ in their checks, in when they
 * notify and in what they return. External identities go to the record's own attributes.
 * db      not checked: with a null one the attribute is written, and nobody is told.
 * record  not null; its label is what callbacks are told.
 * type    1..1490.
 * value   size bytes, copied; may lie in the record itself.
 * size    1 to 65,535 bytes. Above 255 the value is written, but not announced.
 *
 * Returns 0, also when the announcement fails (traced); KIVO_ERR_INVALID_ARG; the attribute
 * service's status (nothing written, nobody told). Cost: as of an update. */
KIVO_API uint32_t kivo_add_attr_to_record(kivo_db *db, attrdb_record *record, uint32_t type,
                                          const void *value, uint32_t size) KIVO_NOEXCEPT;

/* The same for a record named by its label or its pointer; callbacks are told the record's label.
 * db      not null.
 * label   looked up when record is null, else ignored.
 * record  may be null.
 * Returns as above; also KIVO_ERR_INVALID_ARG for a null database, and the status of the fetch. */
KIVO_API uint32_t kivo_add_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                                const void *value, uint32_t size) KIVO_NOEXCEPT;

/* Adds every attribute of a list, in its order. Each is announced twice: as kivo_add_attr_to_record
 * does, with the record's label, and once more with action 1 and the label argument.
 * Arguments as of kivo_add_or_update_attr_list().
 *
 * Returns 0; KIVO_ERR_INVALID_ARG (attr_list 0, db null, an empty value in the list);
 * KIVO_ERR_NO_CURSOR; the status of the fetch, of a cursor step or of a write, an unsupported type
 * included, which ends the walk. A failed announcement is traced only. */
KIVO_API uint32_t kivo_add_attr_list(kivo_db *db, uint32_t label, attrdb_record *record,
                                     uint32_t attr_list) KIVO_NOEXCEPT;

/* Adds or updates one attribute of a record at hand and announces it whatever became of the write:
 * after a failed one with action 0, unless the store says that the record changed.
 * Arguments as of kivo_add_attr_to_record().
 * Returns 0; KIVO_ERR_INVALID_ARG (nobody told); the status of the write. The announcement's is
 * traced only. */
KIVO_API uint32_t kivo_add_or_update_attr_to_record(kivo_db *db, attrdb_record *record,
                                                    uint32_t type, const void *value,
                                                    uint32_t size) KIVO_NOEXCEPT;

#endif
