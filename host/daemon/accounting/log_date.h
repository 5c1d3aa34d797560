/*
 * Dates as RADIUS servers print them into their logs: "Nov 14 2023 22:13:20 UTC". Used by
 * radius_dictionary.c for attributes of the date type. Keeps no state; reads the local time zone.
 */
#ifndef KIVO_HOST_DAEMON_ACCOUNTING_LOG_DATE_H
#define KIVO_HOST_DAEMON_ACCOUNTING_LOG_DATE_H

#include <stdint.h>

/* Reads a date, whatever locale is set.
 *   text     terminated; any length
 *   seconds  since 1970, set on success, else untouched
 * A zone other than UTC and GMT must be the abbreviation that the local zone has at that time, as
 * "CET": abbreviations are ambiguous, and a guess would shift the date by hours unseen.
 * Gives NULL, or static text that says what is wrong. */
const char *log_date_parse(const char *text, uint32_t *seconds);

#endif
