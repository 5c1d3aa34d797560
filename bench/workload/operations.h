// What is measured: one row a figure. A figure is known by its row, its peer and a number of
// sessions; the name is the one that the tables and the JSON lines show.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace workload {

enum class Op : uint8_t {
  kCreate,
  kLongestCreate,
  kMac,
  kAudit,
  kRead,
  kUpdate,
  kUpdateInterface,
  kDomainMethod,
  kInterfaceDomain,
  kDomainInterface,
  kDomainInterfaceLabel,
  kLabels,
  kDelete,
  kMemory,
  kIntersectAscending,
  kIntersectShuffled,
  kDispatch,
  kWriteShell,
  kTraceOff,
  kGateClosed,
  kLatency,
  kBandwidth,
  kKeys,
};

struct OpRow {
  Op op;
  const char *name;
  const char *unit;
};

// A dependent operation begins only when the one before has given its result; of independent ones
// the processor runs several at a time.
// clang-format off
inline constexpr OpRow kOps[] = {
    {Op::kCreate,               "create, 16 attributes",               "ns"},
    {Op::kLongestCreate,        "longest create",                      "ms"},
    {Op::kMac,                  "MAC -> label, dependent",             "ns"},
    {Op::kAudit,                "audit session id -> label, dependent", "ns"},
    {Op::kRead,                 "read an attribute, dependent",        "ns"},
    {Op::kUpdate,               "update unindexed, independent",       "ns"},
    {Op::kUpdateInterface,      "update interface, independent",       "ns"},
    {Op::kDomainMethod,         "query domain, method",                "us"},
    {Op::kInterfaceDomain,      "query interface, domain",             "us"},
    {Op::kDomainInterface,      "query domain, interface",             "us"},
    {Op::kDomainInterfaceLabel, "the same, a label of the domain",     "ns"},
    {Op::kLabels,               "all labels, a label",                 "ns"},
    {Op::kDelete,               "delete, independent",                 "ns"},
    {Op::kMemory,               "memory, a session",                   "B"},
    {Op::kIntersectAscending,   "intersect n x n, ascending",          "ms"},
    {Op::kIntersectShuffled,    "intersect n x n, random order",       "ms"},
    {Op::kDispatch,             "dispatch, type without an entry",     "instructions"},
    {Op::kWriteShell,           "single write beyond the platform's",  "instructions"},
    {Op::kTraceOff,             "trace off at the facility",           "instructions"},
    {Op::kGateClosed,           "trace off at the gate",               "instructions"},
    {Op::kLatency,              "dependent reads in 256 MB",           "ns"},
    {Op::kBandwidth,            "sequential reads in 256 MB",          "GB/s"},
    {Op::kKeys,                 "making a key, dependent",             "ns"},
};
// clang-format on

inline constexpr size_t kOpCount = std::size(kOps);

constexpr const OpRow &row_of(Op op) { return kOps[static_cast<size_t>(op)]; }

constexpr bool rows_follow_ops() {
  for (size_t i = 0; i < kOpCount; ++i) {
    if (kOps[i].op != static_cast<Op>(i)) return false;
  }
  return true;
}
static_assert(rows_follow_ops());

}  // namespace workload
