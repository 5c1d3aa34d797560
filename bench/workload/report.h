// What a run prints and leaves: the figures of each number of sessions side by side, how they stand
// to the targets, and one JSON object a figure.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "workload/figures.h"

namespace workload {

// The figures for n sessions, a column a peer; n 0 stands for those that have no number of
// sessions.
void print_figures(const Figures &figures, uint32_t n);

// One table for all sizes: every target beside what was measured, missed ones marked.
void print_targets(const Figures &figures, const std::vector<uint32_t> &sizes);

// The medians, one object a line.
void write_json(const Figures &figures, FILE *file);

}  // namespace workload
