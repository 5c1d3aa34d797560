/*
 * The one file that knows libfreeradius: its headers are not C++, and its dictionaries are global
 * to the process. Names and the texts of strings, octets and addresses are the library's business.
 * Integers and dates are read here, because the library wraps what is out of range and reads every
 * date in the local time zone, whatever zone it names. The library's list parser is not used: it
 * cuts values at 1023 bytes, takes a '%' in a string for an expansion, and one bad pair spoils the
 * whole list. Invariant: after open, all memory comes from `pool`, which is emptied before each
 * parse.
 */
#include "radius_dictionary.h"

#include "log_date.h"

/* The library's headers rely on macros that only these two define, in this order. */
#include <freeradius/build.h>
#include <freeradius/missing.h>

#include <freeradius/libradius.h>

#include <errno.h>
#include <limits.h>
#include <setjmp.h>
#include <signal.h>
#include <stdarg.h>
#include <string.h>
#include <strings.h>
#include <time.h>
#include <unistd.h>

#ifndef KIVO_RADIUS_DICTIONARY_DIR
#define KIVO_RADIUS_DICTIONARY_DIR "/usr/share/freeradius"
#endif

enum {
  kPoolSize = 8 * RADIUS_VALUE_MAX, /* the library copies a string at most three times */
  kTagMax = 31,
  kPrefixHeader = 2 /* a prefix on the wire: a reserved byte, the number of bits, the address */
};

static const char kTimestampName[] = "Timestamp";
static const char kNoMemory[] = "out of memory";

struct radius_dictionary {
  void *pool;
  char name[RADIUS_NAME_MAX + 1];
  char text[RADIUS_VALUE_MAX + 1]; /* the value without its quotes */
  char quote;                      /* 0 for a bare value */
  value_data_t data;               /* what a value's bytes point into, unless into `pool` */
  uint32_t word;
  uint64_t wide_word;
  char error[RADIUS_ERROR_MAX];
};

/* The library keeps pointers to the last attribute and vendor it met, and follows them after its
 * dictionaries were freed. So they are loaded once and never freed. */
static enum { kNotLoaded, kLoaded, kBroken } load_state;
static char loaded_directory[PATH_MAX];

typedef radius_status parse_fn(radius_dictionary *d, DICT_ATTR const *attribute, radius_value *out);

static parse_fn parse_by_library;
static parse_fn parse_octets;
static parse_fn parse_address;
static parse_fn parse_unsigned;
static parse_fn parse_signed;
static parse_fn parse_date;

/* Types that are missing here hold other attributes, or exist in configuration files only. */
static const struct {
  radius_kind kind;
  parse_fn *parse;
} kTypes[PW_TYPE_MAX] = {
    [PW_TYPE_STRING] = {RADIUS_KIND_TEXT, parse_by_library},
    [PW_TYPE_OCTETS] = {RADIUS_KIND_OCTETS, parse_octets},
    [PW_TYPE_ABINARY] = {RADIUS_KIND_OCTETS, parse_octets}, /* the library's reader uses the heap */
    [PW_TYPE_BYTE] = {RADIUS_KIND_INTEGER, parse_unsigned},
    [PW_TYPE_SHORT] = {RADIUS_KIND_INTEGER, parse_unsigned},
    [PW_TYPE_INTEGER] = {RADIUS_KIND_INTEGER, parse_unsigned},
    [PW_TYPE_INTEGER64] = {RADIUS_KIND_INTEGER64, parse_unsigned},
    [PW_TYPE_SIGNED] = {RADIUS_KIND_SIGNED, parse_signed},
    [PW_TYPE_DATE] = {RADIUS_KIND_DATE, parse_date},
    [PW_TYPE_IPV4_ADDR] = {RADIUS_KIND_IPV4, parse_address},
    [PW_TYPE_IPV6_ADDR] = {RADIUS_KIND_IPV6, parse_address},
    [PW_TYPE_COMBO_IP_ADDR] = {RADIUS_KIND_IPV4, parse_address}, /* the text decides */
    [PW_TYPE_IPV4_PREFIX] = {RADIUS_KIND_IPV4_PREFIX, parse_address},
    [PW_TYPE_IPV6_PREFIX] = {RADIUS_KIND_IPV6_PREFIX, parse_address},
    [PW_TYPE_IFID] = {RADIUS_KIND_INTERFACE_ID, parse_by_library},
    [PW_TYPE_ETHERNET] = {RADIUS_KIND_ETHERNET, parse_by_library},
};

