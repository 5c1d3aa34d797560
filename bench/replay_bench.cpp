// What replaying an accounting log costs an event, with few sessions and with many, and where the
// time goes: splitting the log into records, decoding the pairs as well, and the whole, database
// included. Each measurement is a replay of the daemon's own code in a fresh process that this
// program starts from itself; the logs are written beforehand and are read from the page cache.
//
// Usage: replay_bench [--few=100000] [--many=1000000] [--rounds=3] [Google Benchmark's flags]
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "replay.h"
#include "sessions/session_database.h"
#include "support/rounds.h"
#include "support/start_events.h"

extern char **environ;

namespace {

using namespace kivod;

constexpr char kReplayOnce[] = "--replay-once";
constexpr double kNanoseconds = 1e-9;

// What a replaying process tells the one that started it. Sent through a pipe as it is.
struct Cost {
  uint64_t events;  // understood, all of them as they were meant
  double cpu_s;
  double wall_s;
  double resident_bytes;  // grown by
};

// ---- In the replaying process ----

double seconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * kNanoseconds;
}

double resident_bytes() {
  const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen("/proc/self/statm", "r"), fclose);
  uint64_t size = 0;
  uint64_t resident = 0;
  if (!file || std::fscanf(file.get(), "%" SCNu64 " %" SCNu64, &size, &resident) != 2) return 0;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Splits only.
class Splitter : public DetailSink {
 public:
  explicit Splitter(PairDecoder &) {}
  void on_record(const DetailRecord &) override { ++understood_; }
  void on_fault(const DetailFault &) override {}

  bool run(const std::string &path, std::string &error) {
    const auto file = DetailFile::open(path, *this, error);
    while (file != nullptr && file->read_piece() == DetailFile::Progress::kMore) {
    }
    return file != nullptr && file->error().empty();
  }
  [[nodiscard]] uint64_t understood() const { return understood_; }

 protected:
  uint64_t understood_ = 0;
};

// Splits and decodes, and forgets.
class Decoder final : public Splitter {
 public:
  explicit Decoder(PairDecoder &pairs) : Splitter(pairs), pairs_(pairs) {}
  void on_record(const DetailRecord &record) override {
    read_event(record, pairs_, event_, counts_, [](uint64_t, const char *) {});
    if (event_.status == static_cast<uint64_t>(AcctStatus::kStart)) ++understood_;
  }
  [[nodiscard]] uint64_t understood() const {
    return counts_.unknown + counts_.bad == 0 ? understood_ : 0;
  }

 private:
  PairDecoder &pairs_;
  AccountingEvent event_;
  PairCounts counts_;
};

// What kivod does.
class Whole {
 public:
  explicit Whole(PairDecoder &pairs)
      : sessions_(open_session_database()), replay_(pairs, sessions_) {}
  bool run(const std::string &path, std::string &error) { return replay_.run(path, error); }
  [[nodiscard]] uint64_t understood() const {
    const ReplayCounts &counts = replay_.counts();
    const uint64_t started = counts.outcomes[static_cast<size_t>(Outcome::kStarted)];
    const bool clean = counts.damaged + counts.pairs.unknown + counts.pairs.bad == 0;
    return clean && started == attrdb_get_total_sessions() ? started : 0;
  }

 private:
  SessionTable sessions_;
  Replay replay_;
};

// Dictionaries and database are opened before the clock starts: a fixed cost would weigh more on an
// event of the short log and hide growth.
template <typename Stage>
bool replay(PairDecoder &pairs, const std::string &path, Cost &cost) {
  Stage stage(pairs);
  std::string error;
  const double resident_before = resident_bytes();
  const double wall_before = seconds(CLOCK_MONOTONIC);
  const double cpu_before = seconds(CLOCK_PROCESS_CPUTIME_ID);
  if (!stage.run(path, error)) {
    std::fprintf(stderr, "replay_bench: %s\n", error.c_str());
    return false;
  }
  cost.cpu_s = seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu_before;
  cost.wall_s = seconds(CLOCK_MONOTONIC) - wall_before;
  cost.resident_bytes = resident_bytes() - resident_before;
  cost.events = stage.understood();
  return true;
}

struct StageRow {
  const char *name;
  bool (*replay)(PairDecoder &pairs, const std::string &path, Cost &cost);
};
constexpr StageRow kStages[] = {
    {"split", replay<Splitter>},
    {"split+decode", replay<Decoder>},
    {"whole", replay<Whole>},
};

