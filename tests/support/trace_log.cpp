#include "support/trace_log.h"

#include <utility>

#include "kivo/debug.h"

namespace kivo_test {

TraceLog::TraceLog() {
  trace_set_all_levels(TRACE_LEVEL_MAX);
  trace_add_sink(receive, nullptr, this);
}

TraceLog::~TraceLog() {
  trace_remove_sink(receive, this);
  trace_set_all_levels(TRACE_LEVEL_DEFAULT);
}

void TraceLog::receive(const trace_record *record, void *arg) {
  static_cast<TraceLog *>(arg)->lines_.push_back({record->module, record->level, record->text});
}

std::vector<TraceLine> TraceLog::take() { return std::exchange(lines_, {}); }

std::vector<std::string> TraceLog::texts() {
  std::vector<std::string> texts;
  for (TraceLine &line : take()) texts.push_back(std::move(line.text));
  return texts;
}

std::vector<std::string> TraceLog::texts(uint32_t level) {
  std::vector<std::string> texts;
  for (TraceLine &line : take()) {
    if (line.level == level) texts.push_back(std::move(line.text));
  }
  return texts;
}

Texts traces(TraceLog &log) {
  Texts texts;
  for (const TraceLine &line : log.take()) {
    if (line.module == kivo_trace_id) texts.push_back(std::to_string(line.level) + " " + line.text);
  }
  return texts;
}

}  // namespace kivo_test
