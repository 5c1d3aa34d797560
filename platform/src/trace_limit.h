// Bounds how many records of one kind (a module and a number) a ready-made sink passes on: see
// trace.h. The table is fixed: a kind has a row from its first record on, until its period is over
// and what was left out of it is told. Kinds that find no row share the last one.
// Time is the records' own; a clock that is set back begins a period anew.
// Threads: none; the process serialises all calls.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "platform/trace.h"

namespace kivo_platform {

class RecordLimit {
 public:
  struct Row {
    std::uint16_t module;
    std::uint32_t number;
    std::uint32_t n_passed;    // in the period
    std::uint32_t level;       // the most severe of those left out
    std::uint64_t n_left_out;  // and not told yet
    std::uint64_t began_ns;
  };

  // Whether the record is passed on; it is counted otherwise.
  bool passes(const trace_record &record) noexcept {
    if (record.level > TRACE_LIMIT_LEVEL) return true;
    Row &row = row_of(record);
    if (is_over(row, record.time_ns)) {
      row.began_ns = record.time_ns;
      row.n_passed = 0;
    }
    if (row.n_passed < TRACE_LIMIT_RECORDS) {
      ++row.n_passed;
      return true;
    }
    if (row.n_left_out == 0) ++n_untold_;
    row.level = row.n_left_out == 0 ? record.level : std::min(row.level, record.level);
    ++row.n_left_out;
    return false;
  }

  // Calls tell(row, is_shared) for each row that has left something out, unless its period goes on
  // and those are not wanted; until one call returns false, as does this then: it is told later.
  template <typename Tell>
  bool tell(std::uint64_t now_ns, bool also_unfinished, Tell tell) noexcept {
    if (n_untold_ == 0) return true;
    for (Row &row : rows_) {
      if (row.n_left_out == 0 || !(also_unfinished || is_over(row, now_ns))) continue;
      if (!tell(row, &row == &shared())) return false;
      row.n_left_out = 0;
      --n_untold_;
    }
    return true;
  }

 private:
  static constexpr std::uint64_t kPeriodNs = std::uint64_t{TRACE_LIMIT_S} * 1'000'000'000U;

  static bool is_over(const Row &row, std::uint64_t now_ns) noexcept {
    return now_ns - row.began_ns >= kPeriodNs;
  }
  Row &shared() noexcept { return rows_[TRACE_LIMIT_KINDS]; }

  Row &row_of(const trace_record &record) noexcept {
    Row *free = nullptr;
    Row *const end = rows_ + n_used_;
    for (Row *row = rows_; row != end; ++row) {
      if (row->module == record.module && row->number == record.number) return *row;
      const bool is_free = row->n_left_out == 0 && is_over(*row, record.time_ns);
      if (free == nullptr && is_free) free = row;
    }
    if (free == nullptr) {
      if (n_used_ == TRACE_LIMIT_KINDS) return shared();
      free = &rows_[n_used_++];
    }
    *free = {record.module, record.number, 0, 0, 0, record.time_ns};
    return *free;
  }

  Row rows_[TRACE_LIMIT_KINDS + 1]{};
  std::size_t n_used_ = 0;    // of those that are not shared
  std::size_t n_untold_ = 0;  // rows that have left something out
};

}  // namespace kivo_platform
