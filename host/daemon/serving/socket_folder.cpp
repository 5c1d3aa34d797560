// See socket_folder.h.
#include "socket_folder.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kivod {
namespace {

constexpr mode_t kMode = 0750;

bool is_as_made_here(const std::string &folder) {
  struct stat is {};
  return lstat(folder.c_str(), &is) == 0 && is.st_mode == (S_IFDIR | kMode) &&
         is.st_uid == geteuid();
}

}  // namespace

// The group gets it before it may enter.
void make_socket_folder(const std::string &folder, const std::optional<std::string> &group) {
  if (mkdir(folder.c_str(), S_IRWXU) != 0 && !is_as_made_here(folder)) return;
  const struct group *entry = group ? getgrnam(group->c_str()) : nullptr;
  if (entry != nullptr && lchown(folder.c_str(), static_cast<uid_t>(-1), entry->gr_gid) != 0)
    return;
  chmod(folder.c_str(), kMode);
}

}  // namespace kivod
