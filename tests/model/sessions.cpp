// The types of the sequence, and what callbacks do when a change is announced.
#include "model/sessions.h"

#include <algorithm>

namespace kivo_model {
namespace {

constexpr uint32_t kMaxDepth = 3;  // callbacks inside callbacks

constexpr auto kNone = Accel::kNone;
constexpr auto kPlain = Accel::kUnindexed;
constexpr auto kIndex = Accel::kIndexed;

}  // namespace

// clang-format off
const TypeRow kTypes[kTypeCount] = {
    // type                     shape             values  first database   second database
    {AAA_ATTR_USER_NAME,        Shape::kText,      300, {{kIndex, 3},     {kIndex, 4}}},
    {AAA_ATTR_DOMAIN,           Shape::kText,        6, {{kIndex, 1},     {kNone,  0}}},
    {AAA_ATTR_METHOD,           Shape::kText,        4, {{kIndex, 7},     {kPlain, 2}}},
    {AAA_ATTR_PORT,             Shape::kNumber,     50, {{kPlain, 2},     {kNone,  0}}},
    {AAA_ATTR_IPV4_ADDRESS,     Shape::kNumber,    400, {{kIndex, 2},     {kPlain, 4}}},
    {AAA_ATTR_INTERFACE_NAME,   Shape::kText,       40, {{kNone,  0},     {kNone,  0}}},
    {AAA_ATTR_IPV6_ADDRESSES,   Shape::kAddresses,  60, {{kPlain, 7},     {kIndex, 2}}},
    {AAA_ATTR_SESSION_ID,       Shape::kText,      900, {{kIndex, 0},     {kNone,  0}}},
    {AAA_ATTR_START_TIME,       Shape::kNumber,     20, {{kPlain, 4},     {kNone,  0}}},
    {AAA_ATTR_CALLED_STATION,   Shape::kText,       30, {{kPlain, 4},     {kIndex, 3}}},
    {AAA_ATTR_SERVICE_TYPE,     Shape::kNumber,      5, {{kPlain, 1},     {kNone,  0}}},
    {AAA_ATTR_SESSION_TIME,     Shape::kNumber,     90, {{kPlain, 1},     {kNone,  0}}},
    {AAA_ATTR_MAC_ADDRESS,      Shape::kText,      500, {{kIndex, 3},     {kIndex, 1}}},
    {AAA_ATTR_INTERFACE_ID,     Shape::kNumber,    200, {{kIndex, 1},     {kNone,  0}}},
    {AAA_ATTR_INTERFACE,        Shape::kText,      200, {{kIndex, 2},     {kNone,  0}}},
    {AAA_ATTR_AUDIT_SESSION_ID, Shape::kText,      900, {{kIndex, 3},     {kNone,  0}}},
    {AAA_ATTR_EXT_USER,         Shape::kIdentity,   40, {{kPlain, 7},     {kNone,  0}}},
    {AAA_ATTR_EXT_DEVICE,       Shape::kIdentity,   40, {{kNone,  0},     {kPlain, 2}}},
    {AAA_ATTR_EXT_LOCATION,     Shape::kIdentity,   40, {{kPlain, 2},     {kNone,  0}}},
    {kUnsupported,              Shape::kText,        3, {{kNone,  0},     {kNone,  0}}},
};
// clang-format on

const TypeRow *row_of(uint32_t type) {
  const TypeRow *row = std::ranges::find(kTypes, type, &TypeRow::type);
  return row == std::end(kTypes) ? nullptr : row;
}

void Sessions::announced(Event event) {
  event.what = "announced";
  events_.push_back(event);
  if (depth_ == kMaxDepth) return;
  ++depth_;
  react(event);
  --depth_;
}

void Sessions::reacted(std::string_view what, const Answer &answer) {
  events_.push_back({.what = what, .label = answer.number, .status = answer.status});
}

// Reactions that reach beyond the announced record's own attributes.
void Sessions::react(const Event &event) {
  if (event.type == AAA_ATTR_DOMAIN) {
    const Answer first = label_of(event.db, AAA_ATTR_DOMAIN, event.value);
    reacted("looks up the domain", first);
    reacted("writes to another record",
            write(Write::kAdd, event.db, {first.number}, AAA_ATTR_METHOD, event.value));
  } else if (event.type == AAA_ATTR_START_TIME && event.action == KIVO_ACTION_NONE) {
    reacted("sets the old value", set_old_value(event.type, event.value));
  } else if (event.type == AAA_ATTR_SERVICE_TYPE) {
    toggle_companion(event);
  } else if (event.type == AAA_ATTR_SESSION_TIME) {
    free_list_in_hand();
    reacted("frees the list", {});
  } else {
    react_in_record(event);
  }
}

void Sessions::react_in_record(const Event &event) {
  const bool is_removal = event.action == KIVO_ACTION_REMOVE;
  if (event.type == AAA_ATTR_USER_NAME && !is_removal) {
    reacted("writes another type", write(Write::kUpdate, event.db, {event.label},
                                         AAA_ATTR_CALLED_STATION, "seen " + event.value));
  } else if (event.type == AAA_ATTR_METHOD && is_removal) {
    reacted("removes another type", remove_type(event.db, event.label, AAA_ATTR_PORT));
  } else if (event.type == AAA_ATTR_METHOD) {
    Bytes other = event.value;
    other.front() = 'M';
    reacted("writes the announced type",
            write(Write::kAddToRecord, event.db, {event.label}, event.type, other));
  } else if (event.type == AAA_ATTR_PORT) {
    reacted("removes what is being removed", remove_type(event.db, event.label, event.type));
  } else if (event.type == AAA_ATTR_IPV6_ADDRESSES && is_removal) {
    Bytes other = event.value;
    other.back() = static_cast<char>(other.back() ^ 0x40);
    reacted("adds an address under a removal",
            write(Write::kUpdate, event.db, {event.label}, event.type, other));
  } else if (event.type == AAA_ATTR_EXT_USER && !is_removal && event.value.back() % 2 != 0) {
    reacted("removes the identity written",
            remove_value(event.db, event.label, event.type, Given::kBytes, event.value));
  }
}

// Creates or deletes another record. Nobody writes to companions while one of them can go: their
// own announcements, and those without a label, are left alone.
void Sessions::toggle_companion(const Event &event) {
  if (event.label == 0 || (event.label & kCompanion) != 0) return;
  const uint32_t companion = event.label | kCompanion;
  if (find(event.db, companion).labels.empty()) {
    const Attrs attrs = {{AAA_ATTR_DOMAIN, "domain-1"}, {AAA_ATTR_SERVICE_TYPE, event.value}};
    reacted("creates a record", create(event.db, companion, &attrs));
  } else {
    reacted("deletes a record", destroy(event.db, companion));
  }
}

}  // namespace kivo_model
