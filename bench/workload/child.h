// Measurements in processes of their own: the program starts itself anew for each, so that every
// peer begins with an empty heap, and reads the sheet that it sends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "workload/sheet.h"

namespace workload {

// Numbers that this process and the ones it starts share, in a file without a name.
class SharedTimes {
 public:
  // A fresh one of n entries, all the greatest there is.
  explicit SharedTimes(uint32_t n);
  // The one that the starting process handed over.
  SharedTimes(int fd, uint32_t n);
  ~SharedTimes();
  SharedTimes(const SharedTimes &) = delete;
  SharedTimes &operator=(const SharedTimes &) = delete;

  explicit operator bool() const { return times_ != nullptr; }
  [[nodiscard]] std::span<uint64_t> all() const { return {times_, n_}; }
  [[nodiscard]] int fd() const { return fd_; }

 private:
  void map();

  int fd_;
  uint32_t n_;
  uint64_t *times_ = nullptr;
};

// Runs a measurement in a new process; false when it failed.
bool measure_in_child(const std::string &name, uint32_t n, const SharedTimes &create_ns,
                      Sheet &sheet);

// ---- In the new process ----

// Has the machine provide memory: on a virtual one the first touch of a page that the host has not
// given out yet takes many times as long as that of any other, and would count for whichever peer
// comes upon it. It is given back at once, and is half of what is free at most.
void touch_memory(size_t bytes);

// Sends the sheet to the process that started this one.
bool send_sheet(const Sheet &sheet);

}  // namespace workload
