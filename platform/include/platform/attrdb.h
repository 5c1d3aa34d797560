/* Record store: session records by label, and indexes from attribute values to labels.
 *
 * Conventions:
 * 1. One store a process. Labels are 32-bit, never 0, and may lie anywhere.
 * 2. Absence is not failure: no record gives status 0 with null, a value that nobody has gives
 *    status 0 with label 0.
 * 3. The indexes follow the attribute service (auth_mgr_idc.h): a write into a record's context,
 *    the adoption of a filled one and a deletion have updated them when the call returns.
 * 4. Values are compared byte for byte with their size: equal bytes of another size differ. Type 10
 *    enters its index address by address, and is looked up by one address of 16 bytes.
 * 5. Labels come out in ascending order, each record once. */
#ifndef PLATFORM_ATTRDB_H
#define PLATFORM_ATTRDB_H

#include <stdint.h>

#include "platform/auth_mgr_idc.h"
#include "platform/export.h"

struct kivo_index_list;

/* A record, read-only for users. Its address holds until the record is deleted. */
typedef struct attrdb_record {
  uint64_t reserved[3]; /* the store's */
  uint32_t label;
  uint32_t reserved32; /* the store's */
  auth_ctxt *ctxt;     /* the record's attributes */
} attrdb_record;

/* Initialises the store; a second call has no effect. No result: without memory, or without random
 * numbers for the keys of its hashes, every operation says ATTRDB_ERR_NOT_READY, until a later call
 * finds some. Records may be made before any index is declared. */
PLATFORM_API void attrdb_init(void) PLATFORM_NOEXCEPT;

/* Makes a record.
 * ctxt   a context for the record to adopt, with the attributes that it holds, or null for a fresh
 *        one. It is the record's on success only.
 * label  not 0.
 * Returns 0; ATTRDB_ERR_INVALID_ARG (label 0); ATTRDB_ERR_LABEL_IN_USE; ATTRDB_ERR_ADOPTED (the
 * context is a record's already); ATTRDB_ERR_NO_MEMORY; ATTRDB_ERR_NOT_READY. On error nothing has
 * changed, no index included. Cost: constant, and an index entry for each indexed attribute; no
 * table is ever rebuilt as a whole. */
PLATFORM_API uint32_t attrdb_create_and_insert_primary_record(auth_ctxt *ctxt,
                                                              uint32_t label) PLATFORM_NOEXCEPT;

/* The record of a label, null when there is none.
 * Returns 0; ATTRDB_ERR_INVALID_ARG for a null address; ATTRDB_ERR_NOT_READY. Constant time. */
PLATFORM_API uint32_t attrdb_get_record(uint32_t label, attrdb_record **out) PLATFORM_NOEXCEPT;

/* Deletes a record: it leaves every index, and its context with its shadow record is destroyed.
 * Returns 0; ATTRDB_ERR_NOT_FOUND; ATTRDB_ERR_NOT_READY. Cannot run out of memory.
 * Cost: constant, and each index of the attributes it had. */
PLATFORM_API uint32_t attrdb_delete_record(uint32_t label) PLATFORM_NOEXCEPT;

/* Appends the labels of all records that have this value, ascending.
 * type   1 to AAA_ATTR_TYPE_MAX. Without an index for it, one is built first, which walks all
 *        records once and stays.
 * value  size bytes. size 0 finds the records that hold an empty value.
 * list   address of a label set's handle (kivo/index_list.h), created by the caller.
 * count  receives how many were appended.
 * Returns 0; ATTRDB_ERR_INVALID_ARG; ATTRDB_ERR_NO_MEMORY (no index, or the label set could not
 * grow; list and count may be partial); ATTRDB_ERR_NOT_READY, also in a process without the
 * library, whose label sets they are; AAA_ERR_UNSUPPORTED_ATTR.
 * Cost: one look-up, and the labels found. */
PLATFORM_API uint32_t attrdb_get_labels_by_attr(uint32_t type, const void *value, uint32_t size,
                                                struct kivo_index_list **list,
                                                uint32_t *count) PLATFORM_NOEXCEPT;

/* How many sessions have this value; and which of some labels do, in their order. Two operations
 * that the library uses for large answers where a platform has them; a host's own may lack them.
 *
 * labels  n_labels, ascending, each above the one before.
 * kept    room for n_labels, elsewhere; what lies behind those kept may have been written too.
 * n_kept  receives how many were kept.
 *
 * Returns, with the arguments of attrdb_get_labels_by_attr(), its statuses; the counts are 0 on
 * error. Cost: one look-up; then a step for each label and each session of the value in between,
 * or a look-up for one of them, whichever are fewer. */
PLATFORM_API uint32_t attrdb_count_labels_by_attr(uint32_t type, const void *value, uint32_t size,
                                                  uint32_t *count) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t attrdb_keep_labels_by_attr(uint32_t type, const void *value, uint32_t size,
                                                 const uint32_t *labels, uint32_t n_labels,
                                                 uint32_t *kept,
                                                 uint32_t *n_kept) PLATFORM_NOEXCEPT;

