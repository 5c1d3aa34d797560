// The C++ face of the dictionaries: opening with a check of the attributes that the daemon relies
// on, and the readers of a value. Reading texts is radius_dictionary.c's business.
// Threads: none; all decoders of a process share its dictionaries.
#include "accounting_pair.h"

#include <array>

namespace kivod {
namespace {

struct NamedAttribute {
  const char *name;
  AttributeId id;
};

constexpr NamedAttribute kNeeded[] = {
    {"User-Name", attribute::kUserName},
    {"NAS-IP-Address", attribute::kNasIpAddress},
    {"NAS-Port", attribute::kNasPort},
    {"Service-Type", attribute::kServiceType},
    {"Framed-IP-Address", attribute::kFramedIpAddress},
    {"Class", attribute::kClass},
    {"Called-Station-Id", attribute::kCalledStationId},
    {"Calling-Station-Id", attribute::kCallingStationId},
    {"NAS-Identifier", attribute::kNasIdentifier},
    {"Acct-Status-Type", attribute::kAcctStatusType},
    {"Acct-Delay-Time", attribute::kAcctDelayTime},
    {"Acct-Session-Id", attribute::kAcctSessionId},
    {"Acct-Authentic", attribute::kAcctAuthentic},
    {"Acct-Session-Time", attribute::kAcctSessionTime},
    {"Acct-Multi-Session-Id", attribute::kAcctMultiSessionId},
    {"Event-Timestamp", attribute::kEventTimestamp},
    {"NAS-Port-Type", attribute::kNasPortType},
    {"NAS-Port-Id", attribute::kNasPortId},
    {"NAS-IPv6-Address", attribute::kNasIpv6Address},
    {"Framed-IPv6-Prefix", attribute::kFramedIpv6Prefix},
    {"Framed-IPv6-Address", attribute::kFramedIpv6Address},
};

// Empty when every needed attribute stands in the dictionary under its number.
std::string missing_attribute(radius_dictionary *dictionary) {
  for (const NamedAttribute &needed : kNeeded) {
    AttributeId found{};
    if (radius_dictionary_find(dictionary, needed.name, &found.vendor, &found.number) == 0) {
      return std::string("no attribute ") + needed.name;
    }
    if (found != needed.id) return std::string("another number for ") + needed.name;
  }
  return {};
}

}  // namespace

std::optional<PairDecoder> PairDecoder::open(const std::string &directory, std::string &error) {
  const char *path = directory.empty() ? radius_dictionary_default_directory() : directory.c_str();
  std::array<char, RADIUS_ERROR_MAX> reason{};
  PairDecoder decoder(radius_dictionary_open(path, reason.data(), reason.size()));
  if (decoder.dictionary_ == nullptr) {
    error = reason.data();
    return std::nullopt;
  }
  const std::string missing = missing_attribute(decoder.dictionary_.get());
  if (!missing.empty()) {
    error = std::string("cannot use the RADIUS dictionaries of ") + path + ": " + missing;
    return std::nullopt;
  }
  return decoder;
}

radius_status PairDecoder::decode(std::string_view name, std::string_view value,
                                  AccountingPair &out) noexcept {
  radius_value decoded{};
  const radius_status status = radius_dictionary_parse(dictionary_.get(), name.data(), name.size(),
                                                       value.data(), value.size(), &decoded);
  out = AccountingPair(decoded);
  return status;
}

std::optional<std::string_view> AccountingPair::text() const {
  if (kind() != RADIUS_KIND_TEXT && kind() != RADIUS_KIND_OCTETS) return std::nullopt;
  return std::string_view(reinterpret_cast<const char *>(value_.bytes), value_.size);
}

std::optional<uint64_t> AccountingPair::integer() const {
  if (kind() != RADIUS_KIND_INTEGER && kind() != RADIUS_KIND_INTEGER64 &&
      kind() != RADIUS_KIND_DATE) {
    return std::nullopt;
  }
  return value_.integer;
}

std::optional<std::span<const uint8_t, 4>> AccountingPair::ipv4() const {
  if (kind() != RADIUS_KIND_IPV4) return std::nullopt;
  return bytes().first<4>();
}

std::optional<std::span<const uint8_t, 16>> AccountingPair::ipv6() const {
  if (kind() != RADIUS_KIND_IPV6) return std::nullopt;
  return bytes().first<16>();
}

std::optional<AccountingPair::Ipv6Prefix> AccountingPair::ipv6_prefix() const {
  if (kind() != RADIUS_KIND_IPV6_PREFIX) return std::nullopt;
  return Ipv6Prefix{bytes().first<16>(), value_.prefix_bits};
}

}  // namespace kivod
