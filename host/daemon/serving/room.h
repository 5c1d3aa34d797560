// Whether something can be written without waiting for a reader.
#pragma once

#include <poll.h>

namespace kivod {

// Room for a line, that is; also true when a write would fail at once.
inline bool has_room(int fd) noexcept {
  pollfd asked = {fd, POLLOUT, 0};
  return poll(&asked, 1, 0) > 0;
}

}  // namespace kivod
