// The limits of the machine in this run: what a read costs that depends on the one before, how fast
// memory is read in order, and what making a key costs, which stands in every dependent look-up.
#include <numeric>
#include <vector>

#include "workload/clock.h"
#include "workload/data.h"
#include "workload/peers.h"

namespace workload {
namespace {

constexpr clockid_t kClock = CLOCK_PROCESS_CPUTIME_ID;
constexpr size_t kBytes = size_t{256} << 20;
constexpr uint32_t kReads = 2'000'000;
constexpr uint32_t kPasses = 4;
constexpr uint32_t kKeys = 2'000'000;

struct alignas(64) Line {
  uint32_t next;
};
constexpr uint32_t kLines = kBytes / sizeof(Line);

// A circle through all lines.
std::vector<Line> make_circle() {
  const std::vector<uint32_t> order = shuffled_numbers(kLines, 31);
  std::vector<Line> lines(kLines);
  for (uint32_t i = 0; i < kLines; ++i) lines[order[i]].next = order[(i + 1) % kLines];
  return lines;
}

double latency_ns() {
  const std::vector<Line> lines = make_circle();
  uint32_t at = 0;
  const double ns = ns_of(kClock, [&] {
    for (uint32_t i = 0; i < kReads; ++i) at = lines[at].next;
  });
  keep(at);
  return ns / kReads;
}

double bandwidth_gb_s() {
  const std::vector<uint64_t> words(kBytes / sizeof(uint64_t), 1);
  uint64_t sum = 0;
  const double ns = ns_of(kClock, [&] {
    for (uint32_t pass = 0; pass < kPasses; ++pass) {
      sum += std::accumulate(words.begin(), words.end(), uint64_t{0});
      keep(sum);
    }
  });
  return static_cast<double>(kBytes * kPasses) / ns;
}

double key_ns() {
  uint32_t number = 0;
  const double ns = ns_of(kClock, [&] {
    for (uint32_t step = 0; step < kKeys; ++step) {
      const AuditId id = audit_id_of(number);
      uint32_t word = 0;
      std::memcpy(&word, id.data(), sizeof(word));
      number = next_number(word, step, kLines);
    }
  });
  keep(number);
  return ns / kKeys;
}

}  // namespace

bool measure_machine(uint32_t, std::span<uint64_t>, Sheet &sheet) {
  sheet.set(Op::kLatency, latency_ns());
  sheet.set(Op::kBandwidth, bandwidth_gb_s());
  sheet.set(Op::kKeys, key_ns());
  return true;
}

}  // namespace workload
