// See instructions.h. A loop is counted twice, with some calls and with twice as many: the
// difference is free of what comes once. Compiled as code of a shared library, which finds another
// library's variables in one step more than a program does.
#include "workload/instructions.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/trace.h"
#include "workload/kivo_store.h"

extern char **environ;

namespace workload {
namespace {

constexpr uint32_t kCalls = 2000;
// Where is counted. The dispatch is not exported: callgrind finds it by its name, and where it is
// called otherwise or made part of its callers there is no figure.
constexpr char kCounted[] = "workload_counted";
constexpr char kDispatch[] = "kivo_attr_change_notification*";
constexpr uint32_t kLabel = 4711;
constexpr uint32_t kTypeWithoutEntry = AAA_ATTR_PACKETS_IN;
constexpr uint32_t kErrorLevel = 3;  // wanted by the facility, refused by the gate
constexpr uint32_t kEventLevel = 6;  // not wanted by the facility

struct Store {
  kivo_db *db = nullptr;
  attrdb_record *record = nullptr;
};

bool open(Store &store) {
  const Session session = make_sessions(1)[0];
  const uint32_t value = 1;
  store.db = open_database();
  return store.db != nullptr && create_session(store.db, kLabel, session) &&
         kivo_get_record(store.db, kLabel, &store.record) == 0 &&
         kivo_add_attr_to_record(store.db, store.record, kTypeWithoutEntry, &value,
                                 sizeof(value)) == 0;
}

using Loop = void (*)(const Store &store, uint32_t calls);

template <typename Call>
void repeat(uint32_t calls, Call &&call) {
  for (uint32_t i = 0; i < calls; ++i) {
    call();
    asm volatile("" : : : "memory");
  }
}

// Not made part of the loop, which would work out once what each call has to.
__attribute__((noinline)) void nothing() { asm volatile("" : : : "memory"); }

void do_nothing(const Store &, uint32_t calls) { repeat(calls, nothing); }

// A write that changes nothing, and its announcement.
void write_announced(const Store &store, uint32_t calls) {
  const uint32_t value = 1;
  repeat(calls, [&] {
    kivo_add_attr_to_record(store.db, store.record, kTypeWithoutEntry, &value, sizeof(value));
  });
}

// The same write by the platform, which announces nothing.
void write_silently(const Store &store, uint32_t calls) {
  const uint32_t value = 1;
  uint32_t changed = 0;
  repeat(calls, [&] {
    auth_mgr_idc_add_or_update_attr(store.record->ctxt, kTypeWithoutEntry, &value, sizeof(value),
                                    &changed);
  });
}

// A trace of the library as a host would write it: the facility is asked, then the gate.
template <uint32_t level, uint32_t kind>
__attribute__((noinline)) void trace_once() {
  if (trace_enabled(kivo_trace_id, level) != 0 && kivo_debugging_event_active(kind, 1) != 0) {
    trace_write(kivo_trace_id, level, 1, "never written");
  }
  asm volatile("" : : : "memory");
}

template <uint32_t level, uint32_t kind>
void trace(const Store &, uint32_t calls) {
  repeat(calls, trace_once<level, kind>);
}

struct LoopRow {
  const char *name;
  Loop loop;
};
constexpr LoopRow kLoops[] = {
    {"nothing", do_nothing},
    {"write announced", write_announced},
    {"write silently", write_silently},
    {"trace off at the facility", trace<kEventLevel, KIVO_DEBUG_KIND_EVENT>},
    {"trace off at the gate", trace<kErrorLevel, KIVO_DEBUG_KIND_ERROR>},
};

const LoopRow *find_loop(std::string_view name) {
  const auto *found = std::ranges::find(kLoops, name, &LoopRow::name);
  return found != std::end(kLoops) ? found : nullptr;
}

}  // namespace

// callgrind knows it by name and counts in it alone.
extern "C" __attribute__((noinline, visibility("default"))) void workload_counted(
    Loop loop, const Store *store, uint32_t calls) {
  loop(*store, calls);
  asm volatile("" : : : "memory");
}

int run_counted(std::string_view name, uint32_t calls) {
  const LoopRow *row = find_loop(name);
  Store store;
  if (row == nullptr || !open(store)) return 1;
  workload_counted(row->loop, &store, calls);
  return 0;
}

namespace {

// Runs this program under callgrind and reads the sum that it leaves.
class Callgrind {
 public:
  Callgrind() {
    const char *folder = std::getenv("TMPDIR");
    path_ = std::string(folder != nullptr ? folder : "/tmp") + "/workload-callgrind-XXXXXX";
    const int fd = mkstemp(path_.data());
    made_ = fd >= 0;
    if (made_) close(fd);
  }
  ~Callgrind() {
    if (made_) unlink(path_.c_str());
  }
  Callgrind(const Callgrind &) = delete;
  Callgrind &operator=(const Callgrind &) = delete;

  // Instructions in the function of that name, and in what it calls, for each call of a loop.
  std::optional<double> per_call(const char *loop, const char *function) {
    const auto some = count(loop, kCalls, function);
    const auto twice = count(loop, 2 * kCalls, function);
    if (!some || !twice || *twice <= *some) return std::nullopt;
    return (*twice - *some) / kCalls;
  }

 private:
  std::optional<double> count(const char *loop, uint32_t calls, const char *function) {
    if (!made_ || !run(loop, std::to_string(calls), function)) return std::nullopt;
    return read_sum();
  }

  bool run(const char *loop, const std::string &calls, const std::string &function) {
    std::array<char, 4096> self{};
    if (readlink("/proc/self/exe", self.data(), self.size() - 1) < 0) return false;
    std::vector<std::string> words = {"valgrind",
                                      "-q",
                                      "--tool=callgrind",
                                      "--toggle-collect=" + function,
                                      "--callgrind-out-file=" + path_,
                                      self.data(),
                                      "--count",
                                      loop,
                                      calls};
    std::vector<char *> arguments;
    for (std::string &word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int failure =
        posix_spawnp(&pid, "valgrind", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    return failure == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
  }

  // The line "summary: N".
  [[nodiscard]] std::optional<double> read_sum() const {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path_.c_str(), "r"), fclose);
    std::array<char, 4096> line{};
    uint64_t sum = 0;
    while (file != nullptr && std::fgets(line.data(), line.size(), file.get()) != nullptr) {
      if (std::sscanf(line.data(), "summary: %" SCNu64, &sum) == 1) return static_cast<double>(sum);
    }
    return std::nullopt;
  }

  std::string path_;
  bool made_ = false;
};

void note(Op op, std::optional<double> of, std::optional<double> without, Sheet &sheet) {
  if (of && without) sheet.set(op, *of - *without);
}

}  // namespace

bool measure_instructions(uint32_t, std::span<uint64_t>, Sheet &sheet) {
  Callgrind callgrind;
  const auto in_loop = [&](const char *loop) { return callgrind.per_call(loop, kCounted); };
  note(Op::kDispatch, callgrind.per_call("write announced", kDispatch), 0, sheet);
  note(Op::kWriteShell, in_loop("write announced"), in_loop("write silently"), sheet);
  const auto nothing = in_loop("nothing");
  note(Op::kTraceOff, in_loop("trace off at the facility"), nothing, sheet);
  note(Op::kGateClosed, in_loop("trace off at the gate"), nothing, sheet);
  return true;
}

}  // namespace workload
