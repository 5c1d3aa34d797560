// Measuring in rounds, and the table that comes out. A program registers what it compares round by
// round (A B C, A B C, ...) instead of each thing several times in a row, so that a busy spell of
// the machine meets all of them; ratios are taken within a round, and the median of the rounds
// counts. Sits on Google Benchmark, whose own flags (--benchmark_filter, --benchmark_out) work.
// Times are processor times, unless a benchmark sets its own.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace bench {

// A quotient of two figures. A figure is known by the benchmark's name, which means its time for an
// item (SetItemsProcessed), or by name and counter: "name:counter".
struct Ratio {
  std::string what;
  std::string of;
  std::string to;
  double at_most;  // what we hold ourselves to; 0 when it is only told
};

// A program's command line: --NAME=NUMBER for what the program itself knows.
class Options {
 public:
  // Takes Google Benchmark's own flags out of the command line.
  Options(int &argc, char **argv);

  // The number given for a name, or what it is without one. Ends the program when it is no number
  // from 1 on.
  uint64_t number(const std::string &name, uint64_t otherwise);

  // Ends the program when an argument was asked for by nobody.
  void refuse_others() const;

 private:
  std::span<char *> arguments_;
  uint64_t taken_ = 0;  // bit n: arguments_[n]
};

// Registers a benchmark under a name that further rounds may use again.
benchmark::internal::Benchmark *add(const std::string &name,
                                    std::function<void(benchmark::State &)> body);

// Runs what was registered and prints every figure (median, least and most of the rounds), then the
// ratios. Returns the exit status: 1 when a benchmark reported an error. A missed bound is marked
// in the table and is no error, for it says as much about the machine as about the program.
int run_and_report(std::span<const Ratio> ratios);

}  // namespace bench
