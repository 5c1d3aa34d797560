// Times and memory of this process, and a way to keep a result that nobody reads.
#pragma once

#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

namespace workload {

inline double now_ns(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Nanoseconds of a clock that a piece of work takes.
template <typename Work>
double ns_of(clockid_t clock, Work &&work) {
  const double before = now_ns(clock);
  work();
  return now_ns(clock) - before;
}

// Memory of a process: its number, or "self".
inline double resident_bytes_of(const std::string &process) {
  const std::unique_ptr<FILE, int (*)(FILE *)> file(
      std::fopen(("/proc/" + process + "/statm").c_str(), "r"), fclose);
  uint64_t size = 0;
  uint64_t resident = 0;
  if (!file || std::fscanf(file.get(), "%" SCNu64 " %" SCNu64, &size, &resident) != 2) return 0;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Has the compiler believe that somebody reads a value.
template <typename Value>
void keep(const Value &value) {
  asm volatile("" : : "g"(&value) : "memory");
}

}  // namespace workload
