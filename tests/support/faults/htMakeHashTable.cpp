// No memory for the table of the intersections, which is shown to the tests.
// See replacement.h.
#include "platform/hash_table.h"
#include "support/faults/replacement.h"

extern "C" hash_table *htMakeHashTable(uint32_t size, hash_table_hash hash,
                                       hash_table_compare compare) noexcept {
  KIVO_TEST_REAL(htMakeHashTable);
  if (kivo_test::fault_is_due("htMakeHashTable")) return nullptr;
  kivo_test::label_table = real(size, hash, compare);
  return kivo_test::label_table;
}
