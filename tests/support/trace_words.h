// Collects the trace records that are written while it lives, by the numbers of their messages. It
// opens the facility for everything; the library's debug flags are the test's to switch.
#pragma once

#include <string>

#include "platform/trace.h"

namespace kivo_test {

class TraceWords {
 public:
  TraceWords();
  ~TraceWords();
  TraceWords(const TraceWords &) = delete;
  TraceWords &operator=(const TraceWords &) = delete;

  // What came in since the last call, as "301 303(dead)": a record goes by its message's number,
  // with what the text was filled with behind it. "c" and "r" stand before the numbers of a
  // request's callback and handler; "dump" for the fields of a request. A record that is not as its
  // message's row says, in module, level or text, is told in full.
  std::string take();

 private:
  static void receive(const trace_record *record, void *arg);
  std::string words_;
};

// A status as rows name it: "ok", "invalid", "nomem", ...; a number as hexadecimal digits.
std::string status_name(uint32_t status);

}  // namespace kivo_test