const char *radius_dictionary_default_directory(void) { return KIVO_RADIUS_DICTIONARY_DIR; }

/* Log text gets into error texts, and those get onto terminals. */
static void make_printable(char *text) {
  for (; *text != '\0'; ++text) {
    if (*text < ' ' || *text > '~') *text = '?';
  }
}

static radius_status fail(radius_dictionary *d, radius_status status, const char *format, ...)
    CC_HINT(format(printf, 3, 4));

static radius_status fail(radius_dictionary *d, radius_status status, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  (void)vsnprintf(d->error, sizeof d->error, format, arguments);
  va_end(arguments);
  make_printable(d->error);
  return status;
}

static sigjmp_buf before_loading;

static void give_up_loading(int number) { siglongjmp(before_loading, number); }

/* NULL, or why not. Without memory the library mostly says so, in some places without a text. But
 * in dict_addattr() it takes a name that its table had no memory for to be there already, looks it
 * up, and follows the null pointer that it finds. */
static const char *load_with_library(const char *directory) {
  struct sigaction guard = {.sa_handler = give_up_loading};
  struct sigaction usual;
  sigaction(SIGSEGV, &guard, &usual);
  const char *reason = NULL;
  if (sigsetjmp(before_loading, 1) != 0) {
    reason = kNoMemory;
  } else if (dict_init(directory, "dictionary") < 0) {
    reason = fr_strerror();
    if (reason[strspn(reason, " ")] == '\0') reason = kNoMemory;
  }
  sigaction(SIGSEGV, &usual, NULL);
  return reason;
}

/* NULL, or why the dictionaries of this directory cannot be used. A file that is missing is found
 * out before the library begins, since what it has half loaded is lost. */
static const char *load_once(const char *directory) {
  if (load_state == kBroken) return "an earlier attempt to load dictionaries failed";
  if (load_state == kLoaded) {
    return strcmp(directory, loaded_directory) == 0 ? NULL : "others are loaded already";
  }
  char path[PATH_MAX];
  const int length = snprintf(path, sizeof path, "%s/dictionary", directory);
  if (length < 0 || (size_t)length >= sizeof path) return "the path is too long";
  if (access(path, R_OK) != 0) return strerror(errno);

  fr_hostname_lookups = false;
  fr_dns_lookups = false;
  fr_strerror_printf(" "); /* has the library take its error buffer now rather than in a parse */
  if (fr_strerror()[0] == '\0') return kNoMemory;
  load_state = kBroken;
  const char *reason = load_with_library(directory);
  if (reason != NULL) return reason;
  load_state = kLoaded;
  memcpy(loaded_directory, directory, strlen(directory) + 1); /* shorter than `path` */
  return NULL;
}

radius_dictionary *radius_dictionary_open(const char *directory, char *error, size_t error_size) {
  if (directory == NULL) directory = KIVO_RADIUS_DICTIONARY_DIR;
  radius_dictionary *d = NULL;
  tzset(); /* reads the zone's rules now rather than in a parse */
  const char *reason = load_once(directory);
  if (reason == NULL) {
    d = calloc(1, sizeof *d);
    if (d != NULL) d->pool = talloc_pool(NULL, kPoolSize);
    if (d != NULL && d->pool != NULL) return d;
    reason = kNoMemory;
  }
  free(d);
  (void)snprintf(error, error_size, "cannot load the RADIUS dictionaries of %s: %s", directory,
                 reason);
  make_printable(error);
  return NULL;
}

void radius_dictionary_close(radius_dictionary *dictionary) {
  if (dictionary == NULL) return;
  talloc_free(dictionary->pool);
  free(dictionary);
}

