// A listening unix-domain stream socket and its file.
// Threads: none; the process serialises all calls (the file mode mask is the process's).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "descriptor.h"

namespace kivo_platform {

inline constexpr gid_t kNoGroup = static_cast<gid_t>(-1);

class Listener {
 public:
  Listener() noexcept = default;
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;
  ~Listener();

  // Listens on a path, once: see channel_server_open(). False, and errno tells why.
  bool open(const char *path, gid_t group) noexcept;
  int fd() const noexcept { return socket_.get(); }

 private:
  bool make_file(const char *path, gid_t group) noexcept;

  Descriptor socket_;
  std::string path_;  // empty until the file is ours
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

// The number of a group; kNoGroup with errno (ESRCH when there is none).
gid_t find_group(const char *name) noexcept;

}  // namespace kivo_platform
