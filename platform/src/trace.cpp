// Trace facility: levels, formatting, indent, the list of sinks, and the stop on a broken
// precondition. The ready-made sinks are in trace_sinks.cpp and use nothing but the list.
// Invariants: (1) a record is formatted once, on the stack, whatever the number of sinks; (2) while
// a sink or a flush runs, busy is set and further records are dropped; (3) errno is the caller's.
// Threads: none; the process serialises all calls.
#include "platform/trace.h"

#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "internal.h"
#include "platform/status.h"

// Spelled out, so that the levels stand in the file's data and hold before any constructor runs.
#define LEVELS_8                                                                      \
  TRACE_LEVEL_DEFAULT, TRACE_LEVEL_DEFAULT, TRACE_LEVEL_DEFAULT, TRACE_LEVEL_DEFAULT, \
      TRACE_LEVEL_DEFAULT, TRACE_LEVEL_DEFAULT, TRACE_LEVEL_DEFAULT, TRACE_LEVEL_DEFAULT
#define LEVELS_64 LEVELS_8, LEVELS_8, LEVELS_8, LEVELS_8, LEVELS_8, LEVELS_8, LEVELS_8, LEVELS_8
#define LEVELS_512 \
  LEVELS_64, LEVELS_64, LEVELS_64, LEVELS_64, LEVELS_64, LEVELS_64, LEVELS_64, LEVELS_64

constinit uint8_t trace_levels[] = {LEVELS_512, LEVELS_512, LEVELS_512, LEVELS_512};
static_assert(sizeof trace_levels == TRACE_MODULES);

namespace kivo_platform {
namespace {

struct Sink {
  trace_sink write;
  trace_sink_flush flush;
  void *arg;
};

struct State {
  Sink sinks[TRACE_SINKS_MAX];
  std::uint32_t n_sinks;
  std::uint32_t indent;
  std::uint64_t sequence;
  std::uint32_t last_level;
  std::uint16_t last_module;
  bool busy;
  bool stopping;
};
constinit State g_trace{.sinks = {},
                        .n_sinks = 0,
                        .indent = 0,
                        .sequence = 0,
                        .last_level = TRACE_LEVEL_DEFAULT,
                        .last_module = 0,
                        .busy = false,
                        .stopping = false};

void deliver(const trace_record &record) noexcept {
  g_trace.busy = true;
  for (std::uint32_t i = 0; i < g_trace.n_sinks; ++i) {
    const Sink sink = g_trace.sinks[i];
    sink.write(&record, sink.arg);
  }
  g_trace.busy = false;
}

void vwrite(std::uint16_t module, std::uint32_t level, std::uint32_t number, const char *fmt,
            va_list args) noexcept __attribute__((format(printf, 4, 0)));
void vwrite(std::uint16_t module, std::uint32_t level, std::uint32_t number, const char *fmt,
            va_list args) noexcept {
  if (g_trace.busy) return;
  const int saved_errno = errno;
  ++g_trace.sequence;
  g_trace.last_module = module;
  g_trace.last_level = level;
  if (g_trace.n_sinks != 0) {
    char text[TRACE_TEXT_MAX];
    int length = fmt == nullptr ? 0 : std::vsnprintf(text, sizeof text, fmt, args);
    if (length < 0) length = std::snprintf(text, sizeof text, "(text cannot be formatted)");
    length = std::min(length, static_cast<int>(sizeof text) - 1);
    text[length] = '\0';
    const std::uint32_t indent = std::min(g_trace.indent, TRACE_INDENT_MAX);
    deliver({.sequence = g_trace.sequence,
             .time_ns = real_time_ns(),
             .module = module,
             .indent = static_cast<std::uint16_t>(indent),
             .level = level,
             .number = number,
             .text = text,
             .length = static_cast<std::size_t>(length)});
  }
  errno = saved_errno;
}

void flush() noexcept {
  if (g_trace.busy) return;
  const int saved_errno = errno;
  g_trace.busy = true;
  for (std::uint32_t i = 0; i < g_trace.n_sinks; ++i) {
    const Sink sink = g_trace.sinks[i];
    if (sink.flush != nullptr) sink.flush(sink.arg);
  }
  g_trace.busy = false;
  errno = saved_errno;
}

void write_now(std::uint16_t module, std::uint32_t level, std::uint32_t number, const char *fmt,
               ...) noexcept __attribute__((format(printf, 4, 5)));
void write_now(std::uint16_t module, std::uint32_t level, std::uint32_t number, const char *fmt,
               ...) noexcept {
  va_list args;
  va_start(args, fmt);
  vwrite(module, level, number, fmt, args);
  va_end(args);
}

constexpr std::uint32_t kNumberStop = 1;

}  // namespace

std::uint64_t real_time_ns() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(now.tv_nsec);
}

