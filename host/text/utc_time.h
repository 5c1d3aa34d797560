// Times as both programs print them.
#pragma once

#include <cstdint>
#include <string>

namespace host_text {

// "2026-11-16T08:21:03Z" (RFC 3339) of seconds since 1970; empty behind the year 9999, where that
// has no way to write a year.
std::string utc_time(uint64_t seconds);

}  // namespace host_text
