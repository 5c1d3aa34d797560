// The workload on one peer: filled once, asked, updated, emptied by half. Each peer's file makes an
// instance of run_scenario() for its class, so that the loops are the peer's own and no virtual
// call stands in them. All peers do the same steps with the same keys in the same order.
//
// A peer is a class with
//   kClock                               the clock that its times come from
//   open(), create(label, session)       all return whether they worked
//   find_mac, find_audit                 the label, 0 for none
//   read_session_time, read_interface    by label
//   update_session_time, update_interface
//   erase(label)
//   domain_method, interface_domain, domain_interface, all_labels
//                                        the labels, in a type that has labels()
//   resident_bytes()                     only of a peer that keeps the sessions in another process
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <span>
#include <vector>

#include "workload/clock.h"
#include "workload/data.h"
#include "workload/sheet.h"

namespace workload {

// Peers whose queries collect into a vector have this for their answers.
class Labels : public std::vector<uint32_t> {
 public:
  [[nodiscard]] const std::vector<uint32_t> &labels() const { return *this; }
};

struct Wanted {
  uint32_t interface_id;
  uint8_t domain;
  uint8_t method;
};

template <typename Peer>
class Scenario {
 public:
  Scenario(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet)
      : n_(n), sessions_(make_sessions(n)), create_ns_(create_ns), sheet_(sheet) {}

  // Gives false when the peer refused something that it should do.
  bool run() {
    if (!fill()) return false;
    look_up();
    read();
    query();
    list();
    return update() && erase();
  }

 private:
  static constexpr clockid_t kClock = Peer::kClock;
  static constexpr uint32_t kStepsMin = 100'000;
  static constexpr uint32_t kStepsMax = 1'000'000;
  static constexpr uint32_t kCheckedInterfaces = 500;

  [[nodiscard]] uint32_t steps() const { return std::clamp(n_, kStepsMin, kStepsMax); }

  // Creations are timed as a whole, and one by one for the longest of them. The times lie in memory
  // that is there before, so that they are no part of the growth.
  bool fill() {
    std::vector<uint64_t> ns(n_, UINT64_MAX);
    if (!peer_.open()) return false;
    const double resident_before = resident();
    bool created = true;
    const double total_ns = ns_of(kClock, [&] {
      double before = now_ns(CLOCK_MONOTONIC);
      for (uint32_t number = 0; number < n_ && created; ++number) {
        created = peer_.create(label_of(number), sessions_[number]);
        const double after = now_ns(CLOCK_MONOTONIC);
        ns[number] = static_cast<uint64_t>(after - before);
        before = after;
      }
    });
    if (!created) return false;
    sheet_.set(Op::kCreate, total_ns / n_);
    sheet_.set(Op::kMemory, (resident() - resident_before) / n_);
    for (uint32_t number = 0; number < n_; ++number) {
      create_ns_[number] = std::min(create_ns_[number], ns[number]);
    }
    return true;
  }

  // Of the process that holds the sessions.
  [[nodiscard]] double resident() const {
    if constexpr (requires { peer_.resident_bytes(); }) {
      return peer_.resident_bytes();
    } else {
      return resident_bytes_of("self");
    }
  }

  void look_up() {
    chain(Op::kMac, [this](uint32_t number) { return peer_.find_mac(mac_of(number)); });
    chain(Op::kAudit, [this](uint32_t number) { return peer_.find_audit(audit_id_of(number)); });
  }

  void read() {
    chain(Op::kRead, [this](uint32_t number) { return peer_.read_session_time(label_of(number)); });
  }

  // Dependent steps: the result of one draws the number of the next.
  template <typename Find>
  void chain(Op op, Find &&find) {
    OrderedCheck check;
    uint32_t number = n_ / 2;
    const double ns = ns_of(kClock, [&] {
      for (uint32_t step = 0; step < steps(); ++step) {
        const uint32_t result = find(number);
        check.add(result);
        number = next_number(result, step, n_);
      }
    });
    sheet_.set(op, ns / steps());
    sheet_.set_check(op, check.word());
  }

  // ---- Queries. A walk over many labels is asked seldom, one over few often. ----

