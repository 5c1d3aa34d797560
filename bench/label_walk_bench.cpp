// Gathering the labels of all records: the record store's walk into a label set, and reading that
// set, beside what a C++ program would do with a container of its own. Also the longest single
// creation on the way to that many records, beside the same container's longest insertion: a table
// that grows all at once stops its caller. That part is done in processes of its own.
//
// Usage: label_walk_bench [--records=1000000] [--rounds=3] [Google Benchmark's flags]
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <functional>
#include <numeric>
#include <unordered_map>
#include <vector>

#include "kivo/kivo.h"
#include "platform/attrdb.h"
#include "support/rounds.h"
#include "support/sessions.h"

namespace {

using bench::make_session;
using SessionMap = std::unordered_map<uint32_t, bench::Session>;

// Makes the record of a number; says whether it worked.
using MakeOne = std::function<bool(uint32_t number)>;

uint64_t thread_ns() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// Processor times of the creations, by record, in memory that this process and its children share.
class StepTimes {
 public:
  explicit StepTimes(uint64_t n) : n_(n) {
    void *memory = mmap(nullptr, n * sizeof(uint64_t), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    step_ns_ = static_cast<uint64_t *>(memory);
    std::fill_n(step_ns_, n, UINT64_MAX);
  }
  ~StepTimes() {
    if (step_ns_ != nullptr) munmap(step_ns_, n_ * sizeof(uint64_t));
  }
  StepTimes(const StepTimes &) = delete;
  StepTimes &operator=(const StepTimes &) = delete;

  explicit operator bool() const { return step_ns_ != nullptr; }

  // Makes every record in a new process, which begins with none, and keeps each record's shorter
  // time of this pass and those before. Gives false when a record could not be made.
  bool pass_in_new_process(const std::function<MakeOne()> &begin) {
    const pid_t pid = fork();
    if (pid == 0) _exit(make_all(begin()) ? 0 : 1);
    int status = 0;
    return pid > 0 && waitpid(pid, &status, 0) == pid && status == 0;
  }

  // The number of the record that took longest, the first one aside.
  [[nodiscard]] uint64_t longest() const {
    return static_cast<uint64_t>(std::max_element(step_ns_ + 1, step_ns_ + n_) - step_ns_);
  }
  [[nodiscard]] double us(uint64_t number) const {
    return static_cast<double>(step_ns_[number]) / 1000;
  }

 private:
  bool make_all(const MakeOne &make_one) {
    uint64_t before = thread_ns();
    for (uint32_t number = 0; number < n_; ++number) {
      if (!make_one(number)) return false;
      const uint64_t after = thread_ns();
      step_ns_[number] = std::min(step_ns_[number], after - before);
      before = after;
    }
    return true;
  }

  uint64_t n_;
  uint64_t *step_ns_ = nullptr;
};

// The longest creation. Interrupts and a busy host lengthen one step or another of every pass, what
// belongs to the table comes at the same record each time: a record counts with its shortest. The
// first record is told apart: it has everything made that is made when first needed.
void report_longest_creation(benchmark::State &state, uint64_t n, uint64_t passes,
                             const std::function<MakeOne()> &begin) {
  StepTimes times(n);
  for (auto _ : state) {
    for (uint64_t pass = 0; pass < passes; ++pass) {
      if (!times || !times.pass_in_new_process(begin)) {
        state.SkipWithError("a record could not be made");
        return;
      }
    }
  }
  const uint64_t longest = times.longest();
  state.counters["first us"] = times.us(0);
  state.counters["longest us"] = times.us(longest);
  state.counters["longest at record"] = static_cast<double>(longest + 1);
}

class LabelWalk {
 public:
  explicit LabelWalk(uint64_t n) : labels_(bench::make_labels(n)), sorted_(labels_) {
    std::sort(sorted_.begin(), sorted_.end());
    sum_of_labels_ = std::accumulate(labels_.begin(), labels_.end(), uint64_t{0});
  }

  // Goes first: its processes are to begin without records, and without much memory.
  void add_creations(uint64_t passes) {
    bench::add("create/kivo", [this, passes](benchmark::State &state) {
      report_longest_creation(state, labels_.size(), passes, [this] { return maker(); });
    })->Iterations(1);
    bench::add("create/unordered_map", [this, passes](benchmark::State &state) {
      report_longest_creation(state, labels_.size(), passes, [this] { return peer_maker(); });
    })->Iterations(1);
  }

  // Fills store and peer for what follows, and gathers for the first time, when a label set has to
  // get its memory from the operating system.
  void add_first_gathering() {
    bench::add("gather/kivo, first", [this](benchmark::State &state) {
      if (!fill()) return state.SkipWithError("a record could not be made");
      gather_kivo(state);
    })->Iterations(1);
  }

