// See server_names.h.
#include "server_names.h"

#include <utility>

namespace kivod {

void ServerNames::learn(const std::string &address, const std::string &identifier,
                        const std::function<bool(const std::string &name)> &has_sessions) {
  const auto join = [&](const std::string &name, const std::string &other) {
    if (name.empty()) return;
    Entry &entry = entry_of(name, has_sessions);
    if (entry.is_unsure || other.empty() || entry.other == other) return;
    entry.is_unsure = !entry.other.empty();
    entry.other = entry.is_unsure ? std::string() : other;
  };
  join(address, identifier);
  join(identifier, address);
}

ServerNames::Entry &ServerNames::entry_of(
    const std::string &name, const std::function<bool(const std::string &name)> &has_sessions) {
  if (const auto found = young_.find(name); found != young_.end()) return found->second;
  auto node = old_.extract(name);
  if (young_.size() == kRemembered) {
    old_.clear();
    std::swap(young_, old_);
  }
  if (node) return young_.insert(std::move(node)).position->second;
  return young_.emplace(name, Entry{{}, has_sessions(name)}).first->second;
}

std::string ServerNames::only_other(const std::string &name) const {
  for (const Entries *entries : {&young_, &old_}) {
    if (const auto found = entries->find(name); found != entries->end()) return found->second.other;
  }
  return {};
}

std::string ServerNames::second_name(const std::string &name) const {
  std::string other = only_other(name);
  return other.empty() || only_other(other) != name ? std::string() : other;
}

}  // namespace kivod