  [[nodiscard]] uint32_t many() const { return std::clamp(4'000'000 / n_, 8u, 400u); }
  [[nodiscard]] uint32_t few() const { return std::min(n_, 20'000u); }

  void query() {
    ask(Op::kDomainMethod, many(),
        [this](const Wanted &wanted) { return peer_.domain_method(wanted.domain, wanted.method); });
    ask(Op::kInterfaceDomain, few(), [this](const Wanted &wanted) {
      return peer_.interface_domain(wanted.interface_id, wanted.domain);
    });
    ask(Op::kDomainInterface, many(), [this](const Wanted &wanted) {
      return peer_.domain_interface(wanted.domain, wanted.interface_id);
    });
    const double first_set = static_cast<double>(n_) / std::size(kDomains);
    sheet_.set(Op::kDomainInterfaceLabel, sheet_.value(Op::kDomainInterface) * 1000 / first_set);
  }

  template <typename Ask>
  void ask(Op op, uint32_t questions, Ask &&ask_peer) {
    const std::vector<Wanted> wanted = draw_questions(questions);
    const double ns = ns_of(kClock, [&] {
      for (const Wanted &one : wanted) {
        const auto answer = ask_peer(one);
        keep(answer);
      }
    });
    sheet_.set(op, ns / questions / 1000);
    OrderedCheck check;
    for (const Wanted &one : wanted) check.add(check_of(ask_peer(one).labels()));
    sheet_.set_check(op, check.word());
  }

  // What some sessions have, so that each question has an answer.
  [[nodiscard]] std::vector<Wanted> draw_questions(uint32_t questions) const {
    std::vector<Wanted> wanted;
    for (uint32_t i = 0; i < questions; ++i) {
      const Session &session = sessions_[next_number(i, 0, n_)];
      wanted.push_back({session.interface_id, session.domain, session.method});
    }
    return wanted;
  }

  // Gathered anew each time; giving the labels back is not part of it.
  void list() {
    sheet_.set_check(Op::kLabels, check_of(peer_.all_labels().labels()));
    double ns = 0;
    for (uint32_t i = 0; i < many(); ++i) {
      const double before = now_ns(kClock);
      const auto all = peer_.all_labels();
      ns += now_ns(kClock) - before;
      keep(all);
    }
    sheet_.set(Op::kLabels, ns / many() / n_);
  }

  // ---- Changes ----

  bool update() {
    change(Op::kUpdate, [this](uint32_t number, uint32_t value) {
      return peer_.update_session_time(label_of(number), value);
    });
    OrderedCheck values;
    for (uint32_t number = 0; number < n_; ++number) {
      values.add(peer_.read_session_time(label_of(number)));
    }
    sheet_.set_check(Op::kUpdate, values.word());

    change(Op::kUpdateInterface, [this](uint32_t number, uint32_t value) {
      return peer_.update_interface(label_of(number), value % interfaces_of(n_) + 1);
    });
    sheet_.set_check(Op::kUpdateInterface, check_interfaces());
    return all_changed_;
  }

  template <typename Change>
  void change(Op op, Change &&change_one) {
    const double ns = ns_of(kClock, [&] {
      for (uint32_t step = 0; step < steps(); ++step) {
        all_changed_ &= change_one(next_number(step, 1, n_), mix(step));
      }
    });
    sheet_.set(op, ns / steps());
  }

  // The interfaces as the sessions have them, and as their index has them.
  uint64_t check_interfaces() {
    OrderedCheck check;
    for (uint32_t number = 0; number < n_; ++number) {
      check.add(peer_.read_interface(label_of(number)));
    }
    for (uint32_t i = 0; i < std::min(kCheckedInterfaces, interfaces_of(n_)); ++i) {
      for (uint8_t domain = 0; domain < std::size(kDomains); ++domain) {
        check.add(check_of(peer_.interface_domain(i + 1, domain).labels()));
      }
    }
    return check.word();
  }

  // Half of them, in an order of its own; then the other half is there and those are not.
  bool erase() {
    std::vector<uint32_t> numbers = shuffled_numbers(n_, 11);
    numbers.resize(n_ / 2);
    bool erased = true;
    const double ns = ns_of(kClock, [&] {
      for (const uint32_t number : numbers) erased &= peer_.erase(label_of(number));
    });
    sheet_.set(Op::kDelete, ns / static_cast<double>(numbers.size()));
    OrderedCheck check;
    check.add(check_of(peer_.all_labels().labels()));
    for (uint32_t number = 0; number < n_; ++number) {
      check.add(peer_.find_mac(mac_of(number)));
      check.add(peer_.find_audit(audit_id_of(number)));
    }
    check.add(check_of(peer_.domain_method(0, 0).labels()));
    check.add(check_of(peer_.interface_domain(1, 0).labels()));
    sheet_.set_check(Op::kDelete, check.word());
    return erased;
  }

  uint32_t n_;
  std::vector<Session> sessions_;
  std::span<uint64_t> create_ns_;
  Sheet &sheet_;
  Peer peer_;
  bool all_changed_ = true;
};

template <typename Peer>
bool run_scenario(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet) {
  return Scenario<Peer>(n, create_ns, sheet).run();
}

}  // namespace workload
