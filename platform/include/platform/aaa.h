/* Attribute service, first half: dictionary look-ups, attribute lists and cursors. The other half,
 * the attributes inside a record, is auth_mgr_idc.h.
 *
 * Conventions:
 * 1. A list is known by a 32-bit handle, never 0, that carries a generation: a handle that was
 *    freed, or never given out, is AAA_ERR_STALE_LIST from every operation.
 * 2. A list keeps its values in the order of adding; types may repeat; any type number is accepted,
 *    also outside the dictionary. A value never moves or changes while its storage lives.
 * 3. An open cursor pins its list's storage: the values that it gave out stay readable until the
 *    cursor is freed, also when the list is freed or extended meanwhile. */
#ifndef PLATFORM_AAA_H
#define PLATFORM_AAA_H

#include <stdint.h>

#include "platform/aaa_dictionary.h"
#include "platform/export.h"
#include "platform/status.h"

#define AAA_VALUE_SIZE_MAX UINT32_C(65535) /* bytes of one value */

typedef struct aaa_cursor aaa_cursor;

/* The dictionary name of a type: "attribute-N" for a type without a row, "attribute-unknown" for
 * one outside 1..AAA_ATTR_TYPE_MAX. Static text, never null, at most 23 characters. Constant time.
 * The two names answer alike (attrdb_get_attr_name_from_type() of attrdb.h does too). */
PLATFORM_API const char *aaa_dict_get_attr_name(uint32_t type) PLATFORM_NOEXCEPT;
PLATFORM_API const char *get_attr_name_from_type(uint32_t type) PLATFORM_NOEXCEPT;

/* The dictionary kind of a type, AAA_KIND_UNKNOWN for a type without a row. Constant time. */
PLATFORM_API uint32_t aaa_dict_get_attr_kind(uint32_t type) PLATFORM_NOEXCEPT;

/* The type of that name ("attribute-N" included), 0 when there is none or for null. */
PLATFORM_API uint32_t aaa_dict_get_attr_type(const char *name) PLATFORM_NOEXCEPT;

/* Makes an empty list and stores its handle.
 * Returns 0; AAA_ERR_INVALID_ARG for a null address; AAA_ERR_NO_MEMORY; AAA_ERR_NO_ROOM when about
 * a quarter of a million lists are alive. On error the handle is 0 (if its address is given). */
PLATFORM_API uint32_t aaa_list_alloc(uint32_t *handle) PLATFORM_NOEXCEPT;

/* Frees a list. Storage that a cursor pins goes with the last such cursor.
 * Returns 0; AAA_ERR_STALE_LIST. */
PLATFORM_API uint32_t aaa_list_free(uint32_t handle) PLATFORM_NOEXCEPT;

/* Appends a copy of a value.
 * type   any number but 0.
 * value  size bytes; null only when size is 0.
 * size   0 to AAA_VALUE_SIZE_MAX bytes.
 * reserved1, reserved2  0.
 * Returns 0; AAA_ERR_INVALID_ARG (type 0, null value with a size); AAA_ERR_NO_ROOM (size too
 * large); AAA_ERR_STALE_LIST; AAA_ERR_NO_MEMORY. On error the list is unchanged.
 * Cost: constant on average, and the copy. */
PLATFORM_API uint32_t aaa_attr_add(uint32_t handle, uint32_t type, const void *value, uint32_t size,
                                   uint32_t reserved1, uint32_t reserved2) PLATFORM_NOEXCEPT;

/* Opens a cursor in front of the first attribute. The cursor walks what the list holds now: what is
 * appended later is not visited.
 * Returns 0; AAA_ERR_INVALID_ARG; AAA_ERR_STALE_LIST; AAA_ERR_NO_MEMORY. On error *out is null. */
PLATFORM_API uint32_t aaa_cursor_alloc(aaa_cursor **out, uint32_t handle) PLATFORM_NOEXCEPT;

/* Moves to the next attribute and stores its type, 0 at the end (and again after it).
 * Returns 0; AAA_ERR_INVALID_ARG for null arguments. */
PLATFORM_API uint32_t aaa_cursor_get_next(aaa_cursor *cursor, uint32_t *type) PLATFORM_NOEXCEPT;

/* Size and address of the current attribute's value; the address is never null. The bytes stay
 * until the cursor is freed.
 * Returns 0; AAA_ERR_INVALID_ARG for null arguments; AAA_ERR_NOT_FOUND in front of the first
 * attribute or behind the last. On error the outputs are 0 and null. */
PLATFORM_API uint32_t aaa_cursor_get_value(aaa_cursor *cursor, uint32_t *size,
                                           const void **value) PLATFORM_NOEXCEPT;

/* Frees a cursor; null is accepted. */
PLATFORM_API void aaa_cursor_free(aaa_cursor *cursor) PLATFORM_NOEXCEPT;

/* Lists and cursors that are alive. Constant time. */
PLATFORM_API uint32_t aaa_live_lists(void) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t aaa_live_cursors(void) PLATFORM_NOEXCEPT;

#endif
