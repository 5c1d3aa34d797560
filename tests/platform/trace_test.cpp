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
#include <cstdlib>
#include <cstring>

#include "platform/status.h"
#include "support/memory_faults.h"

// ---- In place of the system's

using Lines = std::vector<std::string>;
static Lines g_syslog;            // with the priority
static uint64_t g_now_ns = 0;     // the records' clock, when it is set
static bool g_has_nowait = true;  // the kernel
static bool g_may_open = true;    // descriptors anew

extern "C" {

void vsyslog(int priority, const char *fmt, va_list args) {
  char text[4096];
  vsnprintf(text, sizeof text, fmt, args);
  g_syslog.push_back(std::to_string(priority) + text);
}
void syslog(int priority, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  vsyslog(priority, fmt, args);
  va_end(args);
}
// Which of the two it is the compiler's options choose.
void __syslog_chk(int priority, int, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  vsyslog(priority, fmt, args);
  va_end(args);
}

int clock_gettime(clockid_t id, timespec *now) noexcept {
  if (g_now_ns == 0) return static_cast<int>(syscall(SYS_clock_gettime, id, now));
  *now = {static_cast<time_t>(g_now_ns / 1000000000), static_cast<long>(g_now_ns % 1000000000)};
  return 0;
}

ssize_t pwritev2(int fd, const iovec *pieces, int n, off_t offset, int flags) {
  if (g_has_nowait) return syscall(SYS_pwritev2, fd, pieces, n, offset, 0, flags);
  errno = EOPNOTSUPP;
  return -1;
}

int open(const char *path, int flags, ...) {
  if (g_may_open || std::strcmp(path, "/dev/tty") == 0) {
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0600));
  }
  errno = EACCES;
  return -1;
}

}  // extern "C"

