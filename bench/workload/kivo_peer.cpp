// The library itself, through its exported interface. A failed operation gives what absence gives;
// the check words tell.
#include <cstring>
#include <string_view>

#include "workload/kivo_store.h"
#include "workload/label_set.h"
#include "workload/peers.h"
#include "workload/scenario.h"

namespace workload {
namespace {

class KivoPeer {
 public:
  static constexpr clockid_t kClock = CLOCK_PROCESS_CPUTIME_ID;

  bool open() {
    db_ = open_database();
    return db_ != nullptr;
  }
  bool create(uint32_t label, const Session &session) {
    return create_session(db_, label, session);
  }

  uint32_t find_mac(const Mac &mac) { return find(AAA_ATTR_MAC_ADDRESS, mac); }
  uint32_t find_audit(const AuditId &id) { return find(AAA_ATTR_AUDIT_SESSION_ID, id); }

  uint32_t read_session_time(uint32_t label) { return read(label, AAA_ATTR_SESSION_TIME); }
  uint32_t read_interface(uint32_t label) { return read(label, AAA_ATTR_INTERFACE_ID); }

  bool update_session_time(uint32_t label, uint32_t value) {
    return update(label, AAA_ATTR_SESSION_TIME, value);
  }
  bool update_interface(uint32_t label, uint32_t value) {
    return update(label, AAA_ATTR_INTERFACE_ID, value);
  }

  LabelSet domain_method(uint8_t domain, uint8_t method) {
    return ask(text(AAA_ATTR_DOMAIN, kDomains[domain]), text(AAA_ATTR_METHOD, kMethods[method]));
  }
  LabelSet interface_domain(uint32_t interface_id, uint8_t domain) {
    return ask(word(AAA_ATTR_INTERFACE_ID, interface_id), text(AAA_ATTR_DOMAIN, kDomains[domain]));
  }
  LabelSet domain_interface(uint8_t domain, uint32_t interface_id) {
    return ask(text(AAA_ATTR_DOMAIN, kDomains[domain]), word(AAA_ATTR_INTERFACE_ID, interface_id));
  }

  LabelSet all_labels() {
    LabelSet all;
    uint32_t count = 0;
    kivo_get_session_list(db_, all.receive(), &count);
    return all;
  }

  bool erase(uint32_t label) { return kivo_delete_record(db_, label) == 0; }

 private:
  struct Condition {
    uint32_t type;
    const void *value;
    uint32_t length;
  };
  static Condition text(uint32_t type, std::string_view value) {
    return {type, value.data(), static_cast<uint32_t>(value.size())};
  }
  static Condition word(uint32_t type, const uint32_t &value) {
    return {type, &value, sizeof(value)};
  }

  template <typename Key>
  uint32_t find(uint32_t type, const Key &key) {
    uint32_t label = 0;
    kivo_match_label_by_attr(db_, type, key.data(), sizeof(key), &label);
    return label;
  }

  uint32_t read(uint32_t label, uint32_t type) {
    const void *stored = nullptr;
    uint32_t length = 0;
    uint32_t value = 0;
    if (kivo_get_attr(db_, label, nullptr, type, &stored, &length) == 0 &&
        length == sizeof(value)) {
      std::memcpy(&value, stored, sizeof(value));
    }
    return value;
  }

  bool update(uint32_t label, uint32_t type, uint32_t value) {
    return kivo_add_or_update_attr(db_, label, nullptr, type, &value, sizeof(value)) == 0;
  }

  LabelSet ask(const Condition &first, const Condition &second) {
    LabelSet answer;
    kivo_maqi query;
    uint32_t flag = 0;
    uint32_t count = 0;
    if (kivo_start_multi_attr_query(db_, &query) == 0 &&
        kivo_add_attr_to_query(&query, first.type, first.value, first.length, &flag) == 0 &&
        kivo_add_attr_to_query(&query, second.type, second.value, second.length, &flag) == 0) {
      kivo_get_matches_for_query(&query, answer.receive(), &count);
    }
    return answer;
  }

  kivo_db *db_ = nullptr;
};

}  // namespace

bool measure_kivo(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet) {
  return run_scenario<KivoPeer>(n, create_ns, sheet);
}

}  // namespace workload
