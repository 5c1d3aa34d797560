// Ready-made trace sinks: a line on a stream, syslog, and a ring of the last records in memory.
// They see records through trace.h only. Texts may hold what a peer sent: whatever leaves the
// process as a line has its control characters escaped, so that one record stays one line.
// Invariant of the ring: record k (from 0) lies in entry k modulo the size until it is overwritten.
// Threads: none; the process serialises all calls.
#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>

#include "internal.h"
#include "platform/status.h"
#include "platform/trace.h"

namespace kivo_platform {
namespace {

constexpr const char *kLevelNames[] = {"emergency", "alert", "critical", "error", "warning",
                                       "notice",    "info",  "debug",    "detail"};
static_assert(std::size(kLevelNames) == TRACE_LEVEL_MAX + 1);

struct ModuleName {
  std::uint16_t module;
  const char *name;
};
constexpr ModuleName kModuleNames[] = {
    {TRACE_MODULE_HOST_APP, "host"},
    {TRACE_MODULE_REQUEST_HANDLER, "request handler"},
    {TRACE_MODULE_PLATFORM, "platform"},
};

// Builds one line in memory of its own size: a prefix, the indent, and a text in which every byte
// may take four characters. A longer line cannot come up; add() cuts all the same.
class Line {
 public:
  void add(const char *text, std::size_t length) noexcept {
    const std::size_t n = std::min(length, sizeof buffer_ - size_);
    std::memcpy(buffer_ + size_, text, n);
    size_ += n;
  }

  // At most 95 characters.
  void add_format(const char *fmt, ...) noexcept __attribute__((format(printf, 2, 3))) {
    char part[96];
    va_list args;
    va_start(args, fmt);
    const int length = std::vsnprintf(part, sizeof part, fmt, args);
    va_end(args);
    if (length > 0) add(part, std::min(static_cast<std::size_t>(length), sizeof part - 1));
  }

  // Bytes from 0x80 up pass: texts are UTF-8.
  void add_escaped(const char *text, std::size_t length) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (byte < 0x20 || byte == 0x7f) {
        add_format("\\x%02x", byte);
      } else {
        add(text + i, 1);
      }
    }
  }

  const char *data() const noexcept { return buffer_; }
  std::size_t size() const noexcept { return size_; }

 private:
  char buffer_[4 * TRACE_TEXT_MAX + 2 * TRACE_INDENT_MAX + 192];
  std::size_t size_ = 0;
};

void add_module(Line &line, std::uint16_t module) noexcept {
  for (const ModuleName &row : kModuleNames) {
    if (row.module == module) return line.add_format("[%s]", row.name);
  }
  line.add_format("[module %u]", module);
}

void add_number_and_text(Line &line, const trace_record &record) noexcept {
  line.add_format(" %u: %*s", record.number, 2 * record.indent, "");
  line.add_escaped(record.text, record.length);
}

// The calendar comes from <chrono>: gmtime_r() may read the time zone and allocate.
void add_time(Line &line, std::uint64_t time_ns) noexcept {
  using namespace std::chrono;
  const microseconds since_epoch{static_cast<std::int64_t>(time_ns / 1000)};
  const auto day = floor<days>(since_epoch);
  const year_month_day date{sys_days{day}};
  const hh_mm_ss clock{since_epoch - day};
  line.add_format(
      "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ ", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
}

void stream_sink(const trace_record *record, void *arg) noexcept {
  Line line;
  add_time(line, record->time_ns);
  add_module(line, record->module);
  if (record->level <= TRACE_LEVEL_MAX) {
    line.add_format(" %s", kLevelNames[record->level]);
  } else {
    line.add_format(" level-%u", record->level);
  }
  add_number_and_text(line, *record);
  line.add("\n", 1);
  std::fwrite(line.data(), 1, line.size(), static_cast<std::FILE *>(arg));
}

void stream_flush(void *arg) noexcept { std::fflush(static_cast<std::FILE *>(arg)); }

void syslog_sink(const trace_record *record, void *) noexcept {
  Line line;
  add_module(line, record->module);
  add_number_and_text(line, *record);
  const int priority = static_cast<int>(std::min(record->level, std::uint32_t{LOG_DEBUG}));
  syslog(priority, "%.*s", static_cast<int>(line.size()), line.data());
}

constexpr std::uint32_t kRingRecordsMax = 65'536;
constexpr std::size_t kRingTextMax = 256;

struct RingEntry {
  trace_record record;  // its text points nowhere; the copy is below
  char text[kRingTextMax];
};

}  // namespace
}  // namespace kivo_platform

