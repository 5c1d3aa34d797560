// Accounting events out of the lines of a log record, the way the daemon gets them, for the tests
// of the rooms behind the reader. Needs the dictionaries of freeradius-common.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sessions/accounting_event.h"

namespace kivo_test {

class LogEvents : private kivod::DetailSink {
 public:
  LogEvents() : decoder_(kivod::PairDecoder::open("", error_)) { EXPECT_TRUE(decoder_) << error_; }

  // The event of "Name = value" lines; holds until the next call. Whole records only.
  const kivod::AccountingEvent &read(std::string_view lines,
                                     const std::string &header = "Tue Nov 14 22:13:20 2023") {
    counts = {};
    complaints.clear();
    event_.clear();
    std::string log = header + "\n\t";
    for (const char c : lines) log.append(c == '\n' ? "\n\t" : std::string(1, c));
    kivod::DetailReader reader("log", *this);
    reader.feed(log + "\n\n");
    reader.finish();
    EXPECT_EQ(1u, reader.records()) << lines;
    return event_;
  }

  kivod::PairCounts counts;             // of the last event
  std::vector<std::string> complaints;  // "LINE: why", of the last event; its first line is 2

 private:
  void on_record(const kivod::DetailRecord &record) override {
    kivod::read_event(record, *decoder_, event_, counts, [&](uint64_t line, const char *why) {
      complaints.push_back(std::to_string(line) + ": " + why);
    });
  }
  void on_fault(const kivod::DetailFault &fault) override {
    ADD_FAILURE() << "line " << fault.line << ": " << kivod::describe(fault.kind);
  }

  std::string error_;
  std::optional<kivod::PairDecoder> decoder_;
  kivod::AccountingEvent event_;
};

// Stored numbers are in host order, addresses in network order.
template <typename Word>
std::string bytes_of(Word word) {
  return {reinterpret_cast<const char *>(&word), sizeof(word)};
}

}  // namespace kivo_test
