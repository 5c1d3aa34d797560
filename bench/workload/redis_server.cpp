// See redis_server.h.
#include "workload/redis_server.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "workload/clock.h"

extern char **environ;

namespace workload {
namespace {

constexpr const char *kProgram = "redis-server";
constexpr uint32_t kLooks = 500;
constexpr uint32_t kLookEvery_us = 10'000;

}  // namespace

bool RedisServer::is_installed() {
  const char *path = std::getenv("PATH");
  std::string_view folders = path != nullptr ? path : "";
  while (!folders.empty()) {
    const std::string_view folder = folders.substr(0, folders.find(':'));
    if (access((std::string(folder) + '/' + kProgram).c_str(), X_OK) == 0) return true;
    folders.remove_prefix(std::min(folders.size(), folder.size() + 1));
  }
  return false;
}

RedisServer::~RedisServer() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  if (folder_.empty()) return;
  unlink(socket().c_str());
  rmdir(folder_.c_str());
}

bool RedisServer::start() {
  const char *temporary = std::getenv("TMPDIR");
  std::string folder = std::string(temporary != nullptr ? temporary : "/tmp") + "/workload-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return false;
  folder_ = folder;
  std::vector<std::string> words = {kProgram, "--port", "0", "--unixsocket", socket(), "--dir",
                                    folder_,  "--save", "",  "--appendonly", "no"};
  std::vector<char *> arguments;
  for (std::string &word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const int failure = posix_spawnp(&pid_, kProgram, &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) pid_ = 0;
  for (uint32_t look = 0; failure == 0 && look < kLooks; ++look) {
    if (is_listening()) return true;
    usleep(kLookEvery_us);
  }
  return false;
}

bool RedisServer::is_listening() const {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = socket();
  if (path.size() >= sizeof(address.sun_path)) return false;
  std::memcpy(address.sun_path, path.data(), path.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool connected =
      fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
  if (fd >= 0) close(fd);
  return connected;
}

double RedisServer::resident_bytes() const { return resident_bytes_of(std::to_string(pid_)); }

}  // namespace workload
