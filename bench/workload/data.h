// The sessions that the workload works on. Everything about a session is computed from its number
// by mixing that maps no two numbers to one: labels lie anywhere in 32 bits and follow no order,
// and a look-up that depends on the one before computes its key instead of fetching it, so that no
// array of keys stands in the figures.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace workload {

using Mac = std::array<uint8_t, 6>;
using AuditId = std::array<char, 24>;

inline constexpr uint32_t kSessionsPerInterface = 48;
inline constexpr std::string_view kDomains[] = {"example.com", "example.net", "example.org",
                                                "example.edu", "a.example",   "b.example",
                                                "c.example",   "d.example"};
inline constexpr std::string_view kMethods[] = {"radius", "local", "remote", "mac"};

// A session in fields of fixed size: sixteen attributes.
struct Session {
  // Unique and indexed.
  Mac mac;
  AuditId audit_id;
  uint32_t ipv4;
  uint32_t session_id;
  // Shared and indexed.
  uint32_t interface_id;
  uint8_t domain;  // in kDomains
  uint8_t method;  // in kMethods
  // Not indexed.
  uint8_t user_name_length;  // 8 to 24
  std::array<char, 24> user_name;
  uint32_t port;
  uint32_t port_type;
  uint32_t service_type;
  uint32_t session_time;
  uint64_t octets_in;
  uint64_t octets_out;
  std::array<char, 16> called_station;
  std::array<char, 16> calling_station;
};

inline constexpr uint32_t kLabelSeed = 20261116;
inline constexpr uint32_t kMacSeed = 0x30000000;
inline constexpr uint32_t kAuditSeed = 0x50000000;

// The finalizer of MurmurHash3: a permutation of all 32-bit numbers that leaves 0 where it is.
constexpr uint32_t mix(uint32_t x) {
  x ^= x >> 16;
  x *= 0x85ebca6b;
  x ^= x >> 13;
  x *= 0xc2b2ae35;
  return x ^ x >> 16;
}

// Never 0: kLabelSeed + number does not reach 2^32.
constexpr uint32_t label_of(uint32_t number) { return mix(kLabelSeed + number); }

inline Mac mac_of(uint32_t number) {
  Mac mac = {2, 0};
  const uint32_t id = mix(kMacSeed + number);
  std::memcpy(mac.data() + 2, &id, sizeof(id));
  return mac;
}

// Eight hexadecimal digits, as the bytes of a word: the word's digits are spread to a byte each.
constexpr uint64_t hexadecimal(uint32_t word) {
  uint64_t x = word;
  x = (x | x << 16) & 0x0000ffff0000ffff;
  x = (x | x << 8) & 0x00ff00ff00ff00ff;
  x = (x | x << 4) & 0x0f0f0f0f0f0f0f0f;
  const uint64_t is_letter = ((x + 0x0606060606060606) >> 4) & 0x0101010101010101;
  return x + 0x3030303030303030 + is_letter * ('A' - '0' - 10);
}

inline AuditId audit_id_of(uint32_t number) {
  const std::array<uint64_t, 3> words = {hexadecimal(mix(kAuditSeed + number)), hexadecimal(number),
                                         hexadecimal(mix(~number))};
  AuditId id;
  static_assert(sizeof(words) == sizeof(id));
  std::memcpy(id.data(), words.data(), sizeof(id));
  return id;
}

// Draws a number below n from what a step found: without the step's result there is no next step.
constexpr uint32_t next_number(uint32_t result, uint32_t step, uint32_t n) {
  return static_cast<uint32_t>(uint64_t{mix(result + step)} * n >> 32);
}

constexpr uint32_t interfaces_of(uint32_t n) {
  return (n + kSessionsPerInterface - 1) / kSessionsPerInterface;
}

// n sessions by number. 48 share an interface (the last one may have fewer), six of them a domain
// and a thirty-second of all a domain and a method; who shares with whom is drawn.
std::vector<Session> make_sessions(uint32_t n);

// The numbers below n in an order that has nothing to do with them.
std::vector<uint32_t> shuffled_numbers(uint32_t n, uint32_t seed);

}  // namespace workload
