// See mac_address.h.
#include "mac_address.h"

namespace host_text {
namespace {

constexpr size_t kDigits = 12;

int hex_digit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string_view without_blanks_around(std::string_view text) noexcept {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The number of digits in front of each separator, kDigits when there is none, 0 when the length of
// the text fits no spelling.
size_t group_size(std::string_view text) noexcept {
  switch (text.size()) {
    case kDigits:
      return kDigits;
    case kDigits + 5:
      return 2;
    case kDigits + 2:
      return 4;
    case kDigits + 1:
      return 6;
    default:
      return 0;
  }
}

bool is_separator(char c) noexcept { return c == '-' || c == ':' || c == '.'; }

}  // namespace

std::optional<MacAddress> parse_mac_address(std::string_view text) noexcept {
  text = without_blanks_around(text);
  const size_t group = group_size(text);
  if (group == 0) return std::nullopt;
  const char separator = group == kDigits ? '\0' : text[group];
  if (group != kDigits && !is_separator(separator)) return std::nullopt;

  MacAddress address{};
  size_t n_digits = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (group != kDigits && i % (group + 1) == group) {
      if (text[i] != separator) return std::nullopt;
      continue;
    }
    const int digit = hex_digit(text[i]);
    if (digit < 0) return std::nullopt;
    uint8_t &byte = address[n_digits / 2];
    byte = static_cast<uint8_t>(byte << 4 | digit);
    ++n_digits;
  }
  return address;
}

}  // namespace host_text
