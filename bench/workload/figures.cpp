// See figures.h.
#include "workload/figures.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace workload {

double median(std::vector<double> values) {
  std::ranges::sort(values);
  const size_t half = values.size() / 2;
  return values.size() % 2 != 0 ? values[half] : (values[half - 1] + values[half]) / 2;
}

bool Figures::take(const std::string &peer, uint32_t n, const Sheet &sheet) {
  bool agrees = true;
  for (const OpRow &row : kOps) {
    if (sheet.has(row.op)) add(peer, n, row.op, sheet.value(row.op));
    if (!sheet.has_check(row.op)) continue;
    const uint64_t check = sheet.check(row.op);
    const auto known = std::ranges::find_if(
        answers_, [&](const Answer &answer) { return answer.n == n && answer.op == row.op; });
    if (known == answers_.end()) {
      answers_.push_back({peer, n, row.op, check});
    } else if (known->check != check) {
      std::fprintf(stderr, "workload_bench: %" PRIu32 " sessions, %s: %s and %s differ\n", n,
                   row.name, known->peer.c_str(), peer.c_str());
      agrees = false;
    }
  }
  return agrees;
}

void Figures::add(const std::string &peer, uint32_t n, Op op, double value) {
  for (Figure &figure : figures_) {
    if (figure.peer == peer && figure.n == n && figure.op == op) {
      figure.values.push_back(value);
      return;
    }
  }
  figures_.push_back({peer, n, op, {value}});
}

std::optional<double> Figures::value(const std::string &peer, uint32_t n, Op op) const {
  const Figure *figure = find(peer, n, op);
  if (figure == nullptr) return std::nullopt;
  return median(figure->values);
}

std::optional<double> Figures::ratio(const std::string &of, const std::string &to, uint32_t n,
                                     Op op) const {
  const Figure *dividend = find(of, n, op);
  const Figure *divisor = find(to, n, op);
  if (dividend == nullptr || divisor == nullptr) return std::nullopt;
  std::vector<double> quotients;
  const size_t rounds = std::min(dividend->values.size(), divisor->values.size());
  for (size_t round = 0; round < rounds; ++round) {
    quotients.push_back(dividend->values[round] / divisor->values[round]);
  }
  return median(std::move(quotients));
}

std::vector<std::string> Figures::peers(uint32_t n) const {
  std::vector<std::string> peers;
  for (const Figure &figure : figures_) {
    if (figure.n == n && std::ranges::find(peers, figure.peer) == peers.end()) {
      peers.push_back(figure.peer);
    }
  }
  return peers;
}

const Figure *Figures::find(const std::string &peer, uint32_t n, Op op) const {
  const auto found = std::ranges::find_if(figures_, [&](const Figure &figure) {
    return figure.n == n && figure.op == op && figure.peer == peer;
  });
  return found != figures_.end() ? &*found : nullptr;
}

}  // namespace workload
