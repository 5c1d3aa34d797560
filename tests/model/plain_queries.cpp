// The model's look-ups, queries and label lists: linear searches over all records.
#include <algorithm>
#include <cstring>

#include "model/plain_sessions.h"

namespace kivo_model {
namespace {

constexpr size_t kAddressSize = 16;
constexpr size_t kComparedAddresses = 6;
constexpr uint32_t kUntouched = 7;

bool holds_address(const Bytes &stored, const Bytes &address) {
  if (address.size() != kAddressSize) return false;
  for (size_t i = 0; i < stored.size(); i += kAddressSize) {
    if (stored.compare(i, kAddressSize, address) == 0) return true;
  }
  return false;
}

// A query compares over its own length, and looks at the first addresses only.
bool meets(const Record &record, const Attr &condition) {
  const auto &[type, value] = condition;
  const auto stored = record.attrs.find(type);
  if (stored == record.attrs.end()) return false;
  if (type != AAA_ATTR_IPV6_ADDRESSES) return stored->second.starts_with(value);
  if (value.size() > kAddressSize) return false;
  const size_t end = std::min(stored->second.size(), kComparedAddresses * kAddressSize);
  for (size_t i = 0; i < end; i += kAddressSize) {
    if (stored->second.compare(i, value.size(), value) == 0) return true;
  }
  return false;
}

// The labels of b that a holds too, in b's order.
Labels common(const Labels &a, const Labels &b) {
  Labels sorted = a;
  std::ranges::sort(sorted);
  Labels both;
  for (const uint32_t label : b) {
    if (std::ranges::binary_search(sorted, label)) both.push_back(label);
  }
  return both;
}

bool is_unsupported(uint32_t type) { return type > AAA_ATTR_TYPE_MAX; }

Accel accel_of(uint32_t db, uint32_t type) {
  const TypeRow *row = row_of(type);
  return row == nullptr ? Accel::kNone : row->in[db].accel;
}

}  // namespace

Labels PlainSessions::search(uint32_t type, const Bytes &value) const {
  Labels labels;
  for (const auto &[label, record] : records_) {
    const auto stored = record.attrs.find(type);
    if (stored == record.attrs.end()) continue;
    const bool equal = type == AAA_ATTR_IPV6_ADDRESSES ? holds_address(stored->second, value)
                                                       : stored->second == value;
    if (equal) labels.push_back(label);
  }
  return labels;
}

Answer PlainSessions::labels_of(uint32_t db, uint32_t type, const Bytes &value) {
  Answer answer{.state = 1};  // the caller's own list
  if (value.empty() || type == 0 || db == kNoDatabase) {
    answer.status = KIVO_ERR_INVALID_ARG;
  } else if (is_unsupported(type)) {
    answer.status = AAA_ERR_UNSUPPORTED_ATTR;
  } else {
    answer.labels = search(type, value);
    answer.number = static_cast<uint32_t>(answer.labels.size());
  }
  return answer;
}

Answer PlainSessions::label_of(uint32_t, uint32_t type, const Bytes &value) {
  if (value.empty() || type == 0) return {KIVO_ERR_INVALID_ARG, kUntouched};
  if (is_unsupported(type)) return {AAA_ERR_UNSUPPORTED_ATTR};
  const Labels labels = search(type, value);
  return {.number = labels.empty() ? 0 : labels.front()};
}

Answer PlainSessions::record_of(uint32_t db, uint32_t type, const Bytes &value) {
  if (value.empty() || type == 0 || db == kNoDatabase) return {KIVO_ERR_INVALID_ARG, kUntouched};
  Labels labels = search(type, value);
  labels.resize(std::min<size_t>(labels.size(), 1));
  return {.labels = labels};
}

Answer PlainSessions::next_interface(uint32_t after) {
  uint32_t next = 0;
  for (const auto &[label, record] : records_) {
    const auto stored = record.attrs.find(AAA_ATTR_INTERFACE_ID);
    uint32_t id = 0;
    if (stored == record.attrs.end() || stored->second.size() != sizeof(id)) continue;
    std::memcpy(&id, stored->second.data(), sizeof(id));
    if (id > after && (next == 0 || id < next)) next = id;
  }
  return {.number = next};
}

Answer PlainSessions::read_record(uint32_t label, uint32_t type) {
  const Record *record = at(label);
  if (record == nullptr || type == 0) return {KIVO_ERR_INVALID_ARG, kUntouched, 1};
  if (is_unsupported(type)) return {KIVO_ERR_FAILED};
  const auto stored = record->attrs.find(type);
  if (stored == record->attrs.end()) return {};
  return {.attrs = {*stored}};
}

Answer PlainSessions::read(uint32_t db, uint32_t label, uint32_t type) {
  if (db == kNoDatabase || type == 0 || label == 0) return {KIVO_ERR_INVALID_ARG, kUntouched, 1};
  if (at(label) == nullptr) return {PLATFORM_OK, kUntouched, 1};
  return read_record(label, type);
}

Answer PlainSessions::merge(uint32_t label, const ListArg &list) {
  const Record *record = at(label);
  if (record == nullptr) return {KIVO_ERR_FAILED};
  if (list.handle != Handle::kGood) return {AAA_ERR_STALE_LIST};
  Answer answer{.attrs = list.attrs};
  for (const auto &[type, value] : record->attrs) {
    if (std::ranges::find(list.attrs, type, &Attr::first) != list.attrs.end()) continue;
    const size_t step = type == AAA_ATTR_IPV6_ADDRESSES ? kAddressSize : value.size() + 1;
    for (size_t i = 0; i == 0 || i < value.size(); i += step) {
      answer.attrs.emplace_back(type, value.substr(i, step));
    }
  }
  return answer;
}

void PlainSessions::Query::reset() {
  candidates.reset();
  stored.clear();
}

Answer PlainSessions::Query::state(uint32_t status, uint32_t flag) const {
  const Labels labels = candidates.value_or(Labels());
  return {status, flag,
          static_cast<uint32_t>((may_match ? 1 : 0) + 2 * stored.size() + 16 * labels.size()),
          labels, stored};
}

Answer PlainSessions::start_query(uint32_t query, uint32_t db) {
  if (db == kNoDatabase) return {KIVO_ERR_INVALID_ARG};
  queries_[query] = Query{.db = db, .may_match = true};
  return queries_[query].state(PLATFORM_OK, 0);
}

// Whether any candidate meets a condition. Every one of them is read.
uint32_t PlainSessions::check_candidates(const Query &query, const Attr &condition,
                                         bool &found) const {
  found = false;
  for (const uint32_t label : *query.candidates) {
    const auto record = records_.find(label);
    if (record == records_.end()) continue;
    if (is_unsupported(condition.first)) return KIVO_ERR_INVALID_ARG;
    found = found || meets(record->second, condition);
  }
  return PLATFORM_OK;
}

// An indexed condition. may_match stays false unless something is left.
uint32_t PlainSessions::narrow(Query &query, const Attr &condition) {
  Labels answer = search(condition.first, condition.second);
  if (query.candidates) answer = common(*query.candidates, answer);
  if (answer.empty()) {
    query.reset();
    return PLATFORM_OK;
  }
  query.candidates = std::move(answer);
  query.may_match = true;
  return PLATFORM_OK;
}

uint32_t PlainSessions::check_or_store(Query &query, const Attr &condition) {
  uint32_t status = PLATFORM_OK;
  if (query.candidates && query.candidates->size() >= 11) {
    status = check_candidates(query, condition, query.may_match);
    if (status != PLATFORM_OK) query.may_match = false;
  } else if (condition.second.size() <= 255 && query.stored.size() < 4) {
    query.stored.push_back(condition);
    query.may_match = true;
  }
  if (!query.may_match) query.reset();
  return status;
}

Answer PlainSessions::add_to_query(uint32_t query, uint32_t type, const Bytes &value) {
  Query &q = queries_[query];
  if (value.empty()) {
    q.reset();
    return q.state(KIVO_ERR_INVALID_ARG, kUntouched);
  }
  if (!q.may_match) {
    q.reset();
    return q.state(PLATFORM_OK, 0);
  }
  q.may_match = false;
  if (type == 0) {
    q.reset();
    return q.state(KIVO_ERR_INVALID_ARG, 0);
  }
  const bool is_indexed = accel_of(q.db, type) == Accel::kIndexed;
  const uint32_t status = is_indexed ? narrow(q, {type, value}) : check_or_store(q, {type, value});
  return q.state(status, q.may_match ? 1 : 0);
}

Answer PlainSessions::take_matches(uint32_t query) {
  Query &q = queries_[query];
  if (!q.may_match || !q.candidates) return q.state(PLATFORM_OK, 0);
  for (const Attr &condition : q.stored) {
    bool found = false;
    const uint32_t status = check_candidates(q, condition, found);
    if (status == PLATFORM_OK && found) continue;
    q.reset();
    q.may_match = false;
    return q.state(status, 0);
  }
  const Labels labels = *q.candidates;
  q.reset();
  return {PLATFORM_OK, static_cast<uint32_t>(labels.size()), 1, labels};
}

Answer PlainSessions::match_list(uint32_t db, const ListArg &list) {
  if (db == kNoDatabase || list.handle == Handle::kZero) return {KIVO_ERR_INVALID_ARG};
  if (list.handle == Handle::kStale) return {KIVO_ERR_NO_CURSOR};
  std::optional<Labels> sessions;
  for (const auto &[type, value] : list.attrs) {
    if (accel_of(db, type) == Accel::kNone) continue;
    const Labels answer = search(type, value);
    sessions = sessions ? common(*sessions, answer) : answer;
    if (sessions->empty()) return {};
  }
  if (!sessions) return {};
  return {PLATFORM_OK, static_cast<uint32_t>(sessions->size()), 1, *sessions};
}

Answer PlainSessions::all_sessions(uint32_t db) {
  if (db == kNoDatabase) return {KIVO_ERR_INVALID_ARG};
  Answer answer{PLATFORM_OK, static_cast<uint32_t>(records_.size()), 1, slots_};
  std::erase(answer.labels, 0u);
  return answer;
}

Answer PlainSessions::append(uint32_t list, const Labels &labels) {
  if (list == kBadList) return {KIVO_INDEX_LIST_INVALID};
  lists_[list].insert(lists_[list].end(), labels.begin(), labels.end());
  return {.number = static_cast<uint32_t>(lists_[list].size())};
}

Answer PlainSessions::get(uint32_t list, uint32_t position) {
  if (list == kBadList) return {KIVO_INDEX_LIST_INVALID, 0, position};
  if (position >= lists_[list].size()) return {KIVO_INDEX_LIST_OUT_OF_RANGE, 0, position};
  return {PLATFORM_OK, lists_[list][position], position + 1};
}

Answer PlainSessions::clear(uint32_t list) {
  if (list == kBadList) return {KIVO_INDEX_LIST_INVALID};
  lists_[list].clear();
  return {};
}

Answer PlainSessions::intersect(uint32_t a, uint32_t b) {
  if (a == kBadList || b == kBadList || lists_[a].empty() || lists_[b].empty()) {
    return {KIVO_INDEX_LIST_INVALID};
  }
  const Labels both = common(lists_[a], lists_[b]);
  return {PLATFORM_OK, 0, both.empty() ? 0u : 1u, both};
}

}  // namespace kivo_model