namespace {

// Keeps what is in a record, the text last.
void keep(const trace_record *record, void *lines) {
  char head[64];
  std::snprintf(head, sizeof head, "%u %u %u %u ", record->module, record->level, record->number,
                record->indent);
  static_cast<Lines *>(lines)->push_back(head + std::string(record->text, record->length));
}

TEST(Trace, LevelsAreTheDefaultAtLoadAndSetByModule) {
  for (const uint8_t level : trace_levels) ASSERT_EQ(TRACE_LEVEL_DEFAULT, level);
  trace_set_level(7, 6);
  trace_set_level(TRACE_MODULES + 9, 0);
  trace_set_level(11, 1000);
  const uint32_t highest[][2] = {
      {7, 6}, {8, TRACE_LEVEL_DEFAULT}, {9, 0}, {TRACE_MODULES + 7, 6}, {11, 255}};
  for (const auto &[module, level] : highest) {
    EXPECT_EQ(1, trace_enabled(static_cast<uint16_t>(module), level)) << module;
    EXPECT_EQ(0, trace_enabled(static_cast<uint16_t>(module), level + 1)) << module;
  }
  trace_set_all_levels(256);
  EXPECT_EQ(255, trace_levels[TRACE_MODULES - 1]);
  trace_set_all_levels(TRACE_LEVEL_DEFAULT);
}

// A sink that spoils and traces what it can; a trace from inside one is dropped.
void spoil(const trace_record *, void *) {
  trace_write(1, 1, 2, "again");
  trace_follow_on(3, "and again");
  trace_flush();
  errno = EIO;
}
void spoil_flush(void *) {
  trace_write(1, 1, 4, "flushing");
  errno = EIO;
}

TEST(Trace, RecordsReachTheSinksAsTheyWereWritten) {
  const std::string longest(TRACE_TEXT_MAX - 1, 'x');
  const char *fmt = "%m%s";  // hidden from the compiler, which knows no %m in this language
  Lines seen;
  uint64_t last = UINT64_MAX;
  const auto count = [](const trace_record *record, void *at) {
    auto &sequence = *static_cast<uint64_t *>(at);
    EXPECT_EQ(sequence == UINT64_MAX ? record->sequence : sequence + 1, record->sequence);
    sequence = record->sequence;
  };
  trace_add_sink(keep, nullptr, &seen);
  trace_add_sink(spoil, spoil_flush, nullptr);
  trace_add_sink(count, nullptr, &last);
  trace_follow_on(1, "%s", "first");
  errno = ENOENT;
  trace_write(1924, 3, 17, fmt, "");
  EXPECT_EQ(ENOENT, errno);
  trace_flush();
  EXPECT_EQ(ENOENT, errno);
  trace_follow_on(18, "more");
  trace_write(5, 6, 1, nullptr);
  trace_write(1, 1, 1, "%s", longest.c_str());
  trace_write(1, 1, 1, "%syy", longest.c_str());
  trace_write(1, 1, 1, "%ls", L"\x80");  // no character of the C locale
  trace_indent_pop();                    // one too many stops at 0
  trace_write(1, 1, 0, "outside");
  for (uint32_t i = 0; i < TRACE_INDENT_MAX + 5; ++i) trace_indent_push();
  trace_write(1, 1, 0, "deep");
  for (uint32_t i = 0; i < TRACE_INDENT_MAX + 4; ++i) trace_indent_pop();
  trace_write(1, 1, 0, "in one");
  trace_indent_pop();
  trace_write(1, 1, 0, "outside");
  trace_remove_sink(count, &last);
  trace_remove_sink(spoil, nullptr);
  trace_remove_sink(keep, &seen);
  trace_write(1, 1, 1, "to nobody");
  EXPECT_EQ((Lines{"0 5 1 0 first", "1924 3 17 0 No such file or directory", "1924 3 18 0 more",
                   "5 6 1 0 ", "1 1 1 0 " + longest, "1 1 1 0 " + longest,
                   "1 1 1 0 (text cannot be formatted)", "1 1 0 0 outside", "1 1 0 32 deep",
                   "1 1 0 1 in one", "1 1 0 0 outside"}),
            seen);
}

TEST(Trace, SinksAreSoManyInTheirOrder) {
  static std::string order;
  const auto append = [](const trace_record *, void *arg) { order += *static_cast<char *>(arg); };
  const auto append_flush = [](void *arg) { order += *static_cast<char *>(arg), order += '.'; };
  char names[] = "abcdefghijklmnop";
  static_assert(sizeof names == TRACE_SINKS_MAX + 1);
  for (uint32_t i = 0; i < TRACE_SINKS_MAX; ++i) {
    ASSERT_EQ(PLATFORM_OK, trace_add_sink(append, append_flush, &names[i]));
  }
  EXPECT_EQ(AAA_ERR_NO_ROOM, trace_add_sink(append, nullptr, names));
  EXPECT_EQ(AAA_ERR_NO_ROOM, trace_add_stream_sink(stdout));
  EXPECT_EQ(nullptr, trace_ring_create(4));
  for (uint32_t i = 3; i < TRACE_SINKS_MAX; ++i) trace_remove_sink(append, &names[i]);
  trace_write(1, 1, 1, "x");
  trace_remove_sink(append, &names[1]);
  trace_remove_sink(append, &names[1]);
  trace_write(1, 1, 1, "x");
  trace_flush();
  EXPECT_EQ("abcaca.c.", order);
  for (char &name : names) trace_remove_sink(append, &name);
  EXPECT_EQ(AAA_ERR_INVALID_ARG, trace_add_sink(nullptr, nullptr, nullptr));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, trace_add_stream_sink(nullptr));
  const size_t before = memory_faults::live_bytes;
  memory_faults::arm(1);
  EXPECT_EQ(AAA_ERR_NO_MEMORY, trace_add_stream_sink(stdout));
  memory_faults::arm(1);
  EXPECT_EQ(nullptr, trace_ring_create(3));
  memory_faults::disarm();
  EXPECT_EQ(before, memory_faults::live_bytes);
}

// A stream into memory that is a sink.
class Stream {
 public:
  Stream() { trace_add_stream_sink(file_); }
  ~Stream() {
    trace_remove_stream_sink(file_);
    std::fclose(file_);
    std::free(bytes_);
  }
  // What came since the last call.
  std::string take() {
    std::fflush(file_);
    return std::string(bytes_ + std::exchange(taken_, size_), bytes_ + size_);
  }
  void remove() const { trace_remove_stream_sink(file_); }

 private:
  char *bytes_ = nullptr;
  size_t size_ = 0;
  size_t taken_ = 0;
  FILE *file_ = open_memstream(&bytes_, &size_);
};

TEST(Trace, AStreamGetsOneLineARecordWhateverTheTextHolds) {
  Stream one;
  Stream other;
  const std::string time = "2024-02-29T23:59:59.000001Z ";
  g_now_ns = 1709251199000001999;
  trace_write(1924, 3, 12, "plain");
  trace_indent_push();
  trace_write(TRACE_MODULE_HOST_APP, 8, 4294967295U, "a\nb\x1b[31m\t\x7f \xc3\xa9\x1f");
  trace_indent_pop();
  trace_write(TRACE_MODULE_PLATFORM, 9, 0, "%s", std::string(TRACE_TEXT_MAX, '\r').c_str());
  std::string expected = time + "[module 1924] error 12: plain\n" + time +
                         "[host] detail 4294967295:   a\\x0ab\\x1b[31m\\x09\\x7f \xc3\xa9\\x1f\n" +
                         time + "[platform] level-9 0: ";
  for (uint32_t i = 1; i < TRACE_TEXT_MAX; ++i) expected += "\\x0d";
  EXPECT_EQ(expected + "\n", one.take());
  EXPECT_EQ(expected + "\n", other.take());
  errno = ENOENT;
  one.remove();
  EXPECT_EQ(ENOENT, errno);
  trace_write(TRACE_MODULE_REQUEST_HANDLER, 0, 1, " ");
  EXPECT_EQ("", one.take());
  EXPECT_EQ(time + "[request handler] emergency 1:  \n", other.take());
  g_now_ns = 0;
}

