// Conditions on sessions as operators write them: "domain=example.net, method=radius". A name is an
// attribute name of the dictionary; how values are written is in sessions/value_text.h.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kivod {

struct AttrCondition {
  uint32_t type;
  std::string bytes;  // as they are stored
};

// Reads conditions separated by commas. Blanks around names and values do not count; a value in
// double quotes may hold commas and blanks. Nothing and one line in `error` when they cannot be
// read.
std::vector<AttrCondition> parse_conditions(std::string_view text, std::string &error);

}  // namespace kivod