/* The lowest label, or its record, that has this value; 0 or null when nobody has it. Arguments,
 * statuses and cost as above. On error the output is 0 or null. */
PLATFORM_API uint32_t attrdb_get_label_by_attr(uint32_t type, const void *value, uint32_t size,
                                               uint32_t *label) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t attrdb_get_record_by_attr(uint32_t type, const void *value, uint32_t size,
                                                attrdb_record **out) PLATFORM_NOEXCEPT;

/* The smallest interface id (AAA_ATTR_INTERFACE_ID, 4 bytes, as a number in host order) above
 * `after` that a session has, 0 when there is none. Values of another size are not in this order.
 * Returns 0; ATTRDB_ERR_INVALID_ARG for a null address; ATTRDB_ERR_NOT_READY. Logarithmic. */
PLATFORM_API uint32_t attrdb_get_next_if_id(uint32_t after, uint32_t *next) PLATFORM_NOEXCEPT;

/* Keeps an index of a type from now on. On a store that holds records it is built by one walk over
 * all of them; hosts declare on the empty store. A type declared twice is one index.
 * Returns 0; AAA_ERR_UNSUPPORTED_ATTR; ATTRDB_ERR_NO_MEMORY (no index); ATTRDB_ERR_NOT_READY. */
PLATFORM_API uint32_t attrdb_declare_index(uint32_t type) PLATFORM_NOEXCEPT;

/* Calls fn once for every record, in the order of their slots: the order in which their contexts
 * were made, where a new one takes the slot that was freed last. (A store without any context
 * begins with the first slot again.) The result of fn is ignored. fn may delete the record in hand
 * and others; a record created meanwhile may or may not be visited. With attrdb_add_session_to_list
 * the labels are appended in bulk, in the same order, until the label set fails. */
PLATFORM_API void attrdb_walk_all_records(uint32_t (*fn)(attrdb_record *record, void *arg),
                                          void *arg) PLATFORM_NOEXCEPT;

/* For attrdb_walk_all_records(): appends the record's label to the label set whose handle's address
 * is arg. Returns the label set's result, 0 on success; ATTRDB_ERR_INVALID_ARG for null arguments;
 * ATTRDB_ERR_NOT_READY in a process without the library. */
PLATFORM_API uint32_t attrdb_add_session_to_list(attrdb_record *record,
                                                 void *arg) PLATFORM_NOEXCEPT;

/* The number of records. Constant time, as the totals below are: the number of records that hold an
 * attribute (not of distinct values), whether or not it is indexed. */
PLATFORM_API uint32_t attrdb_get_total_sessions(void) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t attrdb_get_total_mac_tree_sessions(void) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t attrdb_get_total_swidb_tree_sessions(void) PLATFORM_NOEXCEPT;  /* interface */
PLATFORM_API uint32_t attrdb_get_total_iif_id_tree_sessions(void) PLATFORM_NOEXCEPT; /* its id */
PLATFORM_API uint32_t attrdb_get_total_domain_tree_sessions(void) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t attrdb_get_total_method_tree_sessions(void) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t attrdb_get_total_audit_sess_id_tree_sessions(void) PLATFORM_NOEXCEPT;
PLATFORM_API uint32_t attrdb_get_total_session_id_tree_sessions(void) PLATFORM_NOEXCEPT;

/* As aaa_dict_get_attr_name(). */
PLATFORM_API const char *attrdb_get_attr_name_from_type(uint32_t type) PLATFORM_NOEXCEPT;

/* The store's code for one of the library's value kinds (0 to 8), ATTRDB_TYPE_UNKNOWN for others.
 * The codes are the numbers of the kinds. */
#define ATTRDB_TYPE_UNKNOWN UINT32_C(9)
PLATFORM_API uint32_t attrdb_kivo_type_to_attrdb_type(uint32_t kind) PLATFORM_NOEXCEPT;

/* Bytes that the text buffer below must have. A longer text is cut after at most 508 characters and
 * ends in "...". */
#define ATTRDB_PRINT_TEXT_MAX 512

/* Prints a value by the store's type code: numbers as 0x and hexadecimal digits, addresses as
 * auth_mgr_safe_printable_mac() does (an IPv6 prefix that is kept as text: as it is), texts as they
 * are (bytes outside printable ASCII as \xNN), everything else, and every value whose size does not
 * fit its code, in hexadecimal.
 * value  size bytes, never read past; null gives the empty text.
 * text   ATTRDB_PRINT_TEXT_MAX bytes; receives the NUL-terminated text.
 * Returns text (or "" when text is null). */
PLATFORM_API const char *attrdb_print_data_with_kivo_type(const void *value, uint32_t size,
                                                          char *text,
                                                          uint32_t code) PLATFORM_NOEXCEPT;

#endif
