/* Removing attributes from records, with notification (action 2). The old value (notification.h) is
 * cleared before each announcement. */
#ifndef KIVO_ATTRIBUTE_REMOVAL_H
#define KIVO_ATTRIBUTE_REMOVAL_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/attrdb.h"

/* Most addresses of type 10 that a removal announces and a query compares. */
#define KIVO_ADDRESSES_LOOKED_AT 6u

/* Removes all values of a type: announces them first, then removes them. Of several addresses of
 * type 10 the first six are announced, one by one; several values of another type are not. External
 * identities in the shadow record stay.
 * db      not checked; with a null one nobody is told.
 * record  not null.
 * type    not 0.
 * Returns 0, also for an absent attribute (nobody is told then); KIVO_ERR_INVALID_ARG; the
 * attribute service's status. A failed notification is traced only. */
KIVO_API uint32_t kivo_remove_attr_from_record_by_type(kivo_db *db, attrdb_record *record,
                                                       uint32_t type) KIVO_NOEXCEPT;

/* The same for several types of a record given by label or by pointer. Goes on after a failure.
 * types   n_types entries, read during the call only.
 * n_types at least 1.
 * Returns 0, also for a label without a record; KIVO_ERR_INVALID_ARG (db or types null, n_types 0);
 * the status of the fetch; the last failure's status. */
KIVO_API uint32_t kivo_remove_attrs_by_type(kivo_db *db, uint32_t label, attrdb_record *record,
                                            const uint32_t *types, uint32_t n_types) KIVO_NOEXCEPT;

/* Removes one value of a type and then announces it. External identities are removed from the
 * shadow record, by their subtype. length  bytes of value; not checked, the store has its own
 * rules. value   may be null, which the store refuses, and may lie in the record. Returns 0, also
 * when the announcement fails (traced); KIVO_ERR_INVALID_ARG (record or db null, type 0); the
 * status of the removal (nobody is told then). */
KIVO_API uint32_t kivo_remove_attr_from_record_by_type_and_value(kivo_db *db, attrdb_record *record,
                                                                 uint32_t type, uint32_t length,
                                                                 const void *value) KIVO_NOEXCEPT;

#endif
