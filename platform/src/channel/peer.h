// Who is at the other end of a socket, and whether that one may ask.
#pragma once

#include <sys/types.h>

namespace kivo_platform {

struct Peer {
  uid_t user = static_cast<uid_t>(-1);  // who it was when it connected
  bool is_favoured = false;             // root, or the process's own user
  bool is_permitted = false;            // favoured, or a member of the group
};

// group is kNoGroup for none.
Peer peer_of(int fd, gid_t group) noexcept;

}  // namespace kivo_platform
