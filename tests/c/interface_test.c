/* The interface as a C program sees it: layouts that hosts rely on, and one session's whole life
 * through the headers alone. No framework: a failed check is told, and the program fails. */
#define _POSIX_C_SOURCE 200809L

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kivo/kivo.h"
#include "platform/console.h"
#include "platform/subsys.h"

#define OFFSET(type, field, offset) \
  _Static_assert(offsetof(type, field) == (offset), #type "." #field)
#define SIZE(type, size) _Static_assert(sizeof(type) == (size), #type)

SIZE(kivo_index_list, 64);
OFFSET(kivo_index_list, magic, 0);
OFFSET(kivo_index_list, count, 4);
OFFSET(kivo_index_list, next, 8);
OFFSET(kivo_index_list, labels, 16);

SIZE(kivo_attr_value, 264);
OFFSET(kivo_attr_value, aaa_type, 0);
OFFSET(kivo_attr_value, size, 4);
OFFSET(kivo_attr_value, data, 8);

SIZE(kivo_client_params, 24);
OFFSET(kivo_client_params, flags, 0);
OFFSET(kivo_client_params, client_id, 4);
OFFSET(kivo_client_params, notify_cb, 8);
OFFSET(kivo_client_params, handle_name_cb, 16);

SIZE(kivo_attr_config, 12);
OFFSET(kivo_attr_config, aaa_type, 0);
OFFSET(kivo_attr_config, index_kind, 4);
OFFSET(kivo_attr_config, data_type, 8);

OFFSET(kivo_db, client, 8);
OFFSET(kivo_db, slot_index, 32);
OFFSET(kivo_db, client_id, 40);
OFFSET(kivo_db, owner_name, 44);
OFFSET(kivo_db, db_name, 76);
OFFSET(kivo_db, attr_cfg, 112);
OFFSET(kivo_db, indexed_count, 120);
OFFSET(kivo_db, unindexed_count, 124);
OFFSET(kivo_db, accel_tbl, 128);
OFFSET(kivo_db, accel_slot, 136); /* 1491 words of 4 bytes */
OFFSET(kivo_db, indexed_area_size, 6100);
OFFSET(kivo_db, unindexed_area_size, 6104);
OFFSET(kivo_db, indexed_last_offset, 6108);
OFFSET(kivo_db, unindexed_last_offset, 6112);

OFFSET(kivo_notify_reg, link, 0);
OFFSET(kivo_notify_reg, client, 8);
OFFSET(kivo_notify_reg, actions, 16);
OFFSET(kivo_notify_reg, notify_cb, 24);
OFFSET(kivo_notify_reg, handle_name_cb, 32);
OFFSET(kivo_notify_reg, handles, 40);

OFFSET(attrdb_record, label, 24);
OFFSET(attrdb_record, ctxt, 32);

SIZE(shadowdb_rec, 64);
OFFSET(shadowdb_rec, label, 0);
OFFSET(shadowdb_rec, has_identities, 4);
OFFSET(shadowdb_rec, attr_lists, 8);
SIZE(shadowdb_attr_entry, 24);
OFFSET(shadowdb_attr_entry, next, 0);
OFFSET(shadowdb_attr_entry, attr_type, 8);
OFFSET(shadowdb_attr_entry, subtype, 12);
OFFSET(shadowdb_attr_entry, length, 14);
OFFSET(shadowdb_attr_entry, value, 16);

SIZE(subsys_record, 80);

static int failures = 0;

#define CHECK(condition)                                         \
  do {                                                           \
    if (!(condition)) {                                          \
      fprintf(stderr, "%d: failed: %s\n", __LINE__, #condition); \
      ++failures;                                                \
    }                                                            \
  } while (0)

/* What the change callback was told, a line a call. */
static char changes[1024];

static void remember_change(kivo_db *db, uint32_t label, uint32_t n_values,
                            const kivo_attr_value *new_values, const kivo_attr_value *old_values,
                            uint32_t action, platform_queue *handles) {
  const size_t used = strlen(changes);
  snprintf(changes + used, sizeof(changes) - used,
           "%s label %u values %u type %u size %u action %u", db->db_name, (unsigned)label,
           (unsigned)n_values, (unsigned)new_values->aaa_type, (unsigned)new_values->size,
           (unsigned)action);
  strncat(changes, queue_get_next(handles, NULL) != NULL ? " handle\n" : "\n",
          sizeof(changes) - strlen(changes) - 1);
  CHECK(old_values == &kivo_notify_old_value);
}

static const char *name_handle(kivo_db *db, uint32_t aaa_type, void *handle) {
  (void)db;
  (void)handle;
  return aaa_type == AAA_ATTR_MAC_ADDRESS ? "mac watcher" : "";
}

static const uint8_t kMac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0xff};

static kivo_db *create(void) {
  static const kivo_attr_config rows[] = {
      {AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR},
      {AAA_ATTR_MAC_ADDRESS, 1, KIVO_DATA_TYPE_MAC_ADDR},
      {AAA_ATTR_PORT, KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT32},
  };
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 77, remember_change, name_handle};
  kivo_db *db = NULL;
  CHECK(kivo_create_database("ATTR_DB", "a C program", &client, rows, 3, &db) == PLATFORM_OK);
  CHECK(db != NULL && db->indexed_count == 2 && db->unindexed_count == 1);
  return db;
}

