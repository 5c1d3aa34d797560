// The daemon that is asked. Each question has a connection of its own: the daemon may have been
// started anew since the last.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/channel_client.h"
#include "reply.h"

namespace kivosh {

// The daemon cannot be reached, refused, or does not keep to the protocol; what() is one line.
class DaemonFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What to ask for.
struct Question {
  ReplyTo about = ReplyTo::kDatabase;
  std::string session_id;  // at most 511 bytes, no NUL
  host_text::MacAddress mac{};
  uint32_t ipv4 = 0;
};

class Daemon {
 public:
  Daemon(std::string socket, uint32_t timeout_ms)
      : socket_(std::move(socket)), timeout_ms_(timeout_ms) {}

  // Throws DaemonFailure, std::bad_alloc.
  Reply ask(const Question &question) const;
  Catalogue catalogue() const;

 private:
  std::string socket_;
  uint32_t timeout_ms_;
};

// Sends the question over a connection and takes the whole reply: only what the daemon committed is
// an answer. Throws likewise.
Reply exchange(channel_client &client, const Question &question);

}  // namespace kivosh