int radius_dictionary_find(radius_dictionary *dictionary, const char *name, uint32_t *vendor,
                           uint32_t *number) {
  (void)dictionary;
  DICT_ATTR const *attribute = dict_attrbyname(name);
  if (attribute == NULL) return 0;
  *vendor = attribute->vendor;
  *number = attribute->attr;
  return 1;
}

const char *radius_dictionary_error(const radius_dictionary *dictionary) {
  return dictionary->error;
}

static void use_bytes(radius_value *out, const void *bytes, size_t size) {
  out->bytes = bytes;
  out->size = size;
}

static void use_word(radius_dictionary *d, radius_value *out, uint32_t word) {
  d->word = word;
  out->integer = word;
  use_bytes(out, &d->word, sizeof d->word);
}

static void use_wide_word(radius_dictionary *d, radius_value *out, uint64_t word) {
  d->wide_word = word;
  out->integer = word;
  use_bytes(out, &d->wide_word, sizeof d->wide_word);
}

/* Puts the text between a value's quotes into d->text, escapes and all. */
static bool strip_quotes(radius_dictionary *d, const char *value, size_t size) {
  d->quote = 0;
  if (value[0] == '"' || value[0] == '\'') {
    d->quote = value[0];
    size_t end = 1;
    while (end < size && value[end] != d->quote) end += value[end] == '\\' ? 2 : 1;
    if (end != size - 1) return false;
    ++value;
    size -= 2;
  }
  memcpy(d->text, value, size);
  d->text[size] = '\0';
  return true;
}

/* Copies both texts with their terminators, which the library needs. */
static radius_status take_texts(radius_dictionary *d, const char *name, size_t name_size,
                                const char *value, size_t value_size) {
  if (name_size == 0 || name_size > RADIUS_NAME_MAX || memchr(name, '\0', name_size) != NULL) {
    return fail(d, RADIUS_UNKNOWN_ATTRIBUTE, "no name of an attribute: \"%.*s\"",
                name_size < 64 ? (int)name_size : 64, name);
  }
  memcpy(d->name, name, name_size);
  d->name[name_size] = '\0';
  if (value_size == 0 || value_size > RADIUS_VALUE_MAX) {
    return fail(d, RADIUS_BAD_VALUE, "%s: a value of %zu bytes, 1 to %d expected", d->name,
                value_size, RADIUS_VALUE_MAX);
  }
  if (memchr(value, '\0', value_size) != NULL) {
    return fail(d, RADIUS_BAD_VALUE, "%s: a NUL byte in the value", d->name);
  }
  if (!strip_quotes(d, value, value_size)) {
    return fail(d, RADIUS_BAD_VALUE, "%s: the closing quote is not at the end of the value",
                d->name);
  }
  return RADIUS_OK;
}

/* 0 to max in decimal, or in hexadecimal behind 0x. False for anything else. */
static bool number_from_text(const char *text, uint64_t max, uint64_t *number) {
  const bool hex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const char *digits = hex ? text + 2 : text;
  const size_t length = strspn(digits, hex ? "0123456789abcdefABCDEF" : "0123456789");
  if (length == 0 || digits[length] != '\0') return false;
  errno = 0;
  *number = strtoull(digits, NULL, hex ? 16 : 10);
  return errno == 0 && *number <= max;
}

static radius_status parse_timestamp(radius_dictionary *d, radius_value *out) {
  uint64_t seconds = 0;
  if (!number_from_text(d->text, INT64_MAX, &seconds)) {
    return fail(d, RADIUS_BAD_VALUE, "%s: no number of seconds: \"%.64s\"", d->name, d->text);
  }
  out->vendor = RADIUS_VENDOR_LOG;
  out->number = RADIUS_LOG_TIMESTAMP;
  out->kind = RADIUS_KIND_INTEGER64;
  use_wide_word(d, out, seconds);
  return RADIUS_OK;
}

/* "Attr-26.9.250" and the like: how a server writes what it has no name for, and also a known
 * attribute whose bytes do not fit its type. Either way it can be nothing but octets. */
