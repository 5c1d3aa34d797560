// Trace facility: levels, records, scopes, the sinks, and the stop on a broken precondition.
#include "platform/trace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "platform/status.h"
#include "support/failing_new.h"

// Stand in for the C library's two, of which the compiler's options choose one: what would go to
// the system's log is kept here.
static std::string g_syslog;
static int g_syslog_priority = -1;
static size_t g_syslog_lines = 0;
static void keep_syslog(int priority, const char *fmt, va_list args) {
  char text[4096];
  vsnprintf(text, sizeof text, fmt, args);
  g_syslog = text;
  g_syslog_priority = priority;
  ++g_syslog_lines;
}
extern "C" void syslog(int priority, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  keep_syslog(priority, fmt, args);
  va_end(args);
}
extern "C" void __syslog_chk(int priority, int, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  keep_syslog(priority, fmt, args);
  va_end(args);
}

// The records' clock, when it is set, and what a system may not have or permit.
static uint64_t g_now_ms = 0;
extern "C" int clock_gettime(clockid_t id, timespec *now) noexcept {
  if (g_now_ms == 0) return static_cast<int>(syscall(SYS_clock_gettime, id, now));
  *now = {static_cast<time_t>(g_now_ms / 1000), static_cast<long>(g_now_ms % 1000 * 1'000'000)};
  return 0;
}

static bool g_has_nowait = true;
extern "C" ssize_t pwritev2(int fd, const iovec *pieces, int n, off_t offset, int flags) {
  if (g_has_nowait) return syscall(SYS_pwritev2, fd, pieces, n, offset, 0, flags);
  errno = EOPNOTSUPP;
  return -1;
}

static bool g_may_open = true;
extern "C" int open(const char *path, int flags, ...) {
  if (g_may_open || std::strcmp(path, "/dev/tty") == 0) {
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0600));
  }
  errno = EACCES;
  return -1;
}

namespace {

// A sink that keeps what it sees, with the text copied.
struct Seen {
  trace_record record;
  std::string text;
};

void keep(const trace_record *record, void *arg) {
  static_cast<std::vector<Seen> *>(arg)->push_back({*record, {record->text, record->length}});
}

class TraceTest : public ::testing::Test {
 protected:
  TraceTest() { EXPECT_EQ(PLATFORM_OK, trace_add_sink(keep, nullptr, &seen_)); }
  ~TraceTest() override {
    trace_remove_sink(keep, &seen_);
    trace_set_all_levels(TRACE_LEVEL_DEFAULT);
  }

