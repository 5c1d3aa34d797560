// The model's records, writes, removals and notifications. Its queries and label lists stand beside
// the operations on them.
#include "model/plain.h"

#include <algorithm>
#include <cstring>

namespace kivo_model {
namespace {

constexpr size_t kAnnouncedAddresses = 6;
constexpr size_t kMaxAddresses = 4095;  // what fits 65,535 bytes

bool in_dictionary(uint32_t type) { return type >= 1 && type <= AAA_ATTR_TYPE_MAX; }

}  // namespace

void Plain::happen() {
  if (changes_left == 0) throw Cut();
  --changes_left;
}

Record *Plain::at(uint32_t label) {
  const auto found = records.find(label);
  return found == records.end() ? nullptr : &found->second;
}

// Enters the parts of a stored value into the index, or takes them out.
void Plain::enter(uint32_t label, uint32_t type, bool comes) {
  const auto &attrs = records[label].attrs;
  const auto stored = attrs.find(type);
  if (stored == attrs.end()) return;
  for (const Bytes &part : parts_of(type, stored->second)) {
    std::set<uint32_t> &held = index[{type, part}];
    comes ? void(held.insert(label)) : void(held.erase(label));
    if (held.empty()) index.erase({type, part});
  }
}

// Sets a value, or removes it.
void Plain::assign(uint32_t label, uint32_t type, const Bytes *value) {
  happen();
  enter(label, type, false);
  auto &attrs = records[label].attrs;
  if (value != nullptr) {
    attrs[type] = *value;
  } else {
    attrs.erase(type);
  }
  enter(label, type, true);
}

uint32_t Plain::create(uint32_t label, const Attrs &attrs) {
  if (label == 0) return ATTRDB_ERR_INVALID_ARG;
  if (at(label) != nullptr) return ATTRDB_ERR_LABEL_IN_USE;
  happen();
  records[label];
  bool changed = false;
  for (const auto &[type, value] : attrs) store(label, type, value, changed);
  if (freed_slots.empty()) {
    slots.push_back(label);
  } else {
    slots[freed_slots.back()] = label;
    freed_slots.pop_back();
  }
  return PLATFORM_OK;
}

uint32_t Plain::destroy(uint32_t label) {
  if (at(label) == nullptr) return ATTRDB_ERR_NOT_FOUND;
  happen();
  for (const auto &[type, value] : records[label].attrs) enter(label, type, false);
  records.erase(label);
  const auto slot = std::ranges::find(slots, label);
  *slot = 0;
  freed_slots.push_back(static_cast<size_t>(slot - slots.begin()));
  if (records.empty()) slots.clear(), freed_slots.clear();
  return PLATFORM_OK;
}

void Plain::restore(uint32_t label, const std::optional<Record> &record) {
  if (!record || records.count(label) == 0) return;
  for (const auto &[type, value] : records[label].attrs) enter(label, type, false);
  records[label] = *record;
  for (const auto &[type, value] : record->attrs) enter(label, type, true);
}

uint32_t Plain::resolve(const Args &args, Record *&record) {
  record = at(args.label);
  const bool names_nothing = args.named == Named::kByRecordAlone || args.label == 0;
  return record == nullptr && names_nothing ? KIVO_ERR_INVALID_ARG : PLATFORM_OK;
}

Labels Plain::holders(uint32_t type, const Bytes &value) const {
  const auto held = index.find({type, value});
  return held == index.end() ? Labels() : Labels(held->second.begin(), held->second.end());
}

uint32_t Plain::count_holders(uint32_t type) const {
  return static_cast<uint32_t>(std::ranges::count_if(
      records, [&](const auto &record) { return record.second.attrs.contains(type); }));
}

uint32_t Plain::store(uint32_t label, uint32_t type, const Bytes &value, bool &changed) {
  changed = false;
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  if (value.size() > AAA_VALUE_SIZE_MAX) return AAA_ERR_NO_ROOM;
  if (type == AAA_ATTR_IPV6_ADDRESSES) return store_addresses(label, value, changed);
  const auto &attrs = records[label].attrs;
  const auto stored = attrs.find(type);
  changed = stored == attrs.end() || stored->second != value;
  if (changed) assign(label, type, &value);
  return PLATFORM_OK;
}

// Addresses that are not there yet are appended.
uint32_t Plain::store_addresses(uint32_t label, const Bytes &value, bool &changed) {
  constexpr uint32_t kType = AAA_ATTR_IPV6_ADDRESSES;
  if (value.size() % kAddressSize != 0) return AAA_ERR_INVALID_ARG;
  const auto &attrs = records[label].attrs;
  Bytes all = attrs.contains(kType) ? attrs.at(kType) : Bytes();
  const size_t before = all.size();
  for (const Bytes &address : parts_of(kType, value)) {
    const std::vector<Bytes> there = parts_of(kType, all);
    if (std::ranges::find(there, address) == there.end()) all += address;
  }
  if (all.size() == before) return PLATFORM_OK;
  if (all.size() > kMaxAddresses * kAddressSize) return AAA_ERR_NO_ROOM;
  assign(label, kType, &all);
  changed = true;
  return PLATFORM_OK;
}

// One identity for each subtype; the one written last comes first.
uint32_t Plain::store_identity(uint32_t label, uint32_t type, const Bytes &value) {
  uint16_t subtype = 1;
  if (value.size() >= sizeof subtype) std::memcpy(&subtype, value.data(), sizeof subtype);
  records[label].has_shadow = true;
  happen();
  auto &list = records[label].identities[type];
  std::erase_if(list, [&](const auto &one) { return one.first == subtype; });
  list.insert(list.begin(), {subtype, value});
  records[label].had_identities = true;
  return PLATFORM_OK;
}

uint32_t Plain::notify(uint32_t db, uint32_t type, const Bytes &value, uint32_t label,
                       uint32_t action) {
  if (db == kNoDatabase || value.empty() || value.size() > 255) return KIVO_ERR_INVALID_ARG;
  const auto found = registrations.find({db, type});
  if (found == registrations.end()) return PLATFORM_OK;
  if ((found->second.actions & (action | KIVO_ACTION_UNCONDITIONAL)) == 0) return PLATFORM_OK;
  happen();
  announce_(db, label, type, action, value, found->second.handles);
  return PLATFORM_OK;
}

// As kivo_add_attr_to_record().
uint32_t Plain::add_to_record(const Args &args, uint32_t type, const Bytes &value) {
  if (value.empty() || type == 0 || at(args.label) == nullptr) return KIVO_ERR_INVALID_ARG;
  bool changed = false;
  const uint32_t status = store(args.label, type, value, changed);
  if (status == PLATFORM_OK) notify(args.db, type, value, args.label, changed ? 1 : 0);
  return status;
}

void Plain::notify_removal(uint32_t db, uint32_t type, const Bytes &value, uint32_t label) {
  old_value.aaa_type = old_value.size = 0;
  old_value.data[0] = 0;
  notify(db, type, value, label, KIVO_ACTION_REMOVE);
}

// Announces first, then removes, whatever callbacks did meanwhile.
uint32_t Plain::remove_type(uint32_t db, uint32_t label, uint32_t type) {
  if (at(label) == nullptr || type == 0) return KIVO_ERR_INVALID_ARG;
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  const auto &attrs = records[label].attrs;
  if (!attrs.contains(type) || attrs.at(type).empty()) return PLATFORM_OK;
  std::vector<Bytes> values = parts_of(type, attrs.at(type));
  values.resize(std::min(values.size(), kAnnouncedAddresses));
  for (const Bytes &value : values) notify_removal(db, type, value, label);
  if (attrs.contains(type)) assign(label, type, nullptr);
  return PLATFORM_OK;
}

uint32_t Plain::remove_stored(uint32_t label, uint32_t type, const Bytes &value) {
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  const auto &attrs = records[label].attrs;
  if (!attrs.contains(type)) return AAA_ERR_NOT_FOUND;
  std::vector<Bytes> parts = parts_of(type, attrs.at(type));
  if (std::erase(parts, value) == 0) return AAA_ERR_NOT_FOUND;
  Bytes rest;
  for (const Bytes &part : parts) rest += part;
  assign(label, type, parts.empty() ? nullptr : &rest);
  return PLATFORM_OK;
}

// By the subtype alone, whatever the value's length; an absent one is no failure.
void Plain::remove_identity(uint32_t label, uint32_t type, uint16_t subtype) {
  Record &record = records[label];
  record.has_shadow = true;
  happen();
  const auto list = record.identities.find(type);
  if (list == record.identities.end()) return;
  std::erase_if(list->second, [&](const auto &one) { return one.first == subtype; });
  if (list->second.empty()) record.identities.erase(list);
}

}  // namespace kivo_model
