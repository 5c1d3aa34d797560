// kivod, the host daemon of the library: replays accounting logs, prints what is asked for, and
// ends or stays to answer kivosh.
#include <cinttypes>
#include <cstdio>
#include <new>

#include "host_trace.h"
#include "kivo/display.h"
#include "match.h"
#include "options.h"
#include "platform/attrdb.h"
#include "replay.h"
#include "serving/service.h"
#include "sessions/session_database.h"

namespace {

using namespace kivod;

constexpr int kFailed = 1;
constexpr int kUsageError = 2;

void print_summary(const ReplayCounts &counts) {
  const auto of = [&](Outcome outcome) { return counts.outcomes[static_cast<size_t>(outcome)]; };
  const ChangeCounts changes = announced_changes();
  std::printf("Replayed %" PRIu64 " records of %" PRIu64 " files\n", counts.records, counts.files);
  std::printf("  sessions started %" PRIu64 ", updated %" PRIu64 ", stopped %" PRIu64
              ", accounting-on and -off %" PRIu64 "\n",
              of(Outcome::kStarted), of(Outcome::kUpdated), of(Outcome::kStopped),
              of(Outcome::kServerEnded));
  std::printf("  stops of unknown sessions %" PRIu64 ", incomplete %" PRIu64 ", other %" PRIu64
              ", failed %" PRIu64 "\n",
              of(Outcome::kUnknown), of(Outcome::kIncomplete), of(Outcome::kIgnored),
              of(Outcome::kFailed));
  std::printf("  damaged records %" PRIu64 ", unknown attributes %" PRIu64 ", bad values %" PRIu64
              "\n",
              counts.damaged, counts.pairs.unknown, counts.pairs.bad);
  std::printf("  changes announced %" PRIu64 ", removals announced %" PRIu64 "\n",
              changes.added_or_updated, changes.removed);
  std::printf("Live sessions: %" PRIu32 "\n", attrdb_get_total_sessions());
}

void show(uint32_t command_type, uint64_t filter) {
  kivo_show_db(command_type, filter);
  std::fputc('\n', stdout);
}

// Returns the exit status.
int show_what_was_asked(kivo_db *db, const Options &options) {
  if (options.show) show(KIVO_SHOW_NOTIFICATIONS, 0);
  if (options.attributes) {
    kivo_show_attrs_short(db);
    std::fputc('\n', stdout);
  }
  if (options.counts) {
    kivo_show_all_records(0);
    std::fputc('\n', stdout);
  }
  if (options.records) {
    kivo_show_all_records(1);
    std::fputc('\n', stdout);
  }
  if (options.session_id) {
    show(KIVO_SHOW_BY_AUDIT_SESSION, reinterpret_cast<uint64_t>(options.session_id->c_str()));
  }
  if (options.mac) show(KIVO_SHOW_BY_MAC, reinterpret_cast<uint64_t>(options.mac->data()));
  if (options.ipv4) show(KIVO_SHOW_BY_IPV4, *options.ipv4);
  if (options.match.empty()) return 0;
  switch (print_matches(db, options.match)) {
    case MatchResult::kFound:
    case MatchResult::kNone:
      return 0;
    case MatchResult::kNotIndexed:
      std::fputs("kivod: --match needs a condition on an indexed attribute\n", stderr);
      return kUsageError;
    case MatchResult::kFailed:
      break;
  }
  std::fputs("kivod: the query failed\n", stderr);
  return kFailed;
}

int run(const Options &options) {
  kivo_db *db = open_session_database();
  if (db == nullptr) return kFailed;
  std::string error;
  auto decoder = PairDecoder::open(options.dictionaries, error);
  if (!decoder) {
    std::fprintf(stderr, "kivod: %s\n", error.c_str());
    return kFailed;
  }
  SessionTable sessions(db);
  Replay replay(*decoder, sessions);
  int status = 0;
  for (const std::string &path : options.replay) {
    if (replay.run(path, error)) continue;
    std::fprintf(stderr, "kivod: %s\n", error.c_str());
    status = kFailed;
  }
  replay.report_suppressed();
  if (!options.quiet && !options.replay.empty()) print_summary(replay.counts());
  const int shown = show_what_was_asked(db, options);
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fputs("kivod: cannot write to standard output\n", stderr);
    return kFailed;
  }
  if (status == 0) status = shown;
  if (!options.serve || status != 0) return status;
  if (serve(options.socket, options.group, error)) return 0;
  std::fprintf(stderr, "kivod: %s\n", error.c_str());
  return kFailed;
}

}  // namespace

int main(int argc, char **argv) {
  int exit_status = 0;
  const auto options = kivod::parse_options(argc, argv, exit_status);
  if (!options) return exit_status;
  trace_add_stream_sink(stderr);
  try {
    return run(*options);
  } catch (const std::bad_alloc &) {
    std::fputs("kivod: out of memory\n", stderr);
    return kFailed;
  }
}
