// Instructions of what is too short for a clock: a dispatch that concerns nobody, a trace that is
// switched off. Counted by callgrind, so that the figures are the same on every machine; without it
// there are none.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "workload/sheet.h"

namespace workload {

bool measure_instructions(uint32_t n, std::span<uint64_t> create_ns, Sheet &sheet);

// What callgrind runs: a loop of so many calls. Returns an exit status.
int run_counted(std::string_view loop, uint32_t calls);

}  // namespace workload
