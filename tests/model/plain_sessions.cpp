// The model's records, writes, removals and notifications. Its queries are in plain_queries.cpp.
#include "model/plain_sessions.h"

#include <algorithm>
#include <cstring>

namespace kivo_model {
namespace {

constexpr size_t kAddressSize = 16;
constexpr size_t kAnnouncedAddresses = 6;
constexpr size_t kMaxAddresses = 4095;  // what fits 65,535 bytes

bool in_dictionary(uint32_t type) { return type >= 1 && type <= AAA_ATTR_TYPE_MAX; }

std::vector<Bytes> addresses_of(const Bytes &value) {
  std::vector<Bytes> addresses;
  for (size_t i = 0; i + kAddressSize <= value.size(); i += kAddressSize) {
    addresses.push_back(value.substr(i, kAddressSize));
  }
  return addresses;
}

uint16_t first_word(const Bytes &value) {
  uint16_t word = 0;
  std::memcpy(&word, value.data(), std::min(value.size(), sizeof(word)));
  return word;
}

}  // namespace

Record *PlainSessions::at(uint32_t label) {
  const auto found = records_.find(label);
  return found == records_.end() ? nullptr : &found->second;
}

Answer PlainSessions::create(uint32_t, uint32_t label, const Attrs *adopted) {
  if (label == 0) return {ATTRDB_ERR_INVALID_ARG};
  if (at(label) != nullptr) return {ATTRDB_ERR_LABEL_IN_USE};
  Record &record = records_[label];
  bool changed = false;
  if (adopted != nullptr) {
    for (const auto &[type, value] : *adopted) store(record, type, value, changed);
  }
  if (freed_slots_.empty()) {
    slots_.push_back(label);
  } else {
    slots_[freed_slots_.back()] = label;
    freed_slots_.pop_back();
  }
  ++changes_;
  return {};
}

Answer PlainSessions::destroy(uint32_t, uint32_t label) {
  if (records_.erase(label) == 0) return {ATTRDB_ERR_NOT_FOUND};
  const auto slot = std::ranges::find(slots_, label);
  *slot = 0;
  freed_slots_.push_back(static_cast<size_t>(slot - slots_.begin()));
  ++changes_;
  return {};
}

Answer PlainSessions::find(uint32_t db, uint32_t label) {
  if (db == kNoDatabase || label == 0) return {KIVO_ERR_INVALID_ARG};
  if (at(label) == nullptr) return {};
  return {.labels = {label}};
}

// The record that a target names, null when there is none; a status for label 0.
uint32_t PlainSessions::resolve(Target target, Record *&record) {
  record = at(target.label);
  if (record != nullptr) return PLATFORM_OK;
  const bool names_nothing = target.named == Named::kByRecordAlone || target.label == 0;
  return names_nothing ? KIVO_ERR_INVALID_ARG : PLATFORM_OK;
}

uint32_t PlainSessions::store(Record &record, uint32_t type, const Bytes &value, bool &changed) {
  changed = false;
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  if (value.size() > AAA_VALUE_SIZE_MAX) return AAA_ERR_NO_ROOM;
  if (type == AAA_ATTR_IPV6_ADDRESSES) return store_addresses(record, value, changed);
  const auto [stored, added] = record.attrs.try_emplace(type, value);
  changed = added || stored->second != value;
  stored->second = value;
  changes_ += changed ? 1 : 0;
  return PLATFORM_OK;
}

// Addresses that are not there yet are appended.
uint32_t PlainSessions::store_addresses(Record &record, const Bytes &value, bool &changed) {
  if (value.size() % kAddressSize != 0) return AAA_ERR_INVALID_ARG;
  const auto stored = record.attrs.find(AAA_ATTR_IPV6_ADDRESSES);
  std::vector<Bytes> all;
  if (stored != record.attrs.end()) all = addresses_of(stored->second);
  const size_t before = all.size();
  for (const Bytes &address : addresses_of(value)) {
    if (std::ranges::find(all, address) == all.end()) all.push_back(address);
  }
  if (all.size() == before) return PLATFORM_OK;
  if (all.size() > kMaxAddresses) return AAA_ERR_NO_ROOM;
  Bytes joined;
  for (const Bytes &address : all) joined += address;
  record.attrs[AAA_ATTR_IPV6_ADDRESSES] = joined;
  changed = true;
  ++changes_;
  return PLATFORM_OK;
}

// One identity for each subtype; the one written last comes first.
uint32_t PlainSessions::store_identity(Record &record, uint32_t type, const Bytes &value,
                                       bool &changed) {
  const uint16_t subtype = value.size() < 2 ? uint16_t{1} : first_word(value);
  std::vector<Identity> &identities = record.identities[type];
  std::erase_if(identities, [&](const Identity &one) { return one.subtype == subtype; });
  identities.insert(identities.begin(), {subtype, value});
  record.has_identities = true;
  changed = true;
  ++changes_;
  return PLATFORM_OK;
}

uint32_t PlainSessions::notify(uint32_t db, uint32_t type, const Bytes *value, uint32_t label,
                               uint32_t action) {
  if (db == kNoDatabase || value == nullptr || value->empty() || value->size() > 255) {
    return KIVO_ERR_INVALID_ARG;
  }
  const TypeRow *row = row_of(type);
  if (row == nullptr || row->in[db].accel == Accel::kNone) return PLATFORM_OK;
  if ((row->in[db].actions & (action | KIVO_ACTION_UNCONDITIONAL)) == 0) return PLATFORM_OK;
  Event event{
      .what = {}, .db = db, .label = label, .type = type, .action = action, .value = *value};
  event.old_value.assign(reinterpret_cast<const char *>(&old_value_), sizeof(old_value_));
  announced(event);
  return PLATFORM_OK;
}

// As kivo_add_attr_to_record().
uint32_t PlainSessions::add_to_record(uint32_t db, uint32_t label, uint32_t type,
                                      const Bytes &value) {
  Record *record = at(label);
  if (value.empty() || type == 0 || record == nullptr) return KIVO_ERR_INVALID_ARG;
  bool changed = false;
  const uint32_t status = store(*record, type, value, changed);
  if (status == PLATFORM_OK) notify(db, type, &value, label, changed ? 1 : 0);
  return status;
}

Answer PlainSessions::write(Write op, uint32_t db, Target to, uint32_t type, const Bytes &value) {
  if (op == Write::kAddToRecord) return {add_to_record(db, to.label, type, value)};
  if (value.empty() || type == 0) return {KIVO_ERR_INVALID_ARG};
  bool changed = false;
  if (op == Write::kUpdateInRecord) {
    Record *record = at(to.label);
    if (record == nullptr) return {KIVO_ERR_INVALID_ARG};
    const uint32_t status = store(*record, type, value, changed);
    notify(db, type, &value, to.label, changed ? 1 : 0);
    return {status};
  }
  if (db == kNoDatabase) return {KIVO_ERR_INVALID_ARG};
  Record *record = nullptr;
  uint32_t status = resolve(to, record);
  if (record == nullptr) return {status};
  if (op == Write::kAdd) return {add_to_record(db, to.label, type, value)};
  status = store(*record, type, value, changed);
  if (status != PLATFORM_OK) return {status};
  const uint32_t told = to.named == Named::kByRecordAlone ? 0 : to.label;
  return {notify(db, type, &value, told, changed ? 1 : 0)};
}

Answer PlainSessions::write_list(ListWrite op, uint32_t db, Target to, const ListArg &list) {
  if (db == kNoDatabase || list.handle == Handle::kZero) return {KIVO_ERR_INVALID_ARG};
  Record *record = nullptr;
  uint32_t status = resolve(to, record);
  if (record == nullptr) return {status};
  if (list.handle == Handle::kStale) return {KIVO_ERR_NO_CURSOR};
  const uint32_t told = to.named == Named::kByRecordAlone ? 0 : to.label;
  for (const Attr &attr : list.attrs) {
    status = write_listed(op, db, told, to.label, attr);
    if (status != PLATFORM_OK) return {status};
  }
  return {};
}

uint32_t PlainSessions::write_listed(ListWrite op, uint32_t db, uint32_t told, uint32_t label,
                                     const Attr &attr) {
  const auto &[type, value] = attr;
  if (op == ListWrite::kAdd) {
    const uint32_t status = add_to_record(db, label, type, value);
    if (status == PLATFORM_OK) notify(db, type, &value, told, KIVO_ACTION_ADD_OR_UPDATE);
    return status;
  }
  const TypeRow *row = row_of(type);
  bool changed = false;
  uint32_t status = row != nullptr && row->shape == Shape::kIdentity
                        ? store_identity(*at(label), type, value, changed)
                        : store(*at(label), type, value, changed);
  if (status == AAA_ERR_UNSUPPORTED_ATTR) return PLATFORM_OK;
  if (status != PLATFORM_OK) return status;
  status = notify(db, type, &value, told, changed ? 1 : 0);
  return op == ListWrite::kCleanAndAdd ? status : PLATFORM_OK;
}

Answer PlainSessions::copy(uint32_t db, uint32_t label, uint32_t from, uint32_t to) {
  const Record *record = at(label);
  if (record == nullptr || !record->attrs.contains(from)) return {KIVO_ERR_INVALID_ARG};
  const Bytes value = record->attrs.at(from);
  return write(Write::kUpdate, db, {label, Named::kByRecord}, to, value);
}

void PlainSessions::notify_removal(uint32_t db, uint32_t type, const Bytes *value, uint32_t label) {
  old_value_.aaa_type = old_value_.size = 0;
  old_value_.data[0] = 0;
  notify(db, type, value, label, KIVO_ACTION_REMOVE);
}

// Announces first, then removes, whatever callbacks did meanwhile.
Answer PlainSessions::remove_type(uint32_t db, uint32_t label, uint32_t type) {
  Record *record = at(label);
  if (record == nullptr || type == 0) return {KIVO_ERR_INVALID_ARG};
  if (!in_dictionary(type)) return {AAA_ERR_UNSUPPORTED_ATTR};
  const auto stored = record->attrs.find(type);
  if (stored == record->attrs.end() || stored->second.empty()) return {};
  std::vector<Bytes> values = {stored->second};
  if (type == AAA_ATTR_IPV6_ADDRESSES) {
    values = addresses_of(stored->second);
    values.resize(std::min(values.size(), kAnnouncedAddresses));
  }
  for (const Bytes &value : values) notify_removal(db, type, &value, label);
  changes_ += record->attrs.erase(type);
  return {};
}

Answer PlainSessions::remove_types(uint32_t db, Target from, const std::vector<uint32_t> &types) {
  if (db == kNoDatabase || types.empty()) return {KIVO_ERR_INVALID_ARG};
  Record *record = nullptr;
  uint32_t status = resolve(from, record);
  if (record == nullptr) return {status};
  for (const uint32_t type : types) {
    const uint32_t failed = remove_type(db, from.label, type).status;
    if (failed != PLATFORM_OK) status = failed;
  }
  return {status};
}

uint32_t PlainSessions::remove_stored(Record &record, uint32_t type, const Bytes *value) {
  if (value == nullptr) return AAA_ERR_INVALID_ARG;
  if (!in_dictionary(type)) return AAA_ERR_UNSUPPORTED_ATTR;
  const auto stored = record.attrs.find(type);
  if (stored == record.attrs.end()) return AAA_ERR_NOT_FOUND;
  Bytes rest;
  if (type == AAA_ATTR_IPV6_ADDRESSES) {
    for (const Bytes &address : addresses_of(stored->second)) {
      if (address != *value) rest += address;
    }
    if (rest.size() == stored->second.size()) return AAA_ERR_NOT_FOUND;
  } else if (stored->second != *value) {
    return AAA_ERR_NOT_FOUND;
  }
  stored->second = rest;
  if (rest.empty()) record.attrs.erase(stored);
  ++changes_;
  return PLATFORM_OK;
}

// By the subtype alone, whatever the value's length; an absent one is no failure.
uint32_t PlainSessions::remove_identity(Record &record, uint32_t type, const Bytes *value) {
  const uint16_t subtype = value == nullptr ? uint16_t{1} : first_word(*value);
  changes_ += std::erase_if(record.identities[type],
                            [&](const Identity &one) { return one.subtype == subtype; });
  return PLATFORM_OK;
}

Answer PlainSessions::remove_value(uint32_t db, uint32_t label, uint32_t type, Given given,
                                   const Bytes &value) {
  Record *record = at(label);
  if (record == nullptr || db == kNoDatabase || type == 0) return {KIVO_ERR_INVALID_ARG};
  const TypeRow *row = row_of(type);
  const bool is_identity = row != nullptr && row->shape == Shape::kIdentity;
  Bytes bytes = value;
  bool is_null = given == Given::kNull;
  if (given == Given::kStored) {
    is_null = !record->attrs.contains(type);
    if (!is_null) bytes = record->attrs.at(type);
    if (type == AAA_ATTR_IPV6_ADDRESSES) bytes.resize(std::min(bytes.size(), kAddressSize));
    if (is_identity && bytes.size() < 2) is_null = true;
  }
  const Bytes *given_bytes = is_null ? nullptr : &bytes;
  const uint32_t status = is_identity ? remove_identity(*record, type, given_bytes)
                                      : remove_stored(*record, type, given_bytes);
  if (status == PLATFORM_OK) notify_removal(db, type, given_bytes, label);
  return {status};
}

Answer PlainSessions::set_old_value(uint32_t type, const Bytes &value) {
  if (value.size() > 255) return {KIVO_ERR_INVALID_VALUE};
  old_value_.aaa_type = type;
  old_value_.size = static_cast<uint32_t>(value.size());
  value.copy(reinterpret_cast<char *>(old_value_.data), value.size());
  old_value_.data[value.size()] = 0;
  ++changes_;
  return {};
}

}  // namespace kivo_model
