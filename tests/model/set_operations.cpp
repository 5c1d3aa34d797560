// Queries, and the label lists that they are made of.
#include <algorithm>

#include "model/chance.h"
#include "model/library.h"

namespace kivo_model {
namespace {

constexpr uint32_t kBadArg = KIVO_ERR_INVALID_ARG;
constexpr uint32_t kBlock = KIVO_INDEX_LIST_BLOCK_LABELS;

uint32_t size_of(const Labels &labels) { return static_cast<uint32_t>(labels.size()); }

// The labels of b that a holds too, in b's order.
Labels common(Labels a, const Labels &b) {
  std::ranges::sort(a);
  Labels both;
  std::ranges::copy_if(b, std::back_inserter(both),
                       [&](uint32_t label) { return std::ranges::binary_search(a, label); });
  return both;
}

uint32_t give(const Labels &labels, Outcome &o) {
  o.labels = labels;
  o.list = labels.empty() ? Given::kNull : Given::kList;
  o.number = size_of(labels);
  return PLATFORM_OK;
}

// ---- Queries

uint32_t show(const Query &q, Outcome &o, uint32_t status) {
  o.labels = q.candidates.value_or(Labels());
  o.length =
      (q.may_match ? 1 : 0) + 2 * static_cast<uint32_t>(q.stored.size()) + 16 * size_of(o.labels);
  o.attrs = q.stored;
  return status;
}

uint32_t start(Call &c) {
  kivo_maqi *query = c.shown_query();
  if (c.db != nullptr && query != nullptr) kivo_index_list_free(query->candidates);
  return kivo_start_multi_attr_query(c.db, query);
}
uint32_t start(Plain &p, const Args &a, Outcome &o) {
  if (a.other == kNullList) return kBadArg;
  Query &q = p.queries[a.query];
  if (a.db != kNoDatabase) q = {.db = a.db, .may_match = true};
  return show(q, o, a.db != kNoDatabase ? PLATFORM_OK : kBadArg);
}

// A query compares over its own length, and looks at the first addresses only.
bool meets(const Record &record, const Attr &condition) {
  const auto stored = record.attrs.find(condition.first);
  if (stored == record.attrs.end()) return false;
  std::vector<Bytes> parts = parts_of(stored->first, stored->second);
  parts.resize(std::min<size_t>(parts.size(), KIVO_ADDRESSES_LOOKED_AT));
  return std::ranges::any_of(parts,
                             [&](const Bytes &part) { return part.starts_with(condition.second); });
}
// Whether any candidate meets a condition. Every one of them is read.
uint32_t check(Plain &p, const Query &q, const Attr &condition, bool &found) {
  found = false;
  for (const uint32_t label : *q.candidates) {
    const Record *record = p.at(label);
    if (record == nullptr) continue;
    if (condition.first == kUnsupported) return found = false, kBadArg;
    found = found || meets(*record, condition);
  }
  return PLATFORM_OK;
}

uint32_t add_valid(Plain &p, Query &q, const Attr &condition) {
  const auto &[type, value] = condition;
  if (!std::exchange(q.may_match, false)) return PLATFORM_OK;
  if (type == 0) return kBadArg;
  if (row_of(type).accel[q.db] == Accel::kIndex) {
    const Labels answer = p.holders(type, value);
    q.candidates = q.candidates ? common(*q.candidates, answer) : answer;
    q.may_match = !q.candidates->empty();
  } else if (q.candidates && q.candidates->size() >= KIVO_MAQI_EARLY_CHECK_MIN) {
    return check(p, q, condition, q.may_match);
  } else if (value.size() <= 255 && q.stored.size() < 4) {
    q.stored.push_back(condition);
    q.may_match = true;
  }
  return PLATFORM_OK;
}
uint32_t add(Call &c) {
  return kivo_add_attr_to_query(c.shown_query(), c.in.type, c.value, c.size, c.out(c.number));
}
uint32_t add(Plain &p, const Args &a, Outcome &o) {
  if (a.other == kNullList) return kBadArg;
  Query &q = p.queries[a.query];
  const bool is_bad = q.db == kNoDatabase || a.value.empty() || a.null_value || a.null_out;
  const uint32_t status = is_bad ? kBadArg : add_valid(p, q, {a.type, a.value});
  if (!is_bad) o.number = q.may_match ? 1 : 0;
  if (is_bad || !q.may_match) q = {.db = q.db, .may_match = q.may_match};
  return show(q, o, status);
}

uint32_t take(Plain &p, const Args &a, Outcome &o) {
  Query &q = p.queries[a.query];
  if (a.null_out || a.other == kNullList) return kBadArg;
  o.number = 0;
  o.list = Given::kNull;
  if (!q.may_match || !q.candidates) return PLATFORM_OK;
  for (const Attr &condition : q.stored) {
    bool found = false;
    const uint32_t status = check(p, q, condition, found);
    if (found) continue;
    q = {.db = q.db};
    return status;
  }
  const Labels labels = *q.candidates;
  q = {.db = q.db, .may_match = true};
  return give(labels, o);
}

// A failure leaves an empty query that matches nothing.
void give_up(Plain &p, const Args &a, Outcome &o) {
  p.queries[a.query] = {.db = p.queries[a.query].db};
  o = {.number = 0, .length = o.length == kUntouched ? kUntouched : 0, .list = o.list};
}

// The conditions of one query come mostly from one record; it may go before the result is taken.
// First come values that many have, later on often an address, of which not all are compared.
void draw_condition(Chance &chance, Args &a) {
  const bool narrows = chance.plain.queries[a.query].candidates.has_value();
  uint32_t &basis = chance.query_bases[a.query];
  if (!chance.plain.records.contains(basis) || chance.percent(10)) basis = chance.live_label();
  uint32_t wanted = chance.percent(50) ? AAA_ATTR_METHOD : AAA_ATTR_DOMAIN;
  if (narrows && chance.percent(60)) wanted = chance.percent(60) ? AAA_ATTR_IPV6_ADDRESSES : 0;
  if (chance.percent(85)) std::tie(a.type, a.value) = chance.attr_of(basis, wanted);
  if (chance.percent(10) && a.value.size() > 1) a.value.pop_back();  // a beginning
  if (chance.percent(5)) a.value += "more";
  a.stored = 0;
}

uint32_t match_list(Plain &p, const Args &a, Outcome &o) {
  if (a.db == kNoDatabase || a.handle == Handle::kZero || a.null_out) return kBadArg;
  give({}, o);
  if (a.handle == Handle::kStale) return KIVO_ERR_NO_CURSOR;
  std::optional<Labels> sessions;
  for (const auto &[type, value] : a.attrs) {
    if (row_of(type).accel[a.db] == Accel::kNone) continue;
    const Labels answer = p.holders(type, value);
    sessions = sessions ? common(*sessions, answer) : answer;
    if (sessions->empty()) break;
  }
  return give(sessions.value_or(Labels()), o);
}

uint32_t list_all(Plain &p, const Args &a, Outcome &o) {
  if (a.db == kNoDatabase || a.null_out) return kBadArg;
  Labels labels = p.slots;
  std::erase(labels, 0u);
  give(labels, o);
  o.list = Given::kList;
  return PLATFORM_OK;
}

// ---- Label lists

// The labels of a list, null for a bad one.
Labels *list_of(Plain &p, uint32_t list) { return list < kLists ? &p.lists[list] : nullptr; }

Labels readable(Plain &p, uint32_t list) { return list < kLists ? p.lists[list] : Labels(); }

uint32_t append(Call &c) {
  kivo_index_list **list = &c.library.lists[c.in.list];
  const uint32_t n = size_of(c.in.labels);
  const uint32_t status =
      n == 1 ? kivo_index_list_add(list, c.in.labels[0])
             : kivo_index_list_add_many(list, c.in.null_value ? nullptr : c.in.labels.data(), n);
  kivo_index_list_size(*list, &c.number);
  return status;
}
uint32_t append(Plain &p, const Args &a, Outcome &o) {
  Labels *list = list_of(p, a.list);
  if (list == nullptr) return KIVO_INDEX_LIST_INVALID;
  const bool is_bad = a.null_value && a.labels.size() > 1;
  if (!is_bad) list->insert(list->end(), a.labels.begin(), a.labels.end());
  o.number = size_of(*list);
  return is_bad ? KIVO_INDEX_LIST_INVALID : KIVO_INDEX_LIST_OK;
}
// What was appended before a failure stays.
void append_some(Plain &p, const Args &a, Outcome &o) {
  Labels &list = p.lists[a.list];
  const uint32_t size = size_of(list);
  o.number = std::clamp(o.number, size, size + size_of(a.labels));
  list.insert(list.end(), a.labels.begin(), a.labels.begin() + (o.number - size));
}

uint32_t get(Call &c) {
  const kivo_index_list *list = c.library.lists[c.in.list];
  c.length = c.in.number;
  c.numbers = {kivo_index_list_next(list, &c.length)};
  return kivo_index_list_get(list, c.in.number, &c.number);
}
uint32_t get(Plain &p, const Args &a, Outcome &o) {
  const Labels *list = list_of(p, a.list);
  o.labels = {0};
  o.length = a.number;
  if (list == nullptr) return KIVO_INDEX_LIST_INVALID;
  if (a.number >= list->size()) return KIVO_INDEX_LIST_OUT_OF_RANGE;
  o.labels = {o.number = (*list)[o.length++]};
  return KIVO_INDEX_LIST_OK;
}

// Frees a list and makes a new one.
uint32_t renew(Call &c) {
  kivo_index_list *fresh = nullptr;
  const uint32_t status = c.in.list < kLists ? kivo_index_list_create(&fresh) : 0;
  if (status == 0) kivo_index_list_free(c.library.lists[c.in.list]);
  if (fresh != nullptr) c.library.lists[c.in.list] = fresh;
  return status;
}

uint32_t intersect(const Labels &a, const Labels &b, Outcome &o) {
  const bool is_bad = a.empty() || b.empty();
  give(is_bad ? Labels() : common(a, b), o);
  o.number = kUntouched;
  return is_bad ? KIVO_INDEX_LIST_INVALID : KIVO_INDEX_LIST_OK;
}

// A later block of a list loses its marker, or its count. 0 for a list that has none.
uint32_t damaged_block(const Args &a, uint32_t size) {
  const uint32_t n_blocks = (size + kBlock - 1) / kBlock;
  return n_blocks < 2 ? 0 : 1 + a.number / 2 % (n_blocks - 1);
}
bool loses_marker(const Args &a) { return a.number % 2 == 0; }
// Below this size every operation walks from the head, and meets the damage.
bool meets_damage(const Args &a, uint32_t size) { return loses_marker(a) && size <= 768; }

uint32_t intersect_damaged(Call &c) {
  kivo_index_list *list = c.library.lists[c.in.list];
  uint32_t size = 0;
  kivo_index_list_size(list, &size);
  const uint32_t number = damaged_block(c.in, size);
  kivo_index_list *block = list;
  for (uint32_t i = 0; i < number; ++i) block = block->next;
  const kivo_index_list saved = number == 0 ? kivo_index_list() : *block;
  if (number != 0) (loses_marker(c.in) ? block->magic : block->count) = 0;
  const uint32_t status =
      kivo_index_list_intersection(list, c.library.lists[c.in.other], c.out(c.labels));
  if (number != 0 && meets_damage(c.in, size)) {
    c.length = kivo_index_list_get(list, number * kBlock - 1, &c.number);
    c.length = c.length * 10 + kivo_index_list_get(list, number * kBlock, &c.number);
    c.length = c.length * 10 + kivo_index_list_add(&list, 5);
  }
  if (number != 0) *block = saved;
  return status;
}
uint32_t intersect_damaged(Plain &p, const Args &a, Outcome &o) {
  Labels left = readable(p, a.list);
  const uint32_t number = damaged_block(a, size_of(left));
  const bool meets = number != 0 && meets_damage(a, size_of(left));
  const uint32_t last_good = meets ? left[number * kBlock - 1] : kUntouched;
  const auto first = left.begin() + number * kBlock;
  const auto n_lost =
      loses_marker(a) ? left.end() - first : std::min<ptrdiff_t>(left.end() - first, kBlock);
  if (number != 0) left.erase(first, first + n_lost);
  const uint32_t status = a.null_out
                              ? KIVO_INDEX_LIST_INVALID
                              : intersect(left, a.other == a.list ? left : readable(p, a.other), o);
  o.number = last_good;
  if (meets) o.length = 11 * KIVO_INDEX_LIST_INVALID;  // behind a success
  return status;
}

constexpr Operation kOperations[] = {
    {"start a query", 15, start, start},
    {"add a condition", 80, add, add, draw_condition, 0, give_up},
    {"take a result", 25,
     LIBRARY(kivo_get_matches_for_query(
         c.in.other == kNullList ? nullptr : &c.library.queries[c.in.query], c.out(c.labels),
         c.out(c.number))),
     take, nullptr, 0, give_up},
    {"match a list", 30,
     LIBRARY(kivo_match_sessions_from_list(c.db, c.attrs, c.out(c.labels), c.out(c.number))),
     match_list,
     [](Chance &chance, Args &a) {
       if (chance.percent(70)) a.attrs = chance.attrs(chance.live_label());
     }},
    {"list all sessions", 6, LIBRARY(kivo_get_session_list(c.db, c.out(c.labels), c.out(c.number))),
     list_all, nullptr, kHidesFaults},
    {"append labels", 40, append, append,
     [](Chance &chance, Args &a) { a.labels = chance.labels(); }, 0, append_some},
    {"read a label", 30, get, get,
     [](Chance &chance, Args &a) {
       if (a.list < kLists) a.number = chance.below(chance.plain.lists[a.list].size() * 5 / 4 + 2);
     }},
    {"empty a label list", 20, LIBRARY(kivo_index_list_empty(c.library.lists[c.in.list])),
     PLAIN(a.list < kLists ? (p.lists[a.list].clear(), 0) : KIVO_INDEX_LIST_INVALID)},
    {"free a label list", 10, LIBRARY(renew(c)),
     PLAIN(a.list < kLists ? (p.happen(), p.lists[a.list].clear(), 0) : 0)},
    {"intersect label lists", 40,
     LIBRARY(kivo_index_list_intersection(c.library.lists[c.in.list], c.library.lists[c.in.other],
                                          c.out(c.labels))),
     PLAIN(a.null_out ? KIVO_INDEX_LIST_INVALID
                      : intersect(readable(p, a.list), readable(p, a.other), o))},
    {"intersect a damaged label list", 25, intersect_damaged, intersect_damaged, nullptr,
     kNoFaults},
};

}  // namespace

std::span<const Operation> set_operations() { return kOperations; }

}  // namespace kivo_model
