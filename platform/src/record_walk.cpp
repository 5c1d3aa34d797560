// The walk over all records, in the order of their slots.
// Invariant: the walk looks at the array of labels anew for every slot and never goes beyond the
// slots that there were at its start, so whatever fn creates or deletes meanwhile is harmless.
// Threads: none; the process serialises all calls.
#include <array>

#include "library_references.h"
#include "platform/attrdb.h"
#include "session_slots.h"

namespace kivo_platform {
namespace {

constexpr std::uint32_t kBatch = 1024;

// What a walk with attrdb_add_session_to_list() does, without a call for each record. Ends at the
// label set's first failure.
void append_all_labels(kivo_index_list **list) noexcept {
  std::array<std::uint32_t, kBatch> batch;
  std::uint32_t n = 0;
  for (std::uint32_t slot = 0; slot < sessions.slots_used(); ++slot) {
    const std::uint32_t label = sessions.label_at(slot);
    if (label == 0) continue;
    batch[n++] = label;
    if (n < kBatch) continue;
    if (kivo_index_list_add_many(list, batch.data(), n) != 0) return;
    n = 0;
  }
  if (n != 0) kivo_index_list_add_many(list, batch.data(), n);
}

}  // namespace

// The exported operation by a hidden name: the walk recognises this library's own, and not one that
// the process put in its place.
extern "C" std::uint32_t kivo_platform_own_add_session_to_list(attrdb_record *record,
                                                               void *arg) noexcept
    __attribute__((alias("attrdb_add_session_to_list"), visibility("hidden")));

}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" void attrdb_walk_all_records(std::uint32_t (*fn)(attrdb_record *record, void *arg),
                                        void *arg) noexcept {
  if (fn == nullptr) return;
  if (fn == kivo_platform_own_add_session_to_list) {
    if (arg != nullptr && kivo_index_list_add_many != nullptr) {
      append_all_labels(static_cast<kivo_index_list **>(arg));
    }
    return;
  }
  const std::uint32_t slots = sessions.slots_used();
  for (std::uint32_t slot = 0; slot < slots; ++slot) {
    if (sessions.label_at(slot) != 0) fn(&sessions.at(slot).record, arg);
  }
}

extern "C" std::uint32_t attrdb_add_session_to_list(attrdb_record *record, void *arg) noexcept {
  if (record == nullptr || arg == nullptr) return ATTRDB_ERR_INVALID_ARG;
  if (kivo_index_list_add_many == nullptr) return ATTRDB_ERR_NOT_READY;
  return kivo_index_list_add_many(static_cast<kivo_index_list **>(arg), &record->label, 1);
}
