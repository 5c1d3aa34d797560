// Which names of access servers belong together. A server has an address and an identifier, and its
// records name one of them or both. Two that came in one record are one server's, unless either
// came with another as well: several identifiers behind one address are ordinary, and so is one
// identifier in several places.
// Invariant: a name whose past is not known, since it was forgotten while it had sessions, belongs
// to no other; so memory has a bound, and nobody gains by filling it. Threads: none.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>

#include "keyed_hash.h"

namespace kivod {

class ServerNames {
 public:
  // Of the names used last at least this many are remembered, and at most twice as many.
  static constexpr size_t kRemembered = 32768;

  // Learns from a record. Either name may be empty.
  // has_sessions  whether a session is live under a name; asked of names that are not remembered.
  // Throws std::bad_alloc; what was remembered of the two may be lost then. Cost: two look-ups.
  void learn(const std::string &address, const std::string &identifier,
             const std::function<bool(const std::string &name)> &has_sessions);

  // The one name that came with this one; empty when none did, several did or its past is unknown.
  [[nodiscard]] std::string only_other(const std::string &name) const;

  // The server's other name, when it has one for sure: each of the two is the other's only one.
  [[nodiscard]] std::string second_name(const std::string &name) const;

  [[nodiscard]] size_t size() const noexcept { return young_.size() + old_.size(); }

 private:
  struct Entry {
    std::string other;  // empty before one came, and when `is_unsure`
    bool is_unsure;     // several came, or what came before is not known
  };
  using Entries = std::unordered_map<std::string, Entry, KeyedHash>;

  Entry &entry_of(const std::string &name,
                  const std::function<bool(const std::string &name)> &has_sessions);

  // What was used since the last change of generations, and what was only before it.
  Entries young_;
  Entries old_;
};

}  // namespace kivod
