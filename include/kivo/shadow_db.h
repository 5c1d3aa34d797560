/* Shadow records: the external identities of a session. Seven attribute types whose values begin
 * with a 16-bit subtype in host order; a type holds one identity for each subtype, newest first.
 *
 * Conventions:
 * 1. A shadow record belongs to its session's attribute context, which makes it on first request
 *    and destroys it: auth_mgr_idc_get_shadow_record_in_ctxt(record->ctxt), or for whoever only
 *    reads auth_mgr_idc_peek_shadow_record_in_ctxt(), which makes none (platform/auth_mgr_idc.h).
 *    One made with shadowdb_alloc_record() is its maker's.
 * 2. Sessions get their identities from the list writes (attribute_write.h) and lose them by the
 *    removal by type and value (attribute_removal.h), which announce them. Nothing here notifies.
 * 3. An identity, and the address of its value, hold until it is written again or removed, or the
 *    shadow record goes.
 * 4. Its traces go to the host application's trace module, at levels 3, 7 and 8. */
#ifndef KIVO_SHADOW_DB_H
#define KIVO_SHADOW_DB_H

#include "kivo/database.h"
#include "kivo/export.h"
#include "platform/chunk.h"

#define SHADOWDB_ATTR_INDEXES  7u
#define SHADOWDB_VALUE_CLASSES 5u

/* One identity. */
typedef struct shadowdb_attr_entry {
  struct shadowdb_attr_entry *next;
  uint32_t attr_type;
  uint16_t subtype;
  uint16_t length; /* bytes of value */
  uint8_t *value;  /* from shadow_attr_chunk */
} shadowdb_attr_entry;

/* The identities of one session. */
typedef struct shadowdb_rec {
  uint32_t label;          /* of the session; for traces */
  uint32_t has_identities; /* 1 once something was written, for good */
  shadowdb_attr_entry *attr_lists[SHADOWDB_ATTR_INDEXES];
} shadowdb_rec;

/* The pool of the values, made by kivo_shadowdb_init(); its class names and tag identifiers. */
KIVO_API variable_chunk_pool *shadow_attr_chunk;
KIVO_API const char *const shadowdb_attr_chunk_config_name_info[SHADOWDB_VALUE_CLASSES];
KIVO_API const uint32_t shadowdb_attr_chunk_config_id_info[SHADOWDB_VALUE_CLASSES];

/* 1 when the type is an external identity (1124 to 1129 and 1248): *index receives its slot, 0 to
 * 6. Else 0, with *index untouched. Constant time. */
KIVO_API uint32_t kivo_check_is_shadow_attrib(uint32_t type, uint32_t *index) KIVO_NOEXCEPT;

/* Makes the value pool if it is not there. Without memory a later call tries again. */
KIVO_API void kivo_shadowdb_init(void) KIVO_NOEXCEPT;

/* A new, empty shadow record, or null without memory. The caller's, to be released with
 * shadowdb_destroy_record().
 * label  of the session, for traces; may be 0. */
KIVO_API shadowdb_rec *shadowdb_alloc_record(uint32_t label) KIVO_NOEXCEPT;

/* Releases a shadow record with everything in it; null is traced. Not for one that belongs to a
 * context. Always returns 1. */
KIVO_API uint32_t shadowdb_destroy_record(shadowdb_rec *record) KIVO_NOEXCEPT;

/* Writes an identity: replaces the one with its subtype, or adds one, at the head of its list.
 * record   may be null, which is refused.
 * index    slot, 0 to 6, from kivo_check_is_shadow_attrib(); trusted to fit the type.
 * type     of the attribute; one that is no external identity has subtype 1.
 * value    length bytes, copied, the subtype in the first two; null only when length is 0. A value
 *          of fewer than two bytes has subtype 1: it is never read beyond its end.
 * length   0 to 65,535 bytes.
 * changed  receives 1 on success, also when the value was there already.
 *
 * Returns 0; KIVO_ERR_INVALID_VALUE (22) for a null record; KIVO_ERR_INVALID_ARG (null value with a
 * length, index or length too large); KIVO_ERR_NO_MEMORY. On error the record is unchanged. Cost: a
 * walk over the identities of the slot, and the copy. */
KIVO_API uint32_t shadowdb_add_or_update_attr(shadowdb_rec *record, uint32_t index, uint32_t type,
                                              const void *value, uint32_t length,
                                              uint32_t *changed) KIVO_NOEXCEPT;

/* Removes the identity with the value's subtype; the rest of the value is not compared.
 * record  may be null, which is refused.
 * index   slot, 0 to 6, as above.
 * type    as above: one that is no external identity has subtype 1.
 * length  not looked at: 0 removes by the subtype alone.
 * value   the subtype in its first two bytes, which must be readable whatever the length; null
 *         means subtype 1. May lie in the identity that is removed.
 *
 * Returns 0, also when there is none (traced); KIVO_ERR_INVALID_ARG for a null record or an index
 * of 7 or more. Cost: a walk over the identities of the slot. */
KIVO_API uint32_t shadowdb_remove_attr(shadowdb_rec *record, uint32_t index, uint32_t type,
                                       uint32_t length, const void *value) KIVO_NOEXCEPT;

/* Copies the identities of one slot into an attribute list, newest first.
 * record     may be null, which is refused.
 * attr_list  an attribute list (platform/aaa.h); stays the caller's.
 * index      slot, 0 to 6.
 *
 * Returns 0, also when nothing was ever written (the list is not looked at then) or when single
 * copies failed (traced); KIVO_ERR_INVALID_ARG for an index of 7 or more, a null record, list 0, or
 * a slot without entries. Cost: the identities. */
KIVO_API uint32_t shadowdb_get_session_attribute(const shadowdb_rec *record, uint32_t attr_list,
                                                 uint32_t index) KIVO_NOEXCEPT;

/* The same for all slots, 0 to 6; slots without entries are passed over. */
KIVO_API uint32_t shadowdb_get_session_attributes(const shadowdb_rec *record,
                                                  uint32_t attr_list) KIVO_NOEXCEPT;

/* Prints a session's identities on the console (display.h), values as hexadecimal bytes, 16 a line;
 * nothing for a session that has none.
 * Returns 0; KIVO_ERR_INVALID_ARG for a null database or label 0; the store's status;
 * KIVO_ERR_NOT_FOUND for a label without a record, or where a platform that cannot peek at shadow
 * records cannot make one. */
KIVO_API uint32_t shadowdb_show_rec(kivo_db *db, uint32_t label) KIVO_NOEXCEPT;

#endif
