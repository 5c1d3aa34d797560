/* The message set: what peers of the request channel say to each other. A message is made field by
 * field, rendered as text for a trace, and marshaled as one frame. What came in is read by the
 * names of its fields. The layout on the wire is in generated/messages.proto.
 *
 * Conventions:
 * 1. *err is an error word that the caller sets to 0 before the first call. An operation that fails
 *    puts its status there. Once it is set every further call with it changes nothing, except that
 *    a create still creates and a destroy always destroys. err is never null.
 * 2. Statuses: MESSAGE_ERR_NO_MEMORY; MESSAGE_ERR_INVALID_ARG for a null object, text or value, a
 *    MAC address that has not 6 bytes, a field that the message lacks; MESSAGE_ERR_NO_ROOM for a
 *    text that does not fit the buffer and for a frame above MESSAGE_FRAME_MAX.
 * 3. A text is given by pointer and length and copied; it may hold any bytes. A null text is
 *    accepted with length 0.
 * 4. What a create returned is given back with the type's destroy, which accepts null. A carried
 *    structure belongs to its message. Nothing here notifies anybody.
 * 5. Every call costs what its argument measures, except where it says so. */
#ifndef PLATFORM_MESSAGES_H
#define PLATFORM_MESSAGES_H

#include <stddef.h>
#include <stdint.h>

#include "platform/export.h"
#include "platform/status.h"

#define MESSAGE_FRAME_MAX    65536u /* bytes of a frame behind its length word */
#define MESSAGE_SESS_ID_SIZE 512u
#define MESSAGE_MAC_SIZE     6u

/* Which message a frame carries; the numbers are those of the schema. */
enum {
  MESSAGE_SHOW_KIVO_DATABASE_REQUEST = 1,
  MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_START = 2,
  MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_COMMIT = 3,
  MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_ABORT = 4,
  MESSAGE_ZELUI_KIVO_DB_COMMON_MSG = 5,
  MESSAGE_ZELUI_KIVO_DB_FILTER_MSG = 6,
  MESSAGE_ZELUI_KIVO_DB_MSG = 7,
  MESSAGE_NEGATIVE_ACKNOWLEDGEMENT = 8,
  MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST = 9,
  MESSAGE_KIVO_ATTRIBUTES_MSG = 10
};

/* The definitions that a connection's messages follow; channel_message_definitions() gives them. */
typedef struct message_definitions message_definitions;

/* Where frames are appended; the channel has one for each connection. */
typedef struct message_buffer message_buffer;

/* Appends one frame that carries the message; a message without fields is null.
 * Returns 0 or a status; nothing is appended then. */
typedef uint32_t (*message_marshal_fn)(const void *message, message_buffer *out);

/* ---- MAC addresses */

typedef struct message_mac message_mac;

