// The platform's operations that fail when told to (see faults.h), in place of the real ones: the
// program is linked with -rdynamic, so that the library binds to these.
#include "platform/aaa.h"
#include "platform/attrdb.h"
#include "platform/auth_mgr_idc.h"
#include "platform/channel.h"
#include "platform/chunk.h"
#include "platform/messages.h"
#include "platform/named_alloc.h"
#include "support/faults/replacement.h"

using namespace kivo_test;

namespace {

// What a failing operation of the message set does besides: it sets the error word.
void set_fault(uint32_t *err) {
  if (*err == 0) *err = fault_status();
}

}  // namespace

#define PARAMETERS_0()
#define PARAMETERS_1(A)                A a
#define PARAMETERS_2(A, B)             PARAMETERS_1(A), B b
#define PARAMETERS_3(A, B, C)          PARAMETERS_2(A, B), C c
#define PARAMETERS_4(A, B, C, D)       PARAMETERS_3(A, B, C), D d
#define PARAMETERS_5(A, B, C, D, E)    PARAMETERS_4(A, B, C, D), E e
#define PARAMETERS_6(A, B, C, D, E, F) PARAMETERS_5(A, B, C, D, E), F f
#define ARGUMENTS_1                    a
#define ARGUMENTS_2                    a, b
#define ARGUMENTS_3                    a, b, c
#define ARGUMENTS_4                    a, b, c, d
#define ARGUMENTS_5                    a, b, c, d, e
#define ARGUMENTS_6                    a, b, c, d, e, f

