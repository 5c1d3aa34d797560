/* The database on the operator's console: header, attribute table, records found by a value.
 *
 * The stream of devShZelConsoleFd (platform/console.h) takes the output, standard output when it holds
 * none; it is read anew for every single write. Everything here only reads; handle-name callbacks
 * run inside. Outcomes are told on the console or in the trace. */
#ifndef KIVO_DISPLAY_H
#define KIVO_DISPLAY_H

#include <stdio.h>

#include "kivo/database.h"
#include "kivo/export.h"

#define KIVO_SHOW_DB_NAME "ATTR_DB" /* the database that is shown */

/* Command types of kivo_show_db(); any other number shows the plain attribute table. */
#define KIVO_SHOW_ATTRIBUTES       UINT32_C(0)
#define KIVO_SHOW_BY_AUDIT_SESSION UINT32_C(2) /* filter: address of a text, 24 characters of which count */
#define KIVO_SHOW_BY_MAC           UINT32_C(3) /* filter: address of 6 bytes */
#define KIVO_SHOW_BY_IPV4          UINT32_C(4) /* filter: the address itself, network order in memory */
#define KIVO_SHOW_NOTIFICATIONS    UINT32_C(6) /* attribute table with the notification columns */

/* Directs all console output to a stream; null is standard output. Returns the variable's address. */
KIVO_API FILE **kivo_devsh_printf_init(FILE *stream) KIVO_NOEXCEPT;

/* Shows every database named ATTR_DB: its header, then what the command type asks for.
 * filter  as the command type says, else ignored; a null address matches nothing. A text shorter
 *         than 24 characters counts as padded with zeros.
 * Cost: the configuration, or the records found. */
KIVO_API void kivo_show_db(uint32_t command_type, uint64_t filter) KIVO_NOEXCEPT;

#endif