  void add_round() {
    bench::add("gather/kivo", [this](benchmark::State &state) { gather_kivo(state); });
    bench::add("gather/unordered_map", [this](benchmark::State &state) {
      gather(state, [this](std::vector<uint32_t> &out) {
        for (const auto &[label, session] : sessions_) out.push_back(label);
      });
    });
    bench::add("gather/sorted vector", [this](benchmark::State &state) {
      gather(state, [this](std::vector<uint32_t> &out) {
        for (const uint32_t label : sorted_) out.push_back(label);
      });
    });
    bench::add("read/kivo next", [this](benchmark::State &state) { read_set(state); });
    bench::add("read/vector", [this](benchmark::State &state) {
      for (auto _ : state) {
        uint64_t sum = 0;
        for (const uint32_t label : sorted_) sum += label;
        benchmark::DoNotOptimize(sum);
      }
      count_items(state);
    });
  }

 private:
  void count_items(benchmark::State &state) const {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(labels_.size()));
  }

  MakeOne maker() const {
    kivo_db *db = bench::open_database();
    return [this, db](uint32_t number) {
      return db != nullptr && bench::create(db, labels_[number], make_session(number));
    };
  }

  MakeOne peer_maker() {
    return [this](uint32_t number) {
      return sessions_.emplace(labels_[number], make_session(number)).second;
    };
  }

  bool fill() {
    const MakeOne make_one = maker();
    const MakeOne make_peers = peer_maker();
    for (uint32_t number = 0; number < labels_.size(); ++number) {
      if (!make_one(number) || !make_peers(number)) return false;
    }
    return true;
  }

  // Into a new set each time; freeing it is not part of the gathering.
  void gather_kivo(benchmark::State &state) const {
    for (auto _ : state) {
      kivo_index_list *set = nullptr;
      kivo_index_list_create(&set);
      attrdb_walk_all_records(attrdb_add_session_to_list, &set);
      state.PauseTiming();
      uint32_t count = 0;
      kivo_index_list_size(set, &count);
      kivo_index_list_free(set);
      if (count != labels_.size()) return state.SkipWithError("labels are missing");
      state.ResumeTiming();
    }
    count_items(state);
  }

  template <typename Fill>
  void gather(benchmark::State &state, Fill &&fill) const {
    for (auto _ : state) {
      std::vector<uint32_t> out;
      fill(out);
      benchmark::DoNotOptimize(out.data());
      state.PauseTiming();
      if (out.size() != labels_.size()) return state.SkipWithError("labels are missing");
      std::vector<uint32_t>().swap(out);
      state.ResumeTiming();
    }
    count_items(state);
  }

  void read_set(benchmark::State &state) const {
    kivo_index_list *set = nullptr;
    kivo_index_list_create(&set);
    attrdb_walk_all_records(attrdb_add_session_to_list, &set);
    for (auto _ : state) {
      uint64_t sum = 0;
      uint32_t cursor = 0;
      while (const uint32_t label = kivo_index_list_next(set, &cursor)) sum += label;
      if (sum != sum_of_labels_) {
        state.SkipWithError("other labels were read than were made");
        break;
      }
    }
    kivo_index_list_free(set);
    count_items(state);
  }

  std::vector<uint32_t> labels_;  // in the order of creation
  uint64_t sum_of_labels_ = 0;
  std::vector<uint32_t> sorted_;
  SessionMap sessions_;
};

}  // namespace

int main(int argc, char **argv) {
  bench::Options options(argc, argv);
  const uint64_t n = options.number("records", 1'000'000);
  const uint64_t rounds = options.number("rounds", 3);
  options.refuse_others();
  if (n < 2 || n > UINT32_MAX / 4) {
    std::fputs("label_walk_bench: from 2 records to a quarter of the labels there are\n", stderr);
    return 2;
  }

  LabelWalk walk(n);
  walk.add_creations(rounds);
  walk.add_first_gathering();
  for (uint64_t round = 0; round < rounds; ++round) walk.add_round();

  const bench::Ratio ratios[] = {
      {"gather: kivo / unordered_map into a vector", "gather/kivo", "gather/unordered_map", 0},
      {"gather: kivo / sorted vector into a vector", "gather/kivo", "gather/sorted vector", 0},
      {"read: kivo next / vector", "read/kivo next", "read/vector", 0},
      {"longest creation: kivo / unordered_map", "create/kivo:longest us",
       "create/unordered_map:longest us", 0},
  };
  std::printf("%" PRIu64 " records\n", n);
  return bench::run_and_report(ratios);
}
