// See targets.h.
#include "workload/targets.h"

namespace workload {
namespace {

constexpr double kBoundedSessions = 1e6;
constexpr double kElsewhere = 1.5;

std::optional<Standing> standing(const Figures &figures, uint32_t n, const Target &target,
                                 const Bound &bound, double factor) {
  const auto is = bound.reference != nullptr ? figures.ratio(kKivo, bound.reference, n, target.op)
                                             : figures.value(kKivo, n, target.op);
  if (!is) return std::nullopt;
  const double growth = target.growth == Growth::kWithSessions ? n / kBoundedSessions : 1.0;
  return Standing{*is, bound.at_most * factor * growth};
}

}  // namespace

std::optional<double> widening(uint32_t n) {
  switch (n) {
    case 0:
    case 1'000'000:
      return 1.0;
    case 100'000:
    case 1'600'000:
    case 4'000'000:
      return kElsewhere;
    default:
      return std::nullopt;
  }
}

std::optional<Standing> must_standing(const Figures &figures, uint32_t n, const Target &target) {
  const auto factor = widening(n);
  return factor ? standing(figures, n, target, target.must, *factor) : std::nullopt;
}

std::optional<Standing> aim_standing(const Figures &figures, uint32_t n, const Target &target) {
  return widening(n) ? standing(figures, n, target, target.aim, 1.0) : std::nullopt;
}

}  // namespace workload
