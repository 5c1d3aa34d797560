/* Databases: a client creates one, with the attribute types that it knows, and gets its handle.
 *
 * Conventions:
 * 1. A process holds two databases at the most, one for each client id. A database holds no
 *    records: these are the process's, and every database sees them all. What is a database's own
 *    is its attribute types, and who is told of their changes.
 * 2. The handle is the address of a plain record that clients may read; only the library writes it.
 * 3. A type that the configuration names is an accel type: it has an entry in the acceleration
 *    table, is reached in constant time and can be registered for. Records take attributes of other
 *    types too; their changes are not announced.
 * 4. An accel type whose row is indexed is looked up through an index of the record store. Creating
 *    a database makes none: the store builds it at the first look-up, by a walk over all records,
 *    unless attrdb_declare_index() (platform/attrdb.h) has made it on the empty store.
 * 5. Nothing here notifies. */
#ifndef KIVO_DATABASE_H
#define KIVO_DATABASE_H

#include "kivo/export.h"
#include "platform/aaa_dictionary.h"
#include "platform/queue.h"

/* Kinds of attribute values (kivo_data_type). The number is the dictionary's AAA_KIND_*. */
typedef uint32_t kivo_data_type;
#define KIVO_DATA_TYPE_INT32     UINT32_C(0) /* 4 bytes, host order */
#define KIVO_DATA_TYPE_INT64     UINT32_C(1) /* 8 bytes, host order */
#define KIVO_DATA_TYPE_IPV4_ADDR UINT32_C(2) /* 4 bytes, network order */
#define KIVO_DATA_TYPE_IPV6_ADDR UINT32_C(3) /* 16 bytes, network order */
#define KIVO_DATA_TYPE_MAC_ADDR  UINT32_C(4) /* 6 bytes */
#define KIVO_DATA_TYPE_SESN_GUID UINT32_C(5) /* 24 characters, no NUL */
#define KIVO_DATA_TYPE_POINTER   UINT32_C(6) /* 8 bytes */
#define KIVO_DATA_TYPE_VAR_BIN   UINT32_C(7) /* any bytes */
#define KIVO_DATA_TYPE_VAR_STR   UINT32_C(8) /* a text without a NUL */
#define KIVO_DATA_TYPE_MAX       UINT32_C(9) /* end marker, no kind of value */

/* Their names as they are displayed, nine characters each, in their order: an initializer. */
#define KIVO_DATA_TYPE_NAMES                                                                 \
  "INT 32   ", "INT 64   ", "IPV4_ADDR", "IPV6_ADDR", "MAC_ADDR ", "SESN_GUID", "POINTER  ", \
      "VAR BIN  ", "VAR STR  ", "MAX      "

/* Sizes in bytes of the nine kinds, 0 for a variable length. */
KIVO_API const uint32_t KIVO_ATTR_SIZES_NEW[9];

/* Names of the size classes of record pools, for hosts; the library does not use them. */
KIVO_API const char *const kivo_record_config_name_info[4];

#define KIVO_NAME_SIZE            32u                     /* bytes of a name field, with its NUL */
#define KIVO_ATTR_TYPES           (AAA_ATTR_TYPE_MAX + 1) /* slots 0..1490 */
#define KIVO_CLIENTS_PER_PROCESS  2u
#define KIVO_INDEX_KIND_NONE      UINT32_C(6) /* the record store keeps no index of the type */
#define KIVO_CLIENT_FLAG_VALID    UINT32_C(1)
#define KIVO_SLOT_NONE            UINT32_C(0xffffffff)
#define KIVO_ATTR_VALUE_DATA_SIZE 256u

typedef struct kivo_db kivo_db;

/* One attribute value as change callbacks receive it. Plain data. */
typedef struct kivo_attr_value {
  uint32_t aaa_type;                       /* 1..1490; 0 in an old value that is not set */
  uint32_t size;                           /* bytes of data, at most 255 */
  uint8_t data[KIVO_ATTR_VALUE_DATA_SIZE]; /* the value, then at least one zero byte */
} kivo_attr_value;

/* Change callback: runs inside the write that it announces, once for each written or removed value.
 * What it may call stands in export.h.
 * db          the database whose handle the writer passed.
 * label       the label that the writer named.
 * n_values    always 1.
 * new_values  the value written, of type 10 the addresses of this write only, or the value removed;
 *             holds during the call.
 * old_values  kivo_notify_old_value (notification.h), set or not, of this type or another.
 * action      1 added or changed, 0 written without a change, 2 removed.
 * handles     the client's handles for the type, to be walked with queue_get_next(). */
typedef void (*kivo_notify_cb)(kivo_db *db, uint32_t label, uint32_t n_values,
                               const kivo_attr_value *new_values, const kivo_attr_value *old_values,
                               uint32_t action, platform_queue *handles);

/* Names one of the client's notification handles for a display: a NUL-terminated text, of which the
 * first 15 characters are shown, or null for none. The text stays the client's, and must hold until
 * the next call. May call what a change callback may. */
typedef const char *(*kivo_handle_name_cb)(kivo_db *db, uint32_t aaa_type, void *handle);

/* Who creates a database. */
typedef struct kivo_client_params {
  uint32_t flags;           /* KIVO_CLIENT_FLAG_VALID must be set; nothing else is looked at */
  uint32_t client_id;       /* its own in the process; with 0 the entry counts as free */
  kivo_notify_cb notify_cb; /* may be null: never called back */
  kivo_handle_name_cb handle_name_cb; /* may be null */
} kivo_client_params;

