// See listener.h.
#include "listener.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "socket_address.h"

namespace kivo_platform {
namespace {

constexpr mode_t kWithheld = 0117;  // leaves 0660
constexpr std::size_t kGroupRoomMost = std::size_t{1} << 20;

// Closing must not change what a failure's errno says.
class KeepErrno {
 public:
  ~KeepErrno() { errno = saved_; }

 private:
  int saved_ = errno;
};

bool fail(int error) noexcept {
  errno = error;
  return false;
}

// Two processes that find the same stale file must not both replace it: whoever does holds a lock
// file beside it meanwhile, and removes it last. A lock on what is at that name no more is none.
class PathLock {
 public:
  explicit PathLock(const char *path) noexcept {
    std::snprintf(path_, sizeof path_, "%s.lock", path);
    for (int i = 0; i < kAttempts; ++i) {
      Descriptor file(::open(path_, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
      if (!file || !take(file.get())) return;
      if (is_there(file.get())) {
        file_ = std::move(file);
        return;
      }
    }
    errno = EAGAIN;
  }
  PathLock(const PathLock &) = delete;
  PathLock &operator=(const PathLock &) = delete;
  ~PathLock() {
    const KeepErrno keep;
    if (file_) unlink(path_);
    file_.reset();
  }

  // Whether it is held; otherwise errno tells why.
  explicit operator bool() const noexcept { return static_cast<bool>(file_); }

 private:
  static constexpr int kAttempts = 10;

  // A file that somebody has written to is no lock of ours.
  static bool take(int fd) noexcept {
    struct stat is {};
    if (fstat(fd, &is) != 0) return false;
    if (!S_ISREG(is.st_mode) || is.st_size != 0) return fail(EEXIST);
    return flock(fd, LOCK_EX | LOCK_NB) == 0;
  }
  bool is_there(int fd) const noexcept {
    struct stat is {};
    struct stat there {};
    return fstat(fd, &is) == 0 && lstat(path_, &there) == 0 && is.st_dev == there.st_dev &&
           is.st_ino == there.st_ino;
  }

  char path_[sizeof(sockaddr_un::sun_path) + sizeof ".lock"];
  Descriptor file_;
};

bool is_stale(const sockaddr_un &address) noexcept {
  const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe) return false;
  if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ||
      errno == EAGAIN) {
    errno = EADDRINUSE;
    return false;
  }
  return errno == ECONNREFUSED;
}

// Nothing is at the path afterwards; or false, and what was there stays.
bool clear_path(const char *path, const sockaddr_un &address) noexcept {
  struct stat there {};
  if (lstat(path, &there) != 0) return errno == ENOENT;
  if (!S_ISSOCK(there.st_mode)) return fail(ENOTSOCK);
  return is_stale(address) && unlink(path) == 0;
}

}  // namespace

bool Listener::make_file(const char *path, gid_t group) noexcept {
  sockaddr_un address{};
  if (!make_address(path, address)) return false;
  const PathLock lock(path);
  if (!lock || !clear_path(path, address)) return false;
  const mode_t before = umask(kWithheld);
  const int bound = bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address);
  umask(before);
  if (bound != 0) return false;
  struct stat made {};
  if ((group == kNoGroup || lchown(path, static_cast<uid_t>(-1), group) == 0) &&
      lstat(path, &made) == 0 && listen(socket_.get(), SOMAXCONN) == 0) {
    device_ = made.st_dev;
    inode_ = made.st_ino;
    return true;
  }
  const KeepErrno keep;
  unlink(path);
  return false;
}

bool Listener::open(const char *path, gid_t group) noexcept {
  std::string own_path;
  try {
    own_path = path;
  } catch (const std::bad_alloc &) {
    return fail(ENOMEM);
  }
  socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket_ || !make_file(path, group)) return false;
  path_ = std::move(own_path);
  return true;
}

Listener::~Listener() {
  struct stat there {};
  if (!path_.empty() && lstat(path_.c_str(), &there) == 0 && there.st_dev == device_ &&
      there.st_ino == inode_) {
    unlink(path_.c_str());
  }
}

gid_t find_group(const char *name) noexcept {
  for (std::size_t room = 1024; room <= kGroupRoomMost; room *= 2) {
    const std::unique_ptr<char[]> texts(new (std::nothrow) char[room]);
    if (texts == nullptr) {
      errno = ENOMEM;
      return kNoGroup;
    }
    group entry{};
    group *found = nullptr;
    const int result = getgrnam_r(name, &entry, texts.get(), room, &found);
    if (result == ERANGE) continue;
    errno = result != 0 ? result : ESRCH;
    return found != nullptr ? found->gr_gid : kNoGroup;
  }
  errno = ERANGE;
  return kNoGroup;
}

}  // namespace kivo_platform
