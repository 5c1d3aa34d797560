/* The AAA attribute dictionary: every attribute type with a name of its own, its number and kind.
 *
 * Types are 1 to AAA_ATTR_TYPE_MAX. This table is the one place where numbers, names and kinds
 * meet; the constants below, the look-ups of aaa.h and the documents follow it. A type without a
 * row is a valid one: it is called "attribute-N" and its kind is unknown to the dictionary.
 * RADIUS names in the comments: RFC 2865, 2866, 2869, 3162, 6911. */
#ifndef PLATFORM_AAA_DICTIONARY_H
#define PLATFORM_AAA_DICTIONARY_H

#include <stdint.h>

#define AAA_ATTR_TYPE_MAX UINT32_C(1490)

/* Kinds of values; the same numbers as the library's data types. */
#define AAA_KIND_INT32     UINT32_C(0) /* 4 bytes, host order */
#define AAA_KIND_INT64     UINT32_C(1) /* 8 bytes, host order */
#define AAA_KIND_IPV4      UINT32_C(2) /* 4 bytes, network order */
#define AAA_KIND_IPV6      UINT32_C(3) /* 16 bytes; or a text, where the row says so */
#define AAA_KIND_MAC       UINT32_C(4) /* 6 bytes as transmitted */
#define AAA_KIND_SESN_GUID UINT32_C(5) /* 24 characters, no NUL */
#define AAA_KIND_POINTER   UINT32_C(6) /* 8 bytes */
#define AAA_KIND_VAR_BIN   UINT32_C(7)
#define AAA_KIND_VAR_STR   UINT32_C(8) /* text without a NUL */
#define AAA_KIND_UNKNOWN   UINT32_C(9)

