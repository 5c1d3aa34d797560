// Lines on a stream that is never waited for. Where the stream has a descriptor that can make a
// writer wait (a pipe, a socket, a terminal), lines go past the stream's own buffer, by system
// calls that do not wait and leave the flags of the descriptor alone; everything else, files
// included, is written through the stream.
// Invariant: a line is written whole, not at all, or its rest goes in front of whatever is next.
// Threads: none; the process serialises all calls.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "platform/trace.h"

namespace kivo_platform {

// A prefix, the indent, and a text in which every byte may take four characters.
constexpr std::size_t kLineMax = 4 * TRACE_TEXT_MAX + 2 * TRACE_INDENT_MAX + 192;

struct LineTarget;  // what is behind the stream at the moment

class LineStream {
 public:
  explicit LineStream(std::FILE *stream) noexcept : stream_(stream) {}

  // Writes a line of at most kLineMax bytes; false when there is no room for any of it.
  bool write_line(const char *line, std::size_t size) noexcept;
  // Writes what is left of a line, and what lies in the stream's buffer, as far as there is room.
  void flush() noexcept;

  std::FILE *stream() const noexcept { return stream_; }

  std::uint64_t n_lost = 0;  // lines that found no room; whoever tells of them sets it back

 private:
  bool finish(const LineTarget &now) noexcept;
  void keep_rest(const LineTarget &now, const char *rest, std::size_t size) noexcept;

  std::FILE *stream_;
  char rest_[kLineMax];
  std::size_t rest_size_ = 0;
  dev_t rest_device_ = 0;  // and the file, that has the beginning
  ino_t rest_file_ = 0;
};

}  // namespace kivo_platform
