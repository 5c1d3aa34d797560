#include "support/faults.h"

#include <algorithm>
#include <vector>

namespace kivo_test {
namespace {

struct Fault {
  std::string operation;
  uint32_t left = 0;  // calls until it is due, 0 once it was
  uint32_t status = 0;
};

std::vector<Fault> armed;
Fault last_reached;

}  // namespace

bool reports_one_address = false;
size_t largest_zalloc = 0;
chunk_pool *label_block_pool = nullptr;
hash_table *label_table = nullptr;
hash_table_hash label_hash = nullptr;
hash_table_compare label_compare = nullptr;
variable_chunk_name_to_id shadow_class_tag = nullptr;

void arm_fault(const std::string &operation, uint32_t nth, uint32_t status) {
  armed.clear();
  arm_further_fault(operation, nth, status);
}

void arm_further_fault(const std::string &operation, uint32_t nth, uint32_t status) {
  armed.push_back({operation, nth, status});
}

bool disarm_fault() {
  const bool reached =
      std::all_of(armed.begin(), armed.end(), [](const Fault &fault) { return fault.left == 0; });
  armed.clear();
  return reached;
}

bool fault_is_due(const char *operation) {
  bool due = false;
  for (Fault &fault : armed) {
    if (fault.left == 0 || (!fault.operation.empty() && fault.operation != operation)) continue;
    if (--fault.left != 0) continue;
    last_reached = {operation, 0, fault.status};
    due = true;
  }
  return due;
}

const std::string &failed_operation() { return last_reached.operation; }

uint32_t fault_status() { return last_reached.status; }

}  // namespace kivo_test
