// Queries of two conditions beside what a C++ program would do with containers of its own: an
// eighth of all sessions by their domain and a quarter by their method, with a thirty-second of
// them as the result, and 48 sessions of one interface, of which six are of the domain. Every
// answer is compared with the peers' before anything is measured.
//
// Usage: query_bench [--records=1000000] [--rounds=3] [Google Benchmark's flags]
#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index_container.hpp>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "kivo/kivo.h"
#include "support/rounds.h"
#include "support/sessions.h"

namespace {

using Labels = std::vector<uint32_t>;

// What is asked: two conditions, in this order, on the session of the middle number.
enum class Question { kDomainMethod, kInterfaceDomain, kDomainInterface };

struct Wanted {
  uint8_t domain;
  uint8_t method;
  uint32_t interface_id;
};

struct Labelled {
  uint32_t label;
  uint8_t domain;
  uint8_t method;
  uint32_t interface_id;
};

namespace mi = boost::multi_index;
using MultiIndex = mi::multi_index_container<
    Labelled,
    mi::indexed_by<mi::hashed_unique<mi::member<Labelled, uint32_t, &Labelled::label>>,
                   mi::hashed_non_unique<mi::member<Labelled, uint8_t, &Labelled::domain>>,
                   mi::hashed_non_unique<mi::member<Labelled, uint32_t, &Labelled::interface_id>>>>;

// The first condition through an index, the second tested per element.
Labels ask_multi_index(const MultiIndex &peer, Question question, const Wanted &wanted) {
  Labels labels;
  if (question == Question::kInterfaceDomain) {
    const auto [begin, end] = peer.get<2>().equal_range(wanted.interface_id);
    for (auto it = begin; it != end; ++it) {
      if (it->domain == wanted.domain) labels.push_back(it->label);
    }
    return labels;
  }
  const auto [begin, end] = peer.get<1>().equal_range(wanted.domain);
  for (auto it = begin; it != end; ++it) {
    const bool meets = question == Question::kDomainMethod
                           ? it->method == wanted.method
                           : it->interface_id == wanted.interface_id;
    if (meets) labels.push_back(it->label);
  }
  return labels;
}

// By hand: ascending labels behind each value, merged.
struct ByHand {
  absl::flat_hash_map<uint8_t, Labels> domains, methods;
  absl::flat_hash_map<uint32_t, Labels> interfaces;

  void sort() {
    for (auto *map : {&domains, &methods}) {
      for (auto &[value, labels] : *map) std::ranges::sort(labels);
    }
    for (auto &[value, labels] : interfaces) std::ranges::sort(labels);
  }
};

Labels ask_by_hand(const ByHand &peer, Question question, const Wanted &wanted) {
  const Labels &first = peer.domains.at(wanted.domain);
  const Labels &second = question == Question::kDomainMethod
                             ? peer.methods.at(wanted.method)
                             : peer.interfaces.at(wanted.interface_id);
  Labels labels;
  std::ranges::set_intersection(first, second, std::back_inserter(labels));
  return labels;
}

struct Value {
  uint32_t type;
  const void *bytes;
  uint32_t size;
};

// A list of its own for the caller, null when the query failed or found nothing.
kivo_index_list *ask_kivo(kivo_db *db, const Value &first, const Value &second) {
  kivo_maqi query;
  uint32_t flag = 0;
  uint32_t count = 0;
  kivo_index_list *list = nullptr;
  if (kivo_start_multi_attr_query(db, &query) != 0 ||
      kivo_add_attr_to_query(&query, first.type, first.bytes, first.size, &flag) != 0 ||
      kivo_add_attr_to_query(&query, second.type, second.bytes, second.size, &flag) != 0 ||
      kivo_get_matches_for_query(&query, &list, &count) != 0) {
    return nullptr;
  }
  return list;
}

Labels labels_of(const kivo_index_list *list) {
  Labels labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
  return labels;
}

class Queries {
 public:
  explicit Queries(uint64_t n) : n_(n) {}

