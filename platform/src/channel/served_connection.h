// A connection of the request channel's server: what a handler sees of it, and its socket.
// Threads: none; the process serialises all calls.
#pragma once

#include <sys/epoll.h>

#include <cstdint>
#include <list>
#include <utility>

#include "clock.h"
#include "connection.h"
#include "descriptor.h"

struct channel_server;

namespace kivo_platform {

struct ServedConnection;
struct User;
using Connections = std::list<ServedConnection>;

// What a connection waits for. From kPeer on it holds a place.
enum class Stage : std::uint8_t {
  kQuestion,  // nothing of a request has come yet
  kPlace,     // something has
  kPeer,      // to ask on, or to take the reply
  kHandler,
};

struct ServedConnection : channel_connection {
  ServedConnection(Finished finished, channel_server &owner, Descriptor &&peer, User &by) noexcept
      : channel_connection(finished), server(owner), socket(std::move(peer)), user(by) {}

  // Nothing is under way in either direction.
  bool is_idle() const noexcept { return output.size() == 0 && input.size() == 0; }
  // The peer's turn to ask, to end its frame or to take its reply begins.
  void begin_turn() noexcept { turn_began_ms = monotonic_ms(); }

  channel_server &server;
  Descriptor socket;
  User &user;
  message_buffer input{kFrameHead + MESSAGE_FRAME_MAX};
  Connections::iterator self;
  Stage stage = Stage::kQuestion;
  std::uint32_t awaited = EPOLLIN;
  std::int64_t turn_began_ms = monotonic_ms();
  bool has_been_answered = false;
};

}  // namespace kivo_platform
