// Writing to the operator's console: the stream is chosen anew for every single write, so that a
// change of devShZelConsoleFd takes effect in the middle of a listing.
#pragma once

#include <cstdio>

#include "platform/console.h"

namespace kivo {

inline FILE *console() noexcept {
  return devShZelConsoleFd != nullptr ? devShZelConsoleFd : stdout;
}

}  // namespace kivo

#define kivo_console_write(...) static_cast<void>(std::fprintf(::kivo::console(), __VA_ARGS__))
