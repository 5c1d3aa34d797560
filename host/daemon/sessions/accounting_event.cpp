// From RADIUS attributes to AAA types: two tables, one of the attributes that become values of a
// session, one of those that say what happened when.
#include "accounting_event.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdio>
#include <cstring>

#include "../accounting/log_date.h"
#include "value_text.h"

namespace kivod {
namespace {

// Value bytes on their way from a pair into an event. A converter says false when the pair holds
// nothing for its type.
using Bytes = std::string;
using Converter = bool (*)(const AccountingPair &, Bytes &);

bool as_text(const AccountingPair &pair, Bytes &out) {
  const auto text = pair.text();
  if (!text || text->empty()) return false;
  out.assign(*text);
  return true;
}

bool as_uint32(const AccountingPair &pair, Bytes &out) {
  const auto number = pair.integer();
  if (!number || *number > UINT32_MAX) return false;
  const auto word = static_cast<uint32_t>(*number);
  out.assign(reinterpret_cast<const char *>(&word), sizeof(word));
  return true;
}

template <size_t kSize>
bool as_address(const std::optional<std::span<const uint8_t, kSize>> &address, Bytes &out) {
  if (!address) return false;
  out.assign(reinterpret_cast<const char *>(address->data()), kSize);
  return true;
}

bool as_ipv4(const AccountingPair &pair, Bytes &out) { return as_address(pair.ipv4(), out); }
bool as_ipv6(const AccountingPair &pair, Bytes &out) { return as_address(pair.ipv6(), out); }

bool as_prefix_text(const AccountingPair &pair, Bytes &out) {
  const auto prefix = pair.ipv6_prefix();
  if (!prefix) return false;
  out = prefix_text(prefix->address, prefix->bits);
  return true;
}

bool as_mac(const AccountingPair &pair, Bytes &out) {
  const auto text = pair.text();
  return text && read_value(AAA_ATTR_MAC_ADDRESS, *text, out);
}

// user@realm, or DOMAIN\user.
bool as_realm(const AccountingPair &pair, Bytes &out) {
  const auto text = pair.text();
  if (!text) return false;
  const size_t at = text->rfind('@');
  const size_t backslash = text->find('\\');
  if (at != std::string_view::npos) {
    return read_value(AAA_ATTR_DOMAIN, text->substr(at + 1), out);
  }
  return backslash != std::string_view::npos &&
         read_value(AAA_ATTR_DOMAIN, text->substr(0, backslash), out);
}

// For another text than one that is such an id the session table makes one.
bool as_audit_session_id(const AccountingPair &pair, Bytes &out) {
  const auto text = pair.text();
  return text && read_value(AAA_ATTR_AUDIT_SESSION_ID, *text, out);
}

// Values of Acct-Authentic: RFC 2866 section 5.6, RFC 7155 for Diameter.
bool as_method(const AccountingPair &pair, Bytes &out) {
  constexpr std::array<const char *, 5> kNames = {nullptr, "radius", "local", "remote", "diameter"};
  const auto number = pair.integer();
  if (!number || *number == 0 || *number >= kNames.size()) return false;
  out.assign(kNames[*number]);
  return true;
}

// Service-Type Call-Check: the address of the caller was authenticated, not a person (RFC 2865
// section 5.6).
bool as_call_check_method(const AccountingPair &pair, Bytes &out) {
  constexpr uint64_t kCallCheck = 10;
  if (pair.integer() != kCallCheck) return false;
  out.assign("mac");
  return true;
}

// An external identity begins with a subtype word; append_identity() numbers them.
bool as_octets(const AccountingPair &pair, Bytes &out) {
  if (pair.bytes().empty()) return false;
  out.assign(reinterpret_cast<const char *>(pair.bytes().data()), pair.bytes().size());
  return true;
}

// What a value does to one that its type has already. Of an attribute that is repeated within a
// record the first counts, unless every one does.
enum class Repeat : uint8_t {
  kYield,     // to a value from another attribute
  kReplace,   // a value from another attribute
  kAppend,    // every value counts
  kIdentity,  // every value counts, each under a subtype of its own
};

bool every_one_counts(Repeat repeat) {
  return repeat == Repeat::kAppend || repeat == Repeat::kIdentity;
}

struct Mapping {
  AttributeId radius;
  uint32_t aaa_type;
  Converter convert;
  Repeat repeat;
};

// clang-format off
constexpr Mapping kMappings[] = {
    // RADIUS attribute             AAA type                        how                   repeated
    {attribute::kUserName,          AAA_ATTR_USER_NAME,             as_text,              Repeat::kYield},
    {attribute::kUserName,          AAA_ATTR_DOMAIN,                as_realm,             Repeat::kYield},
    {attribute::kCallingStationId,  AAA_ATTR_MAC_ADDRESS,           as_mac,               Repeat::kYield},
    {attribute::kCallingStationId,  AAA_ATTR_CALLING_STATION,       as_text,              Repeat::kYield},
    {attribute::kCalledStationId,   AAA_ATTR_CALLED_STATION,        as_text,              Repeat::kYield},
    {attribute::kFramedIpAddress,   AAA_ATTR_IPV4_ADDRESS,          as_ipv4,              Repeat::kYield},
    {attribute::kFramedIpv6Address, AAA_ATTR_IPV6_ADDRESSES,        as_ipv6,              Repeat::kAppend},
    {attribute::kFramedIpv6Prefix,  AAA_ATTR_IPV6_PREFIX,           as_prefix_text,       Repeat::kYield},
    {attribute::kNasIpAddress,      AAA_ATTR_ACCESS_SERVER_ADDRESS, as_ipv4,              Repeat::kReplace},
    {attribute::kNasIpv6Address,    AAA_ATTR_ACCESS_SERVER_ADDRESS, as_ipv6,              Repeat::kYield},
    {attribute::kNasIdentifier,     AAA_ATTR_ACCESS_SERVER_ID,      as_text,              Repeat::kYield},
    {attribute::kNasPort,           AAA_ATTR_PORT,                  as_uint32,            Repeat::kYield},
    {attribute::kNasPortType,       AAA_ATTR_PORT_TYPE,             as_uint32,            Repeat::kYield},
    {attribute::kNasPortId,         AAA_ATTR_INTERFACE_NAME,        as_text,              Repeat::kYield},
    {attribute::kAcctSessionId,     AAA_ATTR_SESSION_ID,            as_text,              Repeat::kYield},
    {attribute::kAcctMultiSessionId, AAA_ATTR_AUDIT_SESSION_ID,     as_audit_session_id,  Repeat::kYield},
    {attribute::kAcctAuthentic,     AAA_ATTR_METHOD,                as_method,            Repeat::kYield},
    {attribute::kServiceType,       AAA_ATTR_METHOD,                as_call_check_method, Repeat::kReplace},
    {attribute::kClass,             AAA_ATTR_EXT_CLASS,             as_octets,            Repeat::kIdentity},
};

struct Fact {
  AttributeId radius;
  std::optional<uint64_t> AccountingEvent::*member;
};

constexpr Fact kFacts[] = {
    {attribute::kAcctStatusType,  &AccountingEvent::status},
    {attribute::kEventTimestamp,  &AccountingEvent::event_time},
    {attribute::kTimestamp,       &AccountingEvent::log_time},
    {attribute::kAcctDelayTime,   &AccountingEvent::delay_s},
    {attribute::kAcctSessionTime, &AccountingEvent::session_time_s},
};
// clang-format on

constexpr auto kEventTypes = [] {
  std::array<uint32_t, std::size(kMappings)> types{};
  for (size_t i = 0; i < types.size(); ++i) types[i] = kMappings[i].aaa_type;
  return types;
}();

// Files an identity under the next subtype of its type, from 1 on.
void append_identity(EventValues &values, uint32_t type, std::string_view bytes) {
  uint16_t subtype = 1;
  for (const EventValue &value : values.all()) {
    if (value.type == type) ++subtype;
  }
  std::string identity(reinterpret_cast<const char *>(&subtype), sizeof(subtype));
  values.append(type, identity.append(bytes));
}

void file_value(EventValues &values, const Mapping &mapping, std::string_view bytes) {
  switch (mapping.repeat) {
    case Repeat::kYield:
      if (values.find(mapping.aaa_type) == nullptr) values.append(mapping.aaa_type, bytes);
      break;
    case Repeat::kReplace:
      values.set(mapping.aaa_type, bytes);
      break;
    case Repeat::kAppend:
      values.append(mapping.aaa_type, bytes);
      break;
    case Repeat::kIdentity:
      append_identity(values, mapping.aaa_type, bytes);
      break;
  }
}

// A value behind its type.
std::string marked_value(const EventValues &values, uint32_t type) {
  const EventValue *value = values.find(type);
  return value == nullptr ? std::string() : static_cast<char>(type) + value->bytes;
}

// The attributes that the record in hand has shown, by their place in the table.
using Seen = std::bitset<std::size(kMappings)>;

void file_pair(const AccountingPair &pair, AccountingEvent &event, Seen &seen, Bytes &scratch) {
  const AttributeId id = pair.id();
  for (const Fact &fact : kFacts) {
    std::optional<uint64_t> &value = event.*fact.member;
    if (fact.radius == id && !value) value = pair.integer();
  }
  for (size_t i = 0; i < std::size(kMappings); ++i) {
    const Mapping &mapping = kMappings[i];
    if (mapping.radius != id || (seen[i] && !every_one_counts(mapping.repeat))) continue;
    if (!pair.bytes().empty()) seen.set(i);
    if (mapping.convert(pair, scratch)) file_value(event.values, mapping, scratch);
  }
}

}  // namespace

void EventValues::append(uint32_t type, std::string_view bytes) {
  if (n_values_ == values_.size()) values_.emplace_back();
  EventValue &value = values_[n_values_];
  value.bytes.assign(bytes);
  value.type = type;
  ++n_values_;
}

void EventValues::set(uint32_t type, std::string_view bytes) {
  for (EventValue &value : std::span(values_.data(), n_values_)) {
    if (value.type == type) {
      value.bytes.assign(bytes);
      return;
    }
  }
  append(type, bytes);
}

const EventValue *EventValues::find(uint32_t type) const noexcept {
  for (const EventValue &value : all()) {
    if (value.type == type) return &value;
  }
  return nullptr;
}

void AccountingEvent::clear() noexcept {
  for (const Fact &fact : kFacts) (this->*fact.member).reset();
  values.clear();
}

uint64_t AccountingEvent::time() const noexcept {
  if (event_time) return *event_time;
  const uint64_t logged = log_time.value_or(0);
  return logged - std::min(logged, delay_s.value_or(0));
}

std::string AccountingEvent::server_key() const {
  std::string key = server_address();
  return key.empty() ? server_identifier() : key;
}

std::string AccountingEvent::server_address() const {
  return marked_value(values, AAA_ATTR_ACCESS_SERVER_ADDRESS);
}

std::string AccountingEvent::server_identifier() const {
  return marked_value(values, AAA_ATTR_ACCESS_SERVER_ID);
}

void read_event(const DetailRecord &record, PairDecoder &decoder, AccountingEvent &event,
                PairCounts &counts,
                const std::function<void(uint64_t line, const char *why)> &on_bad) {
  event.clear();
  Bytes scratch;
  Seen seen;
  for (const DetailPair &written : record.pairs) {
    AccountingPair pair;
    switch (decoder.decode(written.name, written.value, pair)) {
      case RADIUS_UNKNOWN_ATTRIBUTE:
        ++counts.unknown;
        continue;
      case RADIUS_BAD_VALUE:
        ++counts.bad;
        on_bad(written.line, decoder.error());
        continue;
      case RADIUS_OK:
        break;
    }
    if (pair.bytes().size() > kRadiusValueMax) {
      ++counts.bad;
      on_bad(written.line, "the value is longer than a RADIUS attribute can be");
      continue;
    }
    file_pair(pair, event, seen, scratch);
  }
  uint32_t seconds = 0;
  if (!event.event_time && !event.log_time &&
      log_date_parse_header(record.header.data(), record.header.size(), &seconds) == nullptr) {
    event.log_time = seconds;
  }
}

std::span<const uint32_t> event_types() noexcept { return kEventTypes; }

}  // namespace kivod
