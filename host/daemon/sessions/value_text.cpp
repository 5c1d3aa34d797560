// See value_text.h.
#include "value_text.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <ctime>

#include "platform/aaa.h"
#include "platform/auth_mgr_idc.h"
#include "text/mac_address.h"
#include "text/printable.h"
#include "text/utc_time.h"

namespace kivod {
namespace {

// ---- Reading

template <typename Word>
bool parse_number(std::string_view text, Word &word, int base = 10) {
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), word, base);
  return failure == std::errc() && end == text.data() + text.size();
}

bool is_hex(std::string_view text) { return text.starts_with("0x") || text.starts_with("0X"); }

template <typename Word>
void store_word(Word word, std::string &bytes) {
  bytes.assign(reinterpret_cast<const char *>(&word), sizeof(word));
}

template <typename Word>
bool parse_decimal_or_hex(std::string_view text, Word &word) {
  return is_hex(text) ? parse_number(text.substr(2), word, 16) : parse_number(text, word);
}

template <typename Word>
bool read_number(std::string_view text, std::string &bytes) {
  Word word{};
  if (!parse_decimal_or_hex(text, word)) return false;
  store_word(word, bytes);
  return true;
}

bool read_text(std::string_view text, std::string &bytes) {
  bytes.assign(text);
  return !bytes.empty();
}

bool read_name(std::string_view text, std::string &bytes) {
  std::ranges::transform(bytes.assign(text), bytes.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return !bytes.empty();
}

bool read_audit_session_id(std::string_view text, std::string &bytes) {
  constexpr size_t kLength = 24;
  return read_text(text, bytes) && bytes.size() == kLength;
}

template <int kFamily, size_t kSize>
bool read_address(std::string_view text, std::string &bytes) {
  bytes.resize(kSize);
  return text.find('\0') == std::string_view::npos &&
         inet_pton(kFamily, std::string(text).c_str(), bytes.data()) == 1;
}

constexpr auto read_ipv4 = read_address<AF_INET, 4>;
constexpr auto read_ipv6 = read_address<AF_INET6, 16>;

// An access server may be known by either family.
bool read_either_address(std::string_view text, std::string &bytes) {
  return read_ipv4(text, bytes) || read_ipv6(text, bytes);
}

bool read_prefix(std::string_view text, std::string &bytes) {
  const size_t slash = text.find('/');
  unsigned bits = 0;
  std::string address;
  if (slash == std::string_view::npos || !parse_number(text.substr(slash + 1), bits) ||
      bits > 128 || !read_ipv6(text.substr(0, slash), address)) {
    return false;
  }
  bytes = prefix_text(
      std::span<const uint8_t, 16>(reinterpret_cast<const uint8_t *>(address.data()), 16), bits);
  return true;
}

bool read_mac(std::string_view text, std::string &bytes) {
  const auto mac = host_text::parse_mac_address(text);
  if (!mac) return false;
  bytes.assign(reinterpret_cast<const char *>(mac->data()), mac->size());
  return true;
}

// Stored as decimal text.
bool read_interface(std::string_view text, std::string &bytes) {
  uint32_t number = 0;
  if (!parse_decimal_or_hex(text, number)) return false;
  bytes = std::to_string(number);
  return true;
}

std::string show_time(std::string_view bytes);

// What strptime() takes for a date and no calendar has is not shown as it was written.
bool read_time(std::string_view text, std::string &bytes) {
  if (read_number<uint64_t>(text, bytes)) return true;
  tm utc{};
  const std::string date(text);
  if (strptime(date.c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc) == nullptr) return false;
  store_word(static_cast<uint64_t>(timegm(&utc)), bytes);
  return show_time(bytes) == text;
}

bool read_hex(std::string_view digits, std::string &bytes) {
  bytes.clear();
  for (; digits.size() >= 2; digits.remove_prefix(2)) {
    uint8_t byte = 0;
    if (!parse_number(digits.substr(0, 2), byte, 16)) return false;
    bytes.push_back(static_cast<char>(byte));
  }
  return digits.empty() && !bytes.empty();
}

bool read_octets(std::string_view text, std::string &bytes) {
  return is_hex(text) ? read_hex(text.substr(2), bytes) : read_text(text, bytes);
}

// ---- Showing

std::string show_text(std::string_view bytes) { return host_text::printable(bytes); }

std::string show_hex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text = "0x";
  for (const char c : bytes) {
    text.push_back(kDigits[static_cast<uint8_t>(c) >> 4]);
    text.push_back(kDigits[static_cast<uint8_t>(c) & 0xf]);
  }
  return text;
}

