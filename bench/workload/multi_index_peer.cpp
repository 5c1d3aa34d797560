// Boost.MultiIndex over a struct of fixed size, with a hashed index on the label and on each of the
// seven indexed attributes. What no index looks at may be written in place; a shared key changes by
// extraction and insertion, for modify() is linear in the number of elements that share it.
#include <absl/hash/hash.h>

#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index_container.hpp>
#include <utility>

#include "workload/peers.h"
#include "workload/scenario.h"

namespace workload {
namespace {

struct Labelled : Session {
  Labelled(uint32_t its_label, const Session &session) : Session(session), label(its_label) {}
  uint32_t label;
};

namespace mi = boost::multi_index;
template <typename Key, Key Session::*key>
using ByUnique = mi::hashed_unique<mi::member<Session, Key, key>, absl::Hash<Key>>;
template <typename Key, Key Session::*key>
using ByShared = mi::hashed_non_unique<mi::member<Session, Key, key>, absl::Hash<Key>>;

enum { kByLabel, kByMac, kByAudit, kByIpv4, kBySession, kByInterface, kByDomain, kByMethod };
using Container = mi::multi_index_container<
    Labelled,
    mi::indexed_by<
        mi::hashed_unique<mi::member<Labelled, uint32_t, &Labelled::label>, absl::Hash<uint32_t>>,
        ByUnique<Mac, &Session::mac>, ByUnique<AuditId, &Session::audit_id>,
        ByUnique<uint32_t, &Session::ipv4>, ByUnique<uint32_t, &Session::session_id>,
        ByShared<uint32_t, &Session::interface_id>, ByShared<uint8_t, &Session::domain>,
        ByShared<uint8_t, &Session::method>>>;

class MultiIndexPeer {
 public:
  static constexpr clockid_t kClock = CLOCK_PROCESS_CPUTIME_ID;

  bool open() { return true; }
  bool create(uint32_t label, const Session &session) {
    return sessions_.emplace(label, session).second;
  }

  uint32_t find_mac(const Mac &mac) { return find<kByMac>(mac); }
  uint32_t find_audit(const AuditId &id) { return find<kByAudit>(id); }

  uint32_t read_session_time(uint32_t label) {
    const auto found = sessions_.find(label);
    return found != sessions_.end() ? found->session_time : 0;
  }
  uint32_t read_interface(uint32_t label) {
    const auto found = sessions_.find(label);
    return found != sessions_.end() ? found->interface_id : 0;
  }

  bool update_session_time(uint32_t label, uint32_t value) {
    const auto found = sessions_.find(label);
    if (found == sessions_.end()) return false;
    const_cast<Labelled &>(*found).session_time = value;
    return true;
  }
  bool update_interface(uint32_t label, uint32_t value) {
    const auto found = sessions_.find(label);
    if (found == sessions_.end()) return false;
    if (found->interface_id == value) return true;
    auto node = sessions_.extract(found);
    node.value().interface_id = value;
    return sessions_.insert(std::move(node)).inserted;
  }

  // The first condition through its index, the second tested per element.
  Labels domain_method(uint8_t domain, uint8_t method) {
    return collect<kByDomain>(domain, [&](const Session &one) { return one.method == method; });
  }
  Labels interface_domain(uint32_t interface_id, uint8_t domain) {
    return collect<kByInterface>(interface_id,
                                 [&](const Session &one) { return one.domain == domain; });
  }
  Labels domain_interface(uint8_t domain, uint32_t interface_id) {
    return collect<kByDomain>(domain,
                              [&](const Session &one) { return one.interface_id == interface_id; });
  }

  Labels all_labels() {
    Labels labels;
    labels.reserve(sessions_.size());
    for (const Labelled &session : sessions_) labels.push_back(session.label);
    return labels;
  }

  bool erase(uint32_t label) { return sessions_.erase(label) == 1; }

 private:
  template <int index, typename Key>
  uint32_t find(const Key &key) {
    const auto &sessions = sessions_.get<index>();
    const auto found = sessions.find(key);
    return found != sessions.end() ? found->label : 0;
  }

  template <int index, typename Key, typename Meets>
  Labels collect(const Key &key, Meets &&meets) {
    Labels labels;
    const auto [begin, end] = sessions_.get<index>().equal_range(key);
    for (auto it = begin; it != end; ++it) {
      if (meets(*it)) labels.push_back(it->label);
    }
    return labels;
  }

  Container sessions_;
};

}  // namespace

bool measure_multi_index(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet) {
  return run_scenario<MultiIndexPeer>(n, create_ns, sheet);
}

}  // namespace workload
