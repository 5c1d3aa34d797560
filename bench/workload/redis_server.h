// A redis-server of our own: started on a unix socket in a folder of its own, without a port and
// without files; both are gone with the object.
#pragma once

#include <sys/types.h>

#include <string>

namespace workload {

class RedisServer {
 public:
  // Whether there is one to be started.
  static bool is_installed();

  RedisServer() = default;
  ~RedisServer();
  RedisServer(const RedisServer &) = delete;
  RedisServer &operator=(const RedisServer &) = delete;

  // Starts the server and waits until it answers.
  bool start();
  [[nodiscard]] std::string socket() const { return folder_ + "/socket"; }
  // Memory of the server's process.
  [[nodiscard]] double resident_bytes() const;

 private:
  [[nodiscard]] bool is_listening() const;

  std::string folder_;
  pid_t pid_ = 0;
};

}  // namespace workload