void trace(std::uint16_t module, std::uint32_t level, std::uint32_t number, const char *fmt,
           ...) noexcept {
  if (!trace_enabled(module, level)) return;
  va_list args;
  va_start(args, fmt);
  vwrite(module, level, number, fmt, args);
  va_end(args);
}

std::uint32_t add_sink(trace_sink sink, trace_sink_flush flush_fn, void *arg) noexcept {
  if (sink == nullptr) return AAA_ERR_INVALID_ARG;
  if (g_trace.n_sinks == TRACE_SINKS_MAX) return AAA_ERR_NO_ROOM;
  g_trace.sinks[g_trace.n_sinks++] = {sink, flush_fn, arg};
  return PLATFORM_OK;
}

void remove_sink(trace_sink sink, void *arg) noexcept {
  Sink *const end = g_trace.sinks + g_trace.n_sinks;
  Sink *const found = std::find_if(g_trace.sinks, end, [=](const Sink &added) {
    return added.write == sink && added.arg == arg;
  });
  if (found == end) return;
  std::copy(found + 1, end, found);
  --g_trace.n_sinks;
}

void stop(const char *condition, const char *file, std::uint32_t line) noexcept {
  if (condition == nullptr) condition = "(none)";
  if (file == nullptr) file = "(unknown)";
  // Without a sink that could take the record, the last words go to standard error, if they can.
  if (g_trace.n_sinks == 0 || g_trace.busy || g_trace.stopping) {
    char text[TRACE_TEXT_MAX];
    const int length = std::snprintf(text, sizeof text, "fatal: \"%s\" does not hold at %s:%u\n",
                                     condition, file, line);
    const auto size = std::min(static_cast<std::size_t>(length), sizeof text - 1);
    pollfd room = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&room, 1, 0) == 0 || write(STDERR_FILENO, text, size) < 0) std::abort();
  } else {
    g_trace.stopping = true;
    write_now(TRACE_MODULE_PLATFORM, 0, kNumberStop, "fatal: \"%s\" does not hold at %s:%u",
              condition, file, line);
    flush();
  }
  std::abort();
}

}  // namespace kivo_platform

using kivo_platform::g_trace;

void trace_set_level(uint16_t module, uint32_t level) noexcept {
  trace_levels[module % TRACE_MODULES] = static_cast<uint8_t>(std::min(level, UINT32_C(255)));
}

void trace_set_all_levels(uint32_t level) noexcept {
  std::fill(std::begin(trace_levels), std::end(trace_levels),
            static_cast<uint8_t>(std::min(level, UINT32_C(255))));
}

void trace_write(uint16_t module, uint32_t level, uint32_t number, const char *fmt, ...) noexcept {
  va_list args;
  va_start(args, fmt);
  kivo_platform::vwrite(module, level, number, fmt, args);
  va_end(args);
}

void trace_vwrite(uint16_t module, uint32_t level, uint32_t number, const char *fmt,
                  va_list args) noexcept {
  kivo_platform::vwrite(module, level, number, fmt, args);
}

void trace_follow_on(uint32_t number, const char *fmt, ...) noexcept {
  va_list args;
  va_start(args, fmt);
  kivo_platform::vwrite(g_trace.last_module, g_trace.last_level, number, fmt, args);
  va_end(args);
}

void trace_indent_push(void) noexcept {
  if (g_trace.indent != UINT32_MAX) ++g_trace.indent;
}

void trace_indent_pop(void) noexcept {
  if (g_trace.indent != 0) --g_trace.indent;
}

uint32_t trace_add_sink(trace_sink sink, trace_sink_flush flush, void *arg) noexcept {
  return kivo_platform::add_sink(sink, flush, arg);
}

void trace_remove_sink(trace_sink sink, void *arg) noexcept {
  kivo_platform::remove_sink(sink, arg);
}

void trace_flush(void) noexcept { kivo_platform::flush(); }

void fatal_stop(const char *condition, const char *file, uint32_t line) noexcept {
  kivo_platform::stop(condition, file, line);
}