// Fails without doing anything: what takes memory or changes something.
#define FAILS(n, Result, name, failure, ...)                     \
  extern "C" Result name(PARAMETERS_##n(__VA_ARGS__)) noexcept { \
    KIVO_TEST_FAIL_OR_FORWARD(name, failure, ARGUMENTS_##n);     \
  }
#define REFUSES(n, name, ...) FAILS(n, uint32_t, name, fault_status(), __VA_ARGS__)
// Fails after it has written its outputs, which a caller must not trust then: look-ups.
#define FAILS_LATE(n, name, ...)                                   \
  extern "C" uint32_t name(PARAMETERS_##n(__VA_ARGS__)) noexcept { \
    KIVO_TEST_FORWARD_THEN_FAIL(name, ARGUMENTS_##n);              \
  }

using Value = const void *;
using Word = uint32_t;

REFUSES(6, aaa_attr_add, Word, Word, Value, Word, Word, Word)
REFUSES(2, aaa_cursor_alloc, aaa_cursor **, Word)
FAILS_LATE(2, aaa_cursor_get_next, aaa_cursor *, Word *)
FAILS_LATE(3, aaa_cursor_get_value, aaa_cursor *, Word *, Value *)
REFUSES(2, attrdb_create_and_insert_primary_record, auth_ctxt *, Word)
REFUSES(1, attrdb_delete_record, Word)
FAILS_LATE(4, attrdb_get_label_by_attr, Word, Value, Word, Word *)
FAILS_LATE(5, attrdb_get_labels_by_attr, Word, Value, Word, kivo_index_list **, Word *)
FAILS_LATE(2, attrdb_get_next_if_id, Word, Word *)
FAILS_LATE(2, attrdb_get_record, Word, attrdb_record **)
FAILS_LATE(4, attrdb_get_record_by_attr, Word, Value, Word, attrdb_record **)
REFUSES(5, auth_mgr_idc_add_or_update_attr, auth_ctxt *, Word, Value, Word, Word *)
FAILS(1, shadowdb_rec *, auth_mgr_idc_get_shadow_record_in_ctxt, nullptr, auth_ctxt *)
REFUSES(2, auth_mgr_idc_merge_rec_to_list_without_replace, const auth_ctxt *, Word)
REFUSES(2, auth_mgr_idc_remove_attr_by_type, auth_ctxt *, Word)
REFUSES(4, auth_mgr_idc_remove_attr_by_type_and_value, auth_ctxt *, Word, Value, Word)
REFUSES(1, channel_close_generated_response, channel_connection *)
REFUSES(3, channel_marshal, channel_connection *, Value, message_marshal_fn)
FAILS(2, const message_definitions *, channel_message_definitions, nullptr,
      const channel_connection *, Word *)
FAILS(2, char *, channel_scratch, nullptr, channel_connection *, size_t *)
FAILS(1, void *, chunk_malloc, nullptr, chunk_pool *)
FAILS(3, int, htAdd, 1, hash_table *, Value, void *)
FAILS(2, void *, named_alloc, nullptr, named_site *, size_t)
FAILS(2, void *, variable_chunk_malloc, nullptr, variable_chunk_pool *, size_t)
FAILS(3, void, zelui_kivo_db_append_db_info, set_fault(c), zelui_kivo_db *, zelui_kivo_db_data *,
      Word *)
FAILS(4, void, zelui_kivo_db_common_set_owner, set_fault(d), zelui_kivo_db_common *, const char *,
      size_t, Word *)

#define MESSAGE_IS_NOT_MADE(Message)                                                          \
  FAILS(2, Message *, Message##_create, (set_fault(b), nullptr), const message_definitions *, \
        Word *)
#define MESSAGE_IS_NOT_RENDERED(Message) \
  FAILS(4, void, Message##_render, set_fault(d), const Message *, char *, size_t, Word *)

MESSAGE_IS_NOT_MADE(zelui_kivo_db_common_msg)
MESSAGE_IS_NOT_MADE(zelui_kivo_db_filter_msg)
MESSAGE_IS_NOT_MADE(zelui_kivo_db_filter_data)
MESSAGE_IS_NOT_MADE(zelui_kivo_db_msg)
MESSAGE_IS_NOT_MADE(zelui_kivo_db_data)
MESSAGE_IS_NOT_RENDERED(zelui_kivo_db_common_msg)
MESSAGE_IS_NOT_RENDERED(zelui_kivo_db_filter_msg)
MESSAGE_IS_NOT_RENDERED(zelui_kivo_db_msg)

extern "C" void attrdb_init(void) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(attrdb_init, static_cast<void>(0));
}

extern "C" uint32_t auth_mgr_idc_get_attr(const auth_ctxt *ctxt, uint32_t type, const void **value,
                                          uint32_t *size, uint32_t *count) noexcept {
  KIVO_TEST_REAL(auth_mgr_idc_get_attr);
  const uint32_t status = real(ctxt, type, value, size, count);
  if (reports_one_address && type == AAA_ATTR_IPV6_ADDRESSES && *count != 0) *size = 16;
  return fault_is_due("auth_mgr_idc_get_attr") ? fault_status() : status;
}

extern "C" void *named_zalloc(named_site *site, size_t size) noexcept {
  if (size > largest_zalloc) largest_zalloc = size;
  KIVO_TEST_FAIL_OR_FORWARD(named_zalloc, nullptr, site, size);
}

// What follows is shown to the tests when it is made.
extern "C" chunk_pool *chunk_create(const char *name, uint32_t size, uint32_t per_slab,
                                    uint32_t flags, uint32_t none, uint32_t nothing) noexcept {
  KIVO_TEST_REAL(chunk_create);
  if (fault_is_due("chunk_create")) return nullptr;
  label_block_pool = real(name, size, per_slab, flags, none, nothing);
  return label_block_pool;
}

extern "C" hash_table *htMakeHashTable(uint32_t size, hash_table_hash hash,
                                       hash_table_compare compare) noexcept {
  KIVO_TEST_REAL(htMakeHashTable);
  if (fault_is_due("htMakeHashTable")) return nullptr;
  label_hash = hash;
  label_compare = compare;
  label_table = real(size, hash, compare);
  return label_table;
}

extern "C" variable_chunk_pool *variable_chunk_create_ext(
    const variable_chunk_class *classes, uint32_t n_classes, uint32_t options,
    variable_chunk_name_to_id name_to_id) noexcept {
  shadow_class_tag = name_to_id;
  KIVO_TEST_FAIL_OR_FORWARD(variable_chunk_create_ext, nullptr, classes, n_classes, options,
                            name_to_id);
}
