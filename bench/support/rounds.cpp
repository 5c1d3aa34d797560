// See rounds.h.
#include "support/rounds.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace bench {
namespace {

using Values = std::vector<double>;  // one a round

constexpr char kItemRate[] = "items_per_second";
constexpr double kNanoseconds = 1e9;

double median(Values values) {
  std::sort(values.begin(), values.end());
  const size_t half = values.size() / 2;
  return values.size() % 2 != 0 ? values[half] : (values[half - 1] + values[half]) / 2;
}

// Why the run failed; null when it did not. The fields have other names from 1.8 of the library on.
template <typename Run>
const std::string *failure(const Run &run) {
  if constexpr (requires { run.error_occurred; }) {
    return run.error_occurred ? &run.error_message : nullptr;
  } else {
    return run.skipped ? &run.skip_message : nullptr;
  }
}

class Collector final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context &) override { return true; }

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      if (const std::string *reason = failure(run); reason != nullptr) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), reason->c_str());
        failed_ = true;
        continue;
      }
      const std::string &name = run.run_name.function_name;
      if (const auto rate = run.counters.find(kItemRate); rate != run.counters.end()) {
        figure(name).push_back(kNanoseconds / rate->second);
      }
      for (const auto &[counter, value] : run.counters) {
        if (counter != kItemRate) figure(name + ":" + counter).push_back(value);
      }
    }
  }

  void print_figures() const {
    std::printf("%-44s %6s %12s %12s %12s\n", "figure (ns an item unless named)", "rounds",
                "median", "least", "most");
    for (const auto &[name, values] : figures_) {
      const auto [least, most] = std::minmax_element(values.begin(), values.end());
      std::printf("%-44s %6zu %12.1f %12.1f %12.1f\n", name.c_str(), values.size(), median(values),
                  *least, *most);
    }
  }

  void print_ratios(std::span<const Ratio> ratios) const {
    std::printf("\n%-60s %7s %8s\n", "ratio (median of the rounds)", "is", "at most");
    for (const Ratio &ratio : ratios) {
      const Values *of = find(ratio.of);
      const Values *to = find(ratio.to);
      if (of == nullptr || to == nullptr) continue;  // filtered out
      Values quotients;
      for (size_t round = 0; round < std::min(of->size(), to->size()); ++round) {
        quotients.push_back((*of)[round] / (*to)[round]);
      }
      const double is = median(quotients);
      std::printf("%-60s %7.2f", ratio.what.c_str(), is);
      if (ratio.at_most > 0) {
        std::printf(" %8.2f %s", ratio.at_most, is <= ratio.at_most ? "ok" : "MISSED");
      }
      std::putchar('\n');
    }
  }

  [[nodiscard]] bool failed() const { return failed_; }

 private:
  Values &figure(const std::string &name) {
    for (auto &[known, values] : figures_) {
      if (known == name) return values;
    }
    return figures_.emplace_back(name, Values{}).second;
  }

  [[nodiscard]] const Values *find(const std::string &name) const {
    for (const auto &[known, values] : figures_) {
      if (known == name) return &values;
    }
    return nullptr;
  }

  std::vector<std::pair<std::string, Values>> figures_;  // in the order of their first round
  bool failed_ = false;
};

}  // namespace

Options::Options(int &argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  arguments_ = std::span(argv, static_cast<size_t>(argc)).subspan(1);
  if (arguments_.size() > 64) std::exit(2);
}

uint64_t Options::number(const std::string &name, uint64_t otherwise) {
  const std::string prefix = "--" + name + "=";
  uint64_t result = otherwise;
  for (size_t i = 0; i < arguments_.size(); ++i) {
    if (std::strncmp(arguments_[i], prefix.c_str(), prefix.size()) != 0) continue;
    char *end = nullptr;
    result = std::strtoull(arguments_[i] + prefix.size(), &end, 10);
    if (*end != '\0' || result == 0) {
      std::fprintf(stderr, "%s: not a number from 1 on\n", arguments_[i]);
      std::exit(2);
    }
    taken_ |= uint64_t{1} << i;
  }
  return result;
}

void Options::refuse_others() const {
  for (size_t i = 0; i < arguments_.size(); ++i) {
    if ((taken_ >> i & 1) != 0) continue;
    std::fprintf(stderr, "unknown argument: %s\n", arguments_[i]);
    std::exit(2);
  }
}

benchmark::internal::Benchmark *add(const std::string &name,
                                    std::function<void(benchmark::State &)> body) {
  return benchmark::RegisterBenchmark(name.c_str(), std::move(body));
}

int run_and_report(std::span<const Ratio> ratios) {
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  collector.print_figures();
  collector.print_ratios(ratios);
  benchmark::Shutdown();
  return collector.failed() ? 1 : 0;
}

}  // namespace bench
