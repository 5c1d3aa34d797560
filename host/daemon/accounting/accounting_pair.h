// Attribute pairs of accounting records as C++ values: the dictionary with its lifetime, numbers of
// the attributes that sessions are made of, and reading a value without looking at its kind first.
// Sits on radius_dictionary.h, whose comments say how texts are read. Knows nothing of records.
// Threads: none; all decoders of a process share its dictionaries.
#ifndef KIVO_HOST_DAEMON_ACCOUNTING_ACCOUNTING_PAIR_H
#define KIVO_HOST_DAEMON_ACCOUNTING_ACCOUNTING_PAIR_H

#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "radius_dictionary.h"

namespace kivod {

struct AttributeId {
  uint32_t vendor;
  uint32_t number;

  auto operator<=>(const AttributeId &) const = default;
  // For switch statements.
  constexpr uint64_t key() const { return uint64_t{vendor} << 32 | number; }
};

// Standard attributes have vendor 0. Those above 255 there are the server's own; the log's time has
// a vendor of ours. PairDecoder::open() checks them all against the dictionaries.
namespace attribute {
inline constexpr AttributeId kUserName{0, 1};
inline constexpr AttributeId kNasIpAddress{0, 4};
inline constexpr AttributeId kNasPort{0, 5};
inline constexpr AttributeId kServiceType{0, 6};
inline constexpr AttributeId kFramedIpAddress{0, 8};
inline constexpr AttributeId kClass{0, 25};
inline constexpr AttributeId kCalledStationId{0, 30};
inline constexpr AttributeId kCallingStationId{0, 31};
inline constexpr AttributeId kNasIdentifier{0, 32};
inline constexpr AttributeId kAcctStatusType{0, 40};
inline constexpr AttributeId kAcctDelayTime{0, 41};
inline constexpr AttributeId kAcctSessionId{0, 44};
inline constexpr AttributeId kAcctAuthentic{0, 45};
inline constexpr AttributeId kAcctSessionTime{0, 46};
inline constexpr AttributeId kAcctMultiSessionId{0, 50};
inline constexpr AttributeId kEventTimestamp{0, 55};
inline constexpr AttributeId kNasPortType{0, 61};
inline constexpr AttributeId kNasPortId{0, 87};
inline constexpr AttributeId kNasIpv6Address{0, 95};
inline constexpr AttributeId kFramedIpv6Prefix{0, 97};
inline constexpr AttributeId kFramedIpv6Address{0, 168};
inline constexpr AttributeId kTimestamp{RADIUS_VENDOR_LOG, RADIUS_LOG_TIMESTAMP};
}  // namespace attribute

// Values of Acct-Status-Type.
enum class AcctStatus : uint32_t {
  kStart = 1,
  kStop = 2,
  kInterimUpdate = 3,
  kAccountingOn = 7,
  kAccountingOff = 8,
};

// A decoded pair. What it refers to stays until the decoder's next decode() or its end.
// The readers give nothing when the value is of another kind, so a damaged attribute that its
// server logged as bare octets ("Attr-8 = 0x0a00") is never taken for an address.
class AccountingPair {
 public:
  AccountingPair() = default;
  explicit AccountingPair(const radius_value &value) : value_(value) {}

  AttributeId id() const { return {value_.vendor, value_.number}; }
  radius_kind kind() const { return value_.kind; }
  uint8_t tag() const { return value_.tag; }
  std::span<const uint8_t> bytes() const { return {value_.bytes, value_.size}; }

  // Text, or octets taken for text, without quotes and escapes; may hold any byte.
  std::optional<std::string_view> text() const;
  // Unsigned integers of all sizes, and dates in seconds since 1970.
  std::optional<uint64_t> integer() const;
  // 4 and 16 bytes in network order.
  std::optional<std::span<const uint8_t, 4>> ipv4() const;
  std::optional<std::span<const uint8_t, 16>> ipv6() const;

  struct Ipv6Prefix {
    std::span<const uint8_t, 16> address;  // network order, host part zero
    uint8_t bits;                          // 0 to 128
  };
  std::optional<Ipv6Prefix> ipv6_prefix() const;

 private:
  radius_value value_{};
};

class PairDecoder {
 public:
  // Loads the dictionaries of a directory, the default one when empty; a process can have one set.
  // Gives nothing, and a text that names the directory in `error`, when they cannot be read, lack
  // an attribute of the list above or number it otherwise, or others are loaded.
  static std::optional<PairDecoder> open(const std::string &directory, std::string &error);

  // Decodes one pair as a DetailRecord has it. `out` is usable on RADIUS_OK only; on other results
  // error() has one printable line. Never throws, allocates nothing.
  radius_status decode(std::string_view name, std::string_view value, AccountingPair &out) noexcept;

  const char *error() const noexcept { return radius_dictionary_error(dictionary_.get()); }

 private:
  struct Close {
    void operator()(radius_dictionary *dictionary) const { radius_dictionary_close(dictionary); }
  };

  explicit PairDecoder(radius_dictionary *dictionary) : dictionary_(dictionary) {}

  std::unique_ptr<radius_dictionary, Close> dictionary_;
};

}  // namespace kivod

#endif
