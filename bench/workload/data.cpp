// See data.h.
#include "workload/data.h"

#include <iterator>
#include <numeric>
#include <utility>

namespace workload {
namespace {

constexpr uint32_t kShareSeed = 7;
constexpr uint32_t kUserNameMin = 8;

void copy_hexadecimal(uint32_t word, char *text) {
  const uint64_t digits = hexadecimal(word);
  std::memcpy(text, &digits, sizeof(digits));
}

// Eight digits that no other session has, and letters up to a length that is drawn.
void name_user(uint32_t number, Session &session) {
  constexpr char kLetters[] = "@users.of.example";
  const uint32_t id = mix(0x70000000 + number);
  constexpr uint32_t kLengths = sizeof(session.user_name) - kUserNameMin + 1;
  session.user_name_length = static_cast<uint8_t>(kUserNameMin + id % kLengths);
  copy_hexadecimal(id, session.user_name.data());
  std::memcpy(session.user_name.data() + kUserNameMin, kLetters,
              session.user_name_length - kUserNameMin);
}

// place  of the session among all as interfaces, domains and methods are dealt out.
Session make_session(uint32_t number, uint32_t place) {
  Session session{};
  session.mac = mac_of(number);
  session.audit_id = audit_id_of(number);
  session.ipv4 = mix(0x10000000 + number);
  session.session_id = mix(0x20000000 + number);
  session.interface_id = place / kSessionsPerInterface + 1;
  session.domain = static_cast<uint8_t>(place % std::size(kDomains));
  session.method = static_cast<uint8_t>(place / std::size(kDomains) % std::size(kMethods));
  name_user(number, session);
  session.port = number % 480;
  session.port_type = 15;
  session.service_type = 2;
  session.session_time = mix(number);
  session.octets_in = uint64_t{mix(number + 1)} << 8;
  session.octets_out = uint64_t{mix(number + 2)} << 8;
  copy_hexadecimal(place / 1024, session.called_station.data());
  copy_hexadecimal(place % 1024, session.called_station.data() + 8);
  copy_hexadecimal(0, session.calling_station.data());
  copy_hexadecimal(number, session.calling_station.data() + 8);
  return session;
}

}  // namespace

std::vector<uint32_t> shuffled_numbers(uint32_t n, uint32_t seed) {
  std::vector<uint32_t> numbers(n);
  std::iota(numbers.begin(), numbers.end(), 0u);
  for (uint32_t left = n; left > 1; --left) {
    std::swap(numbers[left - 1], numbers[next_number(seed, left, left)]);
  }
  return numbers;
}

std::vector<Session> make_sessions(uint32_t n) {
  const std::vector<uint32_t> places = shuffled_numbers(n, kShareSeed);
  std::vector<Session> sessions;
  sessions.reserve(n);
  for (uint32_t number = 0; number < n; ++number) {
    sessions.push_back(make_session(number, places[number]));
  }
  return sessions;
}

}  // namespace workload
