// What a careful programmer writes for these seven attributes and no others: sessions in an array,
// an Abseil map from label to the place in it and one from each unique key to the label, a bitmap
// over the places for each domain and each method, and the places of each interface in a small
// vector.
#include <absl/container/flat_hash_map.h>
#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

#include "workload/peers.h"
#include "workload/scenario.h"

namespace workload {
namespace {

using Place = uint32_t;

class Bitmap {
 public:
  void set(Place place) {
    if (place / 64 >= words_.size()) words_.resize(place / 64 + 1);
    words_[place / 64] |= uint64_t{1} << place % 64;
  }
  void clear(Place place) { words_[place / 64] &= ~(uint64_t{1} << place % 64); }
  [[nodiscard]] bool has(Place place) const {
    return place / 64 < words_.size() && (words_[place / 64] >> place % 64 & 1) != 0;
  }

  // Calls visit for each place that both have.
  template <typename Visit>
  static void visit_common(const Bitmap &a, const Bitmap &b, Visit &&visit) {
    const size_t n = std::min(a.words_.size(), b.words_.size());
    for (size_t i = 0; i < n; ++i) {
      for (uint64_t left = a.words_[i] & b.words_[i]; left != 0; left &= left - 1) {
        visit(static_cast<Place>(i * 64 + static_cast<size_t>(std::countr_zero(left))));
      }
    }
  }

 private:
  std::vector<uint64_t> words_;
};

class ByHandPeer {
 public:
  static constexpr clockid_t kClock = CLOCK_PROCESS_CPUTIME_ID;

  bool open() { return true; }

  bool create(uint32_t label, const Session &session) {
    const auto place = static_cast<Place>(sessions_.size());
    if (!by_label_.emplace(label, place).second) return false;
    by_mac_.emplace(session.mac, label);
    by_audit_.emplace(session.audit_id, label);
    by_ipv4_.emplace(session.ipv4, label);
    by_session_.emplace(session.session_id, label);
    by_interface_[session.interface_id].push_back(place);
    domains_[session.domain].set(place);
    methods_[session.method].set(place);
    sessions_.push_back(session);
    labels_.push_back(label);
    return true;
  }

  uint32_t find_mac(const Mac &mac) { return find(by_mac_, mac); }
  uint32_t find_audit(const AuditId &id) { return find(by_audit_, id); }

  uint32_t read_session_time(uint32_t label) {
    const Session *session = session_of(label);
    return session != nullptr ? session->session_time : 0;
  }
  uint32_t read_interface(uint32_t label) {
    const Session *session = session_of(label);
    return session != nullptr ? session->interface_id : 0;
  }

  bool update_session_time(uint32_t label, uint32_t value) {
    Session *session = session_of(label);
    if (session == nullptr) return false;
    session->session_time = value;
    return true;
  }
  bool update_interface(uint32_t label, uint32_t value) {
    const auto found = by_label_.find(label);
    if (found == by_label_.end()) return false;
    uint32_t &interface_id = sessions_[found->second].interface_id;
    if (interface_id == value) return true;
    leave_interface(interface_id, found->second);
    by_interface_[value].push_back(found->second);
    interface_id = value;
    return true;
  }

  Labels domain_method(uint8_t domain, uint8_t method) {
    Labels labels;
    Bitmap::visit_common(domains_[domain], methods_[method],
                         [&](Place place) { labels.push_back(labels_[place]); });
    return labels;
  }
  Labels interface_domain(uint32_t interface_id, uint8_t domain) {
    Labels labels;
    const auto found = by_interface_.find(interface_id);
    if (found == by_interface_.end()) return labels;
    for (const Place place : found->second) {
      if (domains_[domain].has(place)) labels.push_back(labels_[place]);
    }
    return labels;
  }
  Labels domain_interface(uint8_t domain, uint32_t interface_id) {
    return interface_domain(interface_id, domain);
  }

  // A place that was given up has label 0.
  Labels all_labels() {
    Labels labels;
    labels.reserve(by_label_.size());
    std::copy_if(labels_.begin(), labels_.end(), std::back_inserter(labels),
                 [](uint32_t label) { return label != 0; });
    return labels;
  }

  bool erase(uint32_t label) {
    const auto found = by_label_.find(label);
    if (found == by_label_.end()) return false;
    const Place place = found->second;
    const Session &session = sessions_[place];
    by_mac_.erase(session.mac);
    by_audit_.erase(session.audit_id);
    by_ipv4_.erase(session.ipv4);
    by_session_.erase(session.session_id);
    leave_interface(session.interface_id, place);
    domains_[session.domain].clear(place);
    methods_[session.method].clear(place);
    labels_[place] = 0;
    by_label_.erase(found);
    return true;
  }

 private:
  template <typename Map, typename Key>
  static uint32_t find(const Map &map, const Key &key) {
    const auto found = map.find(key);
    return found != map.end() ? found->second : 0;
  }

  Session *session_of(uint32_t label) {
    const auto found = by_label_.find(label);
    return found != by_label_.end() ? &sessions_[found->second] : nullptr;
  }

  void leave_interface(uint32_t interface_id, Place place) {
    const auto found = by_interface_.find(interface_id);
    auto &places = found->second;
    *std::find(places.begin(), places.end(), place) = places.back();
    places.pop_back();
    if (places.empty()) by_interface_.erase(found);
  }

  std::vector<Session> sessions_;
  std::vector<uint32_t> labels_;
  absl::flat_hash_map<uint32_t, Place> by_label_;
  absl::flat_hash_map<Mac, uint32_t> by_mac_;
  absl::flat_hash_map<AuditId, uint32_t> by_audit_;
  absl::flat_hash_map<uint32_t, uint32_t> by_ipv4_;
  absl::flat_hash_map<uint32_t, uint32_t> by_session_;
  absl::flat_hash_map<uint32_t, absl::InlinedVector<Place, 4>> by_interface_;
  std::array<Bitmap, std::size(kDomains)> domains_;
  std::array<Bitmap, std::size(kMethods)> methods_;
};

}  // namespace

bool measure_by_hand(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet) {
  return run_scenario<ByHandPeer>(n, create_ns, sheet);
}

}  // namespace workload
