#include "support/faults.h"

namespace kivo_test {
namespace {

struct Gate {
  bool armed = false;
  bool reached = false;
  std::string operation;
  uint32_t left = 0;
  uint32_t status = 0;
} gate;

}  // namespace

void arm_fault(const std::string &operation, uint32_t nth, uint32_t status) {
  gate = {true, false, operation, nth, status};
}

bool disarm_fault() {
  gate.armed = false;
  return gate.reached;
}

bool fault_is_due(const char *operation) {
  if (!gate.armed || gate.reached) return false;
  if (!gate.operation.empty() && gate.operation != operation) return false;
  gate.reached = --gate.left == 0;
  return gate.reached;
}

uint32_t fault_status() { return gate.status; }

}  // namespace kivo_test
