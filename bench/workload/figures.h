// All figures of a run: by peer, number of sessions and operation, one value a round. Also holds
// the peers' answers to each other.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "workload/sheet.h"

namespace workload {

struct Figure {
  std::string peer;
  uint32_t n;
  Op op;
  std::vector<double> values;  // in the order of the rounds
};

double median(std::vector<double> values);

class Figures {
 public:
  // Takes over what a peer found in one round. Says so on standard error and gives false when an
  // answer differs from one that was given before for as many sessions.
  bool take(const std::string &peer, uint32_t n, const Sheet &sheet);
  void add(const std::string &peer, uint32_t n, Op op, double value);

  [[nodiscard]] const std::vector<Figure> &all() const { return figures_; }
  [[nodiscard]] std::optional<double> value(const std::string &peer, uint32_t n, Op op) const;
  // The median of the quotients within the rounds.
  [[nodiscard]] std::optional<double> ratio(const std::string &of, const std::string &to,
                                            uint32_t n, Op op) const;
  // Whose figures there are for n sessions, in the order of their first one.
  [[nodiscard]] std::vector<std::string> peers(uint32_t n) const;

 private:
  struct Answer {
    std::string peer;
    uint32_t n;
    Op op;
    uint64_t check;
  };

  [[nodiscard]] const Figure *find(const std::string &peer, uint32_t n, Op op) const;

  std::vector<Figure> figures_;
  std::vector<Answer> answers_;  // the first for each number and operation
};

}  // namespace workload
