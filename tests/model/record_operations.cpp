// Records: making, finding, deleting and reading them, and look-ups by value.
#include <algorithm>

#include "model/chance.h"
#include "model/library.h"

namespace kivo_model {
namespace {

constexpr uint32_t kBadArg = KIVO_ERR_INVALID_ARG;

// A label of the pool rather than one in use.
template <bool kCreates>
void draw_label(Chance &chance, Args &a) {
  a.stored = 0;
  const bool wants_more = chance.plain.records.size() < chance.wanted_records;
  if (chance.percent(wants_more ? 80 : kCreates ? 30 : 15)) a.label = chance.pool_label();
}

// Mostly the value of some record.
void draw_wanted(Chance &chance, Args &a) {
  if (a.stored != 0 || chance.percent(40)) return;
  std::tie(a.type, a.value) = chance.attr_of(chance.live_label());
}

void draw_identity(Chance &chance, Args &a) {
  constexpr uint32_t kIdentities[] = {AAA_ATTR_EXT_USER, AAA_ATTR_EXT_DEVICE, AAA_ATTR_EXT_LOCATION,
                                      AAA_ATTR_METHOD};
  a.type = kIdentities[chance.below(4)];
  for (const auto &[label, record] : chance.plain.records) {
    if (!record.has_shadow || !chance.percent(10)) continue;
    a.label = label;
    a.stored = 0;
  }
}

uint32_t read(const Record *record, const Args &a, Outcome &o) {
  if (record == nullptr || a.type == 0 || a.null_out) return kBadArg;
  if (a.type == kUnsupported) return o = {}, KIVO_ERR_FAILED;
  const auto stored = record->attrs.find(a.type);
  o.length = stored == record->attrs.end() ? 0 : static_cast<uint32_t>(stored->second.size());
  if (stored != record->attrs.end()) o.attrs = {*stored};
  return PLATFORM_OK;
}

// Appends what a list did not have; the values of one type in their order.
uint32_t merge(const Record *record, const Args &a, Outcome &o) {
  if (record == nullptr) return o = {}, KIVO_ERR_FAILED;
  if (a.handle != Handle::kGood) return AAA_ERR_STALE_LIST;
  o.attrs = a.attrs;
  for (const auto &[type, value] : record->attrs) {
    if (std::ranges::find(a.attrs, type, &Attr::first) != a.attrs.end()) continue;
    for (const Bytes &part : parts_of(type, value)) o.attrs.emplace_back(type, part);
  }
  return PLATFORM_OK;
}

// Of all slots, or of the one of a type.
uint32_t get_identities(const Call &c) {
  const shadowdb_rec *shadow =
      c.held == nullptr ? nullptr : auth_mgr_idc_peek_shadow_record_in_ctxt(c.held->ctxt);
  if (c.in.number % 2 == 0) return shadowdb_get_session_attributes(shadow, c.attrs);
  uint32_t index = SHADOWDB_ATTR_INDEXES;
  kivo_check_is_shadow_attrib(c.in.type, &index);
  return shadowdb_get_session_attribute(shadow, c.attrs, index);
}
uint32_t get_identities(const Record *record, const Args &a, Outcome &o) {
  const bool all = a.number % 2 == 0;
  if (a.handle == Handle::kGood) o.attrs = a.attrs;
  if (record == nullptr || !record->has_shadow || !(all || is_identity(a.type))) return kBadArg;
  if (!record->had_identities) return PLATFORM_OK;
  if (a.handle == Handle::kZero || !(all || record->identities.contains(a.type))) return kBadArg;
  for (const auto &[type, list] : record->identities) {
    if (!(all || a.type == type) || a.handle == Handle::kStale) continue;
    for (const auto &identity : list) o.attrs.emplace_back(type, identity.second);
  }
  return PLATFORM_OK;
}

// What a look-up finds.
uint32_t look_up(const Plain &p, const Args &a, bool without_db, Labels &found) {
  const bool is_bad = a.value.empty() || a.null_value || a.type == 0 || a.null_out;
  if (is_bad || (a.db == kNoDatabase && !without_db)) return kBadArg;
  found = p.holders(a.type, a.value);
  return a.type == kUnsupported ? AAA_ERR_UNSUPPORTED_ATTR : PLATFORM_OK;
}
uint32_t match_labels(const Plain &p, const Args &a, Outcome &o) {
  o.list = Given::kList;
  const uint32_t status = look_up(p, a, false, o.labels);
  if (status != kBadArg) o.number = static_cast<uint32_t>(o.labels.size());
  return status;
}
uint32_t match_label(const Plain &p, const Args &a, uint32_t &label, bool without_db) {
  Labels found;
  const uint32_t status = look_up(p, a, without_db, found);
  if (status != kBadArg) label = found.empty() ? 0 : found.front();
  return status;
}

uint32_t next_interface(const Plain &p, const Args &a, Outcome &o) {
  if (a.null_out) return ATTRDB_ERR_INVALID_ARG;
  o.number = 0;
  for (const auto &[attr, labels] : p.index) {
    if (attr.first != AAA_ATTR_INTERFACE_ID || attr.second.size() != 4) continue;
    uint32_t id = 0;
    std::memcpy(&id, attr.second.data(), 4);
    if (id > a.number && (o.number == 0 || id < o.number)) o.number = id;
  }
  return PLATFORM_OK;
}

constexpr struct {
  uint32_t (*total)();
  uint32_t type;
} kTotals[] = {{attrdb_get_total_mac_tree_sessions, AAA_ATTR_MAC_ADDRESS},
               {attrdb_get_total_swidb_tree_sessions, AAA_ATTR_INTERFACE},
               {attrdb_get_total_iif_id_tree_sessions, AAA_ATTR_INTERFACE_ID},
               {attrdb_get_total_domain_tree_sessions, AAA_ATTR_DOMAIN},
               {attrdb_get_total_method_tree_sessions, AAA_ATTR_METHOD},
               {attrdb_get_total_audit_sess_id_tree_sessions, AAA_ATTR_AUDIT_SESSION_ID},
               {attrdb_get_total_session_id_tree_sessions, AAA_ATTR_SESSION_ID}};

uint32_t count_all(Call &c) {
  kivo_fetch_common_header(nullptr, nullptr, &c.number);
  for (const auto &row : kTotals) c.numbers.push_back(row.total());
  return PLATFORM_OK;
}
uint32_t count_all(Plain &p, const Args &, Outcome &o) {
  o.number = static_cast<uint32_t>(p.records.size());
  for (const auto &row : kTotals) {
    o.labels.push_back(static_cast<uint32_t>(std::ranges::count_if(
        p.records, [&](const auto &one) { return one.second.attrs.contains(row.type); })));
  }
  return PLATFORM_OK;
}

constexpr Operation kOperations[] = {
    {"create a record", 70, LIBRARY(kivo_create_record(c.db, c.in.label, c.ctxt)),
     PLAIN(p.create(a.label, a.attrs)), draw_label<true>, kAdopts},
    {"adopt the context of a record", 5,
     LIBRARY(c.held == nullptr ? 0 : kivo_create_record(c.db, c.in.number + 1, c.held->ctxt)),
     PLAIN(p.at(a.label) == nullptr        ? PLATFORM_OK
           : p.at(a.number + 1) != nullptr ? ATTRDB_ERR_LABEL_IN_USE
                                           : ATTRDB_ERR_ADOPTED)},
    {"delete a record", 50, LIBRARY(kivo_delete_record(c.db, c.in.label)),
     PLAIN(p.destroy(a.label)), draw_label<false>, kDeletes},
    {"find a record", 15, LIBRARY(kivo_get_record(c.db, c.in.label, c.out(c.found))),
     PLAIN(a.db == kNoDatabase || a.null_out                                  ? kBadArg
           : (o.found = p.at(a.label) == nullptr ? 0 : a.label, a.label == 0) ? kBadArg
                                                                              : PLATFORM_OK)},
    {"read an attribute", 20,
     LIBRARY(kivo_get_attr(c.db, c.label, c.record, c.in.type, c.out(c.bytes), c.out(c.length))),
     PLAIN(a.db == kNoDatabase || a.type == 0 || a.null_out ? kBadArg
           : p.at(a.label) == nullptr                       ? p.missing(a)
                                                            : read(p.at(a.label), a, o))},
    {"read an attribute of a record", 20,
     LIBRARY(
         kivo_get_attr_from_record(nullptr, c.held, c.in.type, c.out(c.bytes), c.out(c.length))),
     PLAIN(read(p.at(a.label), a, o))},
    {"merge a record into a list", 20,
     LIBRARY(kivo_merge_rec_to_list_without_replace(c.db, c.held, c.attrs)),
     PLAIN(merge(p.at(a.label), a, o)), nullptr, kShowsAttrs},
    {"get identities", 25, LIBRARY(get_identities(c)), PLAIN(get_identities(p.at(a.label), a, o)),
     draw_identity, kShowsAttrs | kHidesFaults},
    {"find labels by value", 40,
     LIBRARY(kivo_index_list_create(&c.labels) != 0
                 ? KIVO_ERR_NO_MEMORY
                 : kivo_match_labels_by_attr(c.db, c.in.type, c.value, c.size, c.out(c.labels),
                                             c.out(c.number))),
     PLAIN(match_labels(p, a, o)), draw_wanted},
    {"find a label by value", 30,
     LIBRARY(kivo_match_label_by_attr(c.db, c.in.type, c.value, c.size, c.out(c.number))),
     PLAIN(match_label(p, a, o.number, true)), draw_wanted},
    {"find a record by value", 30,
     LIBRARY(kivo_match_record_by_attr(c.db, c.in.type, c.value, c.size, c.out(c.found))),
     PLAIN(match_label(p, a, o.found, false) == kBadArg ? kBadArg : PLATFORM_OK), draw_wanted,
     kHidesFaults},
    {"next interface id", 10, LIBRARY(kivo_get_next_if_id(c.in.number, c.out(c.number))),
     PLAIN(next_interface(p, a, o))},
    {"count records and the holders of types", 3, count_all, count_all},
};

}  // namespace

std::span<const Operation> record_operations() { return kOperations; }

}  // namespace kivo_model
