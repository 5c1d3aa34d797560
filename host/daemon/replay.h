// Replay of accounting logs: reads the records of files in the `detail` format and applies them to
// the session table in their order. What a log has wrong costs no other record; it is traced and
// counted.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "accounting/accounting_pair.h"
#include "accounting/detail_file.h"
#include "sessions/accounting_event.h"
#include "sessions/session_table.h"

namespace kivod {

struct ReplayCounts {
  uint64_t files = 0;
  uint64_t records = 0;  // whole ones
  uint64_t damaged = 0;  // dropped by the reader
  std::array<uint64_t, kOutcomes> outcomes{};
  PairCounts pairs;
};

class Replay final : private DetailSink {
 public:
  Replay(PairDecoder &decoder, SessionTable &sessions) noexcept
      : decoder_(decoder), sessions_(sessions) {}

  // Replays one file, "-" for standard input. False when it cannot be opened or read to its end, or
  // has content and not one record; `error` then has one line that names it, and what was read is
  // applied.
  // Throws std::bad_alloc.
  bool run(const std::string &path, std::string &error);

  [[nodiscard]] const ReplayCounts &counts() const noexcept { return counts_; }

 private:
  void on_record(const DetailRecord &record) override;
  void on_fault(const DetailFault &fault) override;

  PairDecoder &decoder_;
  SessionTable &sessions_;
  AccountingEvent event_;
  ReplayCounts counts_;
};

}  // namespace kivod
