// Addresses of unix-domain sockets.
#pragma once

#include <sys/un.h>

#include <cerrno>
#include <cstring>

namespace kivo_platform {

// False, with errno ENAMETOOLONG or EINVAL, for a path that is too long or empty.
inline bool make_address(const char *path, sockaddr_un &address) noexcept {
  const std::size_t length = strnlen(path, sizeof address.sun_path);
  if (length == 0 || length == sizeof address.sun_path) {
    errno = length == 0 ? EINVAL : ENAMETOOLONG;
    return false;
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path, length + 1);
  return true;
}

}  // namespace kivo_platform
