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

  // Cells are printable texts (printable.h). Columns are aligned by what a terminal shows of them.
  void print(FILE *stream) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace host_text
