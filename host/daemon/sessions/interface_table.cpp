// See interface_table.h.
#include "interface_table.h"

namespace kivod {

// Numbers go round; 0 is none.
uint32_t InterfaceTable::unused_id() noexcept {
  do {
    ++last_id_;
  } while (last_id_ == 0 || by_id_.contains(last_id_));
  return last_id_;
}

uint32_t InterfaceTable::enter(const std::string &key) {
  if (const auto known = by_key_.find(key); known != by_key_.end()) {
    ++by_id_.at(known->second).n_sessions;
    return known->second;
  }
  const uint32_t id = unused_id();
  const auto entry = by_key_.emplace(key, id).first;
  try {
    by_id_.emplace(id, Interface{&entry->first, 1});
  } catch (...) {
    by_key_.erase(entry);
    throw;
  }
  return id;
}

void InterfaceTable::leave(uint32_t id) noexcept {
  const auto entry = by_id_.find(id);
  if (entry == by_id_.end() || --entry->second.n_sessions != 0) return;
  by_key_.erase(by_key_.find(*entry->second.key));
  by_id_.erase(entry);
}

}  // namespace kivod
