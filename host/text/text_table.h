// Aligned tables for people: rows of cells under headings, columns as wide as their widest cell.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace host_text {

class TextTable {
 public:
  explicit TextTable(std::vector<std::string> headings) : rows_{std::move(headings)} {}

  // A row has as many cells as there are headings.
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

  // Widths count code points of UTF-8, which is right for all but wide and combining characters.
  void print(FILE *stream) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

// Text for a terminal: control characters and bytes that are no UTF-8 as \xNN, so that what a peer
// chose as a name cannot steer the operator's terminal.
std::string printable(std::string_view text);

}  // namespace host_text
