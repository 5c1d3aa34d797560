// See start_events.h.
#include "support/start_events.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

namespace bench {
namespace {

constexpr uint64_t kServers = 24;
constexpr uint64_t kPortsPerServer = 24;
constexpr uint64_t kEventsPerSecond = 200;
constexpr time_t kFirstSecond = 1794812400;  // Mon Nov 16 07:00:00 2026 UTC
constexpr const char *kRealms[] = {"example.com", "example.net", "example.org", "example.edu"};
constexpr size_t kPieceSize = 1 << 20;
constexpr size_t kEventSizeMax = 2048;

// Numbers the events anew, without repetition: values in rising order would flatter an index that
// keeps its keys sorted. An odd factor is invertible modulo a power of two.
uint32_t scrambled(uint64_t event) {
  return static_cast<uint32_t>(event * 0x9e3779b1u % kStartEventsMax);
}

struct Clock {
  time_t now = 0;
  char header[32];     // Mon Nov 16 07:00:00 2026
  char timestamp[32];  // Nov 16 2026 07:00:00 UTC

  void set(time_t to) {
    if (now == to) return;
    now = to;
    std::tm parts{};
    gmtime_r(&now, &parts);
    strftime(header, sizeof(header), "%a %b %d %H:%M:%S %Y", &parts);
    strftime(timestamp, sizeof(timestamp), "%b %d %Y %H:%M:%S UTC", &parts);
  }
};

void append_event(std::string &log, uint64_t event, const Clock &clock) {
  const uint32_t id = scrambled(event);
  const uint32_t high = id >> 16;
  const uint32_t middle = id >> 8 & 0xff;
  const uint32_t low = id & 0xff;
  const auto server = static_cast<uint32_t>(event % kServers) + 1;
  const auto port = static_cast<uint32_t>(event / kServers % kPortsPerServer) + 1;
  const auto second = static_cast<uint32_t>(clock.now);

  char text[kEventSizeMax];
  const int size = std::snprintf(text, sizeof(text),
                                 "%s\n"
                                 "\tUser-Name = \"user-%07u@%s\"\n"
                                 "\tNAS-IP-Address = 192.0.2.%u\n"
                                 "\tNAS-Identifier = \"access-%u.example.net\"\n"
                                 "\tNAS-Port = %u\n"
                                 "\tNAS-Port-Id = \"Gi1/0/%u\"\n"
                                 "\tNAS-Port-Type = Ethernet\n"
                                 "\tService-Type = Framed-User\n"
                                 "\tCalled-Station-Id = \"02-00-5E-00-53-%02X\"\n"
                                 "\tCalling-Station-Id = \"02-00-5E-%02X-%02X-%02X\"\n"
                                 "\tAcct-Status-Type = Start\n"
                                 "\tAcct-Session-Id = \"%08X\"\n"
                                 "\tAcct-Multi-Session-Id = \"%08X%08X%08X\"\n"
                                 "\tAcct-Authentic = RADIUS\n"
                                 "\tEvent-Timestamp = \"%s\"\n"
                                 "\tAcct-Delay-Time = 0\n"
                                 "\tClass = 0x%08x%08x\n"
                                 "\tFramed-IP-Address = 10.%u.%u.%u\n"
                                 "\tFramed-IPv6-Address = 2001:db8:100:%x::%x:%x\n"
                                 "\tTimestamp = %u\n\n",
                                 clock.header, id, kRealms[id % std::size(kRealms)], server, server,
                                 50100 + port, port, server, high, middle, low, id, server, second,
                                 id, clock.timestamp, id, 0xc1a55e00u, high, middle, low, server,
                                 high, id & 0xffff, second);
  log.append(text, static_cast<size_t>(size));
}

bool write_all(int fd, const std::string &piece) {
  for (size_t written = 0; written < piece.size();) {
    const ssize_t size = write(fd, piece.data() + written, piece.size() - written);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return false;
    written += static_cast<size_t>(size);
  }
  return true;
}

}  // namespace

bool write_start_events(int fd, uint64_t n) {
  std::string piece;
  piece.reserve(kPieceSize + kEventSizeMax);
  Clock clock;
  for (uint64_t event = 0; event < n; ++event) {
    clock.set(kFirstSecond + static_cast<time_t>(event / kEventsPerSecond));
    append_event(piece, event, clock);
    if (piece.size() < kPieceSize && event + 1 < n) continue;
    if (!write_all(fd, piece)) return false;
    piece.clear();
  }
  return true;
}

}  // namespace bench