struct trace_ring {
  uint64_t written;  // records ever; the next one goes into entry written % n_records
  uint32_t n_records;
  kivo_platform::RingEntry *entries;  // n_records of them, behind this header in the same block
};

namespace kivo_platform {
namespace {

std::size_t ring_bytes(std::uint32_t n_records) noexcept {
  return sizeof(trace_ring) + n_records * sizeof(RingEntry);
}

RingEntry &entry_at(const trace_ring &ring, std::uint64_t position) noexcept {
  return ring.entries[position % ring.n_records];
}

void ring_sink(const trace_record *record, void *arg) noexcept {
  auto *ring = static_cast<trace_ring *>(arg);
  RingEntry &entry = entry_at(*ring, ring->written++);
  entry.record = *record;
  entry.record.text = nullptr;
  entry.record.length = std::min(record->length, sizeof entry.text - 1);
  std::memcpy(entry.text, record->text, entry.record.length);
  entry.text[entry.record.length] = '\0';
}

}  // namespace
}  // namespace kivo_platform

uint32_t trace_add_stream_sink(FILE *stream) noexcept {
  if (stream == nullptr) return AAA_ERR_INVALID_ARG;
  return kivo_platform::add_sink(kivo_platform::stream_sink, kivo_platform::stream_flush, stream);
}

void trace_remove_stream_sink(FILE *stream) noexcept {
  kivo_platform::remove_sink(kivo_platform::stream_sink, stream);
}

uint32_t trace_add_syslog_sink(void) noexcept {
  return kivo_platform::add_sink(kivo_platform::syslog_sink, nullptr, nullptr);
}

void trace_remove_syslog_sink(void) noexcept {
  kivo_platform::remove_sink(kivo_platform::syslog_sink, nullptr);
}

trace_ring *trace_ring_create(uint32_t n_records) noexcept {
  if (n_records == 0 || n_records > kivo_platform::kRingRecordsMax) return nullptr;
  void *memory = ::operator new(kivo_platform::ring_bytes(n_records), std::nothrow);
  if (memory == nullptr) return nullptr;
  auto *ring = ::new (memory) trace_ring{0, n_records, nullptr};
  ring->entries = reinterpret_cast<kivo_platform::RingEntry *>(ring + 1);
  if (kivo_platform::add_sink(kivo_platform::ring_sink, nullptr, ring) == PLATFORM_OK) return ring;
  ::operator delete(memory);
  return nullptr;
}

void trace_ring_destroy(trace_ring *ring) noexcept {
  if (ring == nullptr) return;
  kivo_platform::remove_sink(kivo_platform::ring_sink, ring);
  ::operator delete(static_cast<void *>(ring));
}

void trace_ring_walk(const trace_ring *ring, trace_sink fn, void *arg) noexcept {
  const uint64_t end = ring->written;
  for (uint64_t at = end < ring->n_records ? 0 : end - ring->n_records; at < end; ++at) {
    // fn may trace, and its records may have overtaken this one.
    if (ring->written > at + ring->n_records) continue;
    kivo_platform::RingEntry copy = kivo_platform::entry_at(*ring, at);
    copy.record.text = copy.text;
    fn(&copy.record, arg);
  }
}
