// See places.h.
#include "places.h"

#include <poll.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "platform/channel_server.h"

namespace kivo_platform {
namespace {

constexpr std::int64_t kSilenceMs = CHANNEL_SILENCE_MS;
constexpr std::int64_t kPatienceMs = 1000 * std::int64_t{CHANNEL_PATIENCE_S};
constexpr std::int64_t kCrowdingPatienceMs = 1000 * std::int64_t{CHANNEL_CROWDING_PATIENCE_S};

bool holds_place(Stage stage) noexcept { return stage >= Stage::kPeer; }

// Something can be done without waiting, or that cannot be told. What is ready is for the server to
// do, however long the peer took before.
bool is_ready(const ServedConnection &connection) noexcept {
  pollfd asked = {connection.socket.get(), static_cast<short>(connection.awaited), 0};
  return poll(&asked, 1, 0) != 0;
}

}  // namespace

Places::Places(std::uint32_t most) noexcept
    : most_(most), kept_(most / 16), share_(std::max(1u, most / 2)), room_(2 * most) {}

// ---- Coming and going

ServedConnection *Places::take_in(ServedConnection::Finished finished, channel_server &server,
                                  Descriptor &&socket, const Peer &peer) noexcept {
  Connections made;
  User *user = nullptr;
  try {
    user = &users_.try_emplace(peer.user, User{peer.user, peer.is_favoured}).first->second;
    made.emplace_back(finished, server, std::move(socket), *user);
  } catch (const std::bad_alloc &) {
    if (user != nullptr && user->connections == 0) users_.erase(peer.user);
    return nullptr;
  }
  ServedConnection &connection = made.back();
  connection.self = made.begin();
  at(Stage::kQuestion).splice(at(Stage::kQuestion).end(), made);
  ++user->connections;
  ++n_connections_;
  if (!user->is_favoured) ++n_others_connections_;
  return &connection;
}

void Places::move(ServedConnection &connection, Stage stage) noexcept {
  at(stage).splice(at(stage).end(), at(connection.stage), connection.self);
  const bool held = holds_place(std::exchange(connection.stage, stage));
  if (held == holds_place(stage)) return;
  const auto count = [held](std::size_t &places) { held ? --places : ++places; };
  count(connection.user.places);
  count(n_places_);
  if (!connection.user.is_favoured) count(n_others_places_);
}

void Places::erase(ServedConnection &connection) noexcept {
  User &user = connection.user;
  move(connection, Stage::kQuestion);  // gives its place up
  at(Stage::kQuestion).erase(connection.self);
  --n_connections_;
  if (!user.is_favoured) --n_others_connections_;
  if (--user.connections == 0) users_.erase(user.id);
}

// ---- The bounds

Need Places::exceeded_by(const User &user) const noexcept {
  if (user.is_favoured) return Need::kNothing;
  if (user.connections > share_) return Need::kShare;
  return n_others_connections_ > room_ ? Need::kRoom : Need::kNothing;
}

bool Places::has_place_for(const User &user) const noexcept {
  return n_places_ < most_ && (user.is_favoured || !others_hold_all());
}

// ---- Giving way

ServedConnection *Places::who_gives_way(Need need, User *to) noexcept {
  if (to != nullptr && to->failed_round == round_) return nullptr;
  const std::int64_t now = monotonic_ms();
  constexpr struct {
    Stage stage;
    bool idle;
  } kInTurn[] = {{Stage::kQuestion, true}, {Stage::kPeer, true}, {Stage::kPeer, false}};
  for (const auto &next : kInTurn) {
    if (need == Need::kPlace && !holds_place(next.stage)) continue;
    Connections &waiting = at(next.stage);
    const auto found = std::find_if(waiting.begin(), waiting.end(), [&](const auto &connection) {
      return connection.is_idle() == next.idle && yields(connection.user, need, to) &&
             may_go(connection, now, need);
    });
    if (found != waiting.end()) return &*found;
  }
  if (to != nullptr) to->failed_round = round_;
  return nullptr;
}

// Whether it helps a user, and is fair, that a connection of another user, or of its own, goes.
bool Places::yields(const User &held, Need need, const User *to) const noexcept {
  if (to == nullptr) return true;  // anybody's descriptor
  switch (need) {
    case Need::kShare:
      return &held == to;
    case Need::kRoom:
      return !held.is_favoured && held.connections >= to->connections;
    case Need::kPlace:
      if (to->is_favoured) return true;
      return !(held.is_favoured && others_hold_all()) && held.places >= to->places;
    default:
      return true;
  }
}

bool Places::may_go(const ServedConnection &connection, std::int64_t now,
                    Need need) const noexcept {
  std::int64_t limit = kPatienceMs;
  if (connection.stage == Stage::kQuestion) {
    limit = kSilenceMs;
  } else if (connection.has_been_answered && connection.is_idle()) {
    limit = -1;
  } else if (need == Need::kPlace && is_crowding(connection.user)) {
    limit = kCrowdingPatienceMs;
  }
  return now - connection.turn_began_ms > limit && !is_ready(connection);
}

// It holds more than an equal part would be.
bool Places::is_crowding(const User &user) const noexcept {
  return !user.is_favoured && user.places * users_.size() > most_;
}

}  // namespace kivo_platform
