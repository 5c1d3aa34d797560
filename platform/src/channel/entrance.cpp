// See entrance.h.
#include "entrance.h"

#include <fcntl.h>
#include <sys/socket.h>

#include "message_buffer.h"
#include "message_codec.h"
#include "platform/messages.h"

namespace kivo_platform {
namespace {

Descriptor open_spare() noexcept { return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

}  // namespace

bool Entrance::open(const char *path, gid_t group) noexcept {
  if (!listener_.open(path, group)) return false;
  spare_ = open_spare();
  return static_cast<bool>(spare_);
}

Descriptor Entrance::accept() const noexcept {
  return Descriptor(accept4(fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

bool Entrance::turn_one_away() noexcept {
  spare_.reset();
  bool turned_away = false;
  {
    const Descriptor peer = accept();
    if (peer) refuse(peer.get(), "Too many connections.");
    turned_away = static_cast<bool>(peer);
  }
  spare_ = open_spare();
  return turned_away;
}

void refuse(int fd, const char *reason) noexcept {
  message_buffer bytes(MESSAGE_FRAME_MAX);
  if (marshal_nack(reason, bytes) != PLATFORM_OK) return;
  // Nobody to tell of a failure: the peer is left in any case.
  [[maybe_unused]] const ssize_t sent =
      send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace kivo_platform
