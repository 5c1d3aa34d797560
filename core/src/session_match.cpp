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

// What a match has found so far. The walk over the list ends early when nothing can match any more.
struct Match {
  IndexListPtr sessions;  // null before the first accel type
  bool is_over = false;
};

// Ends the walk without a failure: kivo_match_sessions_from_list() looks at the match, not at this.
uint32_t end_match(Match &match) noexcept {
  match.sessions.reset();
  match.is_over = true;
  return KIVO_ERR_FAILED;
}

// Narrows the sessions found to those that `answer` holds too.
uint32_t intersect_sessions(Match &match, IndexListPtr answer) noexcept {
  kivo_index_list *both = nullptr;
  const uint32_t result = kivo_index_list_intersection(match.sessions.get(), answer.get(), &both);
  if (result != KIVO_INDEX_LIST_OK) {
    kivo_trace_error(msg::kMatchSessionsIntersect, error_text(result));
    return result;
  }
  if (both == nullptr) {
    kivo_trace_event(msg::kMatchSessionsEmpty, error_text(PLATFORM_OK));
    return end_match(match);
  }
  match.sessions.reset(both);
  return PLATFORM_OK;
}

// Takes the attribute in hand into account.
uint32_t match_attribute(kivo_db *db, ListCursor &cursor, AttrInHand &attr, Match &match) noexcept {
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
    return end_match(match);
  }
  if (match.sessions != nullptr) return intersect_sessions(match, std::move(answer));
  match.sessions = std::move(answer);
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
  Match match;
  uint32_t status = walk_list(attr_list, [&](ListCursor &cursor, AttrInHand &attr) noexcept {
    return match_attribute(db, cursor, attr, match);
  });
  if (status != PLATFORM_OK && !match.is_over) return status;
  if (match.sessions == nullptr) {
    kivo_trace_event(msg::kMatchSessionsNone, static_cast<void *>(db));
    return PLATFORM_OK;
  }
  status = kivo_index_list_size(match.sessions.get(), count);
  if (status != KIVO_INDEX_LIST_OK) {
    kivo_trace_error(msg::kMatchSessionsSize, error_text(status));
    return status;
  }
  *list = match.sessions.release();
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