TEST(Trace, SyslogTakesTheLevelAsPriority) {
  g_syslog.clear();
  EXPECT_EQ(PLATFORM_OK, trace_add_syslog_sink());
  EXPECT_EQ(PLATFORM_OK, trace_add_syslog_sink());  // is there already
  trace_write(TRACE_MODULE_REQUEST_HANDLER, 4, 5, "100%% of\n%s", "it");
  trace_write(1, 8, 5, "x");
  errno = ENOENT;
  trace_remove_syslog_sink();
  EXPECT_EQ(ENOENT, errno);
  trace_write(1, 2, 5, "y");
  EXPECT_EQ((Lines{"4[request handler] 5: 100% of\\x0ait", "7[module 1] 5: x"}), g_syslog);
}

// The lines that are whole, without their times.
Lines lines_of(const std::string &bytes) {
  Lines lines;
  for (size_t at = 0, end; (end = bytes.find('\n', at)) != bytes.npos; at = end + 1) {
    lines.push_back(bytes.substr(at, end - at));
    if (lines.back().size() > 28 && lines.back()[27] == ' ') lines.back().erase(0, 28);
  }
  return lines;
}

// What is not told by a row's first line is told by the flush or at the end.
TEST(Trace, TwentyOfAKindInTenSecondsPass) {
  const struct {
    uint64_t at_ms;
    uint32_t level;
    uint16_t module;
    uint32_t number;
    uint32_t n_numbers;  // from that one on
    uint32_t n_records;  // of each
    size_t n_lines;
    std::string first_line = "";
  } rows[] = {
      {100'000, 3, 1, 7, 1, 25, 20, "[module 1] error 7: x"},
      {100'000, 5, 1, 8, 1, 2, 2, "[module 1] notice 8: x"},  // other number, module, level
      {100'000, 0, 2, 7, 1, 1, 1, "[module 2] emergency 7: x"},
      {109'999, 2, 1, 7, 1, 1, 0},
      {109'999, 6, 1, 7, 1, 30, 30, "[module 1] info 7: x"},
      {110'000, 7, 3, 1, 1, 1, 2, "[platform] critical 2: records of [module 1] 7 left out: 6"},
      {110'000, 3, 1, 7, 1, 21, 20, "[module 1] error 7: x"},
      // The clock is set back; a flush; more kinds than are told apart.
      {50'000, 4, 1, 7, 1, 22, 21, "[platform] error 2: records of [module 1] 7 left out: 1"},
      {50'000, 4, 0, 0, 0, 0, 1, "[platform] warning 2: records of [module 1] 7 left out: 2"},
      {200'000, 3, 1, 100, TRACE_LIMIT_KINDS, 20, 20 * TRACE_LIMIT_KINDS,
       "[module 1] error 100: x"},
      {200'000, 3, 1024, 500, 10, 3, 20, "[host] error 500: x"},
      {210'000, 3, 1024, 600, TRACE_LIMIT_KINDS - 1, 20, 20 * TRACE_LIMIT_KINDS - 19,
       "[platform] error 2: records of other kinds left out: 10"},
      {210'000, 3, 1024, 600, 1, 1, 0},
      {0, 0, 0, 0, 0, 0, 1, "[platform] error 2: records of [host] 600 left out: 1"},  // the end
  };
  Stream stream;
  trace_add_syslog_sink();
  for (const auto &row : rows) {
    SCOPED_TRACE(&row - rows);
    g_syslog.clear();
    g_now_ns = row.at_ms * 1'000'000;
    for (uint32_t i = 0; i < row.n_numbers * row.n_records; ++i) {
      trace_write(row.module, row.level, row.number + i / row.n_records, "x");
    }
    if (row.at_ms == 0) stream.remove(), trace_remove_syslog_sink();
    if (row.n_records == 0) trace_flush();
    const Lines lines = lines_of(stream.take());
    EXPECT_EQ(row.n_lines, lines.size());
    EXPECT_EQ(row.n_lines, g_syslog.size());
    EXPECT_EQ(row.first_line, lines.empty() ? "" : lines[0]);
  }
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
  const Lines lines = lines_of(bytes + read_all(reader));
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
  Lines last = {"the process's own"};
  std::vector<size_t> n_lost = {row.n_records - n_written};
  if (row.moves) n_lost = {n_lost[0] - 1, 1};  // that one line was cut shows later
  for (const size_t n : n_lost) {
    if (n != 0) {
      last.push_back("[platform] warning 3: lines lost for want of room: " + std::to_string(n));
    }
  }
  last.emplace_back("[module 1] debug 1: end");
  EXPECT_EQ(last, Lines(own, lines.end()));
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
      std::exit(read(master, &g_now_ns, 1) == 1 ? 0 : 1);
    };
    EXPECT_EXIT(fill(), ::testing::ExitedWithCode(0), "") << may_open;
  }
}

// Each record's text, and what comes in meanwhile.
std::string texts_of(const trace_ring *ring, trace_sink append) {
  std::string texts;
  trace_ring_walk(ring, append, &texts);
  return texts;
}
void append(const trace_record *record, void *texts) {
  EXPECT_EQ(std::strlen(record->text), record->length);
  *static_cast<std::string *>(texts) += record->text + std::string(" ");
}
void append_and_trace(const trace_record *record, void *texts) {
  for (int i = 0; i < 2; ++i) trace_write(1, 1, 1, "new");
  append(record, texts);
}

TEST(Trace, ARingKeepsTheLastRecordsAlsoWhileItIsWalked) {
  const size_t before = memory_faults::live_bytes;
  trace_ring *ring = trace_ring_create(3);
  ASSERT_NE(nullptr, ring);
  const char *kept[] = {"r1 ", "r1 r2 ", "r1 r2 r3 ", "r2 r3 r4 ", "r3 r4 r5 "};
  EXPECT_EQ("", texts_of(ring, append));
  for (int i = 1; i <= 5; ++i) {
    trace_write(1, 1, 1, "r%d", i);
    EXPECT_EQ(kept[i - 1], texts_of(ring, append));
  }
  // The two that come in at r3 overwrite r3 and r4.
  EXPECT_EQ("r3 r5 ", texts_of(ring, append_and_trace));
  trace_write(1, 1, 1, "%s", std::string(300, 'z').c_str());
  EXPECT_EQ("new new " + std::string(255, 'z') + " ", texts_of(ring, append));
  trace_ring_destroy(ring);
  trace_write(1, 1, 1, "into nothing");
  trace_ring_destroy(nullptr);
  for (const uint32_t n : {0u, 65'537u}) EXPECT_EQ(nullptr, trace_ring_create(n));
  trace_ring_destroy(ring = trace_ring_create(65'536));
  EXPECT_NE(nullptr, ring);
  EXPECT_EQ(before, memory_faults::live_bytes);
}

// Where its words go: to standard error, to a sink at every level, from inside a sink.
TEST(TraceDeathTest, AStopAbortsWithConditionAndPlace) {
  const ::testing::KilledBySignal aborted(SIGABRT);
  const std::string words = "fatal: \"name != nullptr\" does not hold at some/file.cpp:603\n";
  const auto stop = [] { fatal_stop("name != nullptr", "some/file.cpp", 603); };
  const std::string two_thousand(2000, 'x');
  EXPECT_EXIT(stop(), aborted, ::testing::Eq(words));
  EXPECT_EXIT(fatal_stop(nullptr, nullptr, 0), aborted,
              ::testing::Eq("fatal: \"(none)\" does not hold at (unknown):0\n"));
  EXPECT_EXIT(fatal_stop(two_thousand.c_str(), "", 1), aborted,
              ::testing::Eq("fatal: \"" + two_thousand.substr(0, TRACE_TEXT_MAX - 1 - 8)));
  const auto by_stream = [&] {
    static char buffer[BUFSIZ];
    setvbuf(stderr, buffer, _IOFBF, sizeof buffer);  // nothing shows without the flush
    trace_set_all_levels(0);
    g_now_ns = 1;
    trace_add_stream_sink(stderr);
    stop();
  };
  EXPECT_EXIT(by_stream(), aborted,
              ::testing::Eq("1970-01-01T00:00:00.000000Z [platform] emergency 1: " + words));
  const auto from_a_sink = [] {
    trace_add_sink([](const trace_record *, void *) { fatal_stop("it", "here", 1); }, nullptr,
                   nullptr);
    trace_write(1, 1, 1, "x");
  };
  EXPECT_EXIT(from_a_sink(), aborted, ::testing::Eq("fatal: \"it\" does not hold at here:1\n"));
}

}  // namespace
