/*
 * Dates as RADIUS servers print them into their logs: "Nov 14 2023 22:13:20 UTC" as the value of an
 * attribute, "Tue Nov 14 22:13:20 2023" as the first line of a record. Keeps no state; reads the
 * local time zone.
 */
#ifndef KIVO_HOST_DAEMON_ACCOUNTING_LOG_DATE_H
#define KIVO_HOST_DAEMON_ACCOUNTING_LOG_DATE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Reads a date, whatever locale is set.
 *   text     terminated; any length
 *   seconds  since 1970, set on success, else untouched
 * A zone other than UTC and GMT must be the abbreviation that the local zone has at that time, as
 * "CET": abbreviations are ambiguous, and a guess would shift the date by hours unseen.
 * Gives NULL, or static text that says what is wrong. */
const char *log_date_parse(const char *text, uint32_t *seconds);

/* Reads the date of a record's first line, which names no zone: the local one, where the daemon
 * runs beside the server whose log it reads. Of an hour that occurs twice it is the first.
 *   text, size  without a line end; needs no terminator
 * Otherwise as above. Cost: about a microsecond. */
const char *log_date_parse_header(const char *text, size_t size, uint32_t *seconds);

#ifdef __cplusplus
}
#endif

#endif
