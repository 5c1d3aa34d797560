// See sessions.h.
#include "support/sessions.h"

#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <unordered_set>

#include "platform/aaa.h"
#include "platform/subsys.h"

namespace bench {
namespace {

constexpr uint32_t kSeed = 20261116;  // of the labels
constexpr uint32_t kSessionsPerInterface = 48;
// clang-format off
constexpr kivo_attr_config kRows[] = {
    {AAA_ATTR_MAC_ADDRESS,      0, KIVO_DATA_TYPE_MAC_ADDR},
    {AAA_ATTR_AUDIT_SESSION_ID, 0, KIVO_DATA_TYPE_SESN_GUID},
    {AAA_ATTR_IPV4_ADDRESS,     0, KIVO_DATA_TYPE_IPV4_ADDR},
    {AAA_ATTR_INTERFACE_ID,     0, KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_DOMAIN,           0, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_METHOD,           0, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_SESSION_ID,       0, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_USER_NAME,        KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR},
};
// clang-format on

}  // namespace

Session make_session(uint32_t number) {
  Session session{};
  // An odd factor scrambles without repetition.
  const uint32_t id = number * 0x9e3779b1u;
  session.mac[0] = 2;
  std::memcpy(session.mac + 2, &id, sizeof(id));
  std::snprintf(session.audit_session_id, sizeof(session.audit_session_id), "%08X%08X%08X", 0u,
                number, id);
  session.ipv4 = id;
  session.interface_id = number / kSessionsPerInterface + 1;
  session.domain = static_cast<uint8_t>(id % std::size(kDomains));
  session.method = static_cast<uint8_t>(id / 8 % std::size(kMethods));
  std::snprintf(session.session_id, sizeof(session.session_id), "%08X", id);
  std::snprintf(session.user_name, sizeof(session.user_name), "user-%u", number);
  return session;
}

std::vector<uint32_t> make_labels(uint64_t n) {
  std::mt19937 random(kSeed);
  std::unordered_set<uint32_t> seen = {0};
  std::vector<uint32_t> labels;
  labels.reserve(n);
  while (labels.size() < n) {
    const auto label = static_cast<uint32_t>(random());
    if (seen.insert(label).second) labels.push_back(label);
  }
  return labels;
}

kivo_db *open_database() {
  subsys_start();
  for (const kivo_attr_config &row : kRows) {
    if (row.index_kind != KIVO_INDEX_KIND_NONE && attrdb_declare_index(row.aaa_type) != 0) {
      return nullptr;
    }
  }
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  kivo_db *db = nullptr;
  return kivo_create_database("BENCH", "bench", &client, kRows, std::size(kRows), &db) == 0
             ? db
             : nullptr;
}

bool create(kivo_db *db, uint32_t label, const Session &session) {
  uint32_t list = 0;
  if (aaa_list_alloc(&list) != 0) return false;
  const auto add = [&](uint32_t type, const void *value, size_t size) {
    return aaa_attr_add(list, type, value, static_cast<uint32_t>(size), 0, 0) == 0;
  };
  const auto add_text = [&](uint32_t type, const char *text) {
    return add(type, text, std::strlen(text));
  };
  const bool written =
      add(AAA_ATTR_MAC_ADDRESS, session.mac, sizeof(session.mac)) &&
      add_text(AAA_ATTR_AUDIT_SESSION_ID, session.audit_session_id) &&
      add(AAA_ATTR_IPV4_ADDRESS, &session.ipv4, sizeof(session.ipv4)) &&
      add(AAA_ATTR_INTERFACE_ID, &session.interface_id, sizeof(session.interface_id)) &&
      add_text(AAA_ATTR_DOMAIN, kDomains[session.domain]) &&
      add_text(AAA_ATTR_METHOD, kMethods[session.method]) &&
      add_text(AAA_ATTR_SESSION_ID, session.session_id) &&
      add_text(AAA_ATTR_USER_NAME, session.user_name) &&
      kivo_create_record(db, label, nullptr) == 0 &&
      kivo_add_or_update_attr_list(db, label, nullptr, list) == 0;
  aaa_list_free(list);
  return written;
}

}  // namespace bench
