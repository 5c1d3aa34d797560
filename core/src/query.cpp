// Multi-attribute queries. Indexed conditions narrow the candidates by intersection; unindexed ones
// are checked against the candidates' records, at once when there are many, else when the result is
// taken. Invariant: a query holds a list only while it can match (may_match 1); every path that
// leaves that state gives the list back or hands it out.
#include "kivo/query.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "index_list.h"
#include "kivo/attribute_removal.h"
#include "large_sets.h"
#include "platform/attrdb.h"
#include "trace.h"

namespace kivo {
namespace {

constexpr uint32_t kAddressSize = 16;

struct Condition {
  uint32_t type;
  const void *value;
  uint32_t length;
};

// Gives the candidates back and forgets the stored conditions. may_match stays as it is.
void reset_query(kivo_maqi &query) noexcept {
  kivo_index_list_free(query.candidates);
  query.candidates = nullptr;
  query.num_unindexed = 0;
  query.num_candidates = 0;
}

// The condition was taken and the query can still match.
uint32_t still_matching(kivo_maqi &query, uint32_t *flag) noexcept {
  *flag = 1;
  query.may_match = 1;
  return PLATFORM_OK;
}

// Whether `condition` equals bytes that a record stores, of which `size` can be read.
bool equals_stored(const Condition &condition, const uint8_t *stored, uint32_t size) noexcept {
  return size >= condition.length && std::memcmp(stored, condition.value, condition.length) == 0;
}

// The same for the first addresses of type 10, of which there are as many as the service counts.
bool equals_an_address(const Condition &condition, const uint8_t *stored,
                       uint32_t n_values) noexcept {
  const uint32_t n = std::min(n_values, KIVO_ADDRESSES_LOOKED_AT);
  for (uint32_t i = 0; i < n; ++i) {
    if (equals_stored(condition, stored + size_t{i} * kAddressSize, kAddressSize)) return true;
  }
  return false;
}

// Whether the record of a label meets the condition. A record that has gone does not.
uint32_t match_candidate(uint32_t label, const Condition &condition, bool &matches) noexcept {
  matches = false;
  attrdb_record *record = nullptr;
  uint32_t status = attrdb_get_record(label, &record);
  if (status != PLATFORM_OK || record == nullptr) return status;
  const void *stored = nullptr;
  uint32_t size = 0;
  uint32_t n_values = 0;
  status = auth_mgr_idc_get_attr(record->ctxt, condition.type, &stored, &size, &n_values);
  if (status != PLATFORM_OK || stored == nullptr) return status;
  const auto *bytes = static_cast<const uint8_t *>(stored);
  matches = condition.type == AAA_ATTR_IPV6_ADDRESSES
                ? equals_an_address(condition, bytes, n_values)
                : equals_stored(condition, bytes, size);
  return PLATFORM_OK;
}

// Whether any candidate meets the condition. Every candidate is read: a failure on a later one
// fails the check, also when an earlier one matched.
uint32_t match_attr_to_candidates_int(const kivo_maqi *query, const Condition &condition,
                                      bool *found) noexcept {
  if (condition.type == 0 || condition.length == 0 || query == nullptr ||
      condition.value == nullptr || found == nullptr) {
    kivo_trace_error(msg::kCandidatesBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  *found = false;
  uint32_t size = 0;
  if (kivo_index_list_size(query->candidates, &size) != KIVO_INDEX_LIST_OK) {
    return KIVO_ERR_INVALID_ARG;
  }
  for (uint32_t i = 0; i < size; ++i) {
    uint32_t label = 0;
    if (kivo_index_list_get(query->candidates, i, &label) != KIVO_INDEX_LIST_OK || label == 0) {
      return KIVO_ERR_INVALID_ARG;
    }
    bool matches = false;
    const uint32_t status = match_candidate(label, condition, matches);
    if (status != PLATFORM_OK) return status;
    *found = *found || matches;
  }
  return PLATFORM_OK;
}

// Whether the type is indexed: 0, or the entry's `indexed`.
uint32_t check_attr_indxed_int(const kivo_maqi &query, uint32_t type, uint32_t &indexed) noexcept {
  indexed = 0;
  if (type == 0) {
    kivo_trace_error(msg::kIndexedBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  kivo_accel_entry *entry = nullptr;
  const uint32_t status = kivo_get_accel_from_type(type, query.db, &entry);
  if (status != PLATFORM_OK) {
    kivo_trace_error(msg::kIndexedLookupFailed, static_cast<int>(type), error_text(status));
    return status;
  }
  if (entry == nullptr) {
    kivo_trace_event(msg::kIndexedNoEntry, static_cast<int>(type));
  } else {
    indexed = entry->indexed;
  }
  return PLATFORM_OK;
}

// For the traces of an indexed condition.
struct IndexedCondition : Condition {
  uint32_t indexed;
};

uint32_t fail_condition(kivo_maqi &query, const TraceMessage &message,
                        const IndexedCondition &condition, uint32_t status) noexcept {
  kivo_trace_error(message, static_cast<int>(condition.type), static_cast<int>(condition.indexed));
  reset_query(query);
  return status;
}

uint32_t no_match(kivo_maqi &query, const TraceMessage &message, const Condition &condition,
                  uint32_t indexed) noexcept {
  kivo_trace_event(message, static_cast<int>(condition.type), static_cast<int>(indexed));
  reset_query(query);
  return PLATFORM_OK;
}

// Puts what an intersection left in the candidates' place; null when it left nothing.
uint32_t take_narrowed(kivo_maqi &query, kivo_index_list *narrowed,
                       const IndexedCondition &condition, uint32_t *flag) noexcept {
  if (narrowed == nullptr) {
    return no_match(query, msg::kQueryNoIntersection, condition, condition.indexed);
  }
  kivo_index_list_free(query.candidates);
  query.candidates = narrowed;
  uint32_t size = 0;
  if (kivo_index_list_size(narrowed, &size) != KIVO_INDEX_LIST_OK) {
    return fail_condition(query, msg::kQuerySizeFailed, condition, KIVO_ERR_INVALID_ARG);
  }
  query.num_candidates = size;
  return still_matching(query, flag);
}

// Narrows the candidates to those that `answer` holds too.
uint32_t intersect_candidates(kivo_maqi &query, IndexListPtr answer,
                              const IndexedCondition &condition, uint32_t *flag) noexcept {
  kivo_index_list *narrowed = nullptr;
  if (kivo_index_list_intersection(query.candidates, answer.get(), &narrowed) !=
      KIVO_INDEX_LIST_OK) {
    return fail_condition(query, msg::kQueryIntersectFailed, condition, KIVO_ERR_INVALID_ARG);
  }
  return take_narrowed(query, narrowed, condition, flag);
}

uint32_t add_indexed_condition(kivo_maqi &query, const IndexedCondition &condition,
                               uint32_t *flag) noexcept {
  if (query.candidates != nullptr) {
    IndexListPtr narrowed =
        narrow_in_store(query.candidates, condition.type, condition.value, condition.length);
    if (narrowed != nullptr) {
      const bool any = narrowed->count != 0;
      return take_narrowed(query, any ? narrowed.release() : nullptr, condition, flag);
    }
  }
  kivo_index_list *list = nullptr;
  if (kivo_index_list_create(&list) != KIVO_INDEX_LIST_OK) {
    return fail_condition(query, msg::kQueryListFailed, condition, KIVO_ERR_NO_MEMORY);
  }
  uint32_t count = 0;
  const uint32_t status =
      attrdb_get_labels_by_attr(condition.type, condition.value, condition.length, &list, &count);
  IndexListPtr answer(list);
  if (status != PLATFORM_OK) {
    return fail_condition(query, msg::kQueryGetFailed, condition, KIVO_ERR_INVALID_ARG);
  }
  if (count == 0) return no_match(query, msg::kQueryNoLabels, condition, condition.indexed);
  if (query.candidates != nullptr) {
    return intersect_candidates(query, std::move(answer), condition, flag);
  }
  query.candidates = answer.release();
  query.num_candidates += count;
  return still_matching(query, flag);
}

void store_condition(kivo_maqi &query, const Condition &condition) noexcept {
  kivo_attr_value &entry = query.unindexed[query.num_unindexed];
  entry.aaa_type = condition.type;
  entry.size = condition.length;
  std::memcpy(entry.data, condition.value, condition.length);
  ++query.num_unindexed;
}

uint32_t add_unindexed_condition(kivo_maqi &query, const Condition &condition,
                                 uint32_t *flag) noexcept {
  if (query.candidates != nullptr && query.num_candidates >= KIVO_MAQI_EARLY_CHECK_MIN) {
    bool found = false;
    if (match_attr_to_candidates_int(&query, condition, &found) != PLATFORM_OK) {
      kivo_trace_error(msg::kQueryUnindexedFailed);
      reset_query(query);
      return KIVO_ERR_INVALID_ARG;
    }
    return found ? still_matching(query, flag)
                 : no_match(query, msg::kQueryUnindexedNoMatch, condition, 0);
  }
  if (condition.length <= KIVO_MAQI_MAX_VALUE_LEN &&
      query.num_unindexed < KIVO_MAQI_MAX_UNINDEXED) {
    kivo_trace_event(msg::kQueryUnindexedStored, static_cast<int>(condition.type), 0);
    store_condition(query, condition);
    return still_matching(query, flag);
  }
  reset_query(query);
  kivo_trace_event(msg::kQueryTooManyUnindexed);
  return PLATFORM_OK;
}

bool query_arguments_are_valid(const kivo_maqi &query, const Condition &condition,
                               const uint32_t *flag) noexcept {
  if (query.db == nullptr || condition.value == nullptr || condition.length == 0 ||
      flag == nullptr) {
    return false;
  }
  return query.candidates != nullptr || query.num_candidates == 0;
}

// Whether every stored condition holds for some candidate.
uint32_t check_stored_conditions(const kivo_maqi &query, bool &all_hold) noexcept {
  all_hold = true;
  for (uint32_t i = 0; i < query.num_unindexed && all_hold; ++i) {
    const kivo_attr_value &entry = query.unindexed[i];
    const uint32_t status =
        match_attr_to_candidates_int(&query, {entry.aaa_type, entry.data, entry.size}, &all_hold);
    if (status != PLATFORM_OK) return status;
  }
  return PLATFORM_OK;
}

}  // namespace
}  // namespace kivo

using namespace kivo;

uint32_t kivo_start_multi_attr_query(kivo_db *db, kivo_maqi *query) noexcept {
  kivo_trace_event(msg::kQueryStart);
  if (db == nullptr || query == nullptr) {
    kivo_trace_error(msg::kQueryStartBadParams);
    return KIVO_ERR_INVALID_ARG;
  }
  query->candidates = nullptr;
  query->num_candidates = 0;
  query->num_unindexed = 0;
  query->may_match = 1;
  query->db = db;
  return PLATFORM_OK;
}

uint32_t kivo_add_attr_to_query(kivo_maqi *query, uint32_t type, const void *value, uint32_t length,
                                uint32_t *flag) noexcept {
  kivo_trace_event(msg::kQueryAdd);
  if (query == nullptr) {
    kivo_trace_error(msg::kQueryAddNoContext);
    return KIVO_ERR_INVALID_ARG;
  }
  const Condition condition{type, value, length};
  if (!query_arguments_are_valid(*query, condition, flag)) {
    kivo_trace_error(msg::kQueryAddBadParams);
    reset_query(*query);
    return KIVO_ERR_INVALID_ARG;
  }
  *flag = 0;
  if (query->may_match == 0) {
    kivo_trace_event(msg::kQueryAddNoMatches);
    reset_query(*query);
    return PLATFORM_OK;
  }
  query->may_match = 0;
  uint32_t indexed = 0;
  if (check_attr_indxed_int(*query, type, indexed) != PLATFORM_OK) {
    return fail_condition(*query, msg::kQueryAddFailed, {condition, 0}, KIVO_ERR_INVALID_ARG);
  }
  return indexed != 0 ? add_indexed_condition(*query, {condition, indexed}, flag)
                      : add_unindexed_condition(*query, condition, flag);
}

uint32_t kivo_get_matches_for_query(kivo_maqi *query, kivo_index_list **list,
                                    uint32_t *count) noexcept {
  kivo_trace_event(msg::kQueryGet);
  if (query == nullptr || list == nullptr || count == nullptr) return KIVO_ERR_INVALID_ARG;
  *list = nullptr;
  *count = 0;
  if (query->may_match == 0 || query->num_candidates == 0) {
    kivo_trace_event(msg::kQueryGetNoMatches);
    if (query->candidates != nullptr) reset_query(*query);
    return PLATFORM_OK;
  }
  if (query->num_candidates >= KIVO_MAQI_MANY_MATCHES) {
    kivo_trace_event(msg::kQueryManyMatches, static_cast<int>(query->num_candidates));
  }
  bool all_hold = false;
  const uint32_t status = check_stored_conditions(*query, all_hold);
  if (status != PLATFORM_OK || !all_hold) {
    reset_query(*query);
    query->may_match = 0;
    return status != PLATFORM_OK ? KIVO_ERR_INVALID_ARG : PLATFORM_OK;
  }
  *list = query->candidates;
  *count = query->num_candidates;
  query->candidates = nullptr;
  query->num_unindexed = 0;
  query->num_candidates = 0;
  return PLATFORM_OK;
}
