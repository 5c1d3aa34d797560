// See utc_time.h.
#include "utc_time.h"

#include <ctime>

namespace host_text {

std::string utc_time(uint64_t seconds) {
  constexpr uint64_t kLastSecond = 253402300799;
  const auto time = static_cast<time_t>(seconds);
  tm utc{};
  if (seconds > kLastSecond || gmtime_r(&time, &utc) == nullptr) return {};
  char text[sizeof "9999-12-31T23:59:59Z"];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

}  // namespace host_text
