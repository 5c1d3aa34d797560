// The daemon's own traces: decisions and borders, under the host application's module. The sinks
// that write lines bound what an input can repeat.
#pragma once

#include <cstdint>

#include "platform/trace.h"

namespace kivod {

enum class HostLevel : uint32_t { kError = 3, kWarning = 4, kNotice = 5, kDebug = 7 };

// Numbers of the daemon's messages, stable once given. Those below 1000 are the library's and the
// platform's, who trace under the same module.
enum class HostMessage : uint32_t {
  kNoIndex = 1001,
  kNoWatch = 1002,
  kNoDatabase = 1003,
  kDamagedRecord = 1010,
  kBadValue = 1011,
  kSkippedRecord = 1012,
  kSessionFailed = 1013,
  kSessionRefused = 1014,
  kServing = 1020,
  kStopping = 1021,
  kDeaf = 1022,
};

#define host_trace(level, number, ...)                                      \
  do {                                                                      \
    if (trace_enabled(TRACE_MODULE_HOST_APP, static_cast<uint32_t>(level))) \
      trace_write(TRACE_MODULE_HOST_APP, static_cast<uint32_t>(level),      \
                  static_cast<uint32_t>(number), __VA_ARGS__);              \
  } while (0)

}  // namespace kivod