  std::vector<Seen> seen_;
};

TEST(TraceLevels, DefaultAtLoadAndSetByModule) {
  for (const uint8_t level : trace_levels) ASSERT_EQ(TRACE_LEVEL_DEFAULT, level);
  trace_set_level(7, 6);
  trace_set_level(TRACE_MODULES + 9, 0);
  trace_set_level(11, 1000);
  const struct {
    uint16_t module;
    uint32_t highest_written;
  } rows[] = {{7, 6}, {8, TRACE_LEVEL_DEFAULT}, {9, 0}, {TRACE_MODULES + 7, 6}, {11, 255}};
  for (const auto &row : rows) {
    EXPECT_EQ(1, trace_enabled(row.module, row.highest_written)) << row.module;
    EXPECT_EQ(0, trace_enabled(row.module, row.highest_written + 1)) << row.module;
  }
  trace_set_all_levels(3);
  EXPECT_EQ(0, trace_enabled(11, 4));
  trace_set_all_levels(TRACE_LEVEL_DEFAULT);
}

// Module, level, number and text.
std::string line_of(const Seen &seen) {
  return std::to_string(seen.record.module) + " " + std::to_string(seen.record.level) + " " +
         std::to_string(seen.record.number) + " " + seen.text;
}

TEST_F(TraceTest, RecordsCarryWhatWasWritten) {
  trace_write(1924, 3, 17, "%s has %d labels", "list", 12);
  trace_follow_on(18, "more");
  trace_write(5, 6, 1, nullptr);
  ASSERT_EQ(3U, seen_.size());
  EXPECT_EQ("1924 3 17 list has 12 labels", line_of(seen_[0]));
  EXPECT_EQ("1924 3 18 more", line_of(seen_[1]));
  EXPECT_EQ("5 6 1 ", line_of(seen_[2]));
  EXPECT_EQ(seen_[0].record.sequence + 2, seen_[2].record.sequence);
}

TEST_F(TraceTest, LongTextIsCut) {
  const std::string exact(TRACE_TEXT_MAX - 1, 'x');
  trace_write(1, 1, 1, "%s", exact.c_str());
  trace_write(1, 1, 1, "%syy", exact.c_str());
  EXPECT_EQ(exact, seen_.at(0).text);
  EXPECT_EQ(exact, seen_.at(1).text);
}

TEST_F(TraceTest, FormatThatPrintfRefusesStillMakesARecord) {
  trace_write(1, 1, 1, "%ls", L"\x80");  // no character of the C locale
  EXPECT_EQ("(text cannot be formatted)", seen_.at(0).text);
}

TEST_F(TraceTest, ErrnoStaysTheCallers) {
  const auto spoil = [](const trace_record *, void *) { errno = EIO; };
  const auto spoil_flush = [](void *) { errno = EIO; };
  ASSERT_EQ(PLATFORM_OK, trace_add_sink(spoil, spoil_flush, nullptr));
  errno = ENOENT;
  const char *fmt = "%m%s";  // hidden from the compiler, which knows no %m in this language
  trace_write(1, 1, 1, fmt, "");
  EXPECT_EQ(ENOENT, errno);
  trace_flush();
  EXPECT_EQ(ENOENT, errno);
  trace_remove_sink(spoil, nullptr);
  EXPECT_EQ("No such file or directory", seen_.at(0).text);
}

TEST_F(TraceTest, ScopesIndentAndBalanceBeyondTheMaximum) {
  trace_indent_pop();  // one too many stops at 0
  trace_write(1, 1, 0, "outside");
  for (uint32_t i = 0; i < TRACE_INDENT_MAX + 5; ++i) trace_indent_push();
  trace_write(1, 1, 0, "deep");
  for (uint32_t i = 0; i < TRACE_INDENT_MAX + 4; ++i) trace_indent_pop();
  trace_write(1, 1, 0, "one");
  trace_indent_pop();
  trace_write(1, 1, 0, "outside");
  const std::vector<uint16_t> expected = {0, TRACE_INDENT_MAX, 1, 0};
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(expected[i], seen_.at(i).record.indent) << i;
  }
}

TEST_F(TraceTest, TraceFromInsideASinkIsDropped) {
  const auto chatty = [](const trace_record *, void *) {
    trace_write(1, 1, 2, "again");
    trace_follow_on(3, "and again");
  };
  const auto chatty_flush = [](void *) { trace_write(1, 1, 4, "flushing"); };
  ASSERT_EQ(PLATFORM_OK, trace_add_sink(chatty, chatty_flush, nullptr));
  trace_write(1, 1, 1, "first");
  trace_flush();
  trace_remove_sink(chatty, nullptr);
  trace_write(1, 1, 5, "second");
  ASSERT_EQ(2U, seen_.size());
  EXPECT_EQ(1U, seen_[0].record.number);
  EXPECT_EQ(seen_[0].record.sequence + 1, seen_[1].record.sequence);
}

TEST(TraceSinks, AreCalledInOrderAndRemovedByFunctionAndArgument) {
  static std::string order;
  const auto append = [](const trace_record *, void *arg) { order += *static_cast<char *>(arg); };
  const auto append_flush = [](void *arg) {
    order += static_cast<char>(*static_cast<char *>(arg) - 32);
  };
  char names[] = "abc";
  for (int i = 0; i < 3; ++i)
    ASSERT_EQ(PLATFORM_OK, trace_add_sink(append, append_flush, &names[i]));
  trace_write(1, 1, 1, "x");
  trace_remove_sink(append, &names[1]);
  trace_remove_sink(append, &names[1]);
  trace_write(1, 1, 1, "x");
  trace_flush();
  EXPECT_EQ("abcacAC", order);
  trace_remove_sink(append, &names[0]);
  trace_remove_sink(append, &names[2]);
}