static radius_status parse_numbered(radius_dictionary *d, radius_value *out) {
  union {
    DICT_ATTR attribute;
    char room[DICT_ATTR_SIZE];
  } unknown;
  memset(&unknown, 0, sizeof unknown);
  if (dict_unknown_from_str(&unknown.attribute, d->name) < 0 || unknown.attribute.attr == 0) {
    return fail(d, RADIUS_UNKNOWN_ATTRIBUTE, "unknown attribute %s", d->name);
  }
  if (strncasecmp(d->text, "0x", 2) != 0) {
    return fail(d, RADIUS_BAD_VALUE, "%s: hexadecimal octets expected, not \"%.64s\"", d->name,
                d->text);
  }
  out->vendor = unknown.attribute.vendor;
  out->number = unknown.attribute.attr;
  out->kind = RADIUS_KIND_OCTETS;
  return parse_octets(d, &unknown.attribute, out);
}

/* The attribute of a name, with or without a tag behind it (":1"); NULL when there is none. */
static DICT_ATTR const *find_attribute(radius_dictionary *d, uint8_t *tag) {
  char *colon = strchr(d->name, ':');
  if (colon == NULL) return dict_attrbyname(d->name);
  uint64_t number = 0;
  if (!number_from_text(colon + 1, kTagMax, &number)) return NULL;
  *tag = (uint8_t)number;
  *colon = '\0';
  DICT_ATTR const *attribute = dict_attrbyname(d->name);
  *colon = ':';
  return attribute != NULL && attribute->flags.has_tag ? attribute : NULL;
}

static radius_status parse_named(radius_dictionary *d, radius_value *out) {
  DICT_ATTR const *attribute = find_attribute(d, &out->tag);
  if (attribute == NULL) {
    return fail(d, RADIUS_UNKNOWN_ATTRIBUTE, "unknown attribute %s", d->name);
  }
  parse_fn *parse = attribute->type < PW_TYPE_MAX ? kTypes[attribute->type].parse : NULL;
  if (parse == NULL) {
    return fail(d, RADIUS_BAD_VALUE, "%s: an attribute of this type has no value of its own",
                d->name);
  }
  out->vendor = attribute->vendor;
  out->number = attribute->attr;
  out->kind = kTypes[attribute->type].kind;
  return parse(d, attribute, out);
}

radius_status radius_dictionary_parse(radius_dictionary *dictionary, const char *name,
                                      size_t name_size, const char *value, size_t value_size,
                                      radius_value *out) {
  talloc_free_children(dictionary->pool);
  memset(out, 0, sizeof *out);
  radius_status status = take_texts(dictionary, name, name_size, value, value_size);
  if (status != RADIUS_OK) return status;
  if (strcasecmp(dictionary->name, kTimestampName) == 0) {
    status = parse_timestamp(dictionary, out);
  } else if (strncasecmp(dictionary->name, "Attr-", 5) == 0) {
    status = parse_numbered(dictionary, out);
  } else {
    status = parse_named(dictionary, out);
  }
  if (status != RADIUS_OK) memset(out, 0, sizeof *out);
  return status;
}

/* Everything of one type that the library reads well; it may settle on a more special type. */
static radius_status parse_typed(radius_dictionary *d, DICT_ATTR const *attribute, PW_TYPE type,
                                 radius_value *out) {
  memset(&d->data, 0, sizeof d->data);
  const ssize_t size = value_data_from_str(d->pool, &d->data, &type, attribute, d->text,
                                           (ssize_t)strlen(d->text), d->quote);
  if (size < 0) {
    return fail(d, RADIUS_BAD_VALUE, "%s: bad value \"%.64s\": %s", d->name, d->text,
                fr_strerror());
  }
  if (type == PW_TYPE_STRING || type == PW_TYPE_OCTETS) {
    /* The library gives NULL for no octets at all. */
    use_bytes(out, size == 0 ? (const void *)&d->data : d->data.octets, (size_t)size);
    return RADIUS_OK;
  }
  if ((size_t)size > sizeof d->data) {
    return fail(d, RADIUS_BAD_VALUE, "%s: a value of %zd bytes in a fixed type", d->name, size);
  }
  out->kind = kTypes[type].kind;
  use_bytes(out, &d->data, (size_t)size);
  return RADIUS_OK;
}

