// The model: records as ordered maps of plain values, an index that is a map, notifications as a
// table of action bits. It is written from the contract in the public headers and shares no code
// with the library. Every change and announcement is counted: a run can be cut short in front of
// the n-th, which is how a failure in the middle is compared.
#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "model/operation.h"

namespace kivo_model {

struct Record {
  std::map<uint32_t, Bytes> attrs;  // type 10: its addresses back to back
  std::map<uint32_t, std::vector<std::pair<uint16_t, Bytes>>> identities;  // newest first
  bool has_shadow = false, had_identities = false;
  bool operator==(const Record &) const = default;
};

struct Registration {
  uint32_t actions = 0;
  Labels handles = {};
};

struct Query {
  uint32_t db = kNoDatabase;
  std::optional<Labels> candidates = {};
  Attrs stored = {};
  bool may_match = false;
};

// Thrown in front of the change at which a run is to be cut.
struct Cut {};

class Plain {
 public:
  explicit Plain(std::function<void(const Bytes &words)> announce)
      : announce_(std::move(announce)) {}

  Record *at(uint32_t label) {
    const auto found = records.find(label);
    return found == records.end() ? nullptr : &found->second;
  }
  // What an operation says that found no record.
  static uint32_t missing(const Args &a) {
    const bool names_nothing = a.named == Named::kByRecordAlone || a.label == 0;
    return names_nothing ? KIVO_ERR_INVALID_ARG : PLATFORM_OK;
  }
  // The labels of those that have a value, ascending.
  [[nodiscard]] Labels holders(uint32_t type, const Bytes &value) const {
    const auto held = index.find({type, value});
    return held == index.end() ? Labels() : Labels(held->second.begin(), held->second.end());
  }

  uint32_t create(uint32_t label, const Attrs &attrs) {
    if (label == 0) return ATTRDB_ERR_INVALID_ARG;
    if (at(label) != nullptr) return ATTRDB_ERR_LABEL_IN_USE;
    happen();
    records[label];
    bool changed = false;
    for (const auto &[type, value] : attrs) store(label, type, value, changed);
    if (freed_slots_.empty()) freed_slots_.push_back(slots.size()), slots.push_back(0);
    slots[freed_slots_.back()] = label;
    freed_slots_.pop_back();
    return PLATFORM_OK;
  }
  uint32_t destroy(uint32_t label) {
    if (at(label) == nullptr) return ATTRDB_ERR_NOT_FOUND;
    happen();
    replace(label, {});
    records.erase(label);
    const auto slot = std::ranges::find(slots, label);
    *slot = 0;
    freed_slots_.push_back(static_cast<size_t>(slot - slots.begin()));
    if (records.empty()) slots.clear(), freed_slots_.clear();
    return PLATFORM_OK;
  }
  // Puts a record in the place of one, in the index too.
  void replace(uint32_t label, const Record &record) {
    for (const auto &[type, value] : at(label)->attrs) enter(label, type, value, false);
    records[label] = record;
    for (const auto &[type, value] : record.attrs) enter(label, type, value, true);
  }

  uint32_t store(uint32_t label, uint32_t type, const Bytes &value, bool &changed) {
    changed = false;
    if (type == kUnsupported) return AAA_ERR_UNSUPPORTED_ATTR;
    if (value.size() > AAA_VALUE_SIZE_MAX) return AAA_ERR_NO_ROOM;
    const auto &attrs = records[label].attrs;
    const Bytes *stored = attrs.contains(type) ? &attrs.at(type) : nullptr;
    Bytes whole = value;
    if (type == AAA_ATTR_IPV6_ADDRESSES) {  // those that are not there yet are appended
      if (value.size() % kAddressSize != 0) return AAA_ERR_INVALID_ARG;
      std::vector<Bytes> all = parts_of(type, stored == nullptr ? Bytes() : *stored);
      for (const Bytes &address : parts_of(type, value)) {
        if (std::ranges::find(all, address) == all.end()) all.push_back(address);
      }
      whole = joined(all);
      if (whole.size() > AAA_VALUE_SIZE_MAX) return AAA_ERR_NO_ROOM;
      if (whole.empty()) return PLATFORM_OK;
    }
    changed = stored == nullptr || *stored != whole;
    if (changed) assign(label, type, &whole);
    return PLATFORM_OK;
  }
  // One identity for each subtype; the one written last comes first.
  uint32_t store_identity(uint32_t label, uint32_t type, const Bytes &value) {
    remove_identity(label, type, subtype_of(value, value.size() >= 2));
    records[label].identities[type].insert(records[label].identities[type].begin(),
                                           {subtype_of(value, value.size() >= 2), value});
    records[label].had_identities = true;
    return PLATFORM_OK;
  }

