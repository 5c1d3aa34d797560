/* Reading one attribute of a record. Nothing here notifies.
 *
 * Conventions:
 * 1. The value stays in the record: its address holds until the record is next written or deleted.
 * 2. Stored values have no alignment and may be shorter than their kind: copy words out with
 *    memcpy(), as far as the length goes. Texts have no NUL.
 * 3. External identities that a list write has put into the shadow record are not found here but
 *    with shadowdb_get_session_attributes() (shadow_db.h). */
#ifndef KIVO_ATTRIBUTE_READ_H
#define KIVO_ATTRIBUTE_READ_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/attrdb.h"

/* Reads from a record at hand.
 * db      not looked at; may be null.
 * type    1..1490.
 * value   receives the address of the stored bytes; null when the record lacks the type.
 * length  receives their number: 0 when the record lacks the type or holds an empty value; for
 *         type 10 the bytes of all its addresses.
 *
 * Returns 0, also for an absent attribute; KIVO_ERR_INVALID_ARG for a null pointer or type 0;
 * KIVO_ERR_FAILED when the attribute service fails, as for a type above 1490 (null and 0 then).
 * Cost: a look through the record's directory of attributes. */
KIVO_API uint32_t kivo_get_attr_from_record(kivo_db *db, attrdb_record *record, uint32_t type,
                                            const void **value, uint32_t *length) KIVO_NOEXCEPT;

/* The same for a record named by its pointer or by its label.
 * db      not null.
 * label   looked up when record is null, else ignored.
 * record  may be null.
 *
 * Returns as above; also the status of kivo_get_record(). A label without a record gives 0 with the
 * outputs untouched: set *length to 0 before the call, and 0 afterwards is no value. */
KIVO_API uint32_t kivo_get_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                                const void **value, uint32_t *length) KIVO_NOEXCEPT;

#endif
