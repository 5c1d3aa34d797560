// Reads accounting logs with plain read(2), so that files, pipes and terminals are alike.
// Invariant: fd_ is open as long as the object lives; standard input is used through a duplicate.
// Threads: none; the caller serialises.
#include "detail_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

namespace kivod {
namespace {

std::string failure(const std::string &path, const char *action, int number) {
  return std::string("cannot ") + action + " " + path + ": " +
         std::generic_category().message(number);
}

int open_descriptor(const std::string &path) {
  if (path == "-") return fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
}

bool is_directory(int fd) {
  struct stat about = {};
  return fstat(fd, &about) == 0 && S_ISDIR(about.st_mode);
}

}  // namespace

std::unique_ptr<DetailFile> DetailFile::open(const std::string &path, DetailSink &sink,
                                             std::string &error) {
  int fd = -1;
  do {
    fd = open_descriptor(path);
  } while (fd < 0 && errno == EINTR);
  int number = fd < 0 ? errno : 0;
  if (fd >= 0 && is_directory(fd)) {
    close(fd);
    number = EISDIR;
  }
  if (number != 0) {
    error = failure(path, "open", number);
    return nullptr;
  }
  try {
    return std::unique_ptr<DetailFile>(new DetailFile(fd, path, sink));
  } catch (...) {
    close(fd);
    throw;
  }
}

DetailFile::DetailFile(int fd, const std::string &path, DetailSink &sink)
    : fd_(fd),
      path_(path),
      reader_(path, sink),
      piece_(std::make_unique_for_overwrite<char[]>(kPieceSize)) {}

DetailFile::~DetailFile() { close(fd_); }

DetailFile::Progress DetailFile::read_piece() {
  if (progress_ == Progress::kEnd || progress_ == Progress::kFailed) return progress_;
  ssize_t size = 0;
  do {
    size = read(fd_, piece_.get(), kPieceSize);
  } while (size < 0 && errno == EINTR);
  if (size > 0) {
    reader_.feed(std::string_view(piece_.get(), static_cast<size_t>(size)));
    return Progress::kMore;
  }
  if (size == 0) {
    reader_.finish();
    return progress_ = Progress::kEnd;
  }
  if (errno == EAGAIN || errno == EWOULDBLOCK) return Progress::kWait;
  error_ = failure(path_, "read", errno);
  return progress_ = Progress::kFailed;
}

}  // namespace kivod
