// See child.h.
#include "workload/child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <type_traits>

extern char **environ;

namespace workload {

SharedTimes::SharedTimes(uint32_t n) : fd_(memfd_create("times", 0)), n_(n) {
  if (fd_ < 0 || ftruncate(fd_, static_cast<off_t>(n * sizeof(uint64_t))) != 0) return;
  map();
  if (times_ != nullptr) std::ranges::fill(all(), UINT64_MAX);
}

SharedTimes::SharedTimes(int fd, uint32_t n) : fd_(fd), n_(n) { map(); }

SharedTimes::~SharedTimes() {
  if (times_ != nullptr) munmap(times_, n_ * sizeof(uint64_t));
  if (fd_ >= 0) close(fd_);
}

void SharedTimes::map() {
  void *memory = mmap(nullptr, n_ * sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
  if (memory != MAP_FAILED) times_ = static_cast<uint64_t *>(memory);
}

static_assert(std::is_trivially_copyable_v<Sheet>);

bool measure_in_child(const std::string &name, uint32_t n, const SharedTimes &create_ns,
                      Sheet &sheet) {
  std::array<int, 2> pipe_ends{};
  if (pipe2(pipe_ends.data(), O_CLOEXEC) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], STDOUT_FILENO);
  std::array<std::string, 5> words = {"workload_bench", "--measure", name, std::to_string(n),
                                      std::to_string(create_ns.fd())};
  std::array<char *, 6> arguments{};
  std::ranges::transform(words, arguments.begin(), [](std::string &word) { return word.data(); });
  pid_t pid = 0;
  const int failure =
      posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_ends[1]);
  const bool told = failure == 0 && read(pipe_ends[0], &sheet, sizeof(sheet)) == sizeof(sheet);
  close(pipe_ends[0]);
  int status = 0;
  const bool ended = failure == 0 && waitpid(pid, &status, 0) == pid;
  return ended && WIFEXITED(status) && WEXITSTATUS(status) == 0 && told;
}

// In large pages where there are some: what is free then comes in large pieces, which can be given
// out as such or divided.
void touch_memory(size_t bytes) {
  constexpr size_t kPage = 4096;
  bytes = std::min(bytes, static_cast<size_t>(sysconf(_SC_AVPHYS_PAGES)) / 2 * kPage);
  void *memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return;
  madvise(memory, bytes, MADV_HUGEPAGE);
  for (size_t at = 0; at < bytes; at += kPage) static_cast<volatile char *>(memory)[at] = 1;
  munmap(memory, bytes);
}

bool send_sheet(const Sheet &sheet) {
  return write(STDOUT_FILENO, &sheet, sizeof(sheet)) == sizeof(sheet);
}

}  // namespace workload