/* One row of the attribute configuration. */
typedef struct kivo_attr_config {
  uint32_t aaa_type;        /* 1..1490; a row of type 0 is accepted, and ends the table shown */
  uint32_t index_kind;      /* KIVO_INDEX_KIND_NONE, or any other value for an indexed type */
  kivo_data_type data_type; /* below KIVO_DATA_TYPE_MAX */
} kivo_attr_config;

/* One entry of the acceleration table. Holds until the database is created anew. */
typedef struct kivo_accel_entry {
  kivo_data_type data_type;
  uint32_t layout_offset; /* of a fixed-size value in its layout; 0 for variable sizes */
  uint32_t indexed;       /* 1 when the record store indexes the type, else 0 */
  uint32_t aaa_type;
  platform_queue notify_regs; /* kivo_notify_reg (notification.h), in the order of registration */
} kivo_accel_entry;

struct kivo_abandoned;

/* A database; its address is the handle. Read-only for clients. */
struct kivo_db {
  uint64_t reserved64;
  kivo_client_params client;
  uint32_t slot_index; /* position in the process's table, 0 or 1 */
  uint32_t reserved32;
  uint32_t client_id; /* 0: the entry is free */
  char owner_name[KIVO_NAME_SIZE];
  char db_name[KIVO_NAME_SIZE];
  /* Own copy, indexed_count + unindexed_count rows; null after a failure. */
  kivo_attr_config *attr_cfg;
  uint32_t indexed_count;
  uint32_t unindexed_count;
  kivo_accel_entry *accel_tbl;
  int32_t accel_slot[KIVO_ATTR_TYPES]; /* position in accel_tbl by type, -1 for none */
  uint32_t indexed_area_size;          /* end of the layout of fixed-size indexed values */
  uint32_t unindexed_area_size;
  uint32_t indexed_last_offset; /* offset of the last fixed-size indexed row */
  uint32_t unindexed_last_offset;
  /* The fields above stay where they are; those below are the library's own. */
  uint32_t accel_count; /* entries of accel_tbl, whatever the row counts say */
  uint32_t walks;       /* dispatches and displays that walk this handle now */
  /* What they may still look at; released when the last one ends. */
  struct kivo_abandoned *abandoned;
};

/* Creates the client's database, or creates it anew: a second creation with the same client id
 * gives the same handle with a new configuration and no registrations.
 * db_name     at most 31 characters, copied; null is the empty name. Displays and replies show
 *             databases named KIVO_SHOW_DB_NAME (display.h) only.
 * owner_name  at most 31 characters, copied; null is the empty name.
 * client      copied; its flags must have KIVO_CLIENT_FLAG_VALID.
 * rows        n_rows rows, copied; null stands for n_rows rows of zeros. Of two rows with one type
 *             the later wins. At least one row must be indexed.
 * n_rows      at least 1.
 * result      receives the handle on success.
 *
 * Returns 0;
 *   KIVO_ERR_INVALID_ARG  client null or without its flag, a name too long, result null, a row
 *                         whose type is above 1490 or whose data type is 9 or more: nothing has
 *                         changed.
 *   KIVO_ERR_INVALID_ARG  no indexed row, or no memory for the acceleration table: the entry is the
 *                         client's, without a configuration. In the first case the table that it
 *                         had is still there with its registrations, in the second it is gone.
 *   KIVO_ERR_NO_ROOM      two other clients have the entries: nothing has changed.
 *   KIVO_ERR_FAILED       no rows, or no memory for them: the configuration is gone, nothing else.
 * What the handle had before and is abandoned is released before the call returns, or, under a
 * running dispatch or display of that handle, when the outermost one ends.
 * May be called from a callback. Cost: linear in n_rows and in the registrations that end. */
KIVO_API uint32_t kivo_create_database(const char *db_name, const char *owner_name,
                                       const kivo_client_params *client,
                                       const kivo_attr_config *rows, uint32_t n_rows,
                                       kivo_db **result) KIVO_NOEXCEPT;

/* Declared, not provided: they look at nothing, change nothing and return KIVO_ERR_FAILED. A
 * database lives as long as the process, and creating it registers the client. */
KIVO_API uint32_t kivo_destroy_database(kivo_db *db) KIVO_NOEXCEPT;
KIVO_API uint32_t kivo_register_client(kivo_db *db, const kivo_client_params *client) KIVO_NOEXCEPT;
KIVO_API uint32_t kivo_unregister_client(kivo_db *db, uint32_t client_id) KIVO_NOEXCEPT;

/* The acceleration entry of a type.
 * type  1..1490; above that a type has no entry.
 * out   receives the entry, or null for a type without one (status 0).
 * Returns 0; KIVO_ERR_INVALID_ARG for type 0 (also when a row has it) or a null pointer. Cost: one
 * read of the slot map. */
KIVO_API uint32_t kivo_get_accel_from_type(uint32_t type, kivo_db *db,
                                           kivo_accel_entry **out) KIVO_NOEXCEPT;

/* The record store's code for the type's kind (platform/attrdb.h); its ATTRDB_TYPE_UNKNOWN (9) for
 * a null handle or no entry. */
KIVO_API uint32_t kivo_get_kivo_type_from_aaa_type(kivo_db *db, uint32_t type) KIVO_NOEXCEPT;

/* The type's position in the acceleration table; KIVO_SLOT_NONE for a null handle or no entry. */
KIVO_API uint32_t kivo_get_index_from_aaa_type(const kivo_db *db, uint32_t type) KIVO_NOEXCEPT;

#endif
