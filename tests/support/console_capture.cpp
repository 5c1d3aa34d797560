#include "support/console_capture.h"

#include <cstdlib>

#include "kivo/display.h"

namespace kivo_test {

ConsoleCapture::ConsoleCapture() : stream_(open_memstream(&text_, &size_)) {
  kivo_devsh_printf_init(stream_);
}

ConsoleCapture::~ConsoleCapture() {
  kivo_devsh_printf_init(nullptr);
  std::fclose(stream_);
  std::free(text_);
}

std::string ConsoleCapture::take() {
  std::fflush(stream_);
  std::string taken(text_ + taken_, size_ - taken_);
  taken_ = size_;
  return taken;
}

}  // namespace kivo_test
