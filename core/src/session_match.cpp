// Sessions from an attribute list: the label sets of its accel types, intersected one after
// another; and the list of all sessions. What is held on the way is given back on every path.
#include <utility>

#include "attribute_steps.h"
#include "index_list.h"
#include "kivo/query.h"
#include "platform/attrdb.h"
#include "trace.h"

namespace kivo {
namespace {

// A walk ends early without a failure when nothing can match any more. The attribute service has no
// such status.
constexpr uint32_t kNothingMatches = UINT32_MAX;

// Narrows `sessions` to those that `answer` holds too.
uint32_t intersect_sessions(IndexListPtr &sessions, IndexListPtr answer) noexcept {
  kivo_index_list *both = nullptr;
  const uint32_t result = kivo_index_list_intersection(sessions.get(), answer.get(), &both);
  if (result != KIVO_INDEX_LIST_OK) {
    kivo_trace_error(msg::kMatchSessionsIntersect, error_text(result));
    return result;
  }
  if (both == nullptr) kivo_trace_event(msg::kMatchSessionsEmpty, error_text(PLATFORM_OK));
  sessions.reset(both);
  return both != nullptr ? PLATFORM_OK : kNothingMatches;
}

// Takes the attribute in hand into account.
uint32_t match_attribute(kivo_db *db, ListCursor &cursor, AttrInHand &attr,
                         IndexListPtr &sessions) noexcept {
  uint32_t status = cursor.read(attr);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kMatchSessionsGetFailed, error_text(status));
    return status;
  }
  kivo_accel_entry *entry = nullptr;
  status = kivo_get_accel_from_type(attr.type, db, &entry);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kMatchSessionsAccel, error_text(status));
    return status;
  }
  if (entry == nullptr) {
    kivo_trace_event(msg::kMatchSessionsNoEntry, static_cast<int>(attr.type));
    return PLATFORM_OK;
  }
  kivo_index_list *list = nullptr;
  status = kivo_index_list_create(&list);
  if (status != KIVO_INDEX_LIST_OK) return status;
  uint32_t count = 0;
  status = attrdb_get_labels_by_attr(attr.type, attr.value, attr.length, &list, &count);
  IndexListPtr answer(list);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kMatchSessionsLabels, error_text(status));
    return status;
  }
  if (count == 0) {
    kivo_trace_event(msg::kMatchSessionsNoLabels, static_cast<int>(attr.type));
    sessions.reset();
    return kNothingMatches;
  }
  if (sessions != nullptr) return intersect_sessions(sessions, std::move(answer));
  sessions = std::move(answer);
  return PLATFORM_OK;
}

}  // namespace
}  // namespace kivo

using namespace kivo;

uint32_t kivo_match_sessions_from_list(kivo_db *db, uint32_t attr_list, kivo_index_list **list,
                                       uint32_t *count) noexcept {
  if (db == nullptr || attr_list == 0 || list == nullptr || count == nullptr) {
    kivo_trace_error(msg::kMatchSessionsBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  *count = 0;
  *list = nullptr;
  kivo_trace_event(msg::kMatchSessions, db->db_name);
  IndexListPtr sessions;
  uint32_t status = walk_list(attr_list, [&](ListCursor &cursor, AttrInHand &attr) noexcept {
    return match_attribute(db, cursor, attr, sessions);
  });
  if (status == kNothingMatches) status = PLATFORM_OK;
  if (status != PLATFORM_OK) return status;
  if (sessions == nullptr) {
    kivo_trace_event(msg::kMatchSessionsNone, static_cast<void *>(db));
    return PLATFORM_OK;
  }
  status = kivo_index_list_size(sessions.get(), count);
  if (status != KIVO_INDEX_LIST_OK) {
    kivo_trace_error(msg::kMatchSessionsSize, error_text(status));
    return status;
  }
  *list = sessions.release();
  return PLATFORM_OK;
}

uint32_t kivo_get_session_list(kivo_db *db, kivo_index_list **list, uint32_t *count) noexcept {
  if (db == nullptr || list == nullptr || count == nullptr) {
    kivo_trace_error(msg::kSessionListBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_trace_event(msg::kSessionList);
  *count = 0;
  if (kivo_index_list_create(list) != KIVO_INDEX_LIST_OK) {
    kivo_trace_error(msg::kSessionListFailed);
    return KIVO_ERR_NO_MEMORY;
  }
  attrdb_walk_all_records(attrdb_add_session_to_list, list);
  *count = attrdb_get_total_sessions();
  return PLATFORM_OK;
}
