// kivod, the host daemon of the library: replays accounting logs, prints what is asked for, and
// ends or stays to answer kivosh.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>

#include "kivo/display.h"
#include "match.h"
#include "options.h"
#include "platform/attrdb.h"
#include "platform/trace.h"
#include "replay.h"
#include "serving/room.h"
#include "serving/service.h"
#include "session_printer.h"
#include "sessions/session_database.h"
#include "text/counted.h"
#include "text/printable.h"

namespace {

using namespace kivod;

constexpr int kFailed = 1;
constexpr int kNotFound = 1;
constexpr int kUsageError = 2;

void print_summary(const ReplayCounts &counts) {
  const auto of = [&](Outcome outcome) { return counts.outcomes[static_cast<size_t>(outcome)]; };
  const ChangeCounts changes = announced_changes();
  std::printf("Replayed %s of %s\n", host_text::counted(counts.records, "record").c_str(),
              host_text::counted(counts.files, "file").c_str());
  std::printf("  sessions started %" PRIu64 ", updated %" PRIu64 ", stopped %" PRIu64
              ", accounting-on and -off %" PRIu64 "\n",
              of(Outcome::kStarted), of(Outcome::kUpdated), of(Outcome::kStopped),
              of(Outcome::kServerEnded));
  std::printf("  stops of unknown sessions %" PRIu64 ", incomplete %" PRIu64 ", other %" PRIu64
              ", failed %" PRIu64 ", refused %" PRIu64 "\n",
              of(Outcome::kUnknown), of(Outcome::kIncomplete), of(Outcome::kIgnored),
              of(Outcome::kFailed), of(Outcome::kRefused));
  std::printf("  damaged records %" PRIu64 ", unknown attributes %" PRIu64 ", bad values %" PRIu64
              "\n",
              counts.damaged, counts.pairs.unknown, counts.pairs.bad);
  std::printf("  changes announced %" PRIu64 ", removals announced %" PRIu64 "\n",
              changes.added_or_updated, changes.removed);
  std::printf("Live sessions: %" PRIu32 "\n", attrdb_get_total_sessions());
}

// Returns the exit status that an answer stands for. Who serves goes on when nothing was found.
int tell(Answer answer, bool serves) {
  switch (answer) {
    case Answer::kFound:
      return 0;
    case Answer::kNone:
      return serves ? 0 : kNotFound;
    case Answer::kNotIndexed:
      std::fputs("kivod: --match needs a condition on an indexed attribute\n", stderr);
      return kUsageError;
    case Answer::kFailed:
      break;
  }
  std::fputs("kivod: the query failed\n", stderr);
  return kFailed;
}

// Prints what was asked for, empty lines in between. Returns the exit status.
int show_what_was_asked(kivo_db *db, const Options &options, bool below_summary) {
  bool is_first = !below_summary;
  int status = 0;
  // The library begins with a line's end.
  const auto show = [&](auto print) {
    print();
    std::fputc('\n', stdout);
    is_first = false;
  };
  const auto ask = [&](auto print) {
    if (!is_first) std::fputc('\n', stdout);
    is_first = false;
    status = std::max(status, tell(print(), options.serve));
  };
  if (options.show) show([] { kivo_show_db(KIVO_SHOW_NOTIFICATIONS, 0); });
  if (options.attributes) show([&] { kivo_show_attrs_short(db); });
  if (options.counts) show([] { kivo_show_all_records(0); });
  if (options.records) ask([&] { return print_all_sessions(db); });
  if (options.session_id) ask([&] { return print_sessions_of_id(db, *options.session_id); });
  if (options.mac) ask([&] { return print_sessions(db, *options.mac); });
  if (options.ipv4) ask([&] { return print_sessions(db, *options.ipv4); });
  if (!options.match.empty()) ask([&] { return print_matches(db, options.match); });
  return status;
}

// What went wrong may name what a file holds, or a file.
void complain(const std::string &error) {
  std::fprintf(stderr, "kivod: %s\n", host_text::printable(error).c_str());
}

int run(const Options &options) {
  // There is nothing to open anew, and whoever asks for it does not mean an end.
  if (options.serve) signal(SIGHUP, SIG_IGN);
  kivo_db *db = open_session_database();
  if (db == nullptr) return kFailed;
  std::string error;
  auto decoder = PairDecoder::open(options.dictionaries, error);
  if (!decoder) {
    complain(error);
    return kFailed;
  }
  SessionTable sessions(db, options.limits);
  Replay replay(*decoder, sessions);
  int status = 0;
  for (const std::string &path : options.replay) {
    if (replay.run(path, error)) continue;
    complain(error);
    status = kFailed;
  }
  if (const uint64_t n = replay.counts().outcomes[static_cast<size_t>(Outcome::kFailed)]; n != 0) {
    complain(host_text::counted(n, "record") + " could not be applied");
    status = kFailed;
  }
  const bool summary = !options.quiet && !options.replay.empty();
  if (summary) print_summary(replay.counts());
  const int shown = show_what_was_asked(db, options, summary);
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fputs("kivod: cannot write to standard output\n", stderr);
    return kFailed;
  }
  if (status == 0) status = shown;
  if (!options.serve || status != 0) return status;
  if (serve(options.socket, options.group, error)) return 0;
  if (has_room(STDERR_FILENO)) complain(error);
  return kFailed;
}

// At its end it tells what was left out of the traces.
struct StderrTraces {
  StderrTraces() {
    if (trace_add_stream_sink(stderr) != PLATFORM_OK) throw std::bad_alloc();
  }
  ~StderrTraces() { trace_remove_stream_sink(stderr); }
};

void say_that_memory_ran_out() {
  if (has_room(STDERR_FILENO)) std::fputs("kivod: out of memory\n", stderr);
}

// Memory for an exception may be lacking too, and one may come where none may pass.
void on_terminate() {
  try {
    if (const auto what = std::current_exception()) std::rethrow_exception(what);
  } catch (const std::bad_alloc &) {
  } catch (...) {
    std::abort();
  }
  say_that_memory_ran_out();
  std::_Exit(kFailed);
}

// Before the static objects of the libraries are made, which need memory too.
void watch_terminate() { std::set_terminate(on_terminate); }
[[gnu::used, gnu::section(".preinit_array")]] void (*const before_libraries)() = watch_terminate;

}  // namespace

int main(int argc, char **argv) {
  int exit_status = 0;
  try {
    const auto options = kivod::parse_options(argc, argv, exit_status);
    if (!options) return exit_status;
    const StderrTraces traces;
    return run(*options);
  } catch (const std::bad_alloc &) {
    say_that_memory_ran_out();
  } catch (const std::exception &error) {
    complain(error.what());
  }
  return kFailed;
}
