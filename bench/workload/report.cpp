// See report.h.
#include "workload/report.h"

#include <cinttypes>
#include <optional>
#include <string>

#include "workload/targets.h"

namespace workload {
namespace {

constexpr int kNameWidth = 36;

std::string text_of(const Bound &bound, double at_most) {
  char text[64];
  if (bound.reference != nullptr) {
    std::snprintf(text, sizeof(text), "%.2f x %s", at_most, bound.reference);
  } else {
    std::snprintf(text, sizeof(text), "%.4g", at_most);
  }
  return text;
}

void print_standing(const std::optional<Standing> &stands, const Bound &bound, const char *missed) {
  if (!stands) {
    std::printf("  %8s %-20s %-6s", "-", text_of(bound, bound.at_most).c_str(), "");
    return;
  }
  std::printf("  %8.2f %-20s %-6s", stands->is, text_of(bound, stands->at_most).c_str(),
              stands->holds() ? "ok" : missed);
}

void print_target(const Figures &figures, uint32_t n, const Target &target) {
  const OpRow &row = row_of(target.op);
  char n_text[16] = "";
  if (n != 0) std::snprintf(n_text, sizeof(n_text), "%" PRIu32, n);
  std::printf("%-*s %9s", kNameWidth, row.name, n_text);
  if (const auto value = figures.value(kKivo, n, target.op)) {
    std::printf(" %10.4g %-12s", *value, row.unit);
  } else {
    std::printf(" %10s %-12s", "-", row.unit);
  }
  print_standing(must_standing(figures, n, target), target.must, "MISSED");
  print_standing(aim_standing(figures, n, target), target.aim, "missed");
  std::putchar('\n');
}

bool is_counted(Op op) { return op == Op::kDispatch || op == Op::kTraceOff; }

}  // namespace

void print_figures(const Figures &figures, uint32_t n) {
  const std::vector<std::string> peers = figures.peers(n);
  if (peers.empty()) return;
  if (n != 0) {
    std::printf("\n%" PRIu32 " sessions; median of the rounds\n", n);
  } else {
    std::printf("\nMachine and instructions\n");
  }
  std::printf("%-*s %-12s", kNameWidth, "", "unit");
  for (const std::string &peer : peers) std::printf(" %12s", peer.c_str());
  std::putchar('\n');
  for (const OpRow &row : kOps) {
    bool any = false;
    for (const std::string &peer : peers) any |= figures.value(peer, n, row.op).has_value();
    if (!any) continue;
    std::printf("%-*s %-12s", kNameWidth, row.name, row.unit);
    for (const std::string &peer : peers) {
      const auto value = figures.value(peer, n, row.op);
      value ? std::printf(" %12.5g", *value) : std::printf(" %12s", "-");
    }
    std::putchar('\n');
  }
}

void print_targets(const Figures &figures, const std::vector<uint32_t> &sizes) {
  std::printf("\n%-*s %9s %10s %-12s  %8s %-20s %-6s  %8s %-20s\n", kNameWidth,
              "kivo (ratio: median of the rounds)", "sessions", "is", "unit", "is",
              "must be, at most", "", "is", "aim");
  for (const uint32_t n : sizes) {
    if (!widening(n)) continue;
    for (const Target &target : kTargets) {
      if (!is_counted(target.op)) print_target(figures, n, target);
    }
  }
  for (const Target &target : kTargets) {
    if (is_counted(target.op)) print_target(figures, 0, target);
  }
}

void write_json(const Figures &figures, FILE *file) {
  for (const Figure &figure : figures.all()) {
    const OpRow &row = row_of(figure.op);
    std::fprintf(file,
                 "{\"peer\": \"%s\", \"n\": %" PRIu32
                 ", \"op\": \"%s\", \"unit\": \"%s\", \"value\": %.6g}\n",
                 figure.peer.c_str(), figure.n, row.name, row.unit, median(figure.values));
  }
}

}  // namespace workload
