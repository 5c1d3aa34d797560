// See session_database.h. The rows are one table, in the order in which a session is shown.
#include "session_database.h"

#include <algorithm>
#include <array>

#include "../host_trace.h"
#include "kivo/display.h"
#include "kivo/notification.h"
#include "platform/attrdb.h"
#include "platform/error_text.h"
#include "platform/subsys.h"

namespace kivod {
namespace {

constexpr uint32_t kClientId = 1;
constexpr uint32_t kIndexed = 0;  // any index kind but KIVO_INDEX_KIND_NONE
constexpr uint32_t kPlain = KIVO_INDEX_KIND_NONE;

// clang-format off
constexpr kivo_attr_config kRows[] = {
    {AAA_ATTR_USER_NAME,             kIndexed, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_DOMAIN,                kIndexed, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_MAC_ADDRESS,           kIndexed, KIVO_DATA_TYPE_MAC_ADDR},
    {AAA_ATTR_IPV4_ADDRESS,          kIndexed, KIVO_DATA_TYPE_IPV4_ADDR},
    {AAA_ATTR_IPV6_ADDRESSES,        kIndexed, KIVO_DATA_TYPE_IPV6_ADDR},
    {AAA_ATTR_ACCESS_SERVER_ADDRESS, kIndexed, KIVO_DATA_TYPE_IPV4_ADDR},
    {AAA_ATTR_PORT,                  kPlain,   KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_INTERFACE_NAME,        kIndexed, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_INTERFACE_ID,          kIndexed, KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_SESSION_ID,            kIndexed, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_AUDIT_SESSION_ID,      kIndexed, KIVO_DATA_TYPE_SESN_GUID},
    {AAA_ATTR_METHOD,                kIndexed, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_START_TIME,            kPlain,   KIVO_DATA_TYPE_INT64},
    {AAA_ATTR_INTERFACE,             kIndexed, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_IPV6_PREFIX,           kIndexed, KIVO_DATA_TYPE_IPV6_ADDR},
    {AAA_ATTR_ACCESS_SERVER_ID,      kIndexed, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_CALLED_STATION,        kPlain,   KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_CALLING_STATION,       kPlain,   KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_PORT_TYPE,             kPlain,   KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_UPDATE_TIME,           kPlain,   KIVO_DATA_TYPE_INT64},
    {AAA_ATTR_EXT_CLASS,             kPlain,   KIVO_DATA_TYPE_VAR_BIN},
};
// clang-format on
static_assert(std::size(kRows) <= 21, "replies have room for 21 attributes");

// What sessions are found by and nobody is shown.
constexpr uint32_t kHiddenIndexes[] = {AAA_ATTR_SESSION_KEY, AAA_ATTR_ACCESS_SERVER_KEY};

// One kind of change that the daemon counts. The library links handles through their first word.
struct Watch {
  platform_queue_link link;
  uint32_t aaa_type;
  uint32_t actions;
  const char *name;
};

Watch watches[] = {
    {{}, AAA_ATTR_MAC_ADDRESS, KIVO_ACTION_ADD_UPDATE_OR_REMOVE, "device-moves"},
    {{}, AAA_ATTR_IPV4_ADDRESS, KIVO_ACTION_ADD_UPDATE_OR_REMOVE, "address-changes"},
    {{}, AAA_ATTR_IPV6_ADDRESSES, KIVO_ACTION_ADD_UPDATE_OR_REMOVE, "address-changes"},
    {{}, AAA_ATTR_INTERFACE_ID, KIVO_ACTION_ADD_UPDATE_OR_REMOVE, "port-changes"},
    {{}, AAA_ATTR_EXT_CLASS, KIVO_ACTION_UNCONDITIONAL, "class-reports"},
};

ChangeCounts counts;

void count_change(kivo_db *, uint32_t, uint32_t, const kivo_attr_value *, const kivo_attr_value *,
                  uint32_t action, platform_queue *) {
  ++(action == KIVO_ACTION_REMOVE ? counts.removed : counts.added_or_updated);
}

const char *name_of_watch(kivo_db *, uint32_t, void *handle) {
  return static_cast<const Watch *>(handle)->name;
}

bool declare_index(uint32_t type) {
  const uint32_t status = attrdb_declare_index(type);
  if (status == PLATFORM_OK) return true;
  host_trace(HostLevel::kError, HostMessage::kNoIndex, "no index of %s: %s",
             aaa_dict_get_attr_name(type), error_text(status));
  return false;
}

bool declare_indexes() {
  for (const kivo_attr_config &row : kRows) {
    if (row.index_kind != KIVO_INDEX_KIND_NONE && !declare_index(row.aaa_type)) return false;
  }
  return std::ranges::all_of(kHiddenIndexes, declare_index);
}

bool register_watches(kivo_db *db) {
  for (Watch &watch : watches) {
    const uint32_t status =
        kivo_register_attr_change_notification(db, watch.aaa_type, watch.actions, &watch);
    if (status != PLATFORM_OK) {
      host_trace(HostLevel::kError, HostMessage::kNoWatch, "no watch of %s: %s",
                 aaa_dict_get_attr_name(watch.aaa_type), error_text(status));
      return false;
    }
  }
  return true;
}

}  // namespace

kivo_db *open_session_database() {
  subsys_start();
  if (!declare_indexes()) return nullptr;
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, kClientId, count_change,
                                     name_of_watch};
  kivo_db *db = nullptr;
  const uint32_t status =
      kivo_create_database(KIVO_SHOW_DB_NAME, "kivod", &client, kRows, std::size(kRows), &db);
  if (status != PLATFORM_OK) {
    host_trace(HostLevel::kError, HostMessage::kNoDatabase, "no database: %s", error_text(status));
    return nullptr;
  }
  return register_watches(db) ? db : nullptr;
}

std::span<const kivo_attr_config> session_attributes() noexcept { return kRows; }

ChangeCounts announced_changes() noexcept { return counts; }

}  // namespace kivod
