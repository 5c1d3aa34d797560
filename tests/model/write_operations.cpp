// Writing and removing attributes, the old value, registrations and databases.
#include <algorithm>

#include "model/chance.h"
#include "model/library.h"

namespace kivo_model {
namespace {

constexpr uint32_t kBadArg = KIVO_ERR_INVALID_ARG;

// What callbacks are told: the label that the writer named.
uint32_t told_label(const Args &a) { return a.named == Named::kByRecordAlone ? 0 : a.label; }

enum class How { kUpdate, kAdd, kAddToRecord, kUpdateInRecord, kCleanAndAdd };

uint32_t write(Plain &p, const Args &a, How how) {
  const bool by_label = how == How::kUpdate || how == How::kAdd;
  if (a.value.empty() || a.null_value || a.type == 0) return kBadArg;
  if (by_label && a.db == kNoDatabase) return kBadArg;
  if (p.at(a.label) == nullptr) return by_label ? p.missing(a) : kBadArg;
  bool changed = false;
  const uint32_t status = p.store(a.label, a.type, a.value, changed);
  if (status != PLATFORM_OK && how != How::kUpdateInRecord) return status;
  const uint32_t told = how == How::kUpdate ? told_label(a) : a.label;
  const uint32_t notified = p.notify(a.db, a.type, a.value, told, changed ? 1 : 0);
  return how == How::kUpdate ? notified : status;
}

// Nonzero ends the walk. An add announces twice: with the record's label, and with the named one.
uint32_t write_listed(Plain &p, const Args &a, const Attr &attr, How how) {
  const auto &[type, value] = attr;
  const bool adds = how == How::kAdd;
  if (adds && value.empty()) return kBadArg;
  bool changed = true;
  uint32_t status = !adds && is_identity(type) ? p.store_identity(a.label, type, value)
                                               : p.store(a.label, type, value, changed);
  if (status == AAA_ERR_UNSUPPORTED_ATTR && !adds) return PLATFORM_OK;
  if (status != PLATFORM_OK) return status;
  if (adds) p.notify(a.db, type, value, a.label, changed ? 1 : 0);
  status = p.notify(a.db, type, value, told_label(a), adds || changed ? 1 : 0);
  return how == How::kCleanAndAdd ? status : PLATFORM_OK;
}
uint32_t write_list(Plain &p, const Args &a, How how) {
  if (a.db == kNoDatabase || a.handle == Handle::kZero) return kBadArg;
  if (p.at(a.label) == nullptr) return p.missing(a);
  uint32_t status = a.handle == Handle::kStale ? KIVO_ERR_NO_CURSOR : PLATFORM_OK;
  for (size_t i = 0; i < a.attrs.size() && status == PLATFORM_OK; ++i) {
    status = write_listed(p, a, a.attrs[i], how);
  }
  return status;
}

uint32_t remove_types(Plain &p, const Args &a) {
  if (a.db == kNoDatabase || a.labels.empty()) return kBadArg;
  if (p.at(a.label) == nullptr) return p.missing(a);
  uint32_t last_failure = PLATFORM_OK;
  for (const uint32_t type : a.labels) {
    const uint32_t status = p.remove_type(a.db, a.label, type);
    if (status != PLATFORM_OK) last_failure = status;
  }
  return last_failure;
}

uint32_t remove_value(Plain &p, const Args &a) {
  if (p.at(a.label) == nullptr || a.db == kNoDatabase || a.type == 0) return kBadArg;
  const bool identity = is_identity(a.type);
  if (!identity && a.null_value) return AAA_ERR_INVALID_ARG;
  const uint32_t status =
      identity ? p.remove_identity(a.label, a.type, p.subtype_of(a.value, !a.null_value))
               : p.remove_value(a.label, a.type, a.value);
  if (status != PLATFORM_OK) return status;
  p.notify_removal(a.db, a.type, a.null_value ? Bytes() : a.value, a.label);
  return PLATFORM_OK;
}

uint32_t set_old_value(Plain &p, const Args &a) {
  if (a.value.size() > 255) return KIVO_ERR_INVALID_VALUE;
  p.old_value.aaa_type = a.type;
  p.old_value.size = static_cast<uint32_t>(a.value.size());
  std::memcpy(p.old_value.data, a.value.c_str(), a.value.size() + 1);
  return PLATFORM_OK;
}

uint32_t listen(Plain &p, const Args &a) {
  if (a.db == kNoDatabase || a.null_out || row_of(a.type).accel[a.db] == Accel::kNone) {
    return kBadArg;
  }
  if (!p.registrations.contains({a.db, a.type})) p.happen();
  auto &[actions, handles] = p.registrations[{a.db, a.type}];
  actions |= a.number % 8;
  const uint32_t handle = a.other % kHandles;
  if (std::ranges::find(handles, handle) == handles.end()) handles.push_back(handle);
  return PLATFORM_OK;
}

constexpr Operation kOperations[] = {
    {"add or update an attribute", 70,
     LIBRARY(kivo_add_or_update_attr(c.db, c.label, c.record, c.in.type, c.value, c.size)),
     PLAIN(write(p, a, How::kUpdate))},
    {"add an attribute", 45,
     LIBRARY(kivo_add_attr(c.db, c.label, c.record, c.in.type, c.value, c.size)),
     PLAIN(write(p, a, How::kAdd))},
    {"add an attribute to a record", 45,
     LIBRARY(kivo_add_attr_to_record(c.db, c.held, c.in.type, c.value, c.size)),
     PLAIN(write(p, a, How::kAddToRecord))},
    {"add or update an attribute in a record", 45,
     LIBRARY(kivo_add_or_update_attr_to_record(c.db, c.held, c.in.type, c.value, c.size)),
     PLAIN(write(p, a, How::kUpdateInRecord)), nullptr, kNoFaults},
    {"add or update a list", 60,
     LIBRARY(kivo_add_or_update_attr_list(c.db, c.label, c.record, c.attrs)),
     PLAIN(write_list(p, a, How::kUpdate))},
    {"clean and add a list", 45,
     LIBRARY(kivo_clean_and_add_attr_list(c.db, c.label, c.record, c.attrs)),
     PLAIN(write_list(p, a, How::kCleanAndAdd))},
    {"add a list", 45, LIBRARY(kivo_add_attr_list(c.db, c.label, c.record, c.attrs)),
     PLAIN(write_list(p, a, How::kAdd))},
    {"free the list that is walked, or append to it", 30,
     LIBRARY(c.library.meddle_with_list(c.in.number % 2 == 0)), PLAIN(PLATFORM_OK)},
    {"remove a type", 60, LIBRARY(kivo_remove_attr_from_record_by_type(c.db, c.held, c.in.type)),
     PLAIN(p.remove_type(a.db, a.label, a.type))},
    {"remove several types", 40,
     LIBRARY(kivo_remove_attrs_by_type(c.db, c.label, c.record, c.in.labels.data(),
                                       static_cast<uint32_t>(c.in.labels.size()))),
     PLAIN(remove_types(p, a)), nullptr, kNoFaults},
    {"remove a value", 70,
     LIBRARY(
         kivo_remove_attr_from_record_by_type_and_value(c.db, c.held, c.in.type, c.size, c.value)),
     PLAIN(remove_value(p, a))},
    {"set the old value", 20, LIBRARY(kivo_set_notify_old_attr_value(c.in.type, c.size, c.value)),
     PLAIN(set_old_value(p, a)), [](Chance &, Args &a) { a.null_value = a.value.empty(); }},
    {"register for changes", 30,
     LIBRARY(kivo_register_attr_change_notification(
         c.db, c.in.type, c.in.number % 8,
         c.in.null_out ? nullptr
                       : &c.library.handles_of(c.in.db, c.in.type)[c.in.other % kHandles])),
     PLAIN(listen(p, a))},
    {"create the database anew", 1, LIBRARY(c.library.create_database(c.in.db)),
     PLAIN(std::erase_if(p.registrations, [&](const auto &one) { return one.first.first == a.db; }),
           a.db == kNoDatabase ? kBadArg : PLATFORM_OK),
     nullptr, kNoFaults},
};

}  // namespace

std::span<const Operation> write_operations() { return kOperations; }

}  // namespace kivo_model