  bool fill() {
    db_ = bench::open_database();
    const Labels labels = bench::make_labels(n_);
    for (uint32_t number = 0; number < n_; ++number) {
      const bench::Session session = bench::make_session(number);
      const uint32_t label = labels[number];
      if (db_ == nullptr || !bench::create(db_, label, session)) return false;
      multi_index_.insert({label, session.domain, session.method, session.interface_id});
      by_hand_.domains[session.domain].push_back(label);
      by_hand_.methods[session.method].push_back(label);
      by_hand_.interfaces[session.interface_id].push_back(label);
    }
    by_hand_.sort();
    const bench::Session middle = bench::make_session(static_cast<uint32_t>(n_ / 2));
    wanted_ = {middle.domain, middle.method, middle.interface_id};
    return true;
  }

  // Whether all three give the same labels for a question.
  bool agree(Question question) const {
    Labels peer = ask_multi_index(multi_index_, question, wanted_);
    std::ranges::sort(peer);
    kivo_index_list *list = ask(question);
    Labels ours = labels_of(list);
    kivo_index_list_free(list);
    std::printf("%zu results\n", ours.size());
    return !ours.empty() && std::ranges::is_sorted(ours) && ours == peer &&
           ours == ask_by_hand(by_hand_, question, wanted_);
  }

  void add_round(const std::string &name, Question question) {
    add(name + "/kivo", [this, question] {
      kivo_index_list *list = ask(question);
      benchmark::DoNotOptimize(list);
      kivo_index_list_free(list);
    });
    add(name + "/multi_index", [this, question] {
      benchmark::DoNotOptimize(ask_multi_index(multi_index_, question, wanted_).data());
    });
    add(name + "/by hand", [this, question] {
      benchmark::DoNotOptimize(ask_by_hand(by_hand_, question, wanted_).data());
    });
  }

 private:
  static void add(const std::string &name, const std::function<void()> &ask) {
    bench::add(name, [ask](benchmark::State &state) {
      for (auto _ : state) ask();
      state.SetItemsProcessed(state.iterations());
    });
  }

  kivo_index_list *ask(Question question) const {
    const char *domain_name = bench::kDomains[wanted_.domain];
    const char *method_name = bench::kMethods[wanted_.method];
    const Value domain = {AAA_ATTR_DOMAIN, domain_name,
                          static_cast<uint32_t>(std::strlen(domain_name))};
    const Value method = {AAA_ATTR_METHOD, method_name,
                          static_cast<uint32_t>(std::strlen(method_name))};
    const Value interface = {AAA_ATTR_INTERFACE_ID, &wanted_.interface_id,
                             sizeof(wanted_.interface_id)};
    switch (question) {
      case Question::kDomainMethod:
        return ask_kivo(db_, domain, method);
      case Question::kInterfaceDomain:
        return ask_kivo(db_, interface, domain);
      case Question::kDomainInterface:
        return ask_kivo(db_, domain, interface);
    }
    return nullptr;
  }

  uint64_t n_;
  kivo_db *db_ = nullptr;
  MultiIndex multi_index_;
  ByHand by_hand_;
  Wanted wanted_{};
};

}  // namespace

int main(int argc, char **argv) {
  bench::Options options(argc, argv);
  const uint64_t n = options.number("records", 1'000'000);
  const uint64_t rounds = options.number("rounds", 3);
  options.refuse_others();

  Queries queries(n);
  if (!queries.fill()) {
    std::fputs("query_bench: a record could not be made\n", stderr);
    return 1;
  }
  const struct {
    const char *name;
    Question question;
  } questions[] = {{"domain and method", Question::kDomainMethod},
                   {"interface and domain", Question::kInterfaceDomain},
                   {"domain and interface", Question::kDomainInterface}};
  std::vector<bench::Ratio> ratios;
  for (const auto &[name, question] : questions) {
    std::printf("%s: ", name);
    if (!queries.agree(question)) {
      std::fputs("query_bench: the answers differ\n", stderr);
      return 1;
    }
    const std::string text = name;
    ratios.push_back({text + ": kivo / multi_index", text + "/kivo", text + "/multi_index", 0});
    ratios.push_back({text + ": kivo / by hand", text + "/kivo", text + "/by hand", 0});
  }
  for (uint64_t round = 0; round < rounds; ++round) {
    for (const auto &[name, question] : questions) queries.add_round(name, question);
  }
  return bench::run_and_report(ratios);
}
