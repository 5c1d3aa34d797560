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
#include <cstring>
#include <ctime>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kivo/kivo.h"
#include "platform/aaa.h"
#include "platform/attrdb.h"
#include "platform/subsys.h"
#include "support/rounds.h"

namespace {

constexpr uint32_t kSeed = 20261116;  // of the labels
constexpr uint32_t kSessionsPerInterface = 48;
constexpr const char *kDomains[] = {"example.com", "example.net", "example.org", "example.edu",
                                    "a.example",   "b.example",   "c.example",   "d.example"};
constexpr const char *kMethods[] = {"radius", "local", "remote", "mac"};

// clang-format off
constexpr kivo_attr_config kRows[] = {
    {AAA_ATTR_MAC_ADDRESS,      0, KIVO_DATA_TYPE_MAC_ADDR},
    {AAA_ATTR_AUDIT_SESSION_ID, 0, KIVO_DATA_TYPE_SESN_GUID},
    {AAA_ATTR_IPV4_ADDRESS,     0, KIVO_DATA_TYPE_IPV4_ADDR},
    {AAA_ATTR_INTERFACE_ID,     0, KIVO_DATA_TYPE_INT32},
    {AAA_ATTR_DOMAIN,           0, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_METHOD,           0, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_SESSION_ID,       0, KIVO_DATA_TYPE_VAR_STR},
    {AAA_ATTR_USER_NAME,        KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_VAR_STR},
};
// clang-format on

// The peer's record, with what the database's has in fields of fixed size.
struct Session {
  uint8_t mac[6];
  char audit_session_id[25];
  uint32_t ipv4;
  uint32_t interface_id;
  uint8_t domain;
  uint8_t method;
  char session_id[9];
  char user_name[25];
};
using SessionMap = std::unordered_map<uint32_t, Session>;

Session make_session(uint32_t number) {
  Session session{};
  // An odd factor scrambles without repetition.
  const uint32_t id = number * 0x9e3779b1u;
  session.mac[0] = 2;
  std::memcpy(session.mac + 2, &id, sizeof(id));
  std::snprintf(session.audit_session_id, sizeof(session.audit_session_id), "%08X%08X%08X", 0u,
                number, id);
  session.ipv4 = id;
  session.interface_id = number / kSessionsPerInterface + 1;
  session.domain = static_cast<uint8_t>(id % std::size(kDomains));
  session.method = static_cast<uint8_t>(id / 8 % std::size(kMethods));
  std::snprintf(session.session_id, sizeof(session.session_id), "%08X", id);
  std::snprintf(session.user_name, sizeof(session.user_name), "user-%u", number);
  return session;
}

std::vector<uint32_t> make_labels(uint64_t n) {
  std::mt19937 random(kSeed);
  std::unordered_set<uint32_t> seen = {0};
  std::vector<uint32_t> labels;
  labels.reserve(n);
  while (labels.size() < n) {
    const auto label = static_cast<uint32_t>(random());
    if (seen.insert(label).second) labels.push_back(label);
  }
  return labels;
}

kivo_db *open_database() {
  subsys_start();
  for (const kivo_attr_config &row : kRows) {
    if (row.index_kind != KIVO_INDEX_KIND_NONE && attrdb_declare_index(row.aaa_type) != 0) {
      return nullptr;
    }
  }
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  kivo_db *db = nullptr;
  return kivo_create_database("BENCH", "bench", &client, kRows, std::size(kRows), &db) == 0
             ? db
             : nullptr;
}

// One creation as a client does it: a record, and one attribute list written into it.
bool create(kivo_db *db, uint32_t label, const Session &session) {
  uint32_t list = 0;
  if (aaa_list_alloc(&list) != 0) return false;
  const auto add = [&](uint32_t type, const void *value, size_t size) {
    return aaa_attr_add(list, type, value, static_cast<uint32_t>(size), 0, 0) == 0;
  };
  const auto add_text = [&](uint32_t type, const char *text) {
    return add(type, text, std::strlen(text));
  };
  const bool written =
      add(AAA_ATTR_MAC_ADDRESS, session.mac, sizeof(session.mac)) &&
      add_text(AAA_ATTR_AUDIT_SESSION_ID, session.audit_session_id) &&
      add(AAA_ATTR_IPV4_ADDRESS, &session.ipv4, sizeof(session.ipv4)) &&
      add(AAA_ATTR_INTERFACE_ID, &session.interface_id, sizeof(session.interface_id)) &&
      add_text(AAA_ATTR_DOMAIN, kDomains[session.domain]) &&
      add_text(AAA_ATTR_METHOD, kMethods[session.method]) &&
      add_text(AAA_ATTR_SESSION_ID, session.session_id) &&
      add_text(AAA_ATTR_USER_NAME, session.user_name) &&
      kivo_create_record(db, label, nullptr) == 0 &&
      kivo_add_or_update_attr_list(db, label, nullptr, list) == 0;
  aaa_list_free(list);
  return written;
}

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
  explicit LabelWalk(uint64_t n) : labels_(make_labels(n)), sorted_(labels_) {
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
    kivo_db *db = open_database();
    return [this, db](uint32_t number) {
      return db != nullptr && create(db, labels_[number], make_session(number));
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