PLATFORM_API message_mac *message_mac_create(const message_definitions *definitions,
                                             uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void message_mac_destroy(message_mac *mac) PLATFORM_NOEXCEPT;
/* Sets, and reads, the 6 bytes in the order of transmission. What is read is zero on failure. */
PLATFORM_API void message_mac_set(message_mac *mac, const uint8_t bytes[MESSAGE_MAC_SIZE],
                                  uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void message_mac_read(const message_mac *mac, uint8_t bytes[MESSAGE_MAC_SIZE],
                                   uint32_t *err) PLATFORM_NOEXCEPT;

/* ---- Requests */

/* Asks for the session database. At most one of the three filters counts, in the order session id,
 * MAC address, IPv4 address. */
typedef struct show_kivo_database_request {
  uint32_t attr_info;                 /* not 0: list the attribute types with their kinds */
  uint32_t attr_info_blank;           /* not 0: send that list without content */
  uint32_t sess_id_present;           /* not 0: the session with this audit session id */
  char sess_id[MESSAGE_SESS_ID_SIZE]; /* NUL-terminated */
  uint32_t ipv4_present;              /* not 0: the session with this address */
  uint32_t ipv4;                      /* network byte order in memory */
  uint32_t mac_present;               /* not 0: the session of this device */
  const message_mac *mac;             /* the request's own; null when it was not sent */
} show_kivo_database_request;

/* message is a show_kivo_database_request; a null mac is left out. */
PLATFORM_API uint32_t show_kivo_database_request_marshal(const void *message,
                                                         message_buffer *out) PLATFORM_NOEXCEPT;

/* Asks for the names behind the positions of the replies; no fields. */
PLATFORM_API uint32_t show_kivo_attributes_request_marshal(const void *message,
                                                           message_buffer *out) PLATFORM_NOEXCEPT;

/* ---- Reply: the database */

typedef struct zelui_kivo_db_common_msg zelui_kivo_db_common_msg;
typedef struct zelui_kivo_db_common zelui_kivo_db_common;

PLATFORM_API zelui_kivo_db_common_msg *zelui_kivo_db_common_msg_create(
    const message_definitions *definitions, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_common_msg_destroy(zelui_kivo_db_common_msg *message)
    PLATFORM_NOEXCEPT;
/* The structure that the message carries; null when the error word is set. */
PLATFORM_API zelui_kivo_db_common *zelui_kivo_db_common_msg_carried(
    zelui_kivo_db_common_msg *message, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_common_set_cmdtype(zelui_kivo_db_common *common, uint32_t cmdtype,
                                                   uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_common_set_records(zelui_kivo_db_common *common, uint32_t records,
                                                   uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_common_set_attr_number(zelui_kivo_db_common *common,
                                                       uint32_t attr_number,
                                                       uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_common_set_database(zelui_kivo_db_common *common, const char *text,
                                                    size_t length, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_common_set_owner(zelui_kivo_db_common *common, const char *text,
                                                 size_t length, uint32_t *err) PLATFORM_NOEXCEPT;
/* Renders the message on one line, NUL-terminated; the buffer is empty on failure. */
PLATFORM_API void zelui_kivo_db_common_msg_render(const zelui_kivo_db_common_msg *message,
                                                  char *buffer, size_t size,
                                                  uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t zelui_kivo_db_common_msg_marshal(const void *message,
                                                       message_buffer *out) PLATFORM_NOEXCEPT;

/* ---- Reply: one session */

typedef struct zelui_kivo_db_filter_msg zelui_kivo_db_filter_msg;
typedef struct zelui_kivo_db_filter zelui_kivo_db_filter;
typedef struct zelui_kivo_db_filter_data zelui_kivo_db_filter_data;

PLATFORM_API zelui_kivo_db_filter_msg *zelui_kivo_db_filter_msg_create(
    const message_definitions *definitions, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_msg_destroy(zelui_kivo_db_filter_msg *message)
    PLATFORM_NOEXCEPT;
PLATFORM_API zelui_kivo_db_filter *zelui_kivo_db_filter_msg_carried(
    zelui_kivo_db_filter_msg *message, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_set_sess_id(zelui_kivo_db_filter *filter, const char *text,
                                                   size_t length, uint32_t *err) PLATFORM_NOEXCEPT;
/* Copies the address. */
PLATFORM_API void zelui_kivo_db_filter_set_mac(zelui_kivo_db_filter *filter, const message_mac *mac,
                                               uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_set_ipv4(zelui_kivo_db_filter *filter, uint32_t ipv4,
                                                uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_set_found(zelui_kivo_db_filter *filter, uint32_t found,
                                                 uint32_t *err) PLATFORM_NOEXCEPT;
/* Appends an entry to filter_info. The entry belongs to the list when the error word is 0 after the
 * call, else to the caller as before. */
PLATFORM_API void zelui_kivo_db_filter_append_filter_info(zelui_kivo_db_filter *filter,
                                                          zelui_kivo_db_filter_data *entry,
                                                          uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_msg_render(const zelui_kivo_db_filter_msg *message,
                                                  char *buffer, size_t size,
                                                  uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t zelui_kivo_db_filter_msg_marshal(const void *message,
                                                       message_buffer *out) PLATFORM_NOEXCEPT;

PLATFORM_API zelui_kivo_db_filter_data *zelui_kivo_db_filter_data_create(
    const message_definitions *definitions, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_data_destroy(zelui_kivo_db_filter_data *entry)
    PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_data_set_attr_names(zelui_kivo_db_filter_data *entry,
                                                           uint32_t attr_names,
                                                           uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_filter_data_set_attr_values(zelui_kivo_db_filter_data *entry,
                                                            const char *text, size_t length,
                                                            uint32_t *err) PLATFORM_NOEXCEPT;

/* ---- Reply: the attribute types */

typedef struct zelui_kivo_db_msg zelui_kivo_db_msg;
typedef struct zelui_kivo_db zelui_kivo_db;
typedef struct zelui_kivo_db_data zelui_kivo_db_data;

PLATFORM_API zelui_kivo_db_msg *zelui_kivo_db_msg_create(const message_definitions *definitions,
                                                         uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_msg_destroy(zelui_kivo_db_msg *message) PLATFORM_NOEXCEPT;
PLATFORM_API zelui_kivo_db *zelui_kivo_db_msg_carried(zelui_kivo_db_msg *message,
                                                      uint32_t *err) PLATFORM_NOEXCEPT;
/* Appends an entry to db_info; ownership as for filter_info. */
PLATFORM_API void zelui_kivo_db_append_db_info(zelui_kivo_db *db, zelui_kivo_db_data *entry,
                                               uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_msg_render(const zelui_kivo_db_msg *message, char *buffer,
                                           size_t size, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t zelui_kivo_db_msg_marshal(const void *message,
                                                message_buffer *out) PLATFORM_NOEXCEPT;

PLATFORM_API zelui_kivo_db_data *zelui_kivo_db_data_create(const message_definitions *definitions,
                                                           uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_data_destroy(zelui_kivo_db_data *entry) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_data_set_attr_names(zelui_kivo_db_data *entry, uint32_t attr_names,
                                                    uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void zelui_kivo_db_data_set_attr_types(zelui_kivo_db_data *entry, uint32_t attr_types,
                                                    uint32_t *err) PLATFORM_NOEXCEPT;

/* ---- Reply: the names behind positions */

typedef struct kivo_attributes_msg kivo_attributes_msg;

PLATFORM_API kivo_attributes_msg *kivo_attributes_msg_create(const message_definitions *definitions,
                                                             uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API void kivo_attributes_msg_destroy(kivo_attributes_msg *message) PLATFORM_NOEXCEPT;
/* Appends what is behind the next position, from 0: a type of the dictionary, its NUL-terminated
 * name and the name of its kind. */
PLATFORM_API void kivo_attributes_msg_append(kivo_attributes_msg *message, uint32_t attr_type,
                                             const char *name, const char *kind,
                                             uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t kivo_attributes_msg_marshal(const void *message,
                                                  message_buffer *out) PLATFORM_NOEXCEPT;

/* ---- The bundle around a reply, and what is sent in place of one. message is null for the bundle,
 * a NUL-terminated text for the acknowledgement. */

PLATFORM_API uint32_t show_kivo_database_resp_bundle_start_marshal(
    const void *message, message_buffer *out) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t show_kivo_database_resp_bundle_commit_marshal(
    const void *message, message_buffer *out) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t show_kivo_database_resp_bundle_abort_marshal(
    const void *message, message_buffer *out) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t negative_acknowledgement_marshal(const void *message,
                                                       message_buffer *out) PLATFORM_NOEXCEPT;

/* ---- Reading what came in */

/* A received message, or an entry of one of its lists. */
typedef struct received_message received_message;

PLATFORM_API void message_destroy(received_message *received) PLATFORM_NOEXCEPT;
/* Which one it is, MESSAGE_*; 0 for an entry of a list and for null. */
PLATFORM_API uint32_t message_kind(const received_message *received) PLATFORM_NOEXCEPT;
/* Name of a kind, as in the schema; "unknown message" for others, and when the codec could not be
 * set up (channel.h). */
PLATFORM_API const char *message_kind_name(uint32_t kind) PLATFORM_NOEXCEPT;

/* A field of the message, or of the structure that it carries, by name; a field that was not sent
 * reads as 0, as the empty text, and as a list without entries. Texts, addresses (6 bytes, or none)
 * and entries live as long as the message. Cost: a look-up by name. */
PLATFORM_API uint32_t message_read_u32(const received_message *received, const char *field,
                                       uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API const char *message_read_text(const received_message *received, const char *field,
                                           size_t *length, uint32_t *err) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t message_list_size(const received_message *received, const char *list,
                                        uint32_t *err) PLATFORM_NOEXCEPT;
/* Entry of a list, from 0; null and MESSAGE_ERR_INVALID_ARG beyond its end. */
PLATFORM_API const received_message *message_list_entry(const received_message *received,
                                                        const char *list, uint32_t position,
                                                        uint32_t *err) PLATFORM_NOEXCEPT;

#endif
