/*
 * RADIUS dictionaries and the meaning of one attribute pair, as a plain C interface over
 * libfreeradius. Everything of that library stays behind radius_dictionary.c.
 *
 * Conventions
 * 1. Pointers are non-NULL unless said otherwise. Texts given with a size need no terminator.
 * 2. The dictionaries belong to the process: the first open call loads them, later ones share them,
 *    and they stay until the process ends. No locks: one thread uses all of them.
 * 3. Parsing takes nothing from the heap. It works in memory that the open call set aside, so that
 *    it neither grows nor fails when memory runs out.
 * 4. Names are never resolved over the network.
 */
#ifndef KIVO_HOST_DAEMON_ACCOUNTING_RADIUS_DICTIONARY_H
#define KIVO_HOST_DAEMON_ACCOUNTING_RADIUS_DICTIONARY_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Longest name and value text that radius_dictionary_parse() accepts, in bytes. */
#define RADIUS_NAME_MAX  127
#define RADIUS_VALUE_MAX 16384

/* Room that an error text needs, terminator included; a longer text is cut. */
#define RADIUS_ERROR_MAX 256

/* The time at which the server logged a record, in seconds since 1970. Servers write it into every
 * record as "Timestamp", but it is no RADIUS attribute and no dictionary has it. */
#define RADIUS_VENDOR_LOG    0xffffffffu
#define RADIUS_LOG_TIMESTAMP 1u

/* What `bytes` of a radius_value holds, and whether `integer` is set as well. */
typedef enum radius_kind {
  RADIUS_KIND_TEXT = 1,     /* the text without quotes and escapes; may hold NUL bytes */
  RADIUS_KIND_OCTETS,       /* bytes as received; a packet filter as the text in the log */
  RADIUS_KIND_INTEGER,      /* uint32_t in host order, `integer` too; 8 and 16 bit ones widened */
  RADIUS_KIND_INTEGER64,    /* uint64_t in host order, `integer` too */
  RADIUS_KIND_SIGNED,       /* int32_t in host order; `integer` is it widened to int64_t and cast */
  RADIUS_KIND_DATE,         /* uint32_t in host order, seconds since 1970, `integer` too */
  RADIUS_KIND_IPV4,         /* 4 bytes, network order */
  RADIUS_KIND_IPV6,         /* 16 bytes, network order */
  RADIUS_KIND_IPV4_PREFIX,  /* 4 bytes, network order, host part zero; `prefix_bits` 0 to 32 */
  RADIUS_KIND_IPV6_PREFIX,  /* 16 bytes, network order, host part zero; `prefix_bits` 0 to 128 */
  RADIUS_KIND_INTERFACE_ID, /* 8 bytes, network order */
  RADIUS_KIND_ETHERNET      /* 6 bytes */
} radius_kind;

typedef struct radius_value {
  uint32_t vendor; /* 0 for standard and server-internal attributes, RADIUS_VENDOR_LOG see above */
  uint32_t number; /* within the vendor, as the dictionary counts; nested ones are packed */
  radius_kind kind;
  uint8_t tag;         /* 1 to 31, or 0 without a tag */
  uint8_t prefix_bits; /* prefix kinds only, else 0 */
  uint64_t integer;    /* integer kinds and dates only, else 0 */
  const uint8_t *bytes;
  size_t size;
} radius_value;

typedef enum radius_status {
  RADIUS_OK = 0,
  RADIUS_UNKNOWN_ATTRIBUTE, /* no dictionary has this name */
  RADIUS_BAD_VALUE          /* the attribute is known and the text is no value of it */
} radius_status;

typedef struct radius_dictionary radius_dictionary;

/* The directory that was found when this program was configured; static text. */
const char *radius_dictionary_default_directory(void);

/* Loads the file "dictionary" of a directory and all that it includes, unless they are loaded.
 *   directory   NULL means the default directory; with dictionaries loaded, the same text as then
 *   error       receives a text naming the directory on failure; untouched on success
 *   error_size  bytes at `error`, at least 1; RADIUS_ERROR_MAX is enough
 * Gives NULL when the dictionaries cannot be read, others are loaded, or memory ran out. When a
 * dictionary turns out bad half-way, no later call succeeds; a file that is missing or unreadable
 * at the start leaves everything as it was. The caller gives the result back with
 * radius_dictionary_close().
 * Cost: the first time about 30 ms and 2 MB with the dictionaries of Debian 12. */
radius_dictionary *radius_dictionary_open(const char *directory, char *error, size_t error_size);

/* Releases what one open call gave and every value that came from it. NULL is ignored. */
void radius_dictionary_close(radius_dictionary *dictionary);

/* Finds an attribute by name, any case.
 *   vendor, number  set when found, else untouched
 * Gives 1 when found, else 0. Cost: one hash look-up. */
int radius_dictionary_find(radius_dictionary *dictionary, const char *name, uint32_t *vendor,
                           uint32_t *number);

/* Turns one pair, as a server's log has it, into a typed value.
 *   name   an attribute of the dictionaries in any case, one with a tag ("Tunnel-Type:1"), the
 *          number form of an attribute that the server did not know ("Attr-26.9.250", value then
 *          0x and hex digits, always octets, whatever its number), or "Timestamp"
 *   value  bare, or in double quotes with \" \\ \n \r \t \ooo inside, or in single quotes.
 *          Integers are decimal or 0x hexadecimal and within range, or a name from the dictionary.
 *          Addresses are numeric. Dates are seconds since 1970, or "Nov 14 2023 22:13:20 UTC" with
 *          UTC, GMT or an abbreviation of this host's own time zone; others are refused, since
 *          reading them in the wrong zone would go unnoticed.
 *   out    set on RADIUS_OK, else zeroed; its bytes stay until the next parse or close
 * On any other status radius_dictionary_error() says why.
 * Cost: a fraction of a microsecond. */
radius_status radius_dictionary_parse(radius_dictionary *dictionary, const char *name,
                                      size_t name_size, const char *value, size_t value_size,
                                      radius_value *out);

/* Why the last parse failed: one line, printable ASCII, whatever stood in the log. Stays until the
 * next parse or close; meaningless after RADIUS_OK. */
const char *radius_dictionary_error(const radius_dictionary *dictionary);

#ifdef __cplusplus
}
#endif

#endif
