// What we hold ourselves to at a million sessions: for each operation what it must cost at the most
// and what we aim at, as a multiple of a peer's figure in the same run or in the operation's unit.
#pragma once

#include <cstdint>
#include <optional>

#include "workload/figures.h"
#include "workload/operations.h"

namespace workload {

inline constexpr const char *kKivo = "kivo";
inline constexpr const char *kMultiIndex = "multi_index";
inline constexpr const char *kByHand = "by_hand";

struct Bound {
  double at_most;
  const char *reference;  // a peer; null when at_most is in the operation's unit
};

// How a bound that is no ratio follows the number of sessions.
enum class Growth { kNone, kWithSessions };

struct Target {
  Op op;
  Bound must;
  Bound aim;
  Growth growth;
};

// clang-format off
inline constexpr Target kTargets[] = {
    // operation                  must                  aim                   in absolute figures
    {Op::kCreate,                 {0.8, kMultiIndex},   {0.5,  kMultiIndex},  Growth::kNone},
    {Op::kLongestCreate,          {50, nullptr},        {5, nullptr},         Growth::kNone},
    {Op::kMac,                    {0.4, kMultiIndex},   {1.0,  kByHand},      Growth::kNone},
    {Op::kAudit,                  {0.5, kMultiIndex},   {1.2,  kByHand},      Growth::kNone},
    {Op::kRead,                   {1.0, kMultiIndex},   {0.8,  kMultiIndex},  Growth::kNone},
    {Op::kUpdate,                 {4.5, kMultiIndex},   {3.0,  kMultiIndex},  Growth::kNone},
    {Op::kUpdateInterface,        {0.7, kMultiIndex},   {0.5,  kMultiIndex},  Growth::kNone},
    {Op::kDomainMethod,           {0.1, kMultiIndex},   {0.05, kMultiIndex},  Growth::kNone},
    {Op::kInterfaceDomain,        {1.0, kMultiIndex},   {0.5,  kMultiIndex},  Growth::kNone},
    {Op::kDomainInterfaceLabel,   {3, nullptr},         {1.5, nullptr},       Growth::kNone},
    {Op::kLabels,                 {3, nullptr},         {1.5, nullptr},       Growth::kNone},
    {Op::kDelete,                 {2.0, kMultiIndex},   {1.4,  kMultiIndex},  Growth::kNone},
    {Op::kMemory,                 {400, nullptr},       {350, nullptr},       Growth::kNone},
    {Op::kIntersectAscending,     {8, nullptr},         {5, nullptr},         Growth::kWithSessions},
    {Op::kIntersectShuffled,      {40, nullptr},        {20, nullptr},        Growth::kWithSessions},
    {Op::kDispatch,               {60, nullptr},        {25, nullptr},        Growth::kNone},
    {Op::kTraceOff,               {12, nullptr},        {8, nullptr},         Growth::kNone},
};
// clang-format on

// By how much a bound is widened for n sessions; nothing when there is no bound for so many.
// Figures that have no number of sessions have n 0.
std::optional<double> widening(uint32_t n);

// How a figure of the library stands to a bound: the quotient, and what it is at most.
struct Standing {
  double is;
  double at_most;
  [[nodiscard]] bool holds() const { return is <= at_most; }
};

// Nothing when a figure is missing or no bound is meant for n sessions.
std::optional<Standing> must_standing(const Figures &figures, uint32_t n, const Target &target);
std::optional<Standing> aim_standing(const Figures &figures, uint32_t n, const Target &target);

}  // namespace workload