int replay_once(std::string_view stage, const std::string &path) {
  std::string error;
  auto pairs = PairDecoder::open("", error);
  if (!pairs) {
    std::fprintf(stderr, "replay_bench: %s\n", error.c_str());
    return 1;
  }
  for (const StageRow &row : kStages) {
    if (stage != row.name) continue;
    Cost cost{};
    if (!row.replay(*pairs, path, cost)) return 1;
    return write(STDOUT_FILENO, &cost, sizeof(cost)) == sizeof(cost) ? 0 : 1;
  }
  return 2;
}

// ---- In the measuring process ----

// A log in a file that has no name any more, so that nothing is left behind however we end.
class Log {
 public:
  explicit Log(uint64_t n_events) : n_events_(n_events) {
    const char *folder = std::getenv("TMPDIR");
    std::string name = std::string(folder != nullptr ? folder : "/tmp") + "/start-events-XXXXXX";
    fd_ = mkstemp(name.data());
    if (fd_ < 0) return;
    unlink(name.c_str());
    written_ = bench::write_start_events(fd_, n_events);
  }
  ~Log() {
    if (fd_ >= 0) close(fd_);
  }
  Log(const Log &) = delete;
  Log &operator=(const Log &) = delete;

  explicit operator bool() const { return written_; }
  [[nodiscard]] uint64_t n_events() const { return n_events_; }
  // Opens as a file of its own, from the start, in this process and in those it starts.
  [[nodiscard]] std::string path() const { return "/dev/fd/" + std::to_string(fd_); }

 private:
  uint64_t n_events_;
  int fd_ = -1;
  bool written_ = false;
};

bool wait_for_success(pid_t pid) {
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Runs a stage over a log in a process of its own.
bool measure(const char *stage, const Log &log, Cost &cost) {
  std::array<int, 2> pipe_ends{};
  if (pipe2(pipe_ends.data(), O_CLOEXEC) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], STDOUT_FILENO);
  std::array<std::string, 4> words = {"replay_bench", kReplayOnce, stage, log.path()};
  std::array<char *, 5> arguments = {words[0].data(), words[1].data(), words[2].data(),
                                     words[3].data(), nullptr};
  pid_t pid = 0;
  const int failure =
      posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_ends[1]);
  const bool told = failure == 0 && read(pipe_ends[0], &cost, sizeof(cost)) == sizeof(cost);
  close(pipe_ends[0]);
  return failure == 0 && wait_for_success(pid) && told;
}

std::string figure(const char *stage, uint64_t n_events) {
  return std::string(stage) + "/" + std::to_string(n_events);
}

void add_replay(const char *stage, const Log &log) {
  bench::add(
      figure(stage, log.n_events()),
      [stage, &log](benchmark::State &state) {
        const auto n = static_cast<double>(log.n_events());
        for (auto _ : state) {
          Cost cost{};
          if (!measure(stage, log, cost)) {
            return state.SkipWithError("the replaying process failed");
          }
          if (cost.events != log.n_events()) {
            return state.SkipWithError("not every event was understood and made its session");
          }
          state.SetIterationTime(cost.cpu_s);
          state.counters["elapsed"] = cost.wall_s / kNanoseconds / n;
          if (stage == std::string_view("whole")) {
            state.counters["bytes"] = cost.resident_bytes / n;
          }
        }
        state.SetItemsProcessed(static_cast<int64_t>(log.n_events()));
      })
      ->Iterations(1)
      ->UseManualTime();
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 4 && argv[1] == std::string_view(kReplayOnce)) return replay_once(argv[2], argv[3]);

  bench::Options options(argc, argv);
  const uint64_t n_few = options.number("few", 100'000);
  const uint64_t n_many = options.number("many", 1'000'000);
  const uint64_t rounds = options.number("rounds", 3);
  options.refuse_others();
  if (n_few > bench::kStartEventsMax || n_many > bench::kStartEventsMax) {
    std::fprintf(stderr, "replay_bench: at most %" PRIu64 " events\n", bench::kStartEventsMax);
    return 2;
  }

  const Log few(n_few);
  const Log many(n_many);
  if (!few || !many) {
    std::perror("replay_bench: cannot write a log into the folder for temporary files");
    return 1;
  }
  for (uint64_t round = 0; round < rounds; ++round) {
    for (const StageRow &stage : kStages) {
      add_replay(stage.name, few);
      add_replay(stage.name, many);
    }
  }
  const auto of = [&](const char *stage, const Log &log) { return figure(stage, log.n_events()); };
  const bench::Ratio ratios[] = {
      {"an event of the long log / of the short log", of("whole", many), of("whole", few), 1.5},
      {"the same by elapsed time", of("whole", many) + ":elapsed", of("whole", few) + ":elapsed",
       0},
      {"long log: splitting / whole", of("split", many), of("whole", many), 0},
      {"long log: splitting and decoding / whole", of("split+decode", many), of("whole", many), 0},
  };
  return bench::run_and_report(ratios);
}