TEST(TraceSinks, AreRefusedWhenNullOrTooMany) {
  EXPECT_EQ(AAA_ERR_INVALID_ARG, trace_add_sink(nullptr, nullptr, nullptr));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, trace_add_stream_sink(nullptr));
  std::vector<Seen> seen;
  for (uint32_t i = 0; i < TRACE_SINKS_MAX; ++i) {
    ASSERT_EQ(PLATFORM_OK, trace_add_sink(keep, nullptr, &seen));
  }
  EXPECT_EQ(AAA_ERR_NO_ROOM, trace_add_sink(keep, nullptr, &seen));
  EXPECT_EQ(nullptr, trace_ring_create(4));
  EXPECT_EQ(AAA_ERR_NO_ROOM, trace_add_stream_sink(stdout));
  for (uint32_t i = 0; i < TRACE_SINKS_MAX; ++i) trace_remove_sink(keep, &seen);
  trace_write(1, 1, 1, "x");
  EXPECT_TRUE(seen.empty());
  failing_new::fail_nth(1);
  EXPECT_EQ(AAA_ERR_NO_MEMORY, trace_add_stream_sink(stdout));
  failing_new::disarm();
}

TEST_F(TraceTest, StreamGetsOneLineARecordWhateverTheTextHolds) {
  char *bytes = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&bytes, &size);
  ASSERT_EQ(PLATFORM_OK, trace_add_stream_sink(stream));
  trace_write(1924, 3, 12, "plain");
  trace_indent_push();
  trace_write(TRACE_MODULE_HOST_APP, 8, 4294967295U, "a\nb\x1b[31m\t\x7f \xc3\xa9");
  trace_indent_pop();
  trace_write(TRACE_MODULE_PLATFORM, 9, 0, "%s", std::string(TRACE_TEXT_MAX, '\r').c_str());
  trace_remove_stream_sink(stream);
  trace_write(1, 1, 1, "not here");
  std::fclose(stream);

  std::vector<std::string> lines = {
      "[module 1924] error 12: plain\n",
      "[host] detail 4294967295:   a\\x0ab\\x1b[31m\\x09\\x7f \xc3\xa9\n",
      "[platform] level-9 0: "};
  for (uint32_t i = 1; i < TRACE_TEXT_MAX; ++i) lines[2] += "\\x0d";
  std::string expected;
  for (size_t i = 0; i < lines.size(); ++i) {
    const uint64_t time_ns = seen_.at(i).record.time_ns;
    const auto seconds = static_cast<time_t>(time_ns / 1'000'000'000);
    char time[64];
    strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%S.", gmtime(&seconds));
    expected += time + std::to_string(1'000'000 + time_ns / 1000 % 1'000'000).substr(1) + "Z ";
    expected += lines[i];
  }
  EXPECT_EQ(expected + "\n", std::string(bytes, size));
  std::free(bytes);
}

TEST(TraceSyslog, LevelIsThePriority) {
  ASSERT_EQ(PLATFORM_OK, trace_add_syslog_sink());
  trace_write(TRACE_MODULE_REQUEST_HANDLER, 4, 5, "100%% of\n%s", "it");
  EXPECT_EQ(LOG_WARNING, g_syslog_priority);
  EXPECT_EQ("[request handler] 5: 100% of\\x0ait", g_syslog);
  trace_write(1, 8, 5, "x");
  EXPECT_EQ(LOG_DEBUG, g_syslog_priority);
  EXPECT_EQ(PLATFORM_OK, trace_add_syslog_sink());  // is there already
  const size_t before = g_syslog_lines;
  trace_write(1, 8, 5, "x");
  EXPECT_EQ(before + 1, g_syslog_lines);
  trace_remove_syslog_sink();
  trace_write(1, 2, 5, "y");
  EXPECT_EQ("[module 1] 5: x", g_syslog);
}

// The lines of a sink's output that are whole, without their times.
std::vector<std::string> lines_of(const std::string &bytes) {
  std::vector<std::string> lines;
  for (size_t at = 0, end; (end = bytes.find('\n', at)) != bytes.npos; at = end + 1) {
    lines.push_back(bytes.substr(at, end - at));
    if (lines.back().size() > 28 && lines.back()[27] == ' ') lines.back().erase(0, 28);
  }
  return lines;
}

