// An accounting event: what one record of a log, or one packet, says about a session, in AAA terms.
// Sits between the accounting reader (accounting/) and the session table; knows nothing of KIVO but
// the dictionary's numbers.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../accounting/accounting_pair.h"
#include "../accounting/detail_reader.h"
#include "platform/aaa_dictionary.h"

namespace kivod {

// Longest value of a RADIUS attribute (RFC 2865 section 5: a length octet that counts itself and
// the type).
inline constexpr size_t kRadiusValueMax = 253;

struct EventValue {
  uint32_t type;      // AAA attribute type
  std::string bytes;  // in the encoding of the type's kind
};

// The values of an event, at most one a type except IPv6 addresses and external identities. Keeps
// the memory of its texts when it is cleared, so that a stream of events does not allocate.
class EventValues {
 public:
  void clear() noexcept { n_values_ = 0; }
  void append(uint32_t type, std::string_view bytes);
  // Overwrites the type's value or appends one.
  void set(uint32_t type, std::string_view bytes);

  // The type's first value; null when there is none.
  [[nodiscard]] const EventValue *find(uint32_t type) const noexcept;
  [[nodiscard]] std::span<const EventValue> all() const noexcept {
    return {values_.data(), n_values_};
  }

 private:
  std::vector<EventValue> values_;
  size_t n_values_ = 0;
};

struct AccountingEvent {
  std::optional<uint64_t> status;          // of Acct-Status-Type, see AcctStatus
  std::optional<uint64_t> event_time;      // Event-Timestamp, seconds since 1970
  std::optional<uint64_t> log_time;        // when the server logged it: Timestamp, or the header
  std::optional<uint64_t> delay_s;         // Acct-Delay-Time
  std::optional<uint64_t> session_time_s;  // Acct-Session-Time
  EventValues values;

  void clear() noexcept;

  // When it happened at the access server: its own time, else when it was logged less the delay.
  [[nodiscard]] uint64_t time() const noexcept;

  // What identifies the access server: its address, else its identifier. Empty when the event names
  // none.
  [[nodiscard]] std::string server_key() const;

  // A name of the access server, marked so that an address and an identifier are not taken for each
  // other; empty when the event does not give it. Of a server that names an IPv4 and an IPv6
  // address the IPv4 address counts.
  [[nodiscard]] std::string server_address() const;
  [[nodiscard]] std::string server_identifier() const;
};

// What became of a record's pairs.
struct PairCounts {
  uint64_t unknown = 0;  // attributes that no dictionary has
  uint64_t bad = 0;      // known attributes with a value that is none, or that is too long
};

// Reads the pairs of a record into an event, one by one: a pair that cannot be understood is
// counted, told to `on_bad` (with its line and a printable reason; not for unknown attributes) and
// left out. A record without Timestamp was logged at the date of its header, which is taken for
// this host's local time, since it names no zone. Throws std::bad_alloc.
void read_event(const DetailRecord &record, PairDecoder &decoder, AccountingEvent &event,
                PairCounts &counts,
                const std::function<void(uint64_t line, const char *why)> &on_bad);

// Every AAA type that an event can carry, for telling what an update no longer names.
std::span<const uint32_t> event_types() noexcept;

}  // namespace kivod
