// The gate of the fault tests: replaced platform operations (support/faults/*.cpp, linked into
// fault tests only) ask it before they forward to the real ones.
#pragma once

#include <cstdint>
#include <string>

#include "platform/chunk.h"
#include "platform/hash_table.h"

namespace kivo_test {

// Lets the n-th call (1 is the next) of a named operation fail, or of any operation when the name
// is empty, with the given status where the operation returns one. Further calls go through. What
// was armed before is disarmed; arm_further_fault() adds to it instead.
void arm_fault(const std::string &operation, uint32_t nth, uint32_t status = 0xdead);
void arm_further_fault(const std::string &operation, uint32_t nth, uint32_t status = 0xdead);

// Switches the gate off. Returns whether every armed fault was reached.
bool disarm_fault();

// The operation that the gate let fail last.
const std::string &failed_operation();

// For the replacements: whether this call is to fail, and with which status.
bool fault_is_due(const char *operation);
uint32_t fault_status();

// While set, auth_mgr_idc_get_attr() reports the length of one address whatever their number.
extern bool reports_one_address;

// The most that was asked of named_zalloc() at a time since this was last cleared.
extern size_t largest_zalloc;

// What the replacements saw go by, null until then: the pool of the label sets' blocks and the
// table of their intersections, in which tests count, and the function that names the pool of the
// shadow values its classes' tags.
extern chunk_pool *label_block_pool;
extern hash_table *label_table;
extern hash_table_hash label_hash;
extern hash_table_compare label_compare;
extern variable_chunk_name_to_id shadow_class_tag;

}  // namespace kivo_test
