/* Change notification: clients register for attribute types and are called back on every change.
 *
 * Conventions:
 * 1. A registration belongs to one type of one database and lasts until the database is created
 *    anew; neither it nor a handle nor an action bit can be taken back.
 * 2. A registration hears of writes and removals that are made with its own database's handle.
 *    Those made with the other handle change the same records, and it does not hear of them.
 * 3. Only attributes are announced: creating a record, also with attributes, and deleting one
 *    announce nothing (records.h).
 * 4. A callback runs on the writer's thread inside the write, once for each change, with all the
 *    client's handles for the type. What it does changes nothing for the writer. When it runs
 *    stands with each write: after a write, before a removal by type, after one by value.
 * 5. A value of no or of more than 255 bytes cannot be announced. */
#ifndef KIVO_NOTIFICATION_H
#define KIVO_NOTIFICATION_H

#include "kivo/database.h"
#include "kivo/export.h"

/* Action bits. A registration ORs them; a change carries one of the values 0, 1 and 2. */
#define KIVO_ACTION_NONE                 UINT32_C(0) /* "ERR": no bit; a write without a change */
#define KIVO_ACTION_ADD_OR_UPDATE        UINT32_C(1) /* "A/U" */
#define KIVO_ACTION_REMOVE               UINT32_C(2) /* "REM" */
#define KIVO_ACTION_ADD_UPDATE_OR_REMOVE UINT32_C(3) /* "AUR" */
#define KIVO_ACTION_UNCONDITIONAL        UINT32_C(4) /* "UNC": also writes that changed nothing */

/* One registration; the first word is the link of its queue. Read-only for clients. */
typedef struct kivo_notify_reg {
  platform_queue_link link;
  kivo_db *client; /* the database; a type has one registration for it */
  uint32_t actions;
  kivo_notify_cb notify_cb; /* of the client, as of the last registration call */
  kivo_handle_name_cb handle_name_cb;
  platform_queue handles; /* each once, in the order first registered */
} kivo_notify_reg;

/* The old value that every callback receives beside the new one: one for the process, zero at load.
 * The library never puts a value here: whoever wants listeners to see what is being replaced sets
 * it right before the write. It stays until it is set again or a removal clears it, so that every
 * later write shows it too, and a list write shows it with each of its attributes: listeners
 * compare its aaa_type. Removals clear it before each announcement. */
KIVO_API kivo_attr_value kivo_notify_old_value;

/* Registers for the changes of a type; they reach the notify_cb of the client's parameters, if that
 * is not null.
 * db       whose writes are to be heard of.
 * type     an accel type of the database.
 * actions  KIVO_ACTION_* bits, added to those of earlier calls; 0 matches nothing.
 * handle   an object of the caller whose first word the library uses as a link; it must live until
 *          the database is created anew. A handle sits in one queue: use one object for each type
 *          and database. The same handle again is registered once.
 *
 * Returns 0; KIVO_ERR_INVALID_ARG for a null handle, a null database, type 0, a type without an
 * entry, or without memory: nothing has changed then. May be called from a callback. Cost: a walk
 * over the type's handles. */
KIVO_API uint32_t kivo_register_attr_change_notification(kivo_db *db, uint32_t type,
                                                         uint32_t actions,
                                                         void *handle) KIVO_NOEXCEPT;

/* Declared, not provided: changes nothing and returns KIVO_ERR_FAILED. */
KIVO_API uint32_t kivo_deregister_attr_change_notification(kivo_db *db, uint32_t type,
                                                           uint32_t actions,
                                                           void *handle) KIVO_NOEXCEPT;

/* Sets the old value.
 * type   of the value; not checked.
 * size   0 to 255 bytes.
 * value  size bytes, copied; null only when size is 0.
 * Returns 0; KIVO_ERR_INVALID_VALUE (22) for a size of 256 or more, nothing changed. The byte
 * behind the value becomes 0; the bytes behind that stay as they were. */
KIVO_API uint32_t kivo_set_notify_old_attr_value(uint32_t type, uint32_t size,
                                                 const void *value) KIVO_NOEXCEPT;

/* Clears the old value: type and size 0, first byte 0. */
KIVO_API void kivo_init_notify_old_attr(void) KIVO_NOEXCEPT;

#endif
