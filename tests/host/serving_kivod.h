// A kivod that serves, as a process of its own, for the time of a test.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>

namespace kivo_test {

class ServingKivod {
 public:
  // Replays a log first, if one is given, and lets a group ask. Returns when it listens.
  explicit ServingKivod(const std::string &log, const char *group = nullptr) {
    std::filesystem::create_directory(directory_);
    std::string command =
        "echo $$; exec '" KIVOD_PATH "' --serve --quiet --socket '" + socket_ + "'";
    if (!log.empty()) command += " --replay '" + log + "'";
    if (group != nullptr) command += std::string(" --group '") + group + "'";
    child_ = popen(command.c_str(), "r");
    char said[256] = "";
    EXPECT_EQ(2, std::fscanf(child_, "%d Listening on %255s", &pid_, said)) << command;
    EXPECT_EQ(socket_, said);
  }
  ~ServingKivod() {
    if (child_ != nullptr) stop(SIGTERM);
    std::filesystem::remove_all(directory_);
  }
  ServingKivod(const ServingKivod &) = delete;
  ServingKivod &operator=(const ServingKivod &) = delete;

  // The exit status, -1 when a signal ended it.
  int stop(int signal) {
    kill(pid_, signal);
    const int status = pclose(std::exchange(child_, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  const std::string &socket() const { return socket_; }
  pid_t pid() const { return pid_; }

 private:
  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("serving." + std::to_string(getpid()));
  const std::string socket_ = directory_ / "kivod.sock";
  FILE *child_ = nullptr;  // its standard output
  pid_t pid_ = 0;
};

}  // namespace kivo_test
