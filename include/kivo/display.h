/* The database on the operator's console: header, attribute table, records found by a value.
 *
 * Conventions:
 * 1. The stream of devShZelConsoleFd (platform/console.h) takes the output, standard output when it
 *    holds none; it is read anew for every single write.
 * 2. Everything here only reads, and notifies nobody. Outcomes are told on the console or in the
 *    trace. Handle-name callbacks (database.h) run inside KIVO_SHOW_NOTIFICATIONS.
 * 3. Texts are those of the console: they begin with a line break, and mostly end without one. */
#ifndef KIVO_DISPLAY_H
#define KIVO_DISPLAY_H

#include <stdio.h>

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/attrdb.h"

#define KIVO_SHOW_DB_NAME "ATTR_DB" /* databases of this name are shown, no others */

/* Command types of kivo_show_db(); any other number shows the plain attribute table. */
#define KIVO_SHOW_ATTRIBUTES       UINT32_C(0)
#define KIVO_SHOW_BY_AUDIT_SESSION UINT32_C(2) /* filter: address of a text; 24 characters count */
#define KIVO_SHOW_BY_MAC           UINT32_C(3) /* filter: address of 6 bytes */
#define KIVO_SHOW_BY_IPV4          UINT32_C(4) /* filter: the address, network order in memory */
#define KIVO_SHOW_NOTIFICATIONS    UINT32_C(6) /* attribute table with the notification columns */

/* Directs all console output to a stream.
 * stream  stays the caller's: direct the output elsewhere before it is closed. Null is standard
 *         output.
 * Returns the address of devShZelConsoleFd. */
KIVO_API FILE **kivo_devsh_printf_init(FILE *stream) KIVO_NOEXCEPT;

/* Shows every database named ATTR_DB: its header, then what the command type asks for. Without one
 * it says so.
 * command_type  one of the above.
 * filter        as the command type says, else ignored; a null address matches nothing. A text is
 *               NUL-terminated; one shorter than 24 characters counts as padded with zeros.
 * Cost: the configuration, or the records found. */
KIVO_API void kivo_show_db(uint32_t command_type, uint64_t filter) KIVO_NOEXCEPT;

/* The context of a record walk that prints: filled by kivo_show_all_records(). */
typedef struct kivo_show_walk_ctx {
  kivo_db *db;     /* a copy of the database's handle, taken before the walk */
  uint32_t total;  /* records when the walk began */
  uint32_t number; /* of the record in hand, counted from 0 */
} kivo_show_walk_ctx;

#define KIVO_SHOW_RECORD_ATTRS 14u /* acceleration entries that a record listing reads */

/* Lists the databases named ATTR_DB; without one it writes nothing.
 * detail  0: how many records each index tree holds; else every record, with the attributes of the
 *         first KIVO_SHOW_RECORD_ATTRS acceleration entries and its external identities.
 * Cost: with detail a walk over all records. */
KIVO_API void kivo_show_all_records(uint32_t detail) KIVO_NOEXCEPT;

/* Lists a database's attribute types with their numbers. A null database lists nothing. */
KIVO_API void kivo_show_attrs_short(const kivo_db *db) KIVO_NOEXCEPT;

/* Prints one record of such a walk and counts it. For attrdb_walk_all_records(), which passes the
 * context as a plain pointer.
 * Returns 1; 0, without writing, when an argument is null. */
KIVO_API uint32_t kivo_show_record_attrs_test(attrdb_record *record, void *context) KIVO_NOEXCEPT;

#endif
