/*
 * Dates as RADIUS servers print them. Every field is checked, since the C library would quietly
 * turn February 30 into March 1.
 */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE /* timegm and tm_zone */
#endif

#include "log_date.h"

#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <time.h>

enum { kTextMax = 40 };

/* The month's name to 0 to 11, -1 for no month. */
static int month_number(const char *name) {
  static const char kMonths[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int month = 0; month < 12; ++month) {
    if (strcasecmp(name, kMonths[month]) == 0) return month;
  }
  return -1;
}

static bool same_clock(const struct tm *a, const struct tm *b) {
  return a->tm_mday == b->tm_mday && a->tm_hour == b->tm_hour && a->tm_min == b->tm_min &&
         a->tm_sec == b->tm_sec;
}

/* The abbreviation tells summer time from winter time in the hour that occurs twice. */
static bool local_seconds(const struct tm *clock, const char *zone, time_t *seconds) {
  for (int summer = 0; summer < 2; ++summer) {
    struct tm local = *clock;
    local.tm_isdst = summer;
    *seconds = mktime(&local);
    if (same_clock(&local, clock) && strcmp(local.tm_zone, zone) == 0) return true;
  }
  return false;
}

/* Without an abbreviation. mktime() is not told whether it is summer: where there never is, it would
 * look for one through the years. */
static bool first_local_seconds(const struct tm *clock, time_t *seconds) {
  struct tm local = *clock;
  local.tm_isdst = -1;
  *seconds = mktime(&local);
  if (!same_clock(&local, clock)) return false;
  const time_t hour_before = *seconds - 3600;
  if (localtime_r(&hour_before, &local) != NULL && same_clock(&local, clock)) {
    *seconds = hour_before;
  }
  return true;
}

/* The seconds of a date whose month is a name and whose year is as people write it; `clock` gets
 * its month, year and day of the week. Local time without a zone. */
static const char *seconds_of(struct tm *clock, const char *month, const char *zone,
                              uint32_t *seconds) {
  clock->tm_mon = month_number(month);
  clock->tm_year -= 1900;
  struct tm checked = *clock;
  time_t result = timegm(&checked);
  if (clock->tm_mon < 0 || !same_clock(&checked, clock)) return "no such date";
  clock->tm_wday = checked.tm_wday;
  const bool is_utc = zone != NULL && (strcmp(zone, "UTC") == 0 || strcmp(zone, "GMT") == 0);
  if (zone == NULL && !first_local_seconds(clock, &result)) return "no such date";
  if (zone != NULL && !is_utc && !local_seconds(clock, zone, &result)) {
    return "a time zone that is neither UTC nor the local one";
  }
  if (result < 0 || (uint64_t)result > UINT32_MAX) return "a date before 1970 or after 2106";
  *seconds = (uint32_t)result;
  return NULL;
}

const char *log_date_parse(const char *text, uint32_t *seconds) {
  char month[4];
  char zone[8];
  int end = 0;
  struct tm clock = {0};
  if (strnlen(text, kTextMax + 1) > kTextMax ||
      sscanf(text, "%3s %2d %4d %2d:%2d:%2d %7s%n", month, &clock.tm_mday, &clock.tm_year,
             &clock.tm_hour, &clock.tm_min, &clock.tm_sec, zone, &end) != 7 ||
      text[end] != '\0') {
    return "not a date";
  }
  return seconds_of(&clock, month, zone, seconds);
}

const char *log_date_parse_header(const char *text, size_t size, uint32_t *seconds) {
  char line[kTextMax + 1];
  char day[4];
  char month[4];
  int end = 0;
  struct tm clock = {0};
  if (size > kTextMax) return "not a date";
  memcpy(line, text, size);
  line[size] = '\0';
  if (sscanf(line, "%3s %3s %2d %2d:%2d:%2d %4d%n", day, month, &clock.tm_mday, &clock.tm_hour,
             &clock.tm_min, &clock.tm_sec, &clock.tm_year, &end) != 7 ||
      (size_t)end != size) {
    return "not a date";
  }
  static const char kDays[][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  uint32_t result = 0;
  const char *fault = seconds_of(&clock, month, NULL, &result);
  if (fault != NULL) return fault;
  if (strcasecmp(day, kDays[clock.tm_wday]) != 0) return "another day of the week";
  *seconds = result;
  return NULL;
}
