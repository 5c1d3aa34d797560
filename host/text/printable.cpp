// See printable.h. utf8proc decodes, and knows Unicode's properties.
#include "printable.h"

#include <utf8proc.h>

#include <array>
#include <cstdint>
#include <cstdio>

namespace host_text {
namespace {

struct Character {
  utf8proc_int32_t code_point;  // -1 for a byte that begins no character
  size_t size;
};

// The text has one byte at least.
Character first_of(std::string_view text) noexcept {
  utf8proc_int32_t code_point = -1;
  const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t *>(text.data()),
                                     static_cast<utf8proc_ssize_t>(text.size()), &code_point);
  return size > 0 ? Character{code_point, static_cast<size_t>(size)} : Character{-1, 1};
}

bool shows_as_itself(utf8proc_int32_t code_point) noexcept {
  if (code_point == ' ') return true;
  if (code_point < 0) return false;
  const utf8proc_property_t &property = *utf8proc_get_property(code_point);
  switch (property.category) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_CS:
    case UTF8PROC_CATEGORY_CO:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return false;
    default:
      return property.ignorable == 0;
  }
}

void append_escaped(std::string &shown, std::string_view bytes) {
  for (const char byte : bytes) {
    std::array<char, 5> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\x%02x", static_cast<uint8_t>(byte));
    shown.append(escaped.data());
  }
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const Character character = first_of(text);
    const std::string_view bytes = text.substr(0, character.size);
    const bool is_at_an_end = bytes == " " && (shown.empty() || text.size() == 1);
    if (character.code_point == '\\') {
      shown.append("\\\\");
    } else if (shows_as_itself(character.code_point) && !is_at_an_end) {
      shown.append(bytes);
    } else {
      append_escaped(shown, bytes);
    }
    text.remove_prefix(character.size);
  }
  return shown;
}

size_t columns_of(std::string_view text) noexcept {
  size_t columns = 0;
  while (!text.empty()) {
    const Character character = first_of(text);
    columns += static_cast<size_t>(utf8proc_charwidth(character.code_point));
    text.remove_prefix(character.size);
  }
  return columns;
}

size_t utf8_size(std::string_view text) noexcept {
  size_t size = 0;
  while (size < text.size()) {
    const Character character = first_of(text.substr(size));
    if (character.code_point < 0) break;
    size += character.size;
  }
  return size;
}

}  // namespace host_text
