// Applies accounting events to the database: sessions begin, change and end. Keeps no table of its
// own: a session is found by its identity (access server and Acct-Session-Id) through the library,
// by one indexed attribute that holds both, since servers that count their sessions use the same
// ids; how many an access server has is counted by the store. Invariant: a record of the database
// has its session key and its access server's key, for good. Threads: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounting_event.h"
#include "interface_table.h"
#include "kivo/database.h"
#include "platform/attrdb.h"
#include "server_names.h"

namespace kivod {

enum class Outcome : uint8_t {
  kStarted,      // a session that was not known
  kUpdated,      // a known one
  kStopped,      // a known one ended
  kUnknown,      // a stop for a session that was not known
  kServerEnded,  // all sessions of an access server ended
  kRefused,      // a session that was not known, and as many are live as may be
  kIncomplete,   // no status, no access server or no session id
  kIgnored,      // a status that says nothing about sessions
  kFailed,       // the library refused; traced
};
inline constexpr size_t kOutcomes = 9;

// How many sessions may be live, in all and of one access server.
struct SessionLimits {
  uint32_t in_all = UINT32_MAX;
  uint32_t of_a_server = UINT32_MAX;
};

class SessionTable {
 public:
  // db  the daemon's database; outlives the table.
  // Throws std::system_error when the system has no random numbers.
  explicit SessionTable(kivo_db *db, SessionLimits limits = {}) : db_(db), limits_(limits) {}

  // Applies one event. Known sessions are updated however many are live. Accounting-on and -off end
  // what is filed under a name that they give, or under the same server's other name
  // (server_names.h). Behind an address that came with several identifiers one that gives an
  // identifier too ends the sessions that have it. Without memory a session may be left with some
  // of its values; one that could not be given its identity is deleted again. Throws
  // std::bad_alloc.
  Outcome apply(const AccountingEvent &event);

 private:
  // The keys of an event's session, as they are stored.
  struct Identity {
    std::string server;
    std::string session;
  };

  // The record of a session: null without one, nothing at all when the library failed.
  std::optional<attrdb_record *> find(const Identity &identity);
  Outcome start_or_update(const AccountingEvent &event, const Identity &identity);
  Outcome stop(const Identity &identity);
  Outcome end_server(const AccountingEvent &event);
  bool end_sessions(uint32_t type, std::string_view bytes, std::string_view server);
  bool has_sessions(const std::string &server_name) const;
  bool has_room_for(const Identity &identity) const;
  bool write(const AccountingEvent &event, const Identity &identity, attrdb_record *record,
             bool is_new);
  void remove_session(attrdb_record *record);
  uint32_t unused_label();

  kivo_db *db_;
  SessionLimits limits_;
  InterfaceTable interfaces_;
  ServerNames server_names_;
  uint32_t last_label_ = 0;
  uint64_t last_audit_id_ = 0;
};

}  // namespace kivod
