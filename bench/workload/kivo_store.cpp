// See kivo_store.h.
#include "workload/kivo_store.h"

#include <iterator>
#include <string_view>

#include "platform/aaa.h"
#include "platform/subsys.h"

namespace workload {
namespace {

constexpr uint32_t kIndexed = 0;
// clang-format off
constexpr kivo_attr_config kRows[] = {
    {AAA_ATTR_MAC_ADDRESS,      kIndexed,             KIVO_DATA_TYPE_MAC_ADDR},
    {AAA_ATTR_AUDIT_SESSION_ID, kIndexed,             KIVO_DATA_TYPE_SESN_GUID},
    {AAA_ATTR_IPV4_ADDRESS,     kIndexed,             KIVO_DATA_TYPE_IPV4_ADDR},
    {AAA_ATTR_INTERFACE_ID,     kIndexed,             KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_DOMAIN,           kIndexed,             KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_METHOD,           kIndexed,             KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_SESSION_ID,       kIndexed,             KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_USER_NAME,        KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_PORT,             KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_PORT_TYPE,        KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_SERVICE_TYPE,     KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_SESSION_TIME,     KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_OCTETS_IN,        KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT64},
    {AAA_ATTR_OCTETS_OUT,       KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT64},
    {AAA_ATTR_CALLED_STATION,   KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_CALLING_STATION,  KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR},
};
// clang-format on

bool add(uint32_t list, uint32_t type, const void *value, size_t size) {
  return aaa_attr_add(list, type, value, static_cast<uint32_t>(size), 0, 0) == 0;
}

template <typename Value>
bool add_fixed(uint32_t list, uint32_t type, const Value &value) {
  return add(list, type, &value, sizeof(value));
}

bool fill_list(uint32_t list, const Session &session) {
  const std::string_view domain = kDomains[session.domain];
  const std::string_view method = kMethods[session.method];
  return add_fixed(list, AAA_ATTR_MAC_ADDRESS, session.mac) &&
         add_fixed(list, AAA_ATTR_AUDIT_SESSION_ID, session.audit_id) &&
         add_fixed(list, AAA_ATTR_IPV4_ADDRESS, session.ipv4) &&
         add_fixed(list, AAA_ATTR_INTERFACE_ID, session.interface_id) &&
         add(list, AAA_ATTR_DOMAIN, domain.data(), domain.size()) &&
         add(list, AAA_ATTR_METHOD, method.data(), method.size()) &&
         add_fixed(list, AAA_ATTR_SESSION_ID, session.session_id) &&
         add(list, AAA_ATTR_USER_NAME, session.user_name.data(), session.user_name_length) &&
         add_fixed(list, AAA_ATTR_PORT, session.port) &&
         add_fixed(list, AAA_ATTR_PORT_TYPE, session.port_type) &&
         add_fixed(list, AAA_ATTR_SERVICE_TYPE, session.service_type) &&
         add_fixed(list, AAA_ATTR_SESSION_TIME, session.session_time) &&
         add_fixed(list, AAA_ATTR_OCTETS_IN, session.octets_in) &&
         add_fixed(list, AAA_ATTR_OCTETS_OUT, session.octets_out) &&
         add_fixed(list, AAA_ATTR_CALLED_STATION, session.called_station) &&
         add_fixed(list, AAA_ATTR_CALLING_STATION, session.calling_station);
}

}  // namespace

kivo_db *open_database() {
  subsys_start();
  for (const kivo_attr_config &row : kRows) {
    if (row.index_kind == kIndexed && attrdb_declare_index(row.aaa_type) != 0) return nullptr;
  }
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  kivo_db *db = nullptr;
  const uint32_t status =
      kivo_create_database("WORKLOAD", "bench", &client, kRows, std::size(kRows), &db);
  return status == 0 ? db : nullptr;
}

bool create_session(kivo_db *db, uint32_t label, const Session &session) {
  uint32_t list = 0;
  if (aaa_list_alloc(&list) != 0) return false;
  const bool written = fill_list(list, session) && kivo_create_record(db, label, nullptr) == 0 &&
                       kivo_add_or_update_attr_list(db, label, nullptr, list) == 0;
  aaa_list_free(list);
  return written;
}

}  // namespace workload
