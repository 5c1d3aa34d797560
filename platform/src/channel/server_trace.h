// What the channel's server traces about its peers: a table of messages, and a bound on how many a
// peer can cause.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>
#include <ctime>

#include "clock.h"
#include "internal.h"

namespace kivo_platform {

// Rows of the table below.
enum class ServerEvent : std::uint32_t {
  kBadSize,
  kCutOff,
  kUnreadable,
  kVanished,
  kNotPermitted,
  kAllBusy,
  kGaveWay,
  kCannotAccept,
  kError,
  kStalled,
  kTooMany,
};

class ServerTrace {
 public:
  // The row's text takes one argument.
  template <typename Arg>
  void write(ServerEvent event, Arg arg) noexcept {
    if (!may_write()) return;
    const Row &row = kRows[static_cast<std::uint32_t>(event)];
    trace(TRACE_MODULE_PLATFORM, kLevel, row.number, row.text, arg);
  }

 private:
  struct Row {
    std::uint32_t number;
    const char *text;
  };
  static constexpr std::uint32_t kLevel = 4;
  static constexpr std::uint32_t kMost = 20;  // in one period
  static constexpr std::time_t kPeriod = 10;  // seconds

  // clang-format off
  static constexpr Row kRows[] = {
    {32, "request channel: a frame of %zu bytes is refused"},
    {33, "request channel: the peer left %zu bytes of a frame that it did not end"},
    {34, "request channel: a frame is no request: %s"},
    {35, "request channel: the peer went away, %zu bytes of its reply are lost"},
    {36, "request channel: user %u is not permitted"},
    {37, "request channel: all of %u connections are busy: one more has to wait"},
    {38, "request channel: of %zu connections the one that was idle longest gives way"},
    {39, "request channel: cannot take a peer in: %s"},
    {40, "request channel: a connection ends: %s"},
    {42, "request channel: of %zu connections one gives way whose peer left off in the middle"},
    {43, "request channel: one more connection of user %u is refused"},
  };
  // clang-format on
  static constexpr std::uint32_t kNumberSuppressed = 41;

  bool may_write() noexcept {
    const std::time_t now = monotonic_seconds();
    if (now - period_start_ >= kPeriod) start_period(now);
    return ++n_events_ <= kMost;
  }

  void start_period(std::time_t now) noexcept {
    if (n_events_ > kMost) {
      trace(TRACE_MODULE_PLATFORM, kLevel, kNumberSuppressed,
            "request channel: %u more events like these were not traced", n_events_ - kMost);
    }
    period_start_ = now;
    n_events_ = 0;
  }

  std::time_t period_start_ = 0;
  std::uint32_t n_events_ = 0;
};

}  // namespace kivo_platform
