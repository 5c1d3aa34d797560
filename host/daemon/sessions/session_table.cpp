// See session_table.h.
#include "session_table.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "../host_trace.h"
#include "handles.h"
#include "kivo/attribute_read.h"
#include "kivo/attribute_removal.h"
#include "kivo/attribute_write.h"
#include "kivo/records.h"
#include "kivo/shadow_db.h"
#include "platform/error_text.h"
#include "stored_value.h"

namespace kivod {
namespace {

using Bytes = std::string_view;

bool check(uint32_t status, const char *step) {
  if (status == PLATFORM_OK) return true;
  host_trace(HostLevel::kError, HostMessage::kSessionFailed, "%s: %s", step, error_text(status));
  return false;
}

uint32_t interface_of(const attrdb_record *record) {
  uint32_t id = 0;
  const Bytes stored = stored_value(*record, AAA_ATTR_INTERFACE_ID);
  if (stored.size() == sizeof(id)) std::memcpy(&id, stored.data(), sizeof(id));
  return id;
}

// What the daemon itself made or what identifies the session: an update does not take it away.
bool outlives_updates(uint32_t type) {
  return type == AAA_ATTR_SESSION_ID || type == AAA_ATTR_AUDIT_SESSION_ID ||
         type == AAA_ATTR_ACCESS_SERVER_ADDRESS || type == AAA_ATTR_ACCESS_SERVER_ID;
}

// Removes one value of a type, and says so to whoever registered.
void remove_value(kivo_db *db, attrdb_record *record, uint32_t type, Bytes value) {
  check(kivo_remove_attr_from_record_by_type_and_value(
            db, record, type, static_cast<uint32_t>(value.size()), value.data()),
        "remove a value");
}

// Removes the addresses that the event does not name any more.
void remove_stale_addresses(kivo_db *db, attrdb_record *record, const EventValues &values) {
  constexpr size_t kSize = 16;
  const std::string stored(stored_value(*record, AAA_ATTR_IPV6_ADDRESSES));
  for (size_t i = 0; i + kSize <= stored.size(); i += kSize) {
    const Bytes address = Bytes(stored).substr(i, kSize);
    const bool named = std::ranges::any_of(values.all(), [&](const EventValue &value) {
      return value.type == AAA_ATTR_IPV6_ADDRESSES && value.bytes == address;
    });
    if (!named) remove_value(db, record, AAA_ATTR_IPV6_ADDRESSES, address);
  }
}

// Removes the identities with a subtype beyond those that the event names.
void remove_stale_identities(kivo_db *db, attrdb_record *record, uint32_t type, uint32_t index,
                             const EventValues &values) {
  const shadowdb_rec *shadow = auth_mgr_idc_peek_shadow_record_in_ctxt(record->ctxt);
  if (shadow == nullptr) return;
  const auto n_named = static_cast<uint32_t>(std::ranges::count_if(
      values.all(), [&](const EventValue &value) { return value.type == type; }));
  std::vector<std::string> stale;
  for (const auto *entry = shadow->attr_lists[index]; entry != nullptr; entry = entry->next) {
    if (entry->subtype > n_named) {
      stale.emplace_back(reinterpret_cast<const char *>(entry->value), entry->length);
    }
  }
  for (const std::string &identity : stale) remove_value(db, record, type, identity);
}

// Takes away what the event does not name.
void remove_stale_values(kivo_db *db, attrdb_record *record, const EventValues &values) {
  std::vector<uint32_t> stale;
  for (const uint32_t type : event_types()) {
    uint32_t index = 0;
    if (outlives_updates(type)) continue;
    if (type == AAA_ATTR_IPV6_ADDRESSES) {
      remove_stale_addresses(db, record, values);
    } else if (kivo_check_is_shadow_attrib(type, &index) != 0) {
      remove_stale_identities(db, record, type, index, values);
    } else if (values.find(type) == nullptr) {
      stale.push_back(type);
    }
  }
  if (values.find(AAA_ATTR_INTERFACE_NAME) == nullptr && values.find(AAA_ATTR_PORT) == nullptr) {
    stale.insert(stale.end(), {AAA_ATTR_INTERFACE_ID, AAA_ATTR_INTERFACE});
  }
  if (stale.empty()) return;
  check(kivo_remove_attrs_by_type(db, record->label, record, stale.data(),
                                  static_cast<uint32_t>(stale.size())),
        "remove values");
}

// Two keys as one that no other two make: the first one's length stands in front.
std::string join_keys(const std::string &first, std::string_view second) {
  return std::to_string(first.size()) + ':' + first + std::string(second);
}

// Access server and port; empty when the event names no port.
std::string interface_key(const std::string &server, const EventValues &values) {
  const EventValue *port = values.find(AAA_ATTR_INTERFACE_NAME);
  if (port == nullptr) port = values.find(AAA_ATTR_PORT);
  if (port == nullptr) return {};
  return join_keys(server, static_cast<char>(port->type) + port->bytes);
}

// 24 characters: the server's last four address bytes, a counter and the time, in hexadecimal.
std::array<char, 25> make_audit_session_id(const std::string &server, uint64_t counter,
                                           uint64_t time) {
  uint32_t tail = 0;
  for (const char c : server) tail = tail << 8 | static_cast<uint8_t>(c);
  std::array<char, 25> id{};
  std::snprintf(id.data(), id.size(), "%08" PRIX32 "%08" PRIX32 "%08" PRIX32, tail,
                static_cast<uint32_t>(counter), static_cast<uint32_t>(time));
  return id;
}

}  // namespace

Outcome SessionTable::apply(const AccountingEvent &event) {
  Identity identity{event.server_key(), {}};
  if (!event.status || identity.server.empty()) return Outcome::kIncomplete;
  server_names_.learn(event.server_address(), event.server_identifier(),
                      [this](const std::string &name) { return has_sessions(name); });
  const auto status = static_cast<AcctStatus>(*event.status);
  if (status == AcctStatus::kAccountingOn || status == AcctStatus::kAccountingOff) {
    return end_server(event);
  }
  const bool is_update = status == AcctStatus::kStart || status == AcctStatus::kInterimUpdate;
  if (!is_update && status != AcctStatus::kStop) return Outcome::kIgnored;
  const EventValue *session_id = event.values.find(AAA_ATTR_SESSION_ID);
  if (session_id == nullptr) return Outcome::kIncomplete;
  identity.session = join_keys(identity.server, session_id->bytes);
  return is_update ? start_or_update(event, identity) : stop(identity);
}

std::optional<attrdb_record *> SessionTable::find(const Identity &identity) {
  uint32_t label = 0;
  attrdb_record *record = nullptr;
  if (!check(kivo_match_label_by_attr(db_, AAA_ATTR_SESSION_KEY, identity.session.data(),
                                      static_cast<uint32_t>(identity.session.size()), &label),
             "look up a session")) {
    return std::nullopt;
  }
  if (label != 0 && !check(kivo_get_record(db_, label, &record), "fetch a session")) {
    return std::nullopt;
  }
  return record;
}

uint32_t SessionTable::unused_label() {
  for (;;) {
    attrdb_record *record = nullptr;
    if (++last_label_ == 0) continue;
    if (kivo_get_record(db_, last_label_, &record) != PLATFORM_OK || record == nullptr) {
      return last_label_;
    }
  }
}

Outcome SessionTable::start_or_update(const AccountingEvent &event, const Identity &identity) {
  const auto known = find(identity);
  if (!known) return Outcome::kFailed;
  if (*known != nullptr) {
    return write(event, identity, *known, false) ? Outcome::kUpdated : Outcome::kFailed;
  }
  if (!has_room_for(identity)) return Outcome::kRefused;
  attrdb_record *record = nullptr;
  const uint32_t label = unused_label();
  if (!check(kivo_create_record(db_, label, nullptr), "create a session") ||
      !check(kivo_get_record(db_, label, &record), "fetch a new session")) {
    return Outcome::kFailed;
  }
  if (write(event, identity, record, true)) return Outcome::kStarted;
  // Without its keys nothing would ever find the session again.
  if (stored_value(*record, AAA_ATTR_SESSION_KEY) != identity.session ||
      stored_value(*record, AAA_ATTR_ACCESS_SERVER_KEY) != identity.server) {
    remove_session(record);
  }
  return Outcome::kFailed;
}

bool SessionTable::write(const AccountingEvent &event, const Identity &identity,
                         attrdb_record *record, bool is_new) {
  AttrList list;
  if (!list) return check(list.status(), "make an attribute list");
  const uint64_t now = event.time();
  if (is_new) {
    list.add(AAA_ATTR_SESSION_KEY, identity.session);
    list.add(AAA_ATTR_ACCESS_SERVER_KEY, identity.server);
    list.add_word(AAA_ATTR_START_TIME, now - std::min(now, event.session_time_s.value_or(0)));
  }
  for (const EventValue &value : event.values.all()) list.add(value.type, value.bytes);
  list.add_word(AAA_ATTR_UPDATE_TIME, now);
  if (event.values.find(AAA_ATTR_AUDIT_SESSION_ID) == nullptr &&
      stored_value(*record, AAA_ATTR_AUDIT_SESSION_ID).empty()) {
    list.add(AAA_ATTR_AUDIT_SESSION_ID,
             make_audit_session_id(identity.server, ++last_audit_id_, now).data());
  }
  const uint32_t old_interface = interface_of(record);
  // First what goes: a session of many addresses has no room for as many others beside them.
  if (!is_new) remove_stale_values(db_, record, event.values);

  const std::string key = interface_key(identity.server, event.values);
  const uint32_t interface = key.empty() ? 0 : interfaces_.enter(key);
  if (interface != 0) {
    list.add_word(AAA_ATTR_INTERFACE_ID, interface);
    list.add(AAA_ATTR_INTERFACE, std::to_string(interface));
  }
  const bool written =
      check(list.status(), "fill an attribute list") &&
      check(kivo_add_or_update_attr_list(db_, record->label, record, list.handle()),
            "write a session");
  // The session is counted in on both; its record names one of them.
  interfaces_.leave(interface_of(record) == interface ? old_interface : interface);
  return written;
}

void SessionTable::remove_session(attrdb_record *record) {
  const uint32_t interface = interface_of(record);
  if (check(kivo_delete_record(db_, record->label), "delete a session"))
    interfaces_.leave(interface);
}

Outcome SessionTable::stop(const Identity &identity) {
  const auto known = find(identity);
  if (!known) return Outcome::kFailed;
  if (*known == nullptr) return Outcome::kUnknown;
  remove_session(*known);
  return Outcome::kStopped;
}

Outcome SessionTable::end_server(const AccountingEvent &event) {
  const std::string address = event.server_address();
  const std::string identifier = event.server_identifier();
  bool ended = true;
  if (!address.empty() && !identifier.empty() && server_names_.only_other(address) != identifier) {
    // Others are behind the address.
    ended = end_sessions(AAA_ATTR_ACCESS_SERVER_ID, Bytes(identifier).substr(1), address);
  } else {
    const std::string name = event.server_key();
    const std::string second = server_names_.second_name(name);
    ended = end_sessions(AAA_ATTR_ACCESS_SERVER_KEY, name, name) &&
            (second.empty() || end_sessions(AAA_ATTR_ACCESS_SERVER_KEY, second, second));
  }
  return ended ? Outcome::kServerEnded : Outcome::kFailed;
}

// Ends the sessions that have a value and are filed under a server.
bool SessionTable::end_sessions(uint32_t type, Bytes bytes, Bytes server) {
  LabelSet labels;
  uint32_t count = 0;
  if (!check(labels ? PLATFORM_OK : KIVO_ERR_NO_MEMORY, "make a label set") ||
      !check(kivo_match_labels_by_attr(db_, type, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                       labels.address(), &count),
             "look up an access server's sessions")) {
    return false;
  }
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(labels.get(), &cursor)) {
    attrdb_record *record = nullptr;
    if (!check(kivo_get_record(db_, label, &record), "fetch a session")) return false;
    if (record != nullptr && stored_value(*record, AAA_ATTR_ACCESS_SERVER_KEY) == server) {
      remove_session(record);
    }
  }
  return true;
}

