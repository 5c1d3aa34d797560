// What rows start from, made anew for each: two databases, thirteen sessions called ann of which
// nine have an address, one with everything; and what of all that has changed since, in words.
// Also the rows themselves: a call, what fails in it, and its outcome; see world.cpp.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <span>
#include <string>

#include "support/console_capture.h"
#include "support/process.h"

namespace kivo_test {

constexpr uint32_t kSession = 7;  // the label of the session that has everything
constexpr uint32_t kNobody = 8;   // a label without a record
constexpr uint32_t kUser = 1, kAddress = 8, kEthernet = 9, kAddresses = 10, kId = 11, kStart = 12;
constexpr uint32_t kDevice = 1126;
constexpr const char *kAuditId = "0a0b0c0d0000000112345678";
inline const std::string kHome{"\xc0\x00\x02\x01", 4};  // 192.0.2.1
inline const std::string kAway{"\xc0\x00\x02\x02", 4};

// An external identity's value: its subtype, then text.
std::string identity(uint16_t subtype, const std::string &text);

class World {
 public:
  World();
  ~World();
  World(const World &) = delete;
  World &operator=(const World &) = delete;

  // What is not as at first: values as "1=bob", identities, who heard of it ("heard:1/1,8/2": type
  // and action), what was put into said, what the console shows ("console:").
  std::string changes();
  void begin_anew();  // changes() tells what comes from here on

  // Straight into the first session's record, or another's: nobody is told.
  void put(uint32_t type, const std::string &value, uint32_t label = kSession);
  void put_identity(uint16_t subtype, const std::string &text);
  uint32_t say(const std::string &what, uint32_t status = 0);

  // Operations with outputs, which are said, also when they are left alone ("-").
  uint32_t recreate(uint32_t client, const char *name, const char *owner,
                    std::initializer_list<kivo_attr_config> rows, uint32_t flags = 1);
  uint32_t entry(uint32_t type, kivo_db *of);
  uint32_t record_by(const std::function<uint32_t(attrdb_record **)> &call);
  uint32_t fetch(kivo_db *of, uint32_t label) {
    return record_by([=](auto **out) { return kivo_get_record(of, label, out); });
  }
  uint32_t record_of(kivo_db *of, const char *name) {
    return record_by(
        [=](auto **out) { return kivo_match_record_by_attr(of, kUser, name, 3, out); });
  }
  uint32_t labels(kivo_db *of, const char *name);
  uint32_t label(const char *name);
  uint32_t merge(attrdb_record *from);
  uint32_t update(kivo_db *of, uint32_t label, uint32_t type, const std::string &value);
  uint32_t read(kivo_db *of, uint32_t label, uint32_t type);
  uint32_t read_from(attrdb_record *from, uint32_t type);
  uint32_t identity_write(shadowdb_rec *to, uint32_t index, const std::string *value);
  uint32_t start(kivo_db *of);
  uint32_t add(uint32_t type);  // the value that the first session has; "x" where it has none
  // Any call that hands out a label set and counts it.
  uint32_t list_of(const std::function<uint32_t(kivo_index_list **, uint32_t *)> &call);
  uint32_t intersect(const kivo_index_list *a, const kivo_index_list *b) {
    return list_of([=](auto **out, uint32_t *n) {
      const uint32_t status = kivo_index_list_intersection(a, b, out);
      if (kivo_index_list_size(*out, n) != 0) *n = 0;
      return status;
    });
  }
  uint32_t take() {
    return list_of(
        [&](auto **out, uint32_t *n) { return kivo_get_matches_for_query(&query, out, n); });
  }
  uint32_t match(kivo_db *of, uint32_t attrs) {
    return list_of(
        [=](auto **out, uint32_t *n) { return kivo_match_sessions_from_list(of, attrs, out, n); });
  }
  uint32_t all(kivo_db *of) {
    return list_of([=](auto **out, uint32_t *n) { return kivo_get_session_list(of, out, n); });
  }
  uint32_t show(uint32_t command, const void *filter = nullptr);

  kivo_db *db = nullptr;
  attrdb_record *record = nullptr;
  shadowdb_rec *shadow = nullptr;  // of the first session
  shadowdb_rec *fresh = nullptr;   // of nobody; nothing was ever written to it
  AttrList list;                   // user bob, session id s-2, address away
  AttrList ids;                    // user bob, device identity 6y, address away
  AttrList none;
  kivo_index_list *nothing = nullptr, *twelve = nullptr, *thirteen = nullptr;  // labels from 1 on
  kivo_maqi query = {};

 private:
  std::string state();

  ConsoleCapture console_;
  std::string first_;
  std::string said_;
};

struct Row {
  const char *text;  // of the call
  std::function<uint32_t(World &)> call;
  // "operation", "operation#3" (the third call of it), "operation=beef" (with that status), several
  // behind each other; "!operation" must not be reached.
  const char *faults;
  const char *outcome;                            // "status: traces", see TraceWords
  std::string changes = {};                       // see World
  const char *may = nullptr;                      // swept; the statuses that a fault may give
  std::function<void(World &)> before = nullptr;  // what it does is no change
};
#define CALL(...) #__VA_ARGS__, [](World & w) -> uint32_t { return (void)w, __VA_ARGS__; }

// Runs every row in a world of its own: status, traces and changes are as said, and nothing leaks.
// Rows that may be swept are run again with the first, second, ... platform call failing: the
// status is one that may be, nothing leaks, what has changed is part of what changes without a
// fault (unless "*" is among the statuses), and the same call again then does the rest.
void run_rows(std::span<const Row> rows);

}  // namespace kivo_test