struct Flood {
  const char *name;
  uint64_t at_ms;
  uint32_t level;
  uint16_t module;
  uint32_t number;
  uint32_t n_numbers;  // from that one on
  uint32_t n_records;  // of each
  size_t n_lines;
  const char *first_line;
};

// What is not told by a row's first line is told by the flush or at the end.
TEST(TraceSinks, PassOnTwentyOfAKindInTenSeconds) {
  const Flood rows[] = {
      {"Twenty", 100'000, 3, 1, 7, 1, 25, 20, "[module 1] error 7: x"},
      {"OtherNumber", 100'000, 5, 1, 8, 1, 2, 2, "[module 1] notice 8: x"},
      {"OtherModule", 100'000, 0, 2, 7, 1, 1, 1, "[module 2] emergency 7: x"},
      {"OtherLevel", 109'999, 2, 1, 7, 1, 1, 0, ""},
      {"Unbounded", 109'999, 6, 1, 7, 1, 30, 30, "[module 1] info 7: x"},
      {"Later", 110'000, 7, 3, 1, 1, 1, 2,
       "[platform] critical 2: records of [module 1] 7 left out: 6"},
      {"Again", 110'000, 3, 1, 7, 1, 21, 20, "[module 1] error 7: x"},
      {"ClockSetBack", 50'000, 4, 1, 7, 1, 22, 21,
       "[platform] error 2: records of [module 1] 7 left out: 1"},
      {"Flush", 50'000, 4, 0, 0, 0, 0, 1,
       "[platform] warning 2: records of [module 1] 7 left out: 2"},
      {"Kinds", 200'000, 3, 1, 100, TRACE_LIMIT_KINDS, 20, 20 * TRACE_LIMIT_KINDS,
       "[module 1] error 100: x"},
      {"MoreKinds", 200'000, 3, 1024, 500, 10, 3, 20, "[host] error 500: x"},
      {"KindsAnew", 210'000, 3, 1024, 600, TRACE_LIMIT_KINDS - 1, 20, 20 * TRACE_LIMIT_KINDS - 19,
       "[platform] error 2: records of other kinds left out: 10"},
      {"One", 210'000, 3, 1024, 600, 1, 1, 0, ""},
  };
  char *bytes = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&bytes, &size);
  ASSERT_EQ(PLATFORM_OK, trace_add_stream_sink(stream));
  ASSERT_EQ(PLATFORM_OK, trace_add_syslog_sink());
  auto check = [&, at = size_t{0}](const Flood &row) mutable {
    std::fflush(stream);
    const std::vector<std::string> lines = lines_of(bytes + at);
    at = size;
    EXPECT_EQ(row.n_lines, lines.size()) << row.name;
    EXPECT_EQ(row.n_lines, std::exchange(g_syslog_lines, 0)) << row.name;
    EXPECT_EQ(row.first_line, lines.empty() ? "" : lines[0]) << row.name;
  };
  g_syslog_lines = 0;
  for (const Flood &row : rows) {
    g_now_ms = row.at_ms;
    for (uint32_t i = 0; i < row.n_numbers * row.n_records; ++i) {
      trace_write(row.module, row.level, row.number + i / row.n_records, "x");
    }
    if (row.n_records == 0) trace_flush();
    check(row);
  }
  trace_remove_stream_sink(stream);
  trace_remove_syslog_sink();
  check({"End", 0, 0, 0, 0, 0, 0, 1, "[platform] error 2: records of [host] 600 left out: 1"});
  g_now_ms = 0;
  std::fclose(stream);
  std::free(bytes);
}

struct FullStream {
  const char *name;
  bool is_socket;
  int n_pages;      // that a pipe has
  bool has_nowait;  // the kernel, for pipes
  bool may_open;    // the stream's file
  bool moves;       // to another file, when it is full
  size_t n_records;
};

class TraceStream : public ::testing::TestWithParam<FullStream> {
 protected:
  // Reader and writer.
  void make_ends(int (&ends)[2]) const {
    ASSERT_EQ(0, GetParam().is_socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends));
    ASSERT_EQ(0, fcntl(ends[0], F_SETFL, O_NONBLOCK));
    fcntl(ends[1], F_SETPIPE_SZ, GetParam().n_pages * 4096);
  }

  static std::string read_all(int fd) {
    std::string bytes;
    char piece[4096];
    for (ssize_t n; (n = read(fd, piece, sizeof piece)) > 0;) {
      bytes.append(piece, static_cast<size_t>(n));
    }
    return bytes;
  }
};

// Every third line has more bytes than a page.
TEST_P(TraceStream, IsNotWaitedForWhenItIsFull) {
  const FullStream &row = GetParam();
  const auto text = [](size_t i) {
    return std::to_string(i) + std::string(i % 3 == 0 ? TRACE_TEXT_MAX - 8 : 5, '\t');
  };
  int ends[2];
  int others[2];
  make_ends(ends);
  make_ends(others);
  FILE *stream = fdopen(ends[1], "w");
  ASSERT_EQ(PLATFORM_OK, trace_add_stream_sink(stream));
  g_has_nowait = row.has_nowait;
  g_may_open = row.may_open;
  alarm(60);  // instead of waiting for ever
  for (size_t i = 0; i < row.n_records; ++i) trace_write(1, 7, 1, "%s", text(i).c_str());
  EXPECT_EQ(0, fcntl(ends[1], F_GETFL) & O_NONBLOCK);
  std::fputs("the process's own\n", stream);
  trace_flush();
  std::string bytes = read_all(ends[0]);
  if (row.moves) {
    bytes.erase(bytes.rfind('\n') + 1);
    dup2(others[1], ends[1]);
  }
  const int reader = row.moves ? others[0] : ends[0];
  for (int i = 0; i < 4; ++i) {  // a page has room for one of them
    trace_flush();
    bytes += read_all(reader);
  }
  trace_write(1, 7, 1, "end");
  const std::vector<std::string> lines = lines_of(bytes + read_all(reader));
  trace_remove_stream_sink(stream);
  alarm(0);
  g_has_nowait = g_may_open = true;
  std::fclose(stream);
  for (const int fd : {ends[0], others[0], others[1]}) close(fd);

  const auto own = std::find(lines.begin(), lines.end(), "the process's own");
  const auto n_written = static_cast<size_t>(own - lines.begin());
  for (size_t i = 0; i < n_written; ++i) {
    std::string expected = "[module 1] debug 1: " + text(i);
    for (size_t tab; (tab = expected.find('\t')) != expected.npos;) {
      expected.replace(tab, 1, "\\x09");
    }
    ASSERT_EQ(expected, lines[i]);
  }
  std::vector<std::string> last = {"the process's own"};
  std::vector<size_t> n_lost = {row.n_records - n_written};
  if (row.moves) n_lost = {n_lost[0] - 1, 1};  // that one line was cut shows later
  for (const size_t n : n_lost) {
    if (n != 0) {
      last.push_back("[platform] warning 3: lines lost for want of room: " + std::to_string(n));
    }
  }
  last.emplace_back("[module 1] debug 1: end");
  EXPECT_EQ(last, std::vector<std::string>(own, lines.end()));
}

INSTANTIATE_TEST_SUITE_P(
    , TraceStream,
    ::testing::Values(FullStream{"Pipe", false, 16, true, true, false, 1500},
                      FullStream{"PipeReopened", false, 16, false, true, false, 1500},
                      FullStream{"PipeOfAnother", false, 16, false, false, false, 1500},
                      FullStream{"Page", false, 1, true, true, false, 1},
                      FullStream{"PageReopened", false, 1, false, true, false, 3},
                      FullStream{"PageOfAnother", false, 1, false, false, false, 3},
                      FullStream{"PageThatMoves", false, 1, true, true, true, 3},
                      FullStream{"Socket", true, 0, true, true, false, 1500}),
    [](const auto &row) { return row.param.name; });

// Whose own file may be another user's.
TEST(TraceStreamDeathTest, ATerminalIsNotWaitedForWhenItIsFull) {
  for (const bool may_open : {true, false}) {
    const auto fill = [=] {
      setsid();
      const int master = posix_openpt(O_RDWR | O_NOCTTY);
      grantpt(master);
      unlockpt(master);
      FILE *terminal = std::fopen(ptsname(master), "r+");  // becomes the controlling one
      trace_add_stream_sink(terminal);
      g_may_open = may_open;
      alarm(60);  // instead of waiting for ever
      for (int i = 0; i < 3000; ++i) trace_write(1, 7, 1, "%0*d", i % 100, 0);
      std::exit(read(master, &g_now_ms, 1) == 1 ? 0 : 1);
    };
    EXPECT_EXIT(fill(), ::testing::ExitedWithCode(0), "") << may_open;
  }
}

std::string texts_of(const trace_ring *ring) {
  std::vector<Seen> seen;
  trace_ring_walk(ring, keep, &seen);
  std::string texts;
  for (const Seen &at : seen) texts += at.text + " ";
  return texts;
}

TEST(TraceRing, KeepsTheLastRecords) {
  trace_ring *ring = trace_ring_create(3);
  ASSERT_NE(nullptr, ring);
  EXPECT_EQ("", texts_of(ring));
  for (int i = 1; i <= 2; ++i) trace_write(1, 1, 1, "r%d", i);
  EXPECT_EQ("r1 r2 ", texts_of(ring));
  for (int i = 3; i <= 5; ++i) trace_write(1, 1, 1, "r%d", i);
  EXPECT_EQ("r3 r4 r5 ", texts_of(ring));
  trace_write(1, 1, 1, "%s", std::string(300, 'z').c_str());
  EXPECT_EQ("r4 r5 " + std::string(255, 'z') + " ", texts_of(ring));
  trace_ring_destroy(ring);
  trace_write(1, 1, 1, "into nothing");
}

TEST(TraceRing, MayBeTracedIntoWhileItIsWalked) {
  trace_ring *ring = trace_ring_create(3);
  for (int i = 1; i <= 3; ++i) trace_write(1, 1, 1, "r%d", i);
  std::string texts;
  trace_ring_walk(
      ring,
      [](const trace_record *record, void *arg) {
        for (int i = 0; i < 2; ++i) trace_write(1, 1, 1, "new");
        *static_cast<std::string *>(arg) += std::string(record->text) + " ";
      },
      &texts);
  // The two that came in at r1 overwrote r1 and r2.
  EXPECT_EQ("r1 r3 ", texts);
  EXPECT_EQ("new new new ", texts_of(ring));
  trace_ring_destroy(ring);
}

TEST(TraceRing, IsRefusedForABadCountOrWithoutMemory) {
  EXPECT_EQ(nullptr, trace_ring_create(0));
  EXPECT_EQ(nullptr, trace_ring_create(65'537));
  failing_new::fail_nth(1);
  EXPECT_EQ(nullptr, trace_ring_create(3));
  failing_new::disarm();
  trace_ring_destroy(nullptr);
}

constexpr const char *kStopPattern =
    "fatal: \"name != nullptr\" does not hold at some/file.cpp:603";

TEST(FatalStopDeathTest, AbortsWithConditionAndPlace) {
  EXPECT_EXIT(fatal_stop("name != nullptr", "some/file.cpp", 603),
              ::testing::KilledBySignal(SIGABRT), kStopPattern);
  EXPECT_EXIT(fatal_stop(nullptr, nullptr, 0), ::testing::KilledBySignal(SIGABRT), "fatal: ");
}

TEST(FatalStopDeathTest, WritesAndFlushesThroughTheSinksAtEveryLevel) {
  EXPECT_EXIT(
      {
        static char buffer[BUFSIZ];
        setvbuf(stderr, buffer, _IOFBF, sizeof buffer);  // nothing shows without the flush
        trace_set_all_levels(0);
        trace_add_stream_sink(stderr);
        fatal_stop("name != nullptr", "some/file.cpp", 603);
      },
      ::testing::KilledBySignal(SIGABRT),
      std::string("\\[platform\\] emergency .*") + kStopPattern);
}

TEST(FatalStopDeathTest, SpeaksUpAlsoFromInsideASink) {
  EXPECT_EXIT(
      {
        trace_add_sink([](const trace_record *,
                          void *) { fatal_stop("name != nullptr", "some/file.cpp", 603); },
                       nullptr, nullptr);
        trace_write(1, 1, 1, "x");
      },
      ::testing::KilledBySignal(SIGABRT), kStopPattern);
}

}  // namespace