/* clang-format off */
/*        constant                        number  name                    kind */
#define AAA_DICTIONARY(X) \
  X(AAA_ATTR_USER_NAME,                   1,      "user-name",            AAA_KIND_VAR_STR)   /* User-Name */ \
  X(AAA_ATTR_DOMAIN,                      2,      "domain",               AAA_KIND_VAR_STR)   /* realm of the user name */ \
  X(AAA_ATTR_METHOD,                      3,      "method",               AAA_KIND_VAR_STR)   /* how the session was authenticated */ \
  X(AAA_ATTR_ACCESS_SERVER_ADDRESS,       4,      "server-address",       AAA_KIND_IPV4)      /* NAS-IP-Address; 16 bytes for NAS-IPv6-Address */ \
  X(AAA_ATTR_ACCESS_SERVER_ID,            5,      "server-id",            AAA_KIND_VAR_STR)   /* NAS-Identifier */ \
  X(AAA_ATTR_PORT,                        6,      "port",                 AAA_KIND_INT32)     /* NAS-Port */ \
  X(AAA_ATTR_PORT_TYPE,                   7,      "port-type",            AAA_KIND_INT32)     /* NAS-Port-Type */ \
  X(AAA_ATTR_IPV4_ADDRESS,                8,      "ipv4-address",         AAA_KIND_IPV4)      /* Framed-IP-Address */ \
  X(AAA_ATTR_INTERFACE_NAME,              9,      "interface-name",       AAA_KIND_VAR_STR)   /* NAS-Port-Id */ \
  X(AAA_ATTR_IPV6_ADDRESSES,              10,     "ipv6-addresses",       AAA_KIND_IPV6)      /* Framed-IPv6-Address; several of 16 bytes */ \
  X(AAA_ATTR_SESSION_ID,                  11,     "session-id",           AAA_KIND_VAR_STR)   /* Acct-Session-Id */ \
  X(AAA_ATTR_START_TIME,                  12,     "start-time",           AAA_KIND_INT64)     /* seconds since 1970 */ \
  X(AAA_ATTR_UPDATE_TIME,                 13,     "update-time",          AAA_KIND_INT64)     /* of the last event, seconds since 1970 */ \
  X(AAA_ATTR_CALLED_STATION,              14,     "called-station",       AAA_KIND_VAR_STR)   /* Called-Station-Id */ \
  X(AAA_ATTR_CALLING_STATION,             15,     "calling-station",      AAA_KIND_VAR_STR)   /* Calling-Station-Id as sent */ \
  X(AAA_ATTR_SERVICE_TYPE,                16,     "service-type",         AAA_KIND_INT32)     /* Service-Type */ \
  X(AAA_ATTR_SESSION_TIME,                17,     "session-time",         AAA_KIND_INT32)     /* Acct-Session-Time, seconds */ \
  X(AAA_ATTR_OCTETS_IN,                   18,     "octets-in",            AAA_KIND_INT64)     /* Acct-Input-Octets with its gigawords */ \
  X(AAA_ATTR_OCTETS_OUT,                  19,     "octets-out",           AAA_KIND_INT64)     /* Acct-Output-Octets with its gigawords */ \
  X(AAA_ATTR_PACKETS_IN,                  20,     "packets-in",           AAA_KIND_INT32)     /* Acct-Input-Packets */ \
  X(AAA_ATTR_PACKETS_OUT,                 21,     "packets-out",          AAA_KIND_INT32)     /* Acct-Output-Packets */ \
  X(AAA_ATTR_SESSION_KEY,                 22,     "session-key",          AAA_KIND_VAR_BIN)   /* access server and Acct-Session-Id as one */ \
  X(AAA_ATTR_ACCESS_SERVER_KEY,           23,     "server-key",           AAA_KIND_VAR_BIN)   /* what identifies the access server */ \
  X(AAA_ATTR_MAC_ADDRESS,                 42,     "mac-address",          AAA_KIND_MAC)       /* Calling-Station-Id, where it is one */ \
  X(AAA_ATTR_INTERFACE_ID,                220,    "interface-id",         AAA_KIND_INT32)     /* number of the interface in this process */ \
  X(AAA_ATTR_INTERFACE,                   221,    "interface",            AAA_KIND_INT32)     /* the same as decimal text */ \
  X(AAA_ATTR_IPV6_PREFIX,                 687,    "ipv6-prefix",          AAA_KIND_IPV6)      /* Framed-IPv6-Prefix, as text */ \
  X(AAA_ATTR_AUDIT_SESSION_ID,            819,    "audit-session-id",     AAA_KIND_SESN_GUID) /* Acct-Multi-Session-Id, or made */ \
  X(AAA_ATTR_AUTHORIZATION_TOKEN,         951,    "authorization-token",  AAA_KIND_INT32)     /* never shown */ \
  X(AAA_ATTR_EXT_CLASS,                   1124,   "external-class",       AAA_KIND_VAR_BIN)   /* Class; external identity */ \
  X(AAA_ATTR_EXT_USER,                    1125,   "external-user",        AAA_KIND_VAR_BIN)   /* external identity */ \
  X(AAA_ATTR_EXT_DEVICE,                  1126,   "external-device",      AAA_KIND_VAR_BIN)   /* external identity */ \
  X(AAA_ATTR_EXT_GROUP,                   1127,   "external-group",       AAA_KIND_VAR_BIN)   /* external identity */ \
  X(AAA_ATTR_EXT_TAG,                     1128,   "external-tag",         AAA_KIND_VAR_BIN)   /* external identity */ \
  X(AAA_ATTR_EXT_CERTIFICATE,             1129,   "external-cert",        AAA_KIND_VAR_BIN)   /* external identity */ \
  X(AAA_ATTR_EXT_LOCATION,                1248,   "external-location",    AAA_KIND_VAR_BIN)   /* external identity */
/* clang-format on */

/* The constants, AAA_ATTR_USER_NAME and so on. */
enum {
#define AAA_DICTIONARY_CONSTANT(constant, number, name, kind) constant = (number),
  AAA_DICTIONARY(AAA_DICTIONARY_CONSTANT)
#undef AAA_DICTIONARY_CONSTANT
};

#endif
