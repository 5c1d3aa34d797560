// Records: making, finding, deleting and reading them, and look-ups by value.
#include <algorithm>
#include <cstring>

#include "model/chance.h"
#include "model/library.h"

namespace kivo_model {
namespace {

bool is_bad_value(const Args &a) {
  return a.value.empty() || a.null_value || a.type == 0 || a.null_out;
}

void draw_new_label(Chance &chance, Args &a) {
  a.stored = 0;
  if (chance.percent(chance.wants_more() ? 90 : 30)) a.label = chance.pool_label();
}

void draw_gone_label(Chance &chance, Args &a) {
  a.stored = 0;
  if (chance.percent(chance.wants_more() ? 75 : 15)) a.label = chance.pool_label();
}

void draw_identity(Chance &chance, Args &a) {
  constexpr uint32_t kIdentities[] = {AAA_ATTR_EXT_USER, AAA_ATTR_EXT_DEVICE, AAA_ATTR_EXT_LOCATION,
                                      AAA_ATTR_METHOD};
  a.type = kIdentities[chance.below(4)];
  for (const auto &[label, record] : chance.plain().records) {
    if (record.has_shadow && chance.percent(10)) a.label = label;
  }
}

// Mostly the value of some record.
void draw_wanted(Chance &chance, Args &a) {
  if (a.stored != 0 || chance.percent(40)) return;
  std::tie(a.type, a.value) = chance.attr_of(chance.live_label());
}

uint32_t plain_read(const Record *record, const Args &a, Outcome &o) {
  if (record == nullptr || a.type == 0 || a.null_out) return KIVO_ERR_INVALID_ARG;
  if (a.type == kUnsupported) {
    o = {};
    return KIVO_ERR_FAILED;
  }
  const auto stored = record->attrs.find(a.type);
  o.length = stored == record->attrs.end() ? 0 : static_cast<uint32_t>(stored->second.size());
  if (stored != record->attrs.end()) o.attrs = {*stored};
  return PLATFORM_OK;
}

// Appends what a list did not have; the values of one type in their order.
uint32_t plain_merge(const Record *record, const Args &a, Outcome &o) {
  if (record == nullptr) {
    o = {};
    return KIVO_ERR_FAILED;
  }
  if (a.handle != Handle::kGood) return AAA_ERR_STALE_LIST;
  o.attrs = a.attrs;
  for (const auto &[type, value] : record->attrs) {
    if (std::ranges::find(a.attrs, type, &Attr::first) != a.attrs.end()) continue;
    for (const Bytes &part : parts_of(type, value)) o.attrs.emplace_back(type, part);
  }
  return PLATFORM_OK;
}

shadowdb_rec *shadow_of(const Call &c) {
  return c.held == nullptr ? nullptr : auth_mgr_idc_peek_shadow_record_in_ctxt(c.held->ctxt);
}

// Of all slots, or of the one of a type.
uint32_t plain_identities(const Record *record, const Args &a, Outcome &o, uint32_t type) {
  if (a.handle == Handle::kGood) o.attrs = a.attrs;
  if (record == nullptr || !record->has_shadow) return KIVO_ERR_INVALID_ARG;
  if (!record->had_identities) return PLATFORM_OK;
  if (a.handle == Handle::kZero) return KIVO_ERR_INVALID_ARG;
  if (type != 0 && !record->identities.contains(type)) return KIVO_ERR_INVALID_ARG;
  for (const auto &[one, list] : record->identities) {
    if ((type != 0 && type != one) || a.handle == Handle::kStale) continue;
    for (const auto &identity : list) o.attrs.emplace_back(one, identity.second);
  }
  return PLATFORM_OK;
}

uint32_t plain_next_interface(const Plain &plain, uint32_t after) {
  uint32_t next = 0;
  for (const auto &[attr, labels] : plain.index) {
    uint32_t id = 0;
    if (attr.first != AAA_ATTR_INTERFACE_ID || attr.second.size() != sizeof id) continue;
    std::memcpy(&id, attr.second.data(), sizeof id);
    if (id > after && (next == 0 || id < next)) next = id;
  }
  return next;
}

const struct {
  uint32_t (*total)();
  uint32_t type;
} kTotals[] = {{attrdb_get_total_mac_tree_sessions, AAA_ATTR_MAC_ADDRESS},
               {attrdb_get_total_swidb_tree_sessions, AAA_ATTR_INTERFACE},
               {attrdb_get_total_iif_id_tree_sessions, AAA_ATTR_INTERFACE_ID},
               {attrdb_get_total_domain_tree_sessions, AAA_ATTR_DOMAIN},
               {attrdb_get_total_method_tree_sessions, AAA_ATTR_METHOD},
               {attrdb_get_total_audit_sess_id_tree_sessions, AAA_ATTR_AUDIT_SESSION_ID},
               {attrdb_get_total_session_id_tree_sessions, AAA_ATTR_SESSION_ID}};

const Operation kOperations[] = {
    {"create an empty record", 30,
     [](Call &c) { return kivo_create_record(c.db, c.in.label, nullptr); },
     [](Plain &p, const Args &a, Outcome &) { return p.create(a.label, {}); }, draw_new_label},
    {"create a filled record", 45,
     [](Call &c) { return kivo_create_record(c.db, c.in.label, c.ctxt); },
     [](Plain &p, const Args &a, Outcome &) { return p.create(a.label, a.attrs); }, draw_new_label,
     kAdopts},
    {"adopt the context of a record", 5,
     [](Call &c) {
       return c.held == nullptr ? 0 : kivo_create_record(c.db, c.in.number + 1, c.held->ctxt);
     },
     [](Plain &p, const Args &a, Outcome &) {
       if (p.at(a.label) == nullptr) return PLATFORM_OK;
       return p.at(a.number + 1) != nullptr ? ATTRDB_ERR_LABEL_IN_USE : ATTRDB_ERR_ADOPTED;
     }},
    {"delete a record", 50, [](Call &c) { return kivo_delete_record(c.db, c.in.label); },
     [](Plain &p, const Args &a, Outcome &) { return p.destroy(a.label); }, draw_gone_label,
     kDeletes},
    {"find a record", 15, [](Call &c) { return kivo_get_record(c.db, c.in.label, c.out(c.found)); },
     [](Plain &p, const Args &a, Outcome &o) {
       if (a.db == kNoDatabase || a.null_out) return KIVO_ERR_INVALID_ARG;
       o.found = p.at(a.label) == nullptr ? 0 : a.label;
       return a.label == 0 ? KIVO_ERR_INVALID_ARG : PLATFORM_OK;
     }},
    {"read an attribute", 20,
     [](Call &c) {
       return kivo_get_attr(c.db, c.label, c.record, c.in.type, c.out(c.bytes), c.out(c.length));
     },
     [](Plain &p, const Args &a, Outcome &o) {
       if (a.db == kNoDatabase || a.type == 0 || a.null_out) return KIVO_ERR_INVALID_ARG;
       Record *record = nullptr;
       const uint32_t status = p.resolve(a, record);
       return record == nullptr ? status : plain_read(record, a, o);
     }},
    {"read an attribute of a record", 20,
     [](Call &c) {
       return kivo_get_attr_from_record(nullptr, c.held, c.in.type, c.out(c.bytes),
                                        c.out(c.length));
     },
     [](Plain &p, const Args &a, Outcome &o) { return plain_read(p.at(a.label), a, o); }},
    {"merge a record into a list", 20,
     [](Call &c) { return kivo_merge_rec_to_list_without_replace(c.db, c.held, c.attrs); },
     [](Plain &p, const Args &a, Outcome &o) { return plain_merge(p.at(a.label), a, o); }, nullptr,
     kShowsAttrs},
    {"get all identities", 15,
     [](Call &c) { return shadowdb_get_session_attributes(shadow_of(c), c.attrs); },
     [](Plain &p, const Args &a, Outcome &o) { return plain_identities(p.at(a.label), a, o, 0); },
     draw_identity, kShowsAttrs | kHidesFaults},
    {"get the identities of a type", 15,
     [](Call &c) {
       uint32_t index = SHADOWDB_ATTR_INDEXES;
       kivo_check_is_shadow_attrib(c.in.type, &index);
       return shadowdb_get_session_attribute(shadow_of(c), c.attrs, index);
     },
     [](Plain &p, const Args &a, Outcome &o) {
       if (is_identity(a.type)) return plain_identities(p.at(a.label), a, o, a.type);
       if (a.handle == Handle::kGood) o.attrs = a.attrs;
       return KIVO_ERR_INVALID_ARG;
     },
     draw_identity, kShowsAttrs | kHidesFaults},
    {"find labels by value", 40,
     [](Call &c) {
       if (kivo_index_list_create(&c.labels) != 0) return KIVO_ERR_NO_MEMORY;
       return kivo_match_labels_by_attr(c.db, c.in.type, c.value, c.size, c.out(c.labels),
                                        c.out(c.number));
     },
     [](Plain &p, const Args &a, Outcome &o) {
       o.has_list = true;
       if (is_bad_value(a) || a.db == kNoDatabase) return KIVO_ERR_INVALID_ARG;
       o.labels = p.holders(a.type, a.value);
       o.number = static_cast<uint32_t>(o.labels.size());
       return a.type == kUnsupported ? AAA_ERR_UNSUPPORTED_ATTR : PLATFORM_OK;
     },
     draw_wanted},
    {"find a label by value", 30,
     [](Call &c) {
       return kivo_match_label_by_attr(c.db, c.in.type, c.value, c.size, c.out(c.number));
     },
     [](Plain &p, const Args &a, Outcome &o) {
       if (is_bad_value(a)) return KIVO_ERR_INVALID_ARG;
       const Labels labels = p.holders(a.type, a.value);
       o.number = labels.empty() ? 0 : labels.front();
       return a.type == kUnsupported ? AAA_ERR_UNSUPPORTED_ATTR : PLATFORM_OK;
     },
     draw_wanted},
    {"find a record by value", 30,
     [](Call &c) {
       return kivo_match_record_by_attr(c.db, c.in.type, c.value, c.size, c.out(c.found));
     },
     [](Plain &p, const Args &a, Outcome &o) {
       if (is_bad_value(a) || a.db == kNoDatabase) return KIVO_ERR_INVALID_ARG;
       const Labels labels = p.holders(a.type, a.value);
       o.found = labels.empty() ? 0 : labels.front();
       return PLATFORM_OK;
     },
     draw_wanted, kHidesFaults},
    {"next interface id", 10,
     [](Call &c) { return kivo_get_next_if_id(c.in.number, c.out(c.number)); },
     [](Plain &p, const Args &a, Outcome &o) {
       if (a.null_out) return ATTRDB_ERR_INVALID_ARG;
       o.number = plain_next_interface(p, a.number);
       return PLATFORM_OK;
     }},
    {"count records and the holders of types", 3,
     [](Call &c) {
       kivo_fetch_common_header(nullptr, nullptr, &c.number);
       for (const auto &row : kTotals) c.numbers.push_back(row.total());
       return attrdb_get_total_sessions() - c.number;
     },
     [](Plain &p, const Args &, Outcome &o) {
       o.number = static_cast<uint32_t>(p.records.size());
       for (const auto &row : kTotals) o.labels.push_back(p.count_holders(row.type));
       return PLATFORM_OK;
     }},
};

}  // namespace

std::span<const Operation> record_operations() { return kOperations; }

}  // namespace kivo_model
