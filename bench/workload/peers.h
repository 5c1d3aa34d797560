// The peers of the workload, each in a file of its own.
#pragma once

#include <cstdint>
#include <span>

#include "workload/sheet.h"

namespace workload {

// Fills a sheet with what a peer needs for n sessions, or for label sets of n labels.
// create_ns  n entries: the shortest time that each creation has taken so far.
// Gives false when the peer failed.
using Measure = bool (*)(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);

bool measure_kivo(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);
bool measure_multi_index(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);
bool measure_by_hand(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);
bool measure_sqlite(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);
bool measure_redis(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);

// Intersections of label sets.
bool intersect_kivo(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);
bool intersect_vectors(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);
bool intersect_abseil(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);

// The limits of the machine in this run; n does not matter.
bool measure_machine(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);

}  // namespace workload
