// Looking records up by an attribute's value, and the next interface id.
// Threads: none; the process serialises all calls.
#include <algorithm>
#include <array>
#include <span>

#include "library_references.h"
#include "merge_labels.h"
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
  std::uint32_t n = 0;
  const auto pass_on = [&] {
    const std::uint32_t status = status_of_append(kivo_index_list_add_many(list, batch.data(), n));
    if (status == PLATFORM_OK) count += n;
    n = 0;
    return status;
  };
  for (LabelSet::Runs runs(*found.shared); !runs.run().empty(); runs.next()) {
    const LabelSet::Run run = runs.run();
    if (n + run.size() > kBatch) {
      if (const std::uint32_t status = pass_on(); status != PLATFORM_OK) return status;
    }
    std::ranges::copy(run, batch.begin() + n);
    n += static_cast<std::uint32_t>(run.size());
  }
  return pass_on();
}

bool reaches(LabelSet::Run run, std::uint32_t label) noexcept {
  return run.empty() || run.back() >= label;
}

// Goes on to the run where a label would lie: mostly the next one, else by a look-up.
void advance(LabelSet::Runs &runs, const LabelSet &set, std::uint32_t label) noexcept {
  runs.next();
  if (reaches(runs.run(), label)) return;
  runs = LabelSet::Runs(set, label);
  if (!reaches(runs.run(), label)) runs.next();
}

// Which of ascending labels a run holds too; `at` is moved behind the last one that was compared.
// A run so short that its labels are better looked up among the others is not merged.
std::uint32_t *keep_held(LabelSet::Run run, const std::uint32_t *&at, const std::uint32_t *end,
                         std::uint32_t *kept) noexcept {
  constexpr std::ptrdiff_t kStepsOfALookUp = 64;
  if (run.front() < *at || run.back() > end[-1]) {
    const auto first = std::ranges::lower_bound(run, *at);
    run = {first, std::ranges::upper_bound(first, run.end(), end[-1])};
    if (run.empty()) {
      at = end;  // of the next run all labels are higher
      return kept;
    }
  }
  if ((end - at) / kStepsOfALookUp > static_cast<std::ptrdiff_t>(run.size())) {
    for (const std::uint32_t held : run) {
      at = std::lower_bound(at, end, held);
      if (at != end && *at == held) *kept++ = held;
    }
    return kept;
  }
  const std::uint32_t *held = run.data();
  return kivo_common::merge_labels(at, end, held, held + run.size(), kept);
}

std::uint32_t *keep_held(const LabelSet &set, std::span<const std::uint32_t> labels,
                         std::uint32_t *kept) noexcept {
  // So few that they hardly lie in neighbouring runs of a set this large.
  if (labels.size() <= 128 && labels.size() < set.size() / 64) return set.copy_held(labels, kept);
  const std::uint32_t *at = labels.data();
  const std::uint32_t *const end = at + labels.size();
  LabelSet::Runs runs(set, *at);
  if (!reaches(runs.run(), *at)) runs.next();
  while (!runs.run().empty()) {
    kept = keep_held(runs.run(), at, end, kept);
    if (at == end) break;
    advance(runs, set, *at);
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
    *kept = found.label;
    end = std::binary_search(labels, labels + n_labels, found.label) ? kept + 1 : kept;
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
