/* Attribute service, second half: the attributes of one session, kept in an attribute context.
 *
 * Conventions:
 * 1. A context belongs to a record that adopted it (attrdb.h), or else to its creator.
 * 2. A context holds at most one value a type. AAA_ATTR_IPV6_ADDRESSES (type 10) is multi-valued:
 *    its value is a run of 16-byte addresses, each at most once, in the order of adding.
 * 3. A write into a record's context, its indexes included, happens whole or not at all.
 * 4. Kinds are not enforced: a value shorter than its kind can be stored, and readers cope. Stored
 *    values have no alignment; copy words out with memcpy.
 * 5. A value pointer holds until the context is next written or destroyed. */
#ifndef PLATFORM_AUTH_MGR_IDC_H
#define PLATFORM_AUTH_MGR_IDC_H

#include <stdint.h>

#include "platform/aaa.h"
#include "platform/export.h"

typedef struct auth_ctxt auth_ctxt;
struct shadowdb_rec;

/* Makes an empty context for a caller that fills it before a record adopts it.
 * Returns 0; AAA_ERR_INVALID_ARG for a null address; AAA_ERR_NO_MEMORY. On error *out is null. */
PLATFORM_API uint32_t auth_mgr_idc_create_ctxt(auth_ctxt **out) PLATFORM_NOEXCEPT;

/* Destroys a context that no record adopted, its shadow record included; null is accepted, and a
 * context that a record owns is left alone. */
PLATFORM_API void auth_mgr_idc_destroy_ctxt(auth_ctxt *ctxt) PLATFORM_NOEXCEPT;

/* Adds a value, or replaces the one stored.
 * type     1 to AAA_ATTR_TYPE_MAX.
 * value    size bytes; may lie in the same context; null only when size is 0.
 * size     0 to AAA_VALUE_SIZE_MAX bytes. Type 10: a multiple of 16; the addresses that are not
 *          there yet are appended, at most 4,095 in all.
 * changed  receives 1 when the stored bytes changed (a new value, other bytes, another size, a new
 *          address); is left untouched otherwise and on error. May be null.
 *
 * Returns 0; AAA_ERR_UNSUPPORTED_ATTR (2) for a type outside the dictionary; AAA_ERR_INVALID_ARG
 * (null context, null value with a size, type 10 with another size); AAA_ERR_NO_ROOM (too long);
 * AAA_ERR_NO_MEMORY. On error the context and every index are unchanged.
 * Notifies nobody. Cost: a look through the context's directory, a copy, and the indexes of the
 * type; an index is touched only when the value changes. Type 10: each address is compared with
 * each one that is there. */
PLATFORM_API uint32_t auth_mgr_idc_add_or_update_attr(auth_ctxt *ctxt, uint32_t type,
                                                      const void *value, uint32_t size,
                                                      uint32_t *changed) PLATFORM_NOEXCEPT;

/* Reads a value.
 * value  receives the address of the stored bytes, null when the type is absent.
 * size   receives all the bytes, type 10 included.
 * count  receives the number of values: 0 absent, 1, or the number of addresses for type 10.
 *
 * Returns 0, also for an absent type; AAA_ERR_INVALID_ARG for a null argument;
 * AAA_ERR_UNSUPPORTED_ATTR for a type outside the dictionary. On error the outputs that are given
 * are null, 0, 0.
 * A stored value of size 0 has a non-null address. */
PLATFORM_API uint32_t auth_mgr_idc_get_attr(const auth_ctxt *ctxt, uint32_t type,
                                            const void **value, uint32_t *size,
                                            uint32_t *count) PLATFORM_NOEXCEPT;

/* Removes all values of a type; an absent one is no error.
 * Returns 0; AAA_ERR_INVALID_ARG; AAA_ERR_UNSUPPORTED_ATTR. Cannot run out of memory. */
PLATFORM_API uint32_t auth_mgr_idc_remove_attr_by_type(auth_ctxt *ctxt,
                                                       uint32_t type) PLATFORM_NOEXCEPT;

/* Removes one value of a type: the stored value when it equals these bytes, or one address of type
 * 10 (size 16). The order of the remaining addresses stays.
 * Returns 0; AAA_ERR_NOT_FOUND when the value is not there; AAA_ERR_INVALID_ARG for a null context
 * or value; AAA_ERR_UNSUPPORTED_ATTR. On error nothing changes. */
PLATFORM_API uint32_t auth_mgr_idc_remove_attr_by_type_and_value(auth_ctxt *ctxt, uint32_t type,
                                                                 const void *value,
                                                                 uint32_t size) PLATFORM_NOEXCEPT;

/* Copies the context's attributes into an attribute list, in the context's order, except the types
 * that the list held at entry. Type 10 becomes one list attribute for each address.
 * Returns 0; AAA_ERR_INVALID_ARG; AAA_ERR_STALE_LIST; AAA_ERR_NO_MEMORY (the list may then hold
 * some of them). The context does not change. */
PLATFORM_API uint32_t auth_mgr_idc_merge_rec_to_list_without_replace(
    const auth_ctxt *ctxt, uint32_t list) PLATFORM_NOEXCEPT;

/* The session's shadow record, made on first request by the library's shadowdb_alloc_record() with
 * the record's label (0 while no record owns the context), destroyed with the context.
 * Null for a null context, without memory, or in a process without the library. */
PLATFORM_API struct shadowdb_rec *auth_mgr_idc_get_shadow_record_in_ctxt(auth_ctxt *ctxt)
    PLATFORM_NOEXCEPT;

/* The same for whoever only reads: null also while nobody has asked for the session's shadow
 * record. Optional: the library does without it where a host's own platform lacks it. */
PLATFORM_API struct shadowdb_rec *auth_mgr_idc_peek_shadow_record_in_ctxt(const auth_ctxt *ctxt)
    PLATFORM_NOEXCEPT;

/* An address as text: 4 bytes dotted decimal, 6 bytes as 0011.2233.4455, 16 bytes as IPv6
 * (RFC 5952), any other size as hexadecimal digits (at most 64 bytes of the value, then "...").
 * value  size bytes; null gives "".
 * Returns one of 8 static buffers in turn; holds until the 8th call after this one. */
PLATFORM_API const char *auth_mgr_safe_printable_mac(const void *value,
                                                     uint32_t size) PLATFORM_NOEXCEPT;

/* Contexts that are alive, adopted ones included. Constant time. */
PLATFORM_API uint32_t auth_mgr_idc_live_ctxts(void) PLATFORM_NOEXCEPT;

#endif
