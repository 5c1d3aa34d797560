// What a failing operation of the message set does besides: it sets the error word.
#pragma once

#include "support/faults.h"

namespace kivo_test {

inline void set_fault(uint32_t *err) {
  if (*err == 0) *err = fault_status();
}

}  // namespace kivo_test