static radius_status parse_by_library(radius_dictionary *d, DICT_ATTR const *attribute,
                                      radius_value *out) {
  return parse_typed(d, attribute, attribute->type, out);
}

/* Octets that do not begin with 0x are text, which the library would take with its escapes. */
static radius_status parse_octets(radius_dictionary *d, DICT_ATTR const *attribute,
                                  radius_value *out) {
  const bool hex = strncasecmp(d->text, "0x", 2) == 0;
  return parse_typed(d, attribute, hex ? PW_TYPE_OCTETS : PW_TYPE_STRING, out);
}

/* The library reads "*" as address zero and an empty prefix length as a prefix of zeroes. */
static radius_status parse_address(radius_dictionary *d, DICT_ATTR const *attribute,
                                   radius_value *out) {
  const size_t length = strlen(d->text);
  if (length == 0 || d->text[length - 1] == '/' ||
      strspn(d->text, "0123456789abcdefABCDEF:./") != length) {
    return fail(d, RADIUS_BAD_VALUE, "%s: no address: \"%.64s\"", d->name, d->text);
  }
  const radius_status status = parse_typed(d, attribute, attribute->type, out);
  if (status != RADIUS_OK) return status;
  if (out->kind == RADIUS_KIND_IPV4_PREFIX || out->kind == RADIUS_KIND_IPV6_PREFIX) {
    out->prefix_bits = out->bytes[1];
    use_bytes(out, out->bytes + kPrefixHeader, out->size - kPrefixHeader);
  }
  return RADIUS_OK;
}

static uint64_t largest(PW_TYPE type) {
  switch (type) {
    case PW_TYPE_BYTE:
      return UINT8_MAX;
    case PW_TYPE_SHORT:
      return UINT16_MAX;
    case PW_TYPE_INTEGER64:
      return UINT64_MAX;
    default:
      return UINT32_MAX;
  }
}

static radius_status parse_unsigned(radius_dictionary *d, DICT_ATTR const *attribute,
                                    radius_value *out) {
  const uint64_t max = largest(attribute->type);
  uint64_t number = 0;
  if (!number_from_text(d->text, max, &number)) {
    DICT_VALUE const *named = NULL;
    if (d->text[0] != '\0' && strlen(d->text) <= DICT_VALUE_MAX_NAME_LEN) {
      named = dict_valbyname(attribute->attr, attribute->vendor, d->text);
    }
    if (named == NULL) {
      return fail(d, RADIUS_BAD_VALUE,
                  "%s: neither a number up to %llu nor one of its names: \"%.64s\"", d->name,
                  (unsigned long long)max, d->text);
    }
    number = (uint32_t)named->value;
  }
  if (attribute->type == PW_TYPE_INTEGER64) {
    use_wide_word(d, out, number);
  } else {
    use_word(d, out, (uint32_t)number);
  }
  return RADIUS_OK;
}

static radius_status parse_signed(radius_dictionary *d, DICT_ATTR const *attribute,
                                  radius_value *out) {
  (void)attribute;
  const bool negative = d->text[0] == '-';
  uint64_t size = 0;
  if (!number_from_text(d->text + (negative ? 1 : 0), (uint64_t)INT32_MAX + (negative ? 1 : 0),
                        &size)) {
    return fail(d, RADIUS_BAD_VALUE, "%s: no signed number of 32 bits: \"%.64s\"", d->name,
                d->text);
  }
  const int64_t number = negative ? -(int64_t)size : (int64_t)size;
  use_word(d, out, (uint32_t)number);
  out->integer = (uint64_t)number;
  return RADIUS_OK;
}

static radius_status parse_date(radius_dictionary *d, DICT_ATTR const *attribute,
                                radius_value *out) {
  (void)attribute;
  uint64_t number = 0;
  uint32_t seconds = 0;
  if (number_from_text(d->text, UINT32_MAX, &number)) {
    seconds = (uint32_t)number;
  } else {
    const char *fault = log_date_parse(d->text, &seconds);
    if (fault != NULL) {
      return fail(d, RADIUS_BAD_VALUE, "%s: %s: \"%.64s\"", d->name, fault, d->text);
    }
  }
  use_word(d, out, seconds);
  return RADIUS_OK;
}
