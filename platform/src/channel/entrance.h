// Where peers come in: the listening socket, and how one that does not come in is told why.
// Threads: none; the process serialises all calls.
#pragma once

#include <sys/types.h>

#include "descriptor.h"
#include "listener.h"

namespace kivo_platform {

class Entrance {
 public:
  // False, and errno tells why.
  bool open(const char *path, gid_t group) noexcept;
  int fd() const noexcept { return listener_.fd(); }

  // The next peer of the queue; none, and errno tells why (EAGAIN: nobody waits).
  Descriptor accept() const noexcept;
  // Takes a peer in by the spare descriptor, to tell it that there is no other. False when that
  // cannot be done either.
  bool turn_one_away() noexcept;

 private:
  Listener listener_;
  Descriptor spare_;
};

// Tells a peer why it is not answered, if it listens; never waits for it.
void refuse(int fd, const char *reason) noexcept;

}  // namespace kivo_platform
