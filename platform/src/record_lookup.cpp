// Looking records up by an attribute's value, and the next interface id.
// Threads: none; the process serialises all calls.
#include <algorithm>
#include <array>
#include <span>

#include "library_references.h"
#include "platform/attrdb.h"
#include "record_indexes.h"
#include "session_slots.h"

namespace kivo_platform {
namespace {

// Labels travel to a label set in batches of this many.
constexpr std::uint32_t kBatch = 1024;

// Finds a value after the checks that all look-ups share; builds an index that is missing.
std::uint32_t look_up(std::uint32_t type, const void *value, std::uint32_t size,
                      ValueIndex::Found &found) noexcept {
  RecordIndexes *indexes = record_indexes();
  if (indexes == nullptr) return ATTRDB_ERR_NOT_READY;
  if (value == nullptr && size != 0) return ATTRDB_ERR_INVALID_ARG;
  if (type == 0 || type > AAA_ATTR_TYPE_MAX) return AAA_ERR_UNSUPPORTED_ATTR;
  ValueIndex *index = indexes->index_of(type);
  if (index == nullptr) return ATTRDB_ERR_NO_MEMORY;
  found = index->find(as_bytes(value, size));
  return PLATFORM_OK;
}

// A label set's result as a status of the store.
std::uint32_t status_of_append(std::uint32_t result) noexcept {
  if (result == 0) return PLATFORM_OK;
  return result == 1 ? ATTRDB_ERR_NO_MEMORY : ATTRDB_ERR_INVALID_ARG;
}

std::uint32_t append_labels(const ValueIndex::Found &found, kivo_index_list **list,
                            std::uint32_t &count) noexcept {
  if (found.shared == nullptr) {
    if (found.label == 0) return PLATFORM_OK;
    const std::uint32_t status = status_of_append(kivo_index_list_add_many(list, &found.label, 1));
    if (status == PLATFORM_OK) count = 1;
    return status;
  }
  std::array<std::uint32_t, kBatch> batch;
  for (auto label = found.shared->begin(); label != found.shared->end();) {
    std::uint32_t n = 0;
    for (; n < kBatch && label != found.shared->end(); ++label) batch[n++] = *label;
    const std::uint32_t status = status_of_append(kivo_index_list_add_many(list, batch.data(), n));
    if (status != PLATFORM_OK) return status;
    count += n;
  }
  return PLATFORM_OK;
}

// Which of ascending labels a set holds. Where there are about as many labels as it has, both are
// walked; else the few are looked up among the many.
std::uint32_t *keep_held(const LabelSet &set, std::span<const std::uint32_t> labels,
                         std::uint32_t *kept) noexcept {
  constexpr std::size_t kStepsOfALookUp = 64;
  if (set.size() / kStepsOfALookUp > labels.size()) {
    for (const std::uint32_t label : labels) {
      if (set.contains(label)) *kept++ = label;
    }
    return kept;
  }
  auto held = set.lower_bound(labels.front());
  const auto end = set.end();
  if (labels.size() / kStepsOfALookUp > set.size()) {
    for (; held != end; ++held) {
      if (std::ranges::binary_search(labels, *held)) *kept++ = *held;
    }
    return kept;
  }
  for (const std::uint32_t label : labels) {
    while (held != end && *held < label) ++held;
    if (held == end) break;
    *kept = label;
    kept += *held == label ? 1 : 0;
  }
  return kept;
}

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" std::uint32_t attrdb_get_labels_by_attr(std::uint32_t type, const void *value,
                                                   std::uint32_t size, kivo_index_list **list,
                                                   std::uint32_t *count) noexcept {
  if (count != nullptr) *count = 0;
  if (list == nullptr || count == nullptr) return ATTRDB_ERR_INVALID_ARG;
  if (kivo_index_list_add_many == nullptr) return ATTRDB_ERR_NOT_READY;
  ValueIndex::Found found;
  const std::uint32_t status = look_up(type, value, size, found);
  return status == PLATFORM_OK ? append_labels(found, list, *count) : status;
}

extern "C" std::uint32_t attrdb_count_labels_by_attr(std::uint32_t type, const void *value,
                                                     std::uint32_t size,
                                                     std::uint32_t *count) noexcept {
  if (count == nullptr) return ATTRDB_ERR_INVALID_ARG;
  ValueIndex::Found found;
  const std::uint32_t status = look_up(type, value, size, found);
  *count = found.count();
  return status;
}

extern "C" std::uint32_t attrdb_keep_labels_by_attr(std::uint32_t type, const void *value,
                                                    std::uint32_t size, const std::uint32_t *labels,
                                                    std::uint32_t n_labels, std::uint32_t *kept,
                                                    std::uint32_t *n_kept) noexcept {
  if (n_kept == nullptr) return ATTRDB_ERR_INVALID_ARG;
  *n_kept = 0;
  if (kept == nullptr || (labels == nullptr && n_labels != 0)) return ATTRDB_ERR_INVALID_ARG;
  ValueIndex::Found found;
  const std::uint32_t status = look_up(type, value, size, found);
  if (status != PLATFORM_OK || n_labels == 0) return status;
  const std::uint32_t *end = kept;
  if (found.shared != nullptr) {
    end = keep_held(*found.shared, {labels, n_labels}, kept);
  } else if (found.label != 0) {
    end = std::find(labels, labels + n_labels, found.label) != labels + n_labels ? kept + 1 : kept;
    *kept = found.label;
  }
  *n_kept = static_cast<std::uint32_t>(end - kept);
  return PLATFORM_OK;
}

extern "C" std::uint32_t attrdb_get_label_by_attr(std::uint32_t type, const void *value,
                                                  std::uint32_t size,
                                                  std::uint32_t *label) noexcept {
  if (label == nullptr) return ATTRDB_ERR_INVALID_ARG;
  ValueIndex::Found found;
  const std::uint32_t status = look_up(type, value, size, found);
  *label = found.lowest_label();
  return status;
}

extern "C" std::uint32_t attrdb_get_record_by_attr(std::uint32_t type, const void *value,
                                                   std::uint32_t size,
                                                   attrdb_record **out) noexcept {
  if (out == nullptr) return ATTRDB_ERR_INVALID_ARG;
  *out = nullptr;
  ValueIndex::Found found;
  const std::uint32_t status = look_up(type, value, size, found);
  auth_ctxt *ctxt = sessions.find(found.lowest_label());
  if (ctxt != nullptr) *out = &ctxt->record;
  return status;
}

extern "C" std::uint32_t attrdb_get_next_if_id(std::uint32_t after, std::uint32_t *next) noexcept {
  if (next == nullptr) return ATTRDB_ERR_INVALID_ARG;
  *next = 0;
  if (record_indexes() == nullptr) return ATTRDB_ERR_NOT_READY;
  *next = record_indexes()->next_interface_id(after);
  return PLATFORM_OK;
}
