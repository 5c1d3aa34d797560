// The connections of the request channel's server: who may come in, who holds a place, and who
// gives way to whom. The rules are those of platform/channel_server.h. Invariants: (1) a connection
// is in the list of its stage; each list is in the order in which its connections came to it, which
// for the peers' is that of the last sign of life; (2) the counts follow every step, so that
// nothing is counted anew when a peer comes; (3) a user is known as long as it has a connection.
// Threads: none; the process serialises all calls.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>

#include "peer.h"
#include "served_connection.h"

namespace kivo_platform {

struct User {
  uid_t id;
  bool is_favoured;
  std::size_t connections = 0;
  std::size_t places = 0;          // that these hold
  std::uint64_t failed_round = 0;  // nobody gave way to it then
};

// What is short, and somebody may give way for.
enum class Need : std::uint8_t { kNothing, kShare, kRoom, kPlace, kDescriptor };

class Places {
 public:
  explicit Places(std::uint32_t most) noexcept;

  std::uint32_t most() const noexcept { return most_; }
  // Of all stages.
  std::size_t connections() const noexcept { return n_connections_; }
  Connections &at(Stage stage) noexcept { return stages_[static_cast<std::size_t>(stage)]; }

  // A connection that waits for its question, also when that is one too many; null without memory.
  ServedConnection *take_in(ServedConnection::Finished finished, channel_server &server,
                            Descriptor &&socket, const Peer &peer) noexcept;
  // What a connection that was taken in is one too many for: its user's share, or the room of all
  // who are not favoured.
  Need exceeded_by(const User &user) const noexcept;
  bool has_place_for(const User &user) const noexcept;
  // To the end of a stage's list.
  void move(ServedConnection &connection, Stage stage) noexcept;
  void erase(ServedConnection &connection) noexcept;

  // What comes after this may find that others give way than before.
  void begin_round() noexcept { ++round_; }
  // Who gives way to a user, which for kDescriptor is null; null when nobody does. Walks the
  // connections, for a user in vain once a round.
  ServedConnection *who_gives_way(Need need, User *to) noexcept;

 private:
  bool yields(const User &held, Need need, const User *to) const noexcept;
  bool may_go(const ServedConnection &connection, std::int64_t now, Need need) const noexcept;
  bool is_crowding(const User &user) const noexcept;
  bool others_hold_all() const noexcept { return n_others_places_ >= most_ - kept_; }

  std::uint32_t most_;
  std::uint32_t kept_;   // places for the favoured
  std::uint32_t share_;  // connections of a user who is not
  std::uint32_t room_;   // connections of all such users
  Connections stages_[4];
  std::map<uid_t, User> users_;
  std::size_t n_connections_ = 0;
  std::size_t n_others_connections_ = 0;  // of those who are not favoured
  std::size_t n_places_ = 0;
  std::size_t n_others_places_ = 0;
  std::uint64_t round_ = 0;
};

}  // namespace kivo_platform
