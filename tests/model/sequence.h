// One random sequence: both sides, the source of chance, and what operations are made of (labels,
// types, values that are likely to be there or not). Each operation goes through both(), which
// compares the answers and everything that was announced; the first disagreement is kept.
#pragma once

#include <map>
#include <random>

#include "model/library_sessions.h"
#include "model/plain_sessions.h"

namespace kivo_model {

class Sequence {
 public:
  explicit Sequence(uint32_t seed) : random_(seed) {}

  // Performs an operation on both sides. The answer is the model's.
  template <typename Operation>
  Answer both(Operation &&operation) {
    const uint64_t changes = plain_.changes();
    const Answer got = operation(static_cast<Sessions &>(library_));
    const Answer expected = operation(static_cast<Sessions &>(plain_));
    compare(got, expected);
    changed_ = plain_.changes() != changes;
    return expected;
  }
  // Whether the last operation, or a callback under it, changed the model.
  [[nodiscard]] bool changed() const { return changed_; }

  // The first disagreement, empty so far.
  [[nodiscard]] const std::string &failure() const { return failure_; }
  // How often callbacks ran and what they did.
  [[nodiscard]] const std::map<std::string_view, uint32_t> &events() const { return events_; }

  [[nodiscard]] const PlainSessions &plain() const { return plain_; }
  [[nodiscard]] LibrarySessions &library() { return library_; }

  // Steers the number of live records.
  void set_target(size_t target) { target_ = target; }
  [[nodiscard]] bool is_below_target() const { return plain_.records().size() < target_; }

  // The record that most conditions of a query are taken from; it may have gone.
  uint32_t &query_basis(uint32_t query) { return query_bases_[query]; }

  uint32_t below(uint32_t n) { return static_cast<uint32_t>(random_() % n); }
  bool chance(uint32_t percent) { return below(100) < percent; }
  uint32_t database();     // now and then none
  uint32_t pool_label();   // whether or not there is such a record
  uint32_t live_label();   // of a record
  uint32_t label();        // mostly live, now and then 0
  Target target();         // named in any way
  uint32_t type();         // now and then 0 or unsupported
  uint32_t stored_type();  // of the dictionary
  Bytes value(uint32_t type);
  Attr attr();  // any
  // One that the record has, if it has any: of the preferred type, if it has that.
  Attr attr_of(uint32_t label, uint32_t preferred_type = 0);
  ListArg list(bool may_be_empty);  // now and then a stale or null handle
  ListArg list_of(uint32_t label);  // of attributes that the record has

 private:
  void compare(const Answer &got, const Answer &expected);
  Bytes addresses(uint32_t vocabulary);

  LibrarySessions library_;
  PlainSessions plain_;
  std::mt19937 random_;
  size_t target_ = 0;
  bool changed_ = false;
  uint32_t query_bases_[kQueries] = {};
  std::string failure_;
  std::map<std::string_view, uint32_t> events_;
};

}  // namespace kivo_model
