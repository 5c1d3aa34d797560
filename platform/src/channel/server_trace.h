// What the channel's server traces about its peers, who can cause as many of these as they like:
// the sinks that write lines bound them.
#pragma once

#include <cstdint>

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

struct ServerMessage {
  std::uint32_t number;
  const char *text;  // takes one argument
};

// clang-format off
inline constexpr ServerMessage kServerMessages[] = {
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

template <typename Arg>
void trace_server(ServerEvent event, Arg arg) noexcept {
  constexpr std::uint32_t kLevel = 4;
  const ServerMessage &message = kServerMessages[static_cast<std::uint32_t>(event)];
  trace(TRACE_MODULE_PLATFORM, kLevel, message.number, message.text, arg);
}

}  // namespace kivo_platform
