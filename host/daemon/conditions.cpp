// See conditions.h.
#include "conditions.h"

#include <arpa/inet.h>

#include <array>
#include <charconv>
#include <optional>

#include "platform/aaa.h"
#include "text/mac_address.h"

namespace kivod {
namespace {

using Bytes = std::optional<std::string>;

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

template <typename Word>
Bytes parse_number(std::string_view text) {
  const int base = text.starts_with("0x") || text.starts_with("0X") ? 16 : 10;
  if (base == 16) text.remove_prefix(2);
  Word word{};
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), word, base);
  if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return std::string(reinterpret_cast<const char *>(&word), sizeof(word));
}

template <int kFamily, size_t kSize>
Bytes parse_address(std::string_view text) {
  std::array<char, kSize> address{};
  if (inet_pton(kFamily, std::string(text).c_str(), address.data()) != 1) return std::nullopt;
  return std::string(address.data(), address.size());
}

Bytes parse_mac(std::string_view text) {
  const auto mac = host_text::parse_mac_address(text);
  if (!mac) return std::nullopt;
  return std::string(reinterpret_cast<const char *>(mac->data()), mac->size());
}

Bytes parse_hex(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  if (text.empty() || text.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    uint8_t byte = 0;
    const auto [end, failure] = std::from_chars(text.data() + i, text.data() + i + 2, byte, 16);
    if (failure != std::errc() || end != text.data() + i + 2) return std::nullopt;
    bytes.push_back(static_cast<char>(byte));
  }
  return bytes;
}

Bytes parse_text(std::string_view text) {
  if (text.empty()) return std::nullopt;
  return std::string(text);
}

// An access server may be known by either family.
Bytes parse_server_address(std::string_view text) {
  Bytes bytes = parse_address<AF_INET, 4>(text);
  return bytes ? bytes : parse_address<AF_INET6, 16>(text);
}

// A few types are stored otherwise than their kind says.
Bytes parse_value(uint32_t type, std::string_view text) {
  switch (type) {
    case AAA_ATTR_INTERFACE:
    case AAA_ATTR_IPV6_PREFIX:
      return parse_text(text);
    case AAA_ATTR_ACCESS_SERVER_ADDRESS:
      return parse_server_address(text);
    default:
      break;
  }
  switch (aaa_dict_get_attr_kind(type)) {
    case AAA_KIND_INT32:
      return parse_number<uint32_t>(text);
    case AAA_KIND_INT64:
    case AAA_KIND_POINTER:
      return parse_number<uint64_t>(text);
    case AAA_KIND_IPV4:
      return parse_address<AF_INET, 4>(text);
    case AAA_KIND_IPV6:
      return parse_address<AF_INET6, 16>(text);
    case AAA_KIND_MAC:
      return parse_mac(text);
    case AAA_KIND_VAR_BIN:
      return parse_hex(text);
    default:
      return parse_text(text);
  }
}

// Takes the text up to the next comma outside quotes off the front.
std::string_view take_item(std::string_view &text) {
  bool quoted = false;
  size_t end = 0;
  while (end < text.size() && (quoted || text[end] != ',')) {
    if (text[end] == '"') quoted = !quoted;
    ++end;
  }
  const std::string_view item = trimmed(text.substr(0, end));
  text.remove_prefix(end < text.size() ? end + 1 : end);
  return item;
}

std::string_view without_quotes(std::string_view text) {
  const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
  return quoted ? text.substr(1, text.size() - 2) : text;
}

}  // namespace

std::vector<AttrCondition> parse_conditions(std::string_view text, std::string &error) {
  std::vector<AttrCondition> conditions;
  do {
    const std::string_view item = take_item(text);
    const size_t equals = item.find('=');
    if (equals == std::string_view::npos) {
      error = std::string("'") + std::string(item) + "' is not name=value";
      return {};
    }
    const std::string name(trimmed(item.substr(0, equals)));
    const std::string_view value = without_quotes(trimmed(item.substr(equals + 1)));
    const uint32_t type = aaa_dict_get_attr_type(name.c_str());
    if (type == 0) {
      error = "there is no attribute '" + name + "'";
      return {};
    }
    Bytes bytes = parse_value(type, value);
    if (!bytes) {
      error = std::string("'") + std::string(value) + "' is no value of " + name;
      return {};
    }
    conditions.push_back({type, *std::move(bytes)});
  } while (!text.empty());
  return conditions;
}

}  // namespace kivod
