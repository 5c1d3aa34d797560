// The library's three operations that the platform refers to, as a test program defines them: a
// label set that is a vector, and shadow records that are counted. Include it in one file of the
// program.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/attrdb.h"

struct kivo_index_list {
  std::vector<std::uint32_t> labels;
  std::size_t limit = SIZE_MAX;  // additions beyond it fail for want of memory
  std::vector<std::uint32_t> batches;
};

struct shadowdb_rec {
  std::uint32_t label;
};

inline int shadows_alive = 0;

extern "C" std::uint32_t kivo_index_list_add_many(kivo_index_list **list,
                                                  const std::uint32_t *labels,
                                                  std::uint32_t count) {
  if (list == nullptr || *list == nullptr) return 2;
  if ((*list)->labels.size() + count > (*list)->limit) return 1;
  (*list)->labels.insert((*list)->labels.end(), labels, labels + count);
  (*list)->batches.push_back(count);
  return 0;
}

extern "C" shadowdb_rec *shadowdb_alloc_record(std::uint32_t label) {
  ++shadows_alive;
  return new shadowdb_rec{label};
}

extern "C" std::uint32_t shadowdb_destroy_record(shadowdb_rec *record) {
  --shadows_alive;
  delete record;
  return 1;
}

// The labels of the records that have this value, as the store answers.
inline std::vector<std::uint32_t> labels_with(std::uint32_t type, const std::string &value) {
  kivo_index_list found;
  kivo_index_list *list = &found;
  std::uint32_t count = 0;
  const std::uint32_t status = attrdb_get_labels_by_attr(
      type, value.data(), static_cast<std::uint32_t>(value.size()), &list, &count);
  if (status != PLATFORM_OK || count != found.labels.size()) return {UINT32_MAX};
  return found.labels;
}

inline attrdb_record *record_of(std::uint32_t label) {
  attrdb_record *record = nullptr;
  attrdb_get_record(label, &record);
  return record;
}

inline std::uint32_t write(auth_ctxt *ctxt, std::uint32_t type, const std::string &value,
                           std::uint32_t *changed = nullptr) {
  return auth_mgr_idc_add_or_update_attr(ctxt, type, value.data(),
                                         static_cast<std::uint32_t>(value.size()), changed);
}

inline std::string read(const auth_ctxt *ctxt, std::uint32_t type) {
  const void *value = nullptr;
  std::uint32_t size = 0;
  std::uint32_t count = 0;
  if (auth_mgr_idc_get_attr(ctxt, type, &value, &size, &count) != PLATFORM_OK) return "(error)";
  if (value == nullptr) return "(absent)";
  return {static_cast<const char *>(value), size};
}

// A source of 32-bit random numbers, the same ones in every run.
inline auto random_numbers(std::uint32_t seed) {
  return [engine = std::make_shared<std::mt19937>(seed)] {
    return static_cast<std::uint32_t>((*engine)());
  };
}

// One address of type 10 that ends in a number.
inline std::string address(unsigned number) {
  std::string bytes("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0", 12);
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

// A 32-bit value as it is stored.
inline std::string number(std::uint32_t value) {
  return {reinterpret_cast<const char *>(&value), sizeof value};
}
