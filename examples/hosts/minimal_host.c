/* A whole host in C: starts the library, creates a database, hears of changes, writes one session,
 * finds it by its MAC address and shows it on the console. */
#include <kivo/kivo.h>
#include <platform/aaa.h>
#include <platform/attrdb.h>
#include <platform/auth_mgr_idc.h>
#include <platform/subsys.h>
#include <stdio.h>

/* What the host registers with is an object of its own; the library links it by its first word. */
struct listener {
  platform_queue_link link;
  const char *name;
};

static void on_change(kivo_db *db, uint32_t label, uint32_t n_values, const kivo_attr_value *values,
                      const kivo_attr_value *old_values, uint32_t action, platform_queue *handles) {
  (void)db, (void)n_values, (void)old_values;
  const struct listener *listener = queue_get_next(handles, NULL);
  printf("%s: session %u, %s, action %u\n", listener->name, label,
         aaa_dict_get_attr_name(values[0].aaa_type), action);
}

static const char *name_of(kivo_db *db, uint32_t aaa_type, void *handle) {
  (void)db, (void)aaa_type;
  return ((const struct listener *)handle)->name;
}

static int failed(const char *step, uint32_t status) {
  if (status != PLATFORM_OK) fprintf(stderr, "%s failed: 0x%08x\n", step, status);
  return status != PLATFORM_OK;
}

int main(void) {
  static const kivo_attr_config rows[] = {
      {AAA_ATTR_USER_NAME, KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR},
      {AAA_ATTR_MAC_ADDRESS, 0, KIVO_DATA_TYPE_MAC_ADDR},
  };
  static const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, on_change, name_of};
  static struct listener listener = {{NULL}, "port-watch"};
  static const uint8_t mac[6] = {0x00, 0x00, 0x5e, 0x00, 0x53, 0x01};
  const uint32_t label = 7;

  subsys_start();
  kivo_db *db = NULL;
  if (failed("declare index", attrdb_declare_index(AAA_ATTR_MAC_ADDRESS)) ||
      failed("create database", kivo_create_database(KIVO_SHOW_DB_NAME, "minimal", &client, rows,
                                                     sizeof(rows) / sizeof(rows[0]), &db)) ||
      failed("register",
             kivo_register_attr_change_notification(db, AAA_ATTR_MAC_ADDRESS,
                                                    KIVO_ACTION_ADD_UPDATE_OR_REMOVE, &listener)) ||
      failed("create record", kivo_create_record(db, label, NULL))) {
    return 1;
  }

  uint32_t list = 0;
  if (failed("make list", aaa_list_alloc(&list)) ||
      failed("add user", aaa_attr_add(list, AAA_ATTR_USER_NAME, "alice", 5, 0, 0)) ||
      failed("add mac", aaa_attr_add(list, AAA_ATTR_MAC_ADDRESS, mac, sizeof(mac), 0, 0)) ||
      failed("write", kivo_add_or_update_attr_list(db, label, NULL, list))) {
    return 1;
  }
  aaa_list_free(list);

  uint32_t found = 0;
  if (failed("look up",
             kivo_match_label_by_attr(db, AAA_ATTR_MAC_ADDRESS, mac, sizeof(mac), &found))) {
    return 1;
  }
  printf("%s is on as session %u\n", auth_mgr_safe_printable_mac(mac, sizeof(mac)), found);
  kivo_show_db(KIVO_SHOW_BY_MAC, (uint64_t)(uintptr_t)mac);
  putchar('\n');
  return found == label ? 0 : 1;
}