static void write_session(kivo_db *db) {
  static platform_queue_link handle;
  uint32_t list = 0;
  const uint32_t port = 7;
  const uint8_t identity[] = {5, 0, 0xab};
  CHECK(kivo_register_attr_change_notification(db, AAA_ATTR_MAC_ADDRESS, KIVO_ACTION_ADD_OR_UPDATE,
                                               &handle) == PLATFORM_OK);
  CHECK(kivo_create_record(db, 5, NULL) == PLATFORM_OK);
  CHECK(aaa_list_alloc(&list) == PLATFORM_OK);
  CHECK(aaa_attr_add(list, AAA_ATTR_USER_NAME, "alice", 5, 0, 0) == PLATFORM_OK);
  CHECK(aaa_attr_add(list, AAA_ATTR_MAC_ADDRESS, kMac, 6, 0, 0) == PLATFORM_OK);
  CHECK(aaa_attr_add(list, AAA_ATTR_EXT_CLASS, identity, 3, 0, 0) == PLATFORM_OK);
  CHECK(kivo_add_or_update_attr_list(db, 5, NULL, list) == PLATFORM_OK);
  CHECK(kivo_add_or_update_attr(db, 5, NULL, AAA_ATTR_PORT, &port, 4) == PLATFORM_OK);
  CHECK(aaa_list_free(list) == PLATFORM_OK);
  CHECK(strcmp(changes, "ATTR_DB label 5 values 1 type 42 size 6 action 1 handle\n") == 0);
}

static void look_up(kivo_db *db) {
  kivo_index_list *labels = NULL;
  const void *value = NULL;
  uint32_t count = 0;
  uint32_t label = 0;
  uint32_t length = 0;
  CHECK(kivo_match_label_by_attr(db, AAA_ATTR_MAC_ADDRESS, kMac, 6, &label) == PLATFORM_OK);
  CHECK(label == 5);
  CHECK(kivo_index_list_create(&labels) == KIVO_INDEX_LIST_OK);
  CHECK(kivo_match_labels_by_attr(db, AAA_ATTR_USER_NAME, "alice", 5, &labels, &count) ==
        PLATFORM_OK);
  CHECK(count == 1 && kivo_index_list_get(labels, 0, &label) == KIVO_INDEX_LIST_OK && label == 5);
  kivo_index_list_free(labels);
  CHECK(kivo_get_attr(db, 5, NULL, AAA_ATTR_USER_NAME, &value, &length) == PLATFORM_OK);
  CHECK(length == 5 && memcmp(value, "alice", 5) == 0);
}

static char *shown(uint32_t command_type, const void *filter) {
  char *text = NULL;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  if (stream == NULL) abort();
  CHECK(kivo_devsh_printf_init(stream) == &devShZelConsoleFd);
  kivo_show_db(command_type, (uint64_t)(uintptr_t)filter);
  kivo_devsh_printf_init(NULL);
  fclose(stream);
  return text;
}

static void show(void) {
  static const char kHeader[] =
      "\n------------------------------------------------------------------"
      "\nDATABASE          : ATTR_DB"
      "\nOWNER             : a C program"
      "\nNUMBER OF RECORDS : 1";
  static const char kRecord[] =
      "\n\nSession Opaque Attributes"
      "\n--------------------------------------------"
      "\n\n        ATTRIBUTE     VALUE"
      "\n--------------------  ------------------------"
      "\nexternal-class                 : 05 00 ab \n"
      "\n--------------------------------------------"
      "\n\n        ATTRIBUTE     VALUE"
      "\n--------------------  ------------------------"
      "\nuser-name                      : alice"
      "\nmac-address                    : 0011223344ff"
      "\nport                           : 0x00000007";
  char *text = shown(KIVO_SHOW_BY_MAC, kMac);
  CHECK(strncmp(text, kHeader, sizeof(kHeader) - 1) == 0);
  CHECK(strcmp(text + sizeof(kHeader) - 1, kRecord) == 0);
  free(text);
  text = shown(KIVO_SHOW_NOTIFICATIONS, NULL);
  CHECK(
      strstr(text, "\nmac-address           MAC_ADDR   a C program       A/U  mac watcher    \n") !=
      NULL);
  free(text);
}

int main(void) {
  CHECK(subsys_start() >= 1);
  CHECK(KIVO_ATTR_SIZES_NEW[KIVO_DATA_TYPE_SESN_GUID] == 24);
  kivo_db *db = create();
  if (db == NULL) return EXIT_FAILURE;
  write_session(db);
  look_up(db);
  show();
  attrdb_record *record = NULL;
  CHECK(kivo_delete_record(db, 5) == PLATFORM_OK);
  CHECK(kivo_get_record(db, 5, &record) == PLATFORM_OK && record == NULL);
  return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
