/* Removing attributes from records, with notification (action 2).
 *
 * Conventions:
 * 1. The old value (notification.h) is cleared before each announcement.
 * 2. A removed value of no or of more than 255 bytes cannot be announced. A failed announcement is
 *    traced and changes no status.
 * 3. Deleting a record (records.h) announces nothing: whoever is to hear of it needs its attributes
 *    removed before. */
#ifndef KIVO_ATTRIBUTE_REMOVAL_H
#define KIVO_ATTRIBUTE_REMOVAL_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/attrdb.h"

/* Most addresses of type 10 that a removal announces and a query compares. */
#define KIVO_ADDRESSES_LOOKED_AT 6u

/* Removes all values of a type: announces them first, then removes them, so that callbacks still
 * find them in the record. What a callback writes under the type meanwhile goes too. Of several
 * addresses of type 10 the first six are announced, one by one; several values of another type are
 * not. An empty value stays, and so do external identities in the shadow record: both are removed
 * by type and value.
 * db      not checked; with a null one nobody is told.
 * record  at hand; its label is what callbacks are told.
 * type    1..1490.
 *
 * Returns 0, also for an absent attribute (nobody is told then); KIVO_ERR_INVALID_ARG for a null
 * record or type 0; the attribute service's status. Cost: the announcements, and the indexes of
 * the type. */
KIVO_API uint32_t kivo_remove_attr_from_record_by_type(kivo_db *db, attrdb_record *record,
                                                       uint32_t type) KIVO_NOEXCEPT;

/* The same for several types of a record named by its label or its pointer, in their order. Goes on
 * after a failure.
 * db       not null.
 * label    looked up when record is null, else ignored: callbacks are told the record's own.
 * record   may be null.
 * types    n_types entries, which callbacks must leave alone.
 * n_types  at least 1.
 *
 * Returns 0, also for a label without a record; KIVO_ERR_INVALID_ARG (db or types null, n_types 0);
 * the status of the fetch; the last failure's status. */
KIVO_API uint32_t kivo_remove_attrs_by_type(kivo_db *db, uint32_t label, attrdb_record *record,
                                            const uint32_t *types, uint32_t n_types) KIVO_NOEXCEPT;

/* Removes one value of a type and then announces it, with the bytes of the argument. An external
 * identity is removed from the record's shadow record: the one with the subtype of the value,
 * whatever else that says; when there is none the removal is announced all the same.
 * db      not null.
 * record  at hand; its label is what callbacks are told.
 * type    1..1490.
 * length  bytes of value that are compared and announced. Type 10: 16, one address. Of an external
 *         identity nothing is compared: 0 removes by the subtype alone, and announces nothing.
 * value   length bytes; may lie in the record. Of an external identity its first two bytes, the
 *         subtype, must be readable whatever the length; null stands for subtype 1, and is not
 *         announced. The store refuses null for any other type.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG (record or db null, type 0, no memory for the shadow record); the
 * attribute service's status, AAA_ERR_NOT_FOUND when the record has not this value. Unless it is 0
 * nothing has changed and nobody is told. Cost: as above; for an external identity a walk over
 * those of its type. */
KIVO_API uint32_t kivo_remove_attr_from_record_by_type_and_value(kivo_db *db, attrdb_record *record,
                                                                 uint32_t type, uint32_t length,
                                                                 const void *value) KIVO_NOEXCEPT;

#endif