// As text where it is one and no hexadecimal number.
std::string show_octets(std::string_view bytes) {
  const std::string text = host_text::printable(bytes);
  return text == bytes && !is_hex(text) ? text : show_hex(bytes);
}

template <typename Word>
std::string show_number(std::string_view bytes) {
  Word word{};
  if (bytes.size() != sizeof(word)) return show_hex(bytes);
  std::memcpy(&word, bytes.data(), sizeof(word));
  return std::to_string(word);
}

std::string show_address(std::string_view bytes) {
  return auth_mgr_safe_printable_mac(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

std::string show_time(std::string_view bytes) {
  uint64_t seconds = 0;
  if (bytes.size() != sizeof(seconds)) return show_hex(bytes);
  std::memcpy(&seconds, bytes.data(), sizeof(seconds));
  const std::string time = host_text::utc_time(seconds);
  return time.empty() ? std::to_string(seconds) : time;
}

// ---- The tables

struct Form {
  bool (*read)(std::string_view text, std::string &bytes);
  std::string (*show)(std::string_view bytes);
};

struct FormOfType {
  uint32_t type;
  Form form;
};

// Types that are stored or written otherwise than their kind says. Realms compare without case
// (RFC 7542); methods are the daemon's own words.
constexpr FormOfType kFormsOfTypes[] = {
    {AAA_ATTR_DOMAIN, {read_name, show_text}},
    {AAA_ATTR_METHOD, {read_name, show_text}},
    {AAA_ATTR_ACCESS_SERVER_ADDRESS, {read_either_address, show_address}},
    {AAA_ATTR_INTERFACE, {read_interface, show_text}},
    {AAA_ATTR_IPV6_PREFIX, {read_prefix, show_text}},
    {AAA_ATTR_START_TIME, {read_time, show_time}},
    {AAA_ATTR_UPDATE_TIME, {read_time, show_time}},
};

constexpr Form kForms[] = {
    {read_number<uint32_t>, show_number<uint32_t>},  // AAA_KIND_INT32
    {read_number<uint64_t>, show_number<uint64_t>},  // AAA_KIND_INT64
    {read_ipv4, show_address},                       // AAA_KIND_IPV4
    {read_ipv6, show_address},                       // AAA_KIND_IPV6
    {read_mac, show_address},                        // AAA_KIND_MAC
    {read_audit_session_id, show_text},              // AAA_KIND_SESN_GUID
    {read_number<uint64_t>, show_number<uint64_t>},  // AAA_KIND_POINTER
    {read_octets, show_octets},                      // AAA_KIND_VAR_BIN
    {read_text, show_text},                          // AAA_KIND_VAR_STR
    {read_octets, show_octets},                      // AAA_KIND_UNKNOWN
};
static_assert(std::size(kForms) == AAA_KIND_UNKNOWN + 1);

const Form &form_of(uint32_t type) {
  const auto *row = std::ranges::find(kFormsOfTypes, type, &FormOfType::type);
  return row != std::end(kFormsOfTypes) ? row->form : kForms[aaa_dict_get_attr_kind(type)];
}

}  // namespace

bool read_value(uint32_t type, std::string_view text, std::string &bytes) {
  return form_of(type).read(text, bytes);
}

std::string shown_value(uint32_t type, std::string_view bytes) { return form_of(type).show(bytes); }

std::string prefix_text(std::span<const uint8_t, 16> address, unsigned bits) {
  std::array<uint8_t, 16> masked{};
  for (unsigned i = 0; i < masked.size() && i * 8 < bits; ++i) {
    const unsigned kept = std::min(bits - i * 8, 8U);
    masked[i] = static_cast<uint8_t>(address[i] & (0xff00U >> kept));
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(AF_INET6, masked.data(), text.data(), text.size());
  return std::string(text.data()) + '/' + std::to_string(bits);
}

}  // namespace kivod
