// A kivod that serves, as a process of its own, for the time of a test.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace kivo_test {

class ServingKivod {
 public:
  // Replays a log first, if one is given, and lets a group ask. Returns when it listens.
  explicit ServingKivod(const std::string &log, const char *group = nullptr) {
    std::filesystem::create_directory(directory_);
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    child_ = fork();
    if (child_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      std::vector<const char *> arguments = {KIVOD_PATH, "--serve", "--quiet", "--socket",
                                             socket_.c_str()};
      if (!log.empty()) arguments.insert(arguments.end(), {"--replay", log.c_str()});
      if (group != nullptr) arguments.insert(arguments.end(), {"--group", group});
      arguments.push_back(nullptr);
      execv(KIVOD_PATH, const_cast<char *const *>(arguments.data()));
      _exit(127);
    }
    close(ends[1]);
    std::string said;
    char piece[256];
    for (ssize_t n = 0;
         said.find('\n') == said.npos && (n = read(ends[0], piece, sizeof piece)) > 0;) {
      said.append(piece, static_cast<size_t>(n));
    }
    EXPECT_EQ("Listening on " + socket_ + "\n", said);
    close(ends[0]);
  }
  ~ServingKivod() {
    if (child_ > 0) stop(SIGTERM);
    std::filesystem::remove_all(directory_);
  }
  ServingKivod(const ServingKivod &) = delete;
  ServingKivod &operator=(const ServingKivod &) = delete;

  // The exit status, -1 when a signal ended it.
  int stop(int signal) {
    kill(child_, signal);
    int status = 0;
    const pid_t child = std::exchange(child_, -1);
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  const std::string &socket() const { return socket_; }
  pid_t pid() const { return child_; }

 private:
  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("serving." + std::to_string(getpid()));
  const std::string socket_ = directory_ / "kivod.sock";
  pid_t child_ = -1;
};

}  // namespace kivo_test
