// See peer.h.
#include "peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "listener.h"

namespace kivo_platform {
namespace {

constexpr std::size_t kGroupsUsual = 64;

// The kernel took the supplementary groups down when the peer connected, with its other
// credentials.
bool has_group(int fd, gid_t group) noexcept {
  gid_t usual[kGroupsUsual];
  socklen_t size = sizeof usual;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, usual, &size) == 0) {
    return std::find(usual, usual + size / sizeof *usual, group) != usual + size / sizeof *usual;
  }
  if (errno != ERANGE) return false;
  const std::size_t count = size / sizeof *usual;
  const std::unique_ptr<gid_t[]> many(new (std::nothrow) gid_t[count]);
  if (many == nullptr || getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, many.get(), &size) != 0) {
    return false;
  }
  return std::find(many.get(), many.get() + count, group) != many.get() + count;
}

}  // namespace

Peer peer_of(int fd, gid_t group) noexcept {
  ucred is{};
  socklen_t size = sizeof is;
  Peer peer;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &is, &size) != 0) return peer;
  peer.user = is.uid;
  peer.is_favoured = is.uid == 0 || is.uid == geteuid();
  peer.is_permitted =
      peer.is_favoured || (group != kNoGroup && (is.gid == group || has_group(fd, group)));
  return peer;
}

}  // namespace kivo_platform
