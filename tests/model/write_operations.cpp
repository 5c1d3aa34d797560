// Writing and removing attributes, the old value, registrations and databases.
#include <algorithm>
#include <cstring>

#include "model/chance.h"
#include "model/library.h"

namespace kivo_model {
namespace {

bool is_bad_value(const Args &a) { return a.value.empty() || a.null_value || a.type == 0; }

// What callbacks are told: the label that the writer named.
uint32_t told_label(const Args &a) { return a.named == Named::kByRecordAlone ? 0 : a.label; }

uint32_t plain_update(Plain &p, const Args &a, Outcome &) {
  if (is_bad_value(a) || a.db == kNoDatabase) return KIVO_ERR_INVALID_ARG;
  Record *record = nullptr;
  uint32_t status = p.resolve(a, record);
  if (record == nullptr) return status;
  bool changed = false;
  status = p.store(a.label, a.type, a.value, changed);
  if (status != PLATFORM_OK) return status;
  return p.notify(a.db, a.type, a.value, told_label(a), changed ? 1 : 0);
}

uint32_t plain_update_in_record(Plain &p, const Args &a, Outcome &) {
  if (is_bad_value(a) || p.at(a.label) == nullptr) return KIVO_ERR_INVALID_ARG;
  bool changed = false;
  const uint32_t status = p.store(a.label, a.type, a.value, changed);
  p.notify(a.db, a.type, a.value, a.label, changed ? 1 : 0);
  return status;
}

uint32_t plain_add(Plain &p, const Args &a, Outcome &) {
  if (is_bad_value(a) || a.db == kNoDatabase) return KIVO_ERR_INVALID_ARG;
  Record *record = nullptr;
  const uint32_t status = p.resolve(a, record);
  return record == nullptr ? status : p.add_to_record(a, a.type, a.value);
}

// How the list operations write one attribute; nonzero ends the walk.
using WriteListed = uint32_t (*)(Plain &, const Args &, uint32_t type, const Bytes &value);

uint32_t write_routed(Plain &p, const Args &a, uint32_t type, const Bytes &value, uint32_t &told) {
  bool changed = is_identity(type);
  const uint32_t status = is_identity(type) ? p.store_identity(a.label, type, value)
                                            : p.store(a.label, type, value, changed);
  if (status != PLATFORM_OK) return status == AAA_ERR_UNSUPPORTED_ATTR ? PLATFORM_OK : status;
  told = p.notify(a.db, type, value, told_label(a), changed ? 1 : 0);
  return PLATFORM_OK;
}
uint32_t update_listed(Plain &p, const Args &a, uint32_t type, const Bytes &value) {
  uint32_t told = PLATFORM_OK;
  return write_routed(p, a, type, value, told);
}
uint32_t clean_and_add_listed(Plain &p, const Args &a, uint32_t type, const Bytes &value) {
  uint32_t told = PLATFORM_OK;
  const uint32_t status = write_routed(p, a, type, value, told);
  return status != PLATFORM_OK ? status : told;
}
// Announced twice: with the record's label, and with the one that was named.
uint32_t add_listed(Plain &p, const Args &a, uint32_t type, const Bytes &value) {
  const uint32_t status = p.add_to_record(a, type, value);
  if (status != PLATFORM_OK) return status;
  p.notify(a.db, type, value, told_label(a), KIVO_ACTION_ADD_OR_UPDATE);
  return PLATFORM_OK;
}

template <WriteListed kWrite>
uint32_t plain_write_list(Plain &p, const Args &a, Outcome &) {
  if (a.db == kNoDatabase || a.handle == Handle::kZero) return KIVO_ERR_INVALID_ARG;
  Record *record = nullptr;
  uint32_t status = p.resolve(a, record);
  if (record == nullptr) return status;
  if (a.handle == Handle::kStale) return KIVO_ERR_NO_CURSOR;
  for (const auto &[type, value] : a.attrs) {
    status = kWrite(p, a, type, value);
    if (status != PLATFORM_OK) return status;
  }
  return PLATFORM_OK;
}

uint32_t plain_remove_types(Plain &p, const Args &a, Outcome &) {
  if (a.db == kNoDatabase || a.labels.empty()) return KIVO_ERR_INVALID_ARG;
  Record *record = nullptr;
  uint32_t status = p.resolve(a, record);
  if (record == nullptr) return status;
  for (const uint32_t type : a.labels) {
    const uint32_t failed = p.remove_type(a.db, a.label, type);
    if (failed != PLATFORM_OK) status = failed;
  }
  return status;
}

uint32_t plain_remove_value(Plain &p, const Args &a, Outcome &) {
  if (p.at(a.label) == nullptr || a.db == kNoDatabase || a.type == 0) return KIVO_ERR_INVALID_ARG;
  if (is_identity(a.type)) {
    uint16_t subtype = 1;
    const Bytes padded = a.value + Bytes(2, '\0');
    if (!a.null_value) std::memcpy(&subtype, padded.data(), sizeof subtype);
    p.remove_identity(a.label, a.type, subtype);
  } else {
    if (a.null_value) return AAA_ERR_INVALID_ARG;
    const uint32_t status = p.remove_stored(a.label, a.type, a.value);
    if (status != PLATFORM_OK) return status;
  }
  p.notify_removal(a.db, a.type, a.null_value ? Bytes() : a.value, a.label);
  return PLATFORM_OK;
}

uint32_t plain_set_old_value(Plain &p, const Args &a, Outcome &) {
  if (a.value.size() > 255) return KIVO_ERR_INVALID_VALUE;
  p.old_value.aaa_type = a.type;
  p.old_value.size = static_cast<uint32_t>(a.value.size());
  a.value.copy(reinterpret_cast<char *>(p.old_value.data), a.value.size());
  p.old_value.data[a.value.size()] = 0;
  return PLATFORM_OK;
}

uint32_t plain_register(Plain &p, const Args &a, Outcome &) {
  if (a.db == kNoDatabase || a.null_out || accel_of(a.db, a.type) == Accel::kNone) {
    return KIVO_ERR_INVALID_ARG;
  }
  if (!p.registrations.contains({a.db, a.type})) p.happen();
  Registration &registration = p.registrations[{a.db, a.type}];
  registration.actions |= a.number % 8;
  const uint32_t handle = a.other % kHandles;
  if (std::ranges::find(registration.handles, handle) == registration.handles.end()) {
    registration.handles.push_back(handle);
  }
  return PLATFORM_OK;
}

const Operation kOperations[] = {
    {"add or update an attribute", 70,
     [](Call &c) {
       return kivo_add_or_update_attr(c.db, c.label, c.record, c.in.type, c.value, c.size);
     },
     plain_update},
    {"add an attribute", 45,
     [](Call &c) { return kivo_add_attr(c.db, c.label, c.record, c.in.type, c.value, c.size); },
     plain_add},
    {"add an attribute to a record", 45,
     [](Call &c) { return kivo_add_attr_to_record(c.db, c.held, c.in.type, c.value, c.size); },
     [](Plain &p, const Args &a, Outcome &) {
       return is_bad_value(a) ? KIVO_ERR_INVALID_ARG : p.add_to_record(a, a.type, a.value);
     }},
    {"add or update an attribute in a record", 45,
     [](Call &c) {
       return kivo_add_or_update_attr_to_record(c.db, c.held, c.in.type, c.value, c.size);
     },
     plain_update_in_record, nullptr, kNoFaults},
    {"add or update a list", 60,
     [](Call &c) { return kivo_add_or_update_attr_list(c.db, c.label, c.record, c.attrs); },
     plain_write_list<update_listed>},
    {"clean and add a list", 45,
     [](Call &c) { return kivo_clean_and_add_attr_list(c.db, c.label, c.record, c.attrs); },
     plain_write_list<clean_and_add_listed>},
    {"add a list", 45, [](Call &c) { return kivo_add_attr_list(c.db, c.label, c.record, c.attrs); },
     plain_write_list<add_listed>},
    {"free the list that is walked", 15,
     [](Call &c) {
       c.library.meddle_with_list(true);
       return PLATFORM_OK;
     },
     [](Plain &, const Args &, Outcome &) { return PLATFORM_OK; }},
    {"append to the list that is walked", 15,
     [](Call &c) {
       c.library.meddle_with_list(false);
       return PLATFORM_OK;
     },
     [](Plain &, const Args &, Outcome &) { return PLATFORM_OK; }},
    {"remove a type", 60,
     [](Call &c) { return kivo_remove_attr_from_record_by_type(c.db, c.held, c.in.type); },
     [](Plain &p, const Args &a, Outcome &) { return p.remove_type(a.db, a.label, a.type); }},
    {"remove several types", 40,
     [](Call &c) {
       return kivo_remove_attrs_by_type(c.db, c.label, c.record, c.in.labels.data(),
                                        static_cast<uint32_t>(c.in.labels.size()));
     },
     plain_remove_types, nullptr, kNoFaults},
    {"remove a value", 70,
     [](Call &c) {
       return kivo_remove_attr_from_record_by_type_and_value(c.db, c.held, c.in.type, c.size,
                                                             c.value);
     },
     plain_remove_value,
     [](Chance &, Args &a) {
       if (is_identity(a.type) && a.value.empty()) a.null_value = true;
     }},
    {"set the old value", 20,
     [](Call &c) { return kivo_set_notify_old_attr_value(c.in.type, c.size, c.value); },
     plain_set_old_value, [](Chance &, Args &a) { a.null_value = a.value.empty(); }},
    {"register for changes", 30,
     [](Call &c) {
       return kivo_register_attr_change_notification(
           c.db, c.in.type, c.in.number % 8, c.in.null_out ? nullptr : c.library.handle(c.in));
     },
     plain_register},
    {"create the database anew", 1, [](Call &c) { return c.library.create_database(c.in.db); },
     [](Plain &p, const Args &a, Outcome &) {
       if (a.db == kNoDatabase) return KIVO_ERR_INVALID_ARG;
       std::erase_if(p.registrations, [&](const auto &one) { return one.first.first == a.db; });
       return PLATFORM_OK;
     },
     nullptr, kNoFaults},
};

}  // namespace

std::span<const Operation> write_operations() { return kOperations; }

}  // namespace kivo_model
