// Ready-made trace sinks: a line on a stream, syslog, and a ring of the last records in memory.
// They see records through trace.h only. Texts may hold what a peer sent: whatever leaves the
// process as a line has its control characters escaped, so that one record stays one line. Lines
// are bounded in number (trace_limit.h) and written without waiting (trace_stream.h); what that
// costs is told by lines that look like records of the platform's.
// Invariant of the ring: record k (from 0) lies in entry k modulo the size until it is overwritten.
// Threads: none; the process serialises all calls.
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>

#include "internal.h"
#include "platform/status.h"
#include "platform/trace.h"
#include "trace_limit.h"
#include "trace_stream.h"

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

// Builds one line. One of more than kLineMax bytes cannot come up; add() cuts all the same.
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
  char buffer_[kLineMax];
  std::size_t size_ = 0;
};

struct ModuleLabel {
  char text[24];
};

ModuleLabel label_of(std::uint16_t module) noexcept {
  ModuleLabel label;
  const auto *const row = std::find_if(std::begin(kModuleNames), std::end(kModuleNames),
                                       [=](const ModuleName &at) { return at.module == module; });
  if (row != std::end(kModuleNames)) {
    std::snprintf(label.text, sizeof label.text, "[%s]", row->name);
  } else {
    std::snprintf(label.text, sizeof label.text, "[module %u]", module);
  }
  return label;
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

// ---- What a sink tells of itself

constexpr std::uint32_t kNumberLeftOut = 2;
constexpr std::uint32_t kNumberLost = 3;
constexpr std::uint32_t kLostLevel = 4;

// As if the platform had traced it.
trace_record own_record(std::uint64_t time_ns, std::uint32_t level, std::uint32_t number,
                        const char *text) noexcept {
  return {0, time_ns, TRACE_MODULE_PLATFORM, 0, level, number, text, std::strlen(text)};
}

// Writes, by a function from a record to whether there was room, how many of a kind were left out.
template <typename Write>
bool tell_left_out(RecordLimit &limit, std::uint64_t now_ns, bool also_unfinished,
                   Write write) noexcept {
  const auto tell = [&](const RecordLimit::Row &row, bool is_shared) {
    char text[96];
    if (is_shared) {
      std::snprintf(text, sizeof text, "records of other kinds left out: %" PRIu64, row.n_left_out);
    } else {
      std::snprintf(text, sizeof text, "records of %s %u left out: %" PRIu64,
                    label_of(row.module).text, row.number, row.n_left_out);
    }
    return write(own_record(now_ns, row.level, kNumberLeftOut, text));
  };
  return limit.tell(now_ns, also_unfinished, tell);
}

// ---- Stream

class StreamSink {
 public:
  explicit StreamSink(std::FILE *stream) noexcept : lines_(stream) {}

  void write(const trace_record &record) noexcept {
    const bool is_told = tell(record.time_ns, false);
    if (!limit_.passes(record)) return;
    if (!is_told || !write_line(record)) ++lines_.n_lost;
  }

  void flush() noexcept {
    tell(real_time_ns(), true);
    lines_.flush();
  }

  std::FILE *stream() const noexcept { return lines_.stream(); }

  StreamSink *next = nullptr;

 private:
  // Of lost lines first: they were before everything that is written from now on.
  bool tell(std::uint64_t now_ns, bool also_unfinished) noexcept {
    return tell_lost(now_ns) &&
           tell_left_out(limit_, now_ns, also_unfinished,
                         [&](const trace_record &record) { return write_line(record); });
  }

  // Writing may find out that one more is lost: a line whose beginning is in another file.
  bool tell_lost(std::uint64_t now_ns) noexcept {
    while (const std::uint64_t n_lost = lines_.n_lost) {
      char text[96];
      std::snprintf(text, sizeof text, "lines lost for want of room: %" PRIu64, n_lost);
      if (!write_line(own_record(now_ns, kLostLevel, kNumberLost, text))) return false;
      lines_.n_lost -= n_lost;
    }
    return true;
  }

  bool write_line(const trace_record &record) noexcept;

  LineStream lines_;
  RecordLimit limit_;
};

bool StreamSink::write_line(const trace_record &record) noexcept {
  Line line;
  add_time(line, record.time_ns);
  line.add_format("%s ", label_of(record.module).text);
  if (record.level <= TRACE_LEVEL_MAX) {
    line.add_format("%s", kLevelNames[record.level]);
  } else {
    line.add_format("level-%u", record.level);
  }
  add_number_and_text(line, record);
  line.add("\n", 1);
  return lines_.write_line(line.data(), line.size());
}

constinit StreamSink *g_streams = nullptr;  // those that are sinks

void stream_sink(const trace_record *record, void *arg) noexcept {
  static_cast<StreamSink *>(arg)->write(*record);
}

void stream_flush(void *arg) noexcept { static_cast<StreamSink *>(arg)->flush(); }

std::uint32_t add_stream_sink(std::FILE *stream) noexcept {
  auto *const made = new (std::nothrow) StreamSink(stream);
  if (made == nullptr) return AAA_ERR_NO_MEMORY;
  const std::uint32_t status = add_sink(stream_sink, stream_flush, made);
  if (status != PLATFORM_OK) {
    delete made;
    return status;
  }
  made->next = g_streams;
  g_streams = made;
  return PLATFORM_OK;
}

void remove_stream_sink(std::FILE *stream) noexcept {
  StreamSink **link = &g_streams;
  while (*link != nullptr && (*link)->stream() != stream) link = &(*link)->next;
  StreamSink *const found = *link;
  if (found == nullptr) return;
  const int saved_errno = errno;
  remove_sink(stream_sink, found);
  *link = found->next;
  found->flush();
  delete found;
  errno = saved_errno;
}

// ---- syslog

constinit RecordLimit g_syslog_limit;

bool write_to_syslog(const trace_record &record) noexcept {
  Line line;
  line.add_format("%s", label_of(record.module).text);
  add_number_and_text(line, record);
  const int priority = static_cast<int>(std::min(record.level, std::uint32_t{LOG_DEBUG}));
  syslog(priority, "%.*s", static_cast<int>(line.size()), line.data());
  return true;
}

void syslog_sink(const trace_record *record, void *) noexcept {
  tell_left_out(g_syslog_limit, record->time_ns, false, write_to_syslog);
  if (g_syslog_limit.passes(*record)) write_to_syslog(*record);
}

void syslog_flush(void *) noexcept {
  tell_left_out(g_syslog_limit, real_time_ns(), true, write_to_syslog);
}

void remove_syslog_sink() noexcept {
  const int saved_errno = errno;
  syslog_flush(nullptr);
  remove_sink(syslog_sink, nullptr);
  errno = saved_errno;
}

// ---- Ring

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
  return kivo_platform::add_stream_sink(stream);
}

void trace_remove_stream_sink(FILE *stream) noexcept { kivo_platform::remove_stream_sink(stream); }

uint32_t trace_add_syslog_sink(void) noexcept {
  // Added once however often it is asked for: there is one bound.
  kivo_platform::remove_syslog_sink();
  return kivo_platform::add_sink(kivo_platform::syslog_sink, kivo_platform::syslog_flush, nullptr);
}

void trace_remove_syslog_sink(void) noexcept { kivo_platform::remove_syslog_sink(); }

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
