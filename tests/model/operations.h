// Every kind of operation of the random sequence: its name, how often it comes, and how it is made.
#pragma once

#include <span>

#include "model/sequence.h"

namespace kivo_model {

struct Operation {
  const char *name;
  uint32_t weight;           // its share of the sequence, against the sum of all weights
  bool (*step)(Sequence &);  // performs one on both sides; true when it found or changed something
};

std::span<const Operation> operations();

}  // namespace kivo_model
