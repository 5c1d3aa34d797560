// See text_table.h.
#include "text_table.h"

#include <algorithm>

#include "printable.h"

namespace host_text {
namespace {

constexpr size_t kGap = 2;

}  // namespace

void TextTable::print(FILE *stream) const {
  std::vector<size_t> widths(rows_.front().size(), 0);
  for (const auto &row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns_of(row[i]));
  }
  for (const auto &row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line.append(row[i]);
      line.append(widths[i] - columns_of(row[i]) + kGap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::fprintf(stream, "%s\n", line.c_str());
  }
}

}  // namespace host_text
