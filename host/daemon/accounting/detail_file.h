// Feeds a DetailReader from a file, a pipe or standard input, one bounded piece at a time, so that
// an event loop can do other work in between. The replay owns one per file.
// Threads: none; the caller serialises.
#ifndef KIVO_HOST_DAEMON_ACCOUNTING_DETAIL_FILE_H
#define KIVO_HOST_DAEMON_ACCOUNTING_DETAIL_FILE_H

#include <cstddef>
#include <memory>
#include <string>

#include "detail_reader.h"

namespace kivod {

class DetailFile {
 public:
  enum class Progress {
    kMore,    // read a piece; call again
    kWait,    // a non-blocking pipe is empty: wait until fd() is readable
    kEnd,     // the end; DetailReader::finish() has run
    kFailed,  // error() says why; whole records before the failure were delivered
  };

  // The most that one read_piece() takes, in bytes: some hundred records.
  static constexpr size_t kPieceSize = 65536;

  // `path` "-" is standard input, which stays open afterwards. Opening a named pipe waits for its
  // writer. Gives null and a text naming the path in `error` when it cannot be opened or is a
  // directory. `sink` must outlive the result. Throws std::bad_alloc.
  static std::unique_ptr<DetailFile> open(const std::string &path, DetailSink &sink,
                                          std::string &error);

  ~DetailFile();
  DetailFile(const DetailFile &) = delete;
  DetailFile &operator=(const DetailFile &) = delete;

  // Reads once and hands what it read to the sink. After kEnd or kFailed it gives the same again.
  Progress read_piece();

  int fd() const { return fd_; }
  const DetailReader &reader() const { return reader_; }
  const std::string &error() const { return error_; }

 private:
  DetailFile(int fd, const std::string &path, DetailSink &sink);

  int fd_;
  std::string path_;
  DetailReader reader_;
  Progress progress_ = Progress::kMore;
  std::string error_;
  std::unique_ptr<char[]> piece_;
};

}  // namespace kivod

#endif
