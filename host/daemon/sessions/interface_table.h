// Numbers of the interfaces that sessions are on: one for each pair of access server and port, as
// long as a session is on it. The session table counts sessions in and out. Peers choose the ports'
// names and, by what they let end, which numbers stay: both are found under a keyed hash.
// Threads: none.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "keyed_hash.h"

namespace kivod {

class InterfaceTable {
 public:
  // The number of an interface, a new one when no session is on it; counts one session in.
  // key  access server and port, unambiguous among all.
  // Throws std::bad_alloc, nothing changed then.
  uint32_t enter(const std::string &key);

  // Counts one session out; the number is forgotten with the last. 0 and unknown numbers are
  // ignored.
  void leave(uint32_t id) noexcept;

  [[nodiscard]] size_t size() const noexcept { return by_key_.size(); }

 private:
  struct Interface {
    const std::string *key;  // in by_key_
    uint32_t n_sessions;
  };

  uint32_t unused_id() noexcept;

  std::unordered_map<std::string, uint32_t, KeyedHash> by_key_;
  std::unordered_map<uint32_t, Interface, KeyedHash> by_id_;
  uint32_t last_id_ = 0;
};

}  // namespace kivod
