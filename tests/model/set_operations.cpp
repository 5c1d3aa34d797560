// Queries, and the label lists that they are made of.
#include <algorithm>

#include "model/chance.h"
#include "model/library.h"

namespace kivo_model {
namespace {

constexpr size_t kComparedAddresses = 6;
constexpr uint32_t kBlock = KIVO_INDEX_LIST_BLOCK_LABELS;
constexpr size_t kLongList = 30000;  // labels from which a label list is rather emptied

// The labels of b that a holds too, in b's order.
Labels common(Labels a, const Labels &b) {
  std::ranges::sort(a);
  Labels both;
  std::ranges::copy_if(b, std::back_inserter(both),
                       [&](uint32_t label) { return std::ranges::binary_search(a, label); });
  return both;
}

// ---- Queries

void show(const Query &q, Outcome &o) {
  o.labels = q.candidates.value_or(Labels());
  o.length =
      static_cast<uint32_t>((q.may_match ? 1 : 0) + 2 * q.stored.size() + 16 * o.labels.size());
  o.attrs = q.stored;
}

// A query compares over its own length, and looks at the first addresses only.
bool meets(const Record &record, const Attr &condition) {
  const auto stored = record.attrs.find(condition.first);
  if (stored == record.attrs.end()) return false;
  std::vector<Bytes> parts = parts_of(stored->first, stored->second);
  parts.resize(std::min(parts.size(), kComparedAddresses));
  return std::ranges::any_of(parts,
                             [&](const Bytes &part) { return part.starts_with(condition.second); });
}

// Whether any candidate meets a condition. Every one of them is read.
uint32_t check_candidates(const Plain &p, const Query &query, const Attr &condition, bool &found) {
  found = false;
  for (const uint32_t label : *query.candidates) {
    const auto record = p.records.find(label);
    if (record == p.records.end()) continue;
    if (condition.first == kUnsupported) return KIVO_ERR_INVALID_ARG;
    found = found || meets(record->second, condition);
  }
  return PLATFORM_OK;
}

uint32_t check_or_store(const Plain &p, Query &q, const Attr &condition) {
  if (q.candidates && q.candidates->size() >= KIVO_MAQI_EARLY_CHECK_MIN) {
    const uint32_t status = check_candidates(p, q, condition, q.may_match);
    if (status != PLATFORM_OK) q.may_match = false;
    return status;
  }
  q.may_match = condition.second.size() <= 255 && q.stored.size() < 4;
  if (q.may_match) q.stored.push_back(condition);
  return PLATFORM_OK;
}

uint32_t narrow(const Plain &p, Query &q, const Attr &condition) {
  const Labels answer = p.holders(condition.first, condition.second);
  q.candidates = q.candidates ? common(*q.candidates, answer) : answer;
  q.may_match = !q.candidates->empty();
  return PLATFORM_OK;
}

uint32_t add_condition(Plain &p, Query &q, const Args &a, Outcome &o) {
  if (q.db == kNoDatabase || a.value.empty() || a.null_value || a.null_out) {
    q.reset();
    return KIVO_ERR_INVALID_ARG;
  }
  const bool might_match = q.may_match;
  q.may_match = false;
  uint32_t status = might_match && a.type == 0 ? KIVO_ERR_INVALID_ARG : PLATFORM_OK;
  if (might_match && a.type != 0) {
    const bool is_indexed = accel_of(q.db, a.type) == Accel::kIndexed;
    status = (is_indexed ? narrow : check_or_store)(p, q, {a.type, a.value});
  }
  if (!q.may_match) q.reset();
  o.number = q.may_match ? 1 : 0;
  return status;
}

uint32_t take_matches(Plain &p, Query &q, const Args &a, Outcome &o) {
  if (a.null_out) return KIVO_ERR_INVALID_ARG;
  o.number = 0;
  if (!q.may_match || !q.candidates) return PLATFORM_OK;
  for (const Attr &condition : q.stored) {
    bool found = false;
    const uint32_t status = check_candidates(p, q, condition, found);
    if (status == PLATFORM_OK && found) continue;
    q = {.db = q.db};
    return status;
  }
  o.labels = *q.candidates;
  o.has_list = true;
  o.number = static_cast<uint32_t>(o.labels.size());
  q.reset();
  return PLATFORM_OK;
}

// Both leave an empty query that matches nothing.
void give_query_up(Plain &p, const Args &a, Outcome &o) {
  p.queries[a.query] = {.db = p.queries[a.query].db};
  o = {.number = 0};
  show(p.queries[a.query], o);
}

// The conditions of one query come mostly from one record; it may go before the result is taken.
// First come values that many have, later on often an address, of which not all are compared.
void draw_condition(Chance &chance, Args &a) {
  const Query &query = chance.plain().queries[a.query];
  uint32_t &basis = chance.query_basis(a.query);
  if (!chance.plain().records.contains(basis) || chance.percent(10)) basis = chance.live_label();
  uint32_t wanted = chance.percent(50) ? AAA_ATTR_METHOD : AAA_ATTR_DOMAIN;
  if (query.candidates && chance.percent(40)) wanted = AAA_ATTR_IPV6_ADDRESSES;
  if (query.candidates && chance.percent(20)) wanted = 0;
  if (chance.percent(85)) std::tie(a.type, a.value) = chance.attr_of(basis, wanted);
  if (chance.percent(10) && a.value.size() > 1) a.value.pop_back();  // a beginning
  if (chance.percent(5)) a.value += "more";
  a.stored = 0;
}

uint32_t match_list(Plain &p, const Args &a, Outcome &o) {
  if (a.db == kNoDatabase || a.handle == Handle::kZero || a.null_out) return KIVO_ERR_INVALID_ARG;
  o.number = 0;
  if (a.handle == Handle::kStale) return KIVO_ERR_NO_CURSOR;
  std::optional<Labels> sessions;
  for (const auto &[type, value] : a.attrs) {
    if (accel_of(a.db, type) == Accel::kNone) continue;
    const Labels answer = p.holders(type, value);
    sessions = sessions ? common(*sessions, answer) : answer;
    if (sessions->empty()) return PLATFORM_OK;
  }
  if (!sessions) return PLATFORM_OK;
  o.labels = *sessions;
  o.has_list = true;
  o.number = static_cast<uint32_t>(sessions->size());
  return PLATFORM_OK;
}

// ---- Label lists

// The labels of a list, null for a bad one.
Labels *list_of(Plain &p, uint32_t list) { return list < kLists ? &p.lists[list] : nullptr; }

uint32_t append(Plain &p, const Args &a, Outcome &o) {
  Labels *list = list_of(p, a.list);
  if (list == nullptr) return KIVO_INDEX_LIST_INVALID;
  if (a.null_value && a.labels.size() > 1) {
    o.number = static_cast<uint32_t>(list->size());
    return KIVO_INDEX_LIST_INVALID;
  }
  list->insert(list->end(), a.labels.begin(), a.labels.end());
  o.number = static_cast<uint32_t>(list->size());
  return KIVO_INDEX_LIST_OK;
}

// What was appended before a failure stays.
void append_some(Plain &p, const Args &a, Outcome &o) {
  Labels &list = p.lists[a.list];
  o.number = std::clamp<uint32_t>(o.number, static_cast<uint32_t>(list.size()),
                                  static_cast<uint32_t>(list.size() + a.labels.size()));
  list.insert(list.end(), a.labels.begin(), a.labels.begin() + (o.number - list.size()));
}

uint32_t intersect(const Labels &a, const Labels &b, Outcome &o) {
  if (a.empty() || b.empty()) return KIVO_INDEX_LIST_INVALID;
  o.labels = common(a, b);
  o.has_list = !o.labels.empty();
  return KIVO_INDEX_LIST_OK;
}

// A later block of a list loses its marker, or its count.
enum Damage : uint32_t { kNoMarker, kNoCount };

uint32_t damaged_block(const Args &a, size_t size) {
  const auto n_blocks = static_cast<uint32_t>((size + kBlock - 1) / kBlock);
  return n_blocks < 2 ? 0 : 1 + a.number / 2 % (n_blocks - 1);
}

// What can be read of a damaged list.
Labels readable(const Labels &list, uint32_t block, uint32_t damage) {
  Labels labels = list;
  const auto first = labels.begin() + block * kBlock;
  const auto end = damage == kNoMarker ? labels.end()
                                       : first + std::min<ptrdiff_t>(labels.end() - first, kBlock);
  labels.erase(first, end);
  return labels;
}

uint32_t intersect_damaged(Call &c) {
  kivo_index_list *list = c.library.lists[c.in.list];
  uint32_t size = 0;
  kivo_index_list_size(list, &size);
  const uint32_t number = damaged_block(c.in, size);
  if (number == 0) return PLATFORM_OK;
  kivo_index_list *block = list;
  for (uint32_t i = 0; i < number; ++i) block = block->next;
  const kivo_index_list saved = *block;
  c.in.number % 2 == kNoMarker ? block->magic = 0 : block->count = 0;
  const uint32_t status =
      kivo_index_list_intersection(list, c.library.lists[c.in.other], &c.labels);
  if (size <= 768 && c.in.number % 2 == kNoMarker) {  // every operation walks from the head
    c.length = kivo_index_list_get(list, number * kBlock - 1, &c.number);
    c.length = c.length * 10 + kivo_index_list_get(list, number * kBlock, &c.number);
    c.length = c.length * 10 + kivo_index_list_add(&list, 5);
  }
  *block = saved;
  return status;
}

uint32_t plain_intersect_damaged(Plain &p, const Args &a, Outcome &o) {
  Labels *list = list_of(p, a.list);
  const uint32_t number = list == nullptr ? 0 : damaged_block(a, list->size());
  if (number == 0) return PLATFORM_OK;
  const uint32_t damage = a.number % 2;
  if (list->size() <= 768 && damage == kNoMarker) {
    o.number = (*list)[number * kBlock - 1];
    o.length = 11 * KIVO_INDEX_LIST_INVALID;  // behind a first 0
  }
  const Labels left = readable(*list, number, damage);
  if (a.other == a.list) return intersect(left, left, o);
  return a.other < kLists ? intersect(left, p.lists[a.other], o) : KIVO_INDEX_LIST_INVALID;
}

const Operation kOperations[] = {
    {"start a query", 15,
     [](Call &c) {
       kivo_maqi *query = &c.library.queries[c.in.query];
       c.query = query;
       if (c.db != nullptr) kivo_index_list_free(query->candidates);
       return kivo_start_multi_attr_query(c.db, query);
     },
     [](Plain &p, const Args &a, Outcome &o) {
       Query &query = p.queries[a.query];
       if (a.db != kNoDatabase) query = {.db = a.db, .may_match = true};
       show(query, o);
       return a.db != kNoDatabase ? PLATFORM_OK : KIVO_ERR_INVALID_ARG;
     }},
    {"add a condition", 80,
     [](Call &c) {
       c.query = &c.library.queries[c.in.query];
       return kivo_add_attr_to_query(&c.library.queries[c.in.query], c.in.type, c.value, c.size,
                                     c.out(c.number));
     },
     [](Plain &p, const Args &a, Outcome &o) {
       const uint32_t status = add_condition(p, p.queries[a.query], a, o);
       show(p.queries[a.query], o);
       return status;
     },
     draw_condition, 0, give_query_up},
    {"take a result", 25,
     [](Call &c) {
       return kivo_get_matches_for_query(&c.library.queries[c.in.query], c.out(c.labels),
                                         c.out(c.number));
     },
     [](Plain &p, const Args &a, Outcome &o) { return take_matches(p, p.queries[a.query], a, o); },
     nullptr, 0,
     [](Plain &p, const Args &a, Outcome &o) {
       give_query_up(p, a, o);
       o = {.number = 0};
     }},
    {"match a list", 30,
     [](Call &c) {
       return kivo_match_sessions_from_list(c.db, c.attrs, c.out(c.labels), c.out(c.number));
     },
     match_list,
     [](Chance &chance, Args &a) {
       if (chance.percent(70)) a.attrs = chance.attrs_of(chance.live_label());
     }},
    {"list all sessions", 6,
     [](Call &c) { return kivo_get_session_list(c.db, c.out(c.labels), c.out(c.number)); },
     [](Plain &p, const Args &a, Outcome &o) {
       if (a.db == kNoDatabase || a.null_out) return KIVO_ERR_INVALID_ARG;
       o.number = static_cast<uint32_t>(p.records.size());
       o.labels = p.slots;
       std::erase(o.labels, 0u);
       o.has_list = true;
       return PLATFORM_OK;
     },
     nullptr, kHidesFaults},
    {"append labels", 40,
     [](Call &c) {
       kivo_index_list **list = &c.library.lists[c.in.list];
       const auto n = static_cast<uint32_t>(c.in.labels.size());
       const uint32_t *labels = c.in.null_value ? nullptr : c.in.labels.data();
       const uint32_t status = n == 1 ? kivo_index_list_add(list, c.in.labels[0])
                                      : kivo_index_list_add_many(list, labels, n);
       kivo_index_list_size(*list, &c.number);
       return status;
     },
     append, [](Chance &chance, Args &a) { a.labels = chance.labels(); }, 0, append_some},
    {"read a label", 30,
     [](Call &c) {
       c.length = c.in.number;
       const uint32_t status =
           kivo_index_list_get(c.library.lists[c.in.list], c.in.number, &c.number);
       c.numbers = {kivo_index_list_next(c.library.lists[c.in.list], &c.length)};
       return status;
     },
     [](Plain &p, const Args &a, Outcome &o) {
       const Labels *list = list_of(p, a.list);
       o.labels = {0};
       o.length = a.number;
       if (list == nullptr) return KIVO_INDEX_LIST_INVALID;
       if (a.number >= list->size()) return KIVO_INDEX_LIST_OUT_OF_RANGE;
       o.labels = {o.number = (*list)[a.number]};
       ++o.length;
       return KIVO_INDEX_LIST_OK;
     },
     [](Chance &chance, Args &a) {
       if (a.list < kLists)
         a.number = chance.below(chance.plain().lists[a.list].size() * 5 / 4 + 2);
     }},
    {"empty a label list", 15,
     [](Call &c) { return kivo_index_list_empty(c.library.lists[c.in.list]); },
     [](Plain &p, const Args &a, Outcome &) {
       if (list_of(p, a.list) == nullptr) return KIVO_INDEX_LIST_INVALID;
       p.lists[a.list].clear();
       return KIVO_INDEX_LIST_OK;
     },
     [](Chance &chance, Args &a) {
       const Labels *longest = std::ranges::max_element(chance.plain().lists, {}, &Labels::size);
       if (longest->size() > kLongList)
         a.list = static_cast<uint32_t>(longest - chance.plain().lists);
     }},
    {"free a label list", 10,
     [](Call &c) {
       kivo_index_list *fresh = nullptr;
       const uint32_t status = c.in.list < kLists ? kivo_index_list_create(&fresh) : 0;
       if (status == 0) kivo_index_list_free(c.library.lists[c.in.list]);
       if (fresh != nullptr) c.library.lists[c.in.list] = fresh;
       return status;
     },
     [](Plain &p, const Args &a, Outcome &) {
       if (list_of(p, a.list) != nullptr) p.happen(), p.lists[a.list].clear();
       return KIVO_INDEX_LIST_OK;
     }},
    {"intersect label lists", 40,
     [](Call &c) {
       return kivo_index_list_intersection(c.library.lists[c.in.list], c.library.lists[c.in.other],
                                           c.out(c.labels));
     },
     [](Plain &p, const Args &a, Outcome &o) {
       const bool is_bad = a.list >= kLists || a.other >= kLists || a.null_out;
       return is_bad ? KIVO_INDEX_LIST_INVALID : intersect(p.lists[a.list], p.lists[a.other], o);
     }},
    {"intersect a damaged label list", 25, intersect_damaged, plain_intersect_damaged, nullptr,
     kNoFaults},
};

}  // namespace

std::span<const Operation> set_operations() { return kOperations; }

}  // namespace kivo_model
