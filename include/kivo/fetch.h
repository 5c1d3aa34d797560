/* The database for replies: what an answer to a show request carries, gathered into arrays of the
 * caller. All functions read the databases named ATTR_DB (display.h); none writes to the console,
 * notifies, or returns a status, and of traces there are only those of the look-ups inside.
 *
 * Conventions:
 * 1. Arrays are the caller's and have room for KIVO_REPLY_SLOTS entries; nothing is written past
 *    them, also not when a database has more attribute types or when two databases have the name.
 * 2. A value slot takes a text of at most 25 characters and its NUL. Slots of values that have no
 *    text (IPv6 addresses, binaries) and slots of a search that finds nothing keep what they held.
 */
#ifndef KIVO_FETCH_H
#define KIVO_FETCH_H

#include "kivo/database.h"
#include "kivo/export.h"

#define KIVO_REPLY_SLOTS    21u
#define KIVO_VALUE_TEXT_LEN 26u

typedef char kivo_value_slot[KIVO_VALUE_TEXT_LEN];

/* The database as the last fetch found it, kivo_fetch_attr_name_type_data() aside; zero when there
 * was none, the later one when two have the name. Its pointers hold until that is created anew. */
KIVO_API kivo_db client_info_show;

/* Name, owner and number of records of the database; outputs stay as they are without one. Constant
 * time.
 * name     KIVO_NAME_SIZE bytes; receives a NUL-terminated text; may be null.
 * owner    the same.
 * records  receives the record store's number of records; may be null. */
KIVO_API void kivo_fetch_common_header(char *name, char *owner, uint32_t *records) KIVO_NOEXCEPT;

/* Position and kivo_data_type of every attribute type; the position runs on over both databases.
 * With a null argument nothing happens. Cost: the attribute types.
 * indexes  entry i receives i.
 * types    entry i receives the kind. */
KIVO_API void kivo_fetch_attr_name_type_data(uint32_t *indexes,
                                             kivo_data_type *types) KIVO_NOEXCEPT;

/* The attributes of one record as texts; of several with the value, that with the lowest label.
 * session_id  the audit session id: a NUL-terminated text, of which 24 characters count; a shorter
 *             one is padded with zeros.
 * mac         the MAC address, 6 bytes.
 * address     the IPv4 address, 4 bytes in network order.
 * found       set to 1 by the caller; becomes 0 when there is no such record.
 * indexes     entry i receives i, also when attribute i could not be read.
 * slots       slot i receives the text of attribute i.
 * With a null argument nothing happens. Cost: one look-up, and the record. */
KIVO_API void kivo_fetch_show_records_filter_by_session_id(const char *session_id, uint32_t *found,
                                                           uint32_t *indexes,
                                                           kivo_value_slot *slots) KIVO_NOEXCEPT;
KIVO_API void kivo_fetch_show_records_filter_by_mac_addr(const void *mac, uint32_t *found,
                                                         uint32_t *indexes,
                                                         kivo_value_slot *slots) KIVO_NOEXCEPT;
KIVO_API void kivo_fetch_show_records_filter_by_ipv4_addr(const void *address, uint32_t *found,
                                                          uint32_t *indexes,
                                                          kivo_value_slot *slots) KIVO_NOEXCEPT;

#endif
