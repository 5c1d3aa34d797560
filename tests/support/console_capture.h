// Takes the console output of the library while it lives.
#pragma once

#include <cstdio>
#include <string>

namespace kivo_test {

class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture &) = delete;
  ConsoleCapture &operator=(const ConsoleCapture &) = delete;

  // What was written since the last call.
  std::string take();
  [[nodiscard]] FILE *stream() const { return stream_; }

 private:
  char *text_ = nullptr;
  size_t size_ = 0;
  size_t taken_ = 0;
  FILE *stream_ = nullptr;
};

}  // namespace kivo_test
