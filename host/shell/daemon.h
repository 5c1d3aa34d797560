// The daemon that is asked. Each question has a connection of its own: the daemon may have been
// started anew since the last.
#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/channel_client.h"
#include "reply.h"

namespace kivosh {

// The daemon cannot be reached, refused, or does not keep to the protocol; what() may
// hold what the daemon said, as it said it.
class DaemonFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ^C came while the daemon was waited for.
struct GivenUp {};

// How long the daemon is waited for: for the whole of one answer.
class Patience {
 public:
  // 0: for ever.
  explicit Patience(uint32_t timeout_ms);

  // How long to wait in one go, so that ^C is heard soon.
  uint32_t slice_ms() const noexcept;
  // After a slice in which nothing came. Throws DaemonFailure when the time is over, and GivenUp.
  void go_on() const;

 private:
  uint32_t timeout_ms_;
  std::chrono::steady_clock::time_point end_;
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

  // Throws DaemonFailure, GivenUp, std::bad_alloc.
  Reply ask(const Question &question) const;
  Catalogue catalogue() const;

 private:
  std::string socket_;
  uint32_t timeout_ms_;
};

// Sends the question over a connection and takes the whole reply: only what the daemon committed is
// an answer. Throws likewise.
Reply exchange(channel_client &client, const Question &question, const Patience &patience);

}  // namespace kivosh