  // Announces first, then removes, whatever callbacks did meanwhile.
  uint32_t remove_type(uint32_t db, uint32_t label, uint32_t type) {
    if (at(label) == nullptr || type == 0) return KIVO_ERR_INVALID_ARG;
    if (type == kUnsupported) return AAA_ERR_UNSUPPORTED_ATTR;
    const auto &attrs = records[label].attrs;
    if (!attrs.contains(type) || attrs.at(type).empty()) return PLATFORM_OK;
    std::vector<Bytes> values = parts_of(type, attrs.at(type));
    values.resize(std::min<size_t>(values.size(), KIVO_ADDRESSES_LOOKED_AT));
    for (const Bytes &value : values) notify_removal(db, type, value, label);
    if (attrs.contains(type)) assign(label, type, nullptr);
    return PLATFORM_OK;
  }
  uint32_t remove_value(uint32_t label, uint32_t type, const Bytes &value) {
    if (type == kUnsupported) return AAA_ERR_UNSUPPORTED_ATTR;
    const auto &attrs = records[label].attrs;
    if (!attrs.contains(type)) return AAA_ERR_NOT_FOUND;
    std::vector<Bytes> parts = parts_of(type, attrs.at(type));
    if (std::erase(parts, value) == 0) return AAA_ERR_NOT_FOUND;
    const Bytes rest = joined(parts);
    assign(label, type, parts.empty() ? nullptr : &rest);
    return PLATFORM_OK;
  }
  // By the subtype alone; an absent one is no failure.
  uint32_t remove_identity(uint32_t label, uint32_t type, uint16_t subtype) {
    auto &[attrs, identities, has_shadow, had_identities] = records[label];
    has_shadow = true;
    happen();
    std::erase_if(identities[type], [&](const auto &one) { return one.first == subtype; });
    if (identities[type].empty()) identities.erase(type);
    return PLATFORM_OK;
  }
  static uint16_t subtype_of(const Bytes &value, bool has_word) {
    uint16_t subtype = 1;
    if (has_word) std::memcpy(&subtype, (value + Bytes(2, '\0')).data(), sizeof subtype);
    return subtype;
  }

  uint32_t notify(uint32_t db, uint32_t type, const Bytes &value, uint32_t label, uint32_t action) {
    if (db == kNoDatabase || value.empty() || value.size() > 255) return KIVO_ERR_INVALID_ARG;
    const auto found = registrations.find({db, type});
    if (found == registrations.end()) return PLATFORM_OK;
    if ((found->second.actions & (action | KIVO_ACTION_UNCONDITIONAL)) == 0) return PLATFORM_OK;
    happen();
    announce_(in_words(db, label, action, {type, value}, found->second.handles, old_value));
    return PLATFORM_OK;
  }
  uint32_t notify_removal(uint32_t db, uint32_t type, const Bytes &value, uint32_t label) {
    old_value.aaa_type = old_value.size = old_value.data[0] = 0;
    return notify(db, type, value, label, KIVO_ACTION_REMOVE);
  }

  // In front of every change.
  void happen() {
    if (changes_left == 0) throw Cut();
    --changes_left;
  }

  std::map<uint32_t, Record> records;
  std::map<Attr, std::set<uint32_t>> index;
  Labels slots;  // in the order of the store's walk, 0 where a record went
  std::map<std::pair<uint32_t, uint32_t>, Registration> registrations;  // by database and type
  kivo_attr_value old_value = {};
  Query queries[kQueries];
  Labels lists[kLists];
  uint32_t changes_left = UINT32_MAX;

 private:
  static Bytes joined(const std::vector<Bytes> &parts) {
    Bytes all;
    for (const Bytes &part : parts) all += part;
    return all;
  }
  // Enters the parts of a value into the index, or takes them out.
  void enter(uint32_t label, uint32_t type, const Bytes &value, bool comes) {
    for (const Bytes &part : parts_of(type, value)) {
      std::set<uint32_t> &held = index[{type, part}];
      comes ? void(held.insert(label)) : void(held.erase(label));
      if (held.empty()) index.erase({type, part});
    }
  }
  // Sets a value, or removes it.
  void assign(uint32_t label, uint32_t type, const Bytes *value) {
    happen();
    auto &attrs = records[label].attrs;
    if (attrs.contains(type)) enter(label, type, attrs[type], false);
    attrs.erase(type);
    if (value == nullptr) return;
    attrs[type] = *value;
    enter(label, type, *value, true);
  }

  std::vector<size_t> freed_slots_;
  std::function<void(const Bytes &words)> announce_;
};

}  // namespace kivo_model