// Whether a session is filed under an address or has an identifier. If in doubt, one does.
bool SessionTable::has_sessions(const std::string &server_name) const {
  const bool is_identifier = server_name[0] == static_cast<char>(AAA_ATTR_ACCESS_SERVER_ID);
  const Bytes bytes = Bytes(server_name).substr(is_identifier ? 1 : 0);
  uint32_t count = 0;
  return attrdb_count_labels_by_attr(
             is_identifier ? AAA_ATTR_ACCESS_SERVER_ID : AAA_ATTR_ACCESS_SERVER_KEY, bytes.data(),
             static_cast<uint32_t>(bytes.size()), &count) != PLATFORM_OK ||
         count != 0;
}

bool SessionTable::has_room_for(const Identity &identity) const {
  uint32_t n_of_server = 0;
  if (limits_.of_a_server != UINT32_MAX) {
    check(attrdb_count_labels_by_attr(AAA_ATTR_ACCESS_SERVER_KEY, identity.server.data(),
                                      static_cast<uint32_t>(identity.server.size()), &n_of_server),
          "count an access server's sessions");
  }
  const bool is_full = attrdb_get_total_sessions() >= limits_.in_all;
  if (!is_full && n_of_server < limits_.of_a_server) return true;
  host_trace(HostLevel::kNotice, HostMessage::kSessionRefused,
             "session refused: as many are live%s as may be",
             is_full ? "" : " of its access server");
  return false;
}

}  // namespace kivod
