// SQLite in memory: a row a session, an index on each of the seven attributes, prepared statements,
// no journal, everything in one transaction. Without statistics its planner takes the index of the
// domain where that of the interface is the good one; a plus in front of a column keeps it from
// using that column's index. So the order of two conditions means nothing here.
#include <sqlite3.h>

#include <memory>
#include <string_view>

#include "workload/peers.h"
#include "workload/scenario.h"

namespace workload {
namespace {

constexpr const char *kSchema =
    "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA locking_mode = EXCLUSIVE;"
    "CREATE TABLE session (label INTEGER PRIMARY KEY, mac BLOB, audit_id TEXT, ipv4 INTEGER,"
    " session_id INTEGER, interface_id INTEGER, domain TEXT, method TEXT, user_name TEXT,"
    " port INTEGER, port_type INTEGER, service_type INTEGER, session_time INTEGER,"
    " octets_in INTEGER, octets_out INTEGER, called_station TEXT, calling_station TEXT);"
    "CREATE UNIQUE INDEX by_mac ON session (mac);"
    "CREATE UNIQUE INDEX by_audit_id ON session (audit_id);"
    "CREATE UNIQUE INDEX by_ipv4 ON session (ipv4);"
    "CREATE UNIQUE INDEX by_session_id ON session (session_id);"
    "CREATE INDEX by_interface_id ON session (interface_id);"
    "CREATE INDEX by_domain ON session (domain);"
    "CREATE INDEX by_method ON session (method);"
    "BEGIN";

// A prepared statement. Values are bound in their order; bound texts and blobs are not copied and
// must live until reset().
class Statement {
 public:
  void prepare(sqlite3 *db, const char *text) {
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v3(db, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    statement_.reset(statement);
  }
  explicit operator bool() const { return statement_ != nullptr; }

  Statement &bind(int64_t value) {
    sqlite3_bind_int64(statement_.get(), ++n_bound_, value);
    return *this;
  }
  Statement &bind(std::string_view text) {
    sqlite3_bind_text(statement_.get(), ++n_bound_, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
    return *this;
  }
  Statement &bind_blob(const void *bytes, size_t size) {
    sqlite3_bind_blob(statement_.get(), ++n_bound_, bytes, static_cast<int>(size), SQLITE_STATIC);
    return *this;
  }

  // Runs a change; whether it worked.
  bool change() {
    const bool done = sqlite3_step(statement_.get()) == SQLITE_DONE;
    reset();
    return done;
  }
  // The first column of the first row, 0 without one.
  uint32_t first() {
    uint32_t value = 0;
    if (sqlite3_step(statement_.get()) == SQLITE_ROW) value = column();
    reset();
    return value;
  }
  // The first column of all rows.
  Labels all() {
    Labels labels;
    while (sqlite3_step(statement_.get()) == SQLITE_ROW) labels.push_back(column());
    reset();
    return labels;
  }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
  };

  [[nodiscard]] uint32_t column() const {
    return static_cast<uint32_t>(sqlite3_column_int64(statement_.get(), 0));
  }
  void reset() {
    sqlite3_reset(statement_.get());
    n_bound_ = 0;
  }

  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int n_bound_ = 0;
};

template <size_t size>
std::string_view view(const std::array<char, size> &text) {
  return {text.data(), size};
}

class SqlitePeer {
 public:
  static constexpr clockid_t kClock = CLOCK_PROCESS_CPUTIME_ID;

  bool open() {
    sqlite3 *db = nullptr;
    const bool opened = sqlite3_open(":memory:", &db) == SQLITE_OK;
    db_.reset(db);
    if (!opened || sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) return false;
    bool prepared = true;
    const auto prepare = [&](Statement &statement, const char *text) {
      statement.prepare(db, text);
      prepared &= static_cast<bool>(statement);
    };
    prepare(create_, "INSERT INTO session VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    prepare(find_mac_, "SELECT label FROM session WHERE mac = ?");
    prepare(find_audit_, "SELECT label FROM session WHERE audit_id = ?");
    prepare(read_session_time_, "SELECT session_time FROM session WHERE label = ?");
    prepare(read_interface_, "SELECT interface_id FROM session WHERE label = ?");
    prepare(update_session_time_, "UPDATE session SET session_time = ? WHERE label = ?");
    prepare(update_interface_, "UPDATE session SET interface_id = ? WHERE label = ?");
    prepare(domain_method_, "SELECT label FROM session WHERE domain = ? AND +method = ?");
    prepare(interface_domain_, "SELECT label FROM session WHERE interface_id = ? AND +domain = ?");
    prepare(domain_interface_, "SELECT label FROM session WHERE +domain = ? AND interface_id = ?");
    prepare(all_labels_, "SELECT label FROM session");
    prepare(erase_, "DELETE FROM session WHERE label = ?");
    return prepared;
  }

  bool create(uint32_t label, const Session &session) {
    return create_.bind(label)
        .bind_blob(session.mac.data(), session.mac.size())
        .bind(view(session.audit_id))
        .bind(session.ipv4)
        .bind(session.session_id)
        .bind(session.interface_id)
        .bind(kDomains[session.domain])
        .bind(kMethods[session.method])
        .bind({session.user_name.data(), session.user_name_length})
        .bind(session.port)
        .bind(session.port_type)
        .bind(session.service_type)
        .bind(session.session_time)
        .bind(static_cast<int64_t>(session.octets_in))
        .bind(static_cast<int64_t>(session.octets_out))
        .bind(view(session.called_station))
        .bind(view(session.calling_station))
        .change();
  }

  uint32_t find_mac(const Mac &mac) { return find_mac_.bind_blob(mac.data(), mac.size()).first(); }
  uint32_t find_audit(const AuditId &id) { return find_audit_.bind(view(id)).first(); }

  uint32_t read_session_time(uint32_t label) { return read_session_time_.bind(label).first(); }
  uint32_t read_interface(uint32_t label) { return read_interface_.bind(label).first(); }

  bool update_session_time(uint32_t label, uint32_t value) {
    return update_session_time_.bind(value).bind(label).change();
  }
  bool update_interface(uint32_t label, uint32_t value) {
    return update_interface_.bind(value).bind(label).change();
  }

  Labels domain_method(uint8_t domain, uint8_t method) {
    return domain_method_.bind(kDomains[domain]).bind(kMethods[method]).all();
  }
  Labels interface_domain(uint32_t interface_id, uint8_t domain) {
    return interface_domain_.bind(interface_id).bind(kDomains[domain]).all();
  }
  Labels domain_interface(uint8_t domain, uint32_t interface_id) {
    return domain_interface_.bind(kDomains[domain]).bind(interface_id).all();
  }
  Labels all_labels() { return all_labels_.all(); }

  bool erase(uint32_t label) { return erase_.bind(label).change(); }

 private:
  struct Close {
    void operator()(sqlite3 *db) const { sqlite3_close_v2(db); }
  };

  std::unique_ptr<sqlite3, Close> db_;
  Statement create_, find_mac_, find_audit_, read_session_time_, read_interface_;
  Statement update_session_time_, update_interface_;
  Statement domain_method_, interface_domain_, domain_interface_, all_labels_, erase_;
};

}  // namespace

bool measure_sqlite(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet) {
  return run_scenario<SqlitePeer>(n, create_ns, sheet);
}

}  // namespace workload
