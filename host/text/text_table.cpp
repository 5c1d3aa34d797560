// See text_table.h.
#include "text_table.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace host_text {
namespace {

constexpr size_t kGap = 2;

bool is_continuation(char c) { return (static_cast<uint8_t>(c) & 0xc0) == 0x80; }

size_t width_of(const std::string &text) {
  return static_cast<size_t>(
      std::ranges::count_if(text, [](char c) { return !is_continuation(c); }));
}

// Bytes of the UTF-8 sequence that begins here, 0 when there is none (RFC 3629 without its finer
// exclusions, which no terminal minds).
size_t sequence_length(std::string_view text) {
  const auto first = static_cast<uint8_t>(text[0]);
  const size_t length = first < 0x80                    ? 1
                        : first >= 0xc2 && first < 0xe0 ? 2
                        : first >= 0xe0 && first < 0xf0 ? 3
                        : first >= 0xf0 && first < 0xf5 ? 4
                                                        : 0;
  if (length == 0 || length > text.size()) return 0;
  return std::ranges::all_of(text.substr(1, length - 1), is_continuation) ? length : 0;
}

// C0 and C1 control characters and DEL.
bool is_control(std::string_view sequence) {
  const auto first = static_cast<uint8_t>(sequence[0]);
  if (sequence.size() == 1) return first < 0x20 || first == 0x7f;
  return sequence.size() == 2 && first == 0xc2 && static_cast<uint8_t>(sequence[1]) < 0xa0;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const size_t length = sequence_length(text);
    if (length != 0 && !is_control(text.substr(0, length))) {
      shown.append(text.substr(0, length));
      text.remove_prefix(length);
      continue;
    }
    std::array<char, 5> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\x%02x", static_cast<uint8_t>(text[0]));
    shown.append(escaped.data());
    text.remove_prefix(1);
  }
  return shown;
}

void TextTable::print(FILE *stream) const {
  std::vector<size_t> widths(rows_.front().size(), 0);
  for (const auto &row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
  }
  for (const auto &row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line.append(row[i]);
      line.append(widths[i] - width_of(row[i]) + kGap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::fprintf(stream, "%s\n", line.c_str());
  }
}

}  // namespace host_text
