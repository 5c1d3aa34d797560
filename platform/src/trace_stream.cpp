// See trace_stream.h. The way to a descriptor is found anew for every line, since the process may
// put another file behind it, or close all descriptors that it does not know.
#include "trace_stream.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "channel/descriptor.h"

namespace kivo_platform {

struct LineTarget {
  std::FILE *stream;
  int fd;
  mode_t type;  // S_IFIFO, S_IFSOCK or S_IFCHR; 0 is written through the stream
  dev_t device;
  ino_t file;
};

namespace {

LineTarget target_of(std::FILE *stream) noexcept {
  const int fd = fileno(stream);
  struct stat file {};
  if (fd < 0 || fstat(fd, &file) != 0) return {stream, fd, 0, 0, 0};
  const bool may_wait = S_ISFIFO(file.st_mode) || S_ISSOCK(file.st_mode) || S_ISCHR(file.st_mode);
  return {stream, fd, may_wait ? file.st_mode & S_IFMT : 0, file.st_dev, file.st_ino};
}

// Also true when a write would fail at once.
bool has_room(int fd) noexcept {
  pollfd asked = {fd, POLLOUT, 0};
  return poll(&asked, 1, 0) > 0;
}

// A description of its own of the pipe or device behind a descriptor, for writes that do not wait.
// Other users' cannot be opened, but for the terminal that the process was started from.
Descriptor open_anew(int fd) noexcept {
  constexpr int kFlags = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  Descriptor own(open(path, kFlags));
  unsigned wanted = 0;
  unsigned found = 0;
  if (own || ioctl(fd, TIOCGDEV, &wanted) != 0) return own;
  Descriptor terminal(open("/dev/tty", kFlags));
  const bool is_it = terminal && ioctl(terminal.get(), TIOCGDEV, &found) == 0 && found == wanted;
  return is_it ? std::move(terminal) : Descriptor();
}

// Writes to a pipe or a device without waiting: by a flag of the call, which kernels have for pipes
// since 6.4; or under a description of its own; or when there is room at the moment, which another
// process may take before.
ssize_t write_at_once(int fd, const char *data, std::size_t size) noexcept {
  const iovec piece = {const_cast<char *>(data), size};
  const ssize_t n = pwritev2(fd, &piece, 1, -1, RWF_NOWAIT);
  if (n >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS && errno != EPERM)) return n;
  if (const Descriptor own = open_anew(fd)) return write(own.get(), data, size);
  return has_room(fd) ? write(fd, data, std::min<std::size_t>(size, PIPE_BUF)) : -1;
}

ssize_t put_some(const LineTarget &target, const char *data, std::size_t size) noexcept {
  switch (target.type) {
    case 0:
      return static_cast<ssize_t>(std::fwrite(data, 1, size, target.stream));
    case S_IFSOCK:
      return send(target.fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    default:
      return write_at_once(target.fd, data, size);
  }
}

// Returns how many bytes there was room for.
std::size_t put(const LineTarget &target, const char *data, std::size_t size) noexcept {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = put_some(target, data + done, size - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return done;
}

// What others left in the stream's buffer. A pipe that has any room has it for PIPE_BUF bytes.
bool flush_others(const LineTarget &target) noexcept {
  if (target.type == 0) return true;
  const std::size_t size = __fpending(target.stream);
  if (size == 0) return true;
  return size <= PIPE_BUF && has_room(target.fd) && std::fflush(target.stream) == 0;
}

}  // namespace

bool LineStream::write_line(const char *line, std::size_t size) noexcept {
  const LineTarget now = target_of(stream_);
  if (!finish(now)) return false;
  const std::size_t n = put(now, line, size);
  if (n == 0) return false;
  keep_rest(now, line + n, size - n);
  return true;
}

void LineStream::flush() noexcept {
  const LineTarget now = target_of(stream_);
  if (finish(now) && now.type == 0) std::fflush(stream_);
}

// Writes the rest of a line, and what others left since. True when there is none of either any
// more.
bool LineStream::finish(const LineTarget &now) noexcept {
  if (rest_size_ != 0 && (now.device != rest_device_ || now.file != rest_file_)) {
    rest_size_ = 0;  // another file has its beginning
    ++n_lost;
  }
  const std::size_t n = put(now, rest_, rest_size_);
  keep_rest(now, rest_ + n, rest_size_ - n);
  return rest_size_ == 0 && flush_others(now);
}

void LineStream::keep_rest(const LineTarget &now, const char *rest, std::size_t size) noexcept {
  std::memmove(rest_, rest, size);
  rest_size_ = size;
  rest_device_ = now.device;
  rest_file_ = now.file;
}

}  // namespace kivo_platform
