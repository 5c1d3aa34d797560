// Collects the trace records that are written while it lives. It opens the facility for everything;
// the library's debug flags are the test's to switch.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/trace.h"

namespace kivo_test {

struct TraceLine {
  uint16_t module;
  uint32_t level;
  std::string text;
  bool operator==(const TraceLine &) const = default;
};

using Texts = std::vector<std::string>;

class TraceLog {
 public:
  TraceLog();
  ~TraceLog();
  TraceLog(const TraceLog &) = delete;
  TraceLog &operator=(const TraceLog &) = delete;

  // What came in since the last call. texts() drops module and level; texts(level) keeps one level.
  std::vector<TraceLine> take();
  std::vector<std::string> texts();
  std::vector<std::string> texts(uint32_t level);

 private:
  static void receive(const trace_record *record, void *arg);
  std::vector<TraceLine> lines_;
};

// The library's own traces since the last call, each behind its level: "3 get attr: invalid
// params".
Texts traces(TraceLog &log);

}  // namespace kivo_test
