// Writes a `detail` log of made-up start events, each of another user on another device, so that a
// replay makes one session an event. The records are built like those of a wired access server in
// examples/accounting. Everything follows from the number of the event: two logs agree as far as
// the shorter goes. Addresses are those for documentation where there are enough of them.
#pragma once

#include <cstdint>

namespace bench {

// MAC and IPv4 addresses are made of 24 bits.
inline constexpr uint64_t kStartEventsMax = uint64_t{1} << 24;

// Writes n events, at most kStartEventsMax, to a descriptor. False, with errno, when that fails.
bool write_start_events(int fd, uint64_t n);

}  // namespace bench
