// Who is at the other end of a socket, and whether that one may ask.
#pragma once

#include <sys/types.h>

namespace kivo_platform {

// The user at the other end is root, the process's own user or a member of the group (kNoGroup for
// none). user receives who it is.
bool peer_is_permitted(int fd, gid_t group, uid_t &user) noexcept;

}  // namespace kivo_platform
