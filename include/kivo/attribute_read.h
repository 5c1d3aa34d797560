/* Reading one attribute of a record. The value stays in the record: its address holds until the
 * record is next written or deleted. Stored values have no alignment and may be shorter than their
 * kind. */
#ifndef KIVO_ATTRIBUTE_READ_H
#define KIVO_ATTRIBUTE_READ_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/attrdb.h"

/* Reads from a record at hand.
 * db      not looked at; may be null.
 * type    not 0.
 * value   receives the address of the stored bytes, null when the record lacks the type.
 * length  receives their number, 0 then; for type 10 all addresses.
 * Returns 0, also for an absent attribute; KIVO_ERR_INVALID_ARG (outputs untouched);
 * KIVO_ERR_FAILED when the attribute service fails. */
KIVO_API uint32_t kivo_get_attr_from_record(kivo_db *db, attrdb_record *record, uint32_t type,
                                            const void **value, uint32_t *length) KIVO_NOEXCEPT;

/* The same for a record given by pointer (label ignored) or, with a null record, by label. A label
 * without a record gives 0 with the outputs untouched: set *length to 0 before to tell it apart.
 * Returns as above; also the status of kivo_get_record(). */
KIVO_API uint32_t kivo_get_attr(kivo_db *db, uint32_t label, attrdb_record *record, uint32_t type,
                                const void **value, uint32_t *length) KIVO_NOEXCEPT;

#endif
