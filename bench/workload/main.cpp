// The workload: sessions of sixteen attributes, created, found, read, queried, updated and deleted
// through the exported interface, and the same work done by peers in the same run. Each peer and
// number of sessions is measured in a process of its own, the peers in turn within a round; their
// answers must agree. bench/workload/README.md says what each figure is.
//
// Usage: workload_bench [--sizes=100000,...] [--rounds=3] [--peers=NAME,...] [--json=FILE]
//        workload_bench --check [--sizes=100000,...]   compares the answers and reports no figures
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "workload/child.h"
#include "workload/figures.h"
#include "workload/instructions.h"
#include "workload/peers.h"
#include "workload/redis_server.h"
#include "workload/report.h"
#include "workload/targets.h"

namespace {

using namespace workload;

constexpr uint32_t kSessionsMin = 100;
constexpr uint32_t kSessionsMax = 16'000'000;

struct MeasureRow {
  const char *name;  // of the measurement
  const char *peer;  // whose figures they are
  Measure measure;
  uint32_t n_max;       // sessions; with more it is left out unless it was asked for by name
  uint32_t rounds_max;  // what takes long is measured less often
};
constexpr uint32_t kAny = UINT32_MAX;
constexpr MeasureRow kPerSize[] = {
    {"kivo", kKivo, measure_kivo, kAny, kAny},
    {"multi_index", kMultiIndex, measure_multi_index, kAny, kAny},
    {"by_hand", kByHand, measure_by_hand, kAny, kAny},
    {"sqlite", "sqlite", measure_sqlite, 1'000'000, kAny},
    {"redis", "redis", measure_redis, 100'000, 1},
    {"sets/kivo", kKivo, intersect_kivo, kAny, kAny},
    {"sets/vectors", "vectors", intersect_vectors, kAny, kAny},
    {"sets/abseil", "abseil", intersect_abseil, kAny, kAny},
};
constexpr MeasureRow kOnce[] = {
    {"machine", "machine", measure_machine, kAny, kAny},
    {"instructions", kKivo, measure_instructions, kAny, kAny},
};

struct Options {
  std::vector<uint32_t> sizes = {100'000};
  std::vector<std::string> peers;  // all when empty
  uint32_t rounds = 3;
  std::string json;
  bool check = false;
};

std::vector<std::string> split(std::string_view text) {
  std::vector<std::string> words;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    words.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

[[noreturn]] void refuse(std::string_view argument) {
  std::fprintf(stderr, "workload_bench: %.*s?\n", static_cast<int>(argument.size()),
               argument.data());
  std::exit(2);
}

uint32_t number(const std::string &text, uint32_t least, uint32_t most) {
  char *end = nullptr;
  const uint64_t value = std::strtoull(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < least || value > most) refuse(text);
  return static_cast<uint32_t>(value);
}

const MeasureRow *find_row(std::string_view name) {
  for (const std::span<const MeasureRow> rows :
       {std::span<const MeasureRow>(kPerSize), std::span<const MeasureRow>(kOnce)}) {
    for (const MeasureRow &row : rows) {
      if (name == row.name) return &row;
    }
  }
  return nullptr;
}

Options read_options(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    const size_t equals = std::min(argument.find('='), argument.size() - 1);
    const std::string_view name = argument.substr(0, equals + 1);
    const std::string value(argument.substr(equals + 1));
    if (name == "--sizes=") {
      options.sizes.clear();
      for (const std::string &size : split(value)) {
        options.sizes.push_back(number(size, kSessionsMin, kSessionsMax));
      }
    } else if (name == "--rounds=") {
      options.rounds = number(value, 1, 1000);
    } else if (name == "--peers=") {
      options.peers = split(value);
      for (const std::string &peer : options.peers) {
        if (find_row(peer) == nullptr) refuse(peer);
      }
    } else if (name == "--json=") {
      options.json = value;
    } else if (argument == "--check") {
      options.check = true;
      options.rounds = 1;
    } else {
      refuse(argument);
    }
  }
  return options;
}

// ---- In a measuring process ----

int measure_here(const std::string &name, uint32_t n, int fd) {
  constexpr size_t kBytesPerSession = 1024;  // more than any peer takes
  const SharedTimes create_ns(fd, std::max(n, 1u));
  touch_memory(std::max(n, 1u) * kBytesPerSession);
  const MeasureRow *row = find_row(name);
  Sheet sheet;
  const bool told =
      row != nullptr && create_ns && row->measure(n, create_ns.all(), sheet) && send_sheet(sheet);
  return told ? 0 : 1;
}

// ---- In the process that compares ----

class Run {
 public:
  explicit Run(const Options &options) : options_(options) {}

  void measure(uint32_t n) {
    std::vector<std::unique_ptr<SharedTimes>> longest;  // a row each
    for (const MeasureRow &row : kPerSize) {
      longest.push_back(wanted(row, n) ? std::make_unique<SharedTimes>(n) : nullptr);
    }
    for (uint32_t round = 0; round < options_.rounds; ++round) {
      for (size_t i = 0; i < std::size(kPerSize); ++i) {
        if (longest[i] != nullptr && round < kPerSize[i].rounds_max)
          measure_row(kPerSize[i], n, *longest[i]);
      }
    }
    for (size_t i = 0; i < std::size(kPerSize); ++i) {
      if (longest[i] != nullptr && *longest[i]) note_longest(kPerSize[i], n, longest[i]->all());
    }
  }

  // What has no number of sessions.
  void measure_once() {
    const SharedTimes none(1);
    for (const MeasureRow &row : kOnce) {
      if (wanted(row, 0)) measure_row(row, 0, none);
    }
  }

  int report_agreement() const {
    if (failed_) return 1;
    for (const uint32_t n : options_.sizes) {
      std::printf("%" PRIu32 " sessions, the same answers:", n);
      for (const std::string &peer : figures_.peers(n)) std::printf(" %s", peer.c_str());
      std::putchar('\n');
    }
    return 0;
  }

  int report() {
    print_figures(figures_, 0);
    for (const uint32_t n : options_.sizes) print_figures(figures_, n);
    print_targets(figures_, options_.sizes);
    if (!options_.json.empty()) {
      const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(options_.json.c_str(), "w"),
                                                        fclose);
      if (file == nullptr) {
        std::perror(options_.json.c_str());
        return 1;
      }
      write_json(figures_, file.get());
    }
    return failed_ ? 1 : 0;
  }

 private:
  [[nodiscard]] bool wanted(const MeasureRow &row, uint32_t n) const {
    if (row.measure == measure_redis && !RedisServer::is_installed()) return false;
    if (options_.peers.empty()) return n <= row.n_max && !(options_.check && row.rounds_max == 1);
    return std::ranges::find(options_.peers, row.name) != options_.peers.end();
  }

  void measure_row(const MeasureRow &row, uint32_t n, const SharedTimes &create_ns) {
    Sheet sheet;
    if (!create_ns || !measure_in_child(row.name, n, create_ns, sheet)) {
      std::fprintf(stderr, "workload_bench: %s gave no figures for %" PRIu32 " sessions\n",
                   row.name, n);
      failed_ = true;
      return;
    }
    if (!figures_.take(row.peer, n, sheet)) failed_ = true;
  }

  // Interrupts strike another creation in each round, what belongs to the peer strikes the same: a
  // creation counts with its shortest time.
  void note_longest(const MeasureRow &row, uint32_t n, std::span<const uint64_t> create_ns) {
    const auto longest = std::ranges::max_element(create_ns);
    if (*longest == UINT64_MAX) return;  // it creates nothing
    figures_.add(row.peer, n, Op::kLongestCreate, static_cast<double>(*longest) / 1e6);
  }

  const Options &options_;
  Figures figures_;
  bool failed_ = false;
};

}  // namespace

int main(int argc, char **argv) {
  if (argc == 5 && argv[1] == std::string_view("--measure")) {
    return measure_here(argv[2], static_cast<uint32_t>(std::atol(argv[3])), std::atoi(argv[4]));
  }
  if (argc == 4 && argv[1] == std::string_view("--count")) {
    return run_counted(argv[2], static_cast<uint32_t>(std::atol(argv[3])));
  }
  const Options options = read_options(argc, argv);
  Run run(options);
  if (!options.check) run.measure_once();
  for (const uint32_t n : options.sizes) run.measure(n);
  return options.check ? run.report_agreement() : run.report();
}
