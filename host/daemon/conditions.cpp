// See conditions.h.
#include "conditions.h"

#include "platform/aaa.h"
#include "sessions/value_text.h"

namespace kivod {
namespace {

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
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
    AttrCondition condition{type, {}};
    if (!read_value(type, value, condition.bytes)) {
      error = std::string("'") + std::string(value) + "' is no value of " + name;
      return {};
    }
    conditions.push_back(std::move(condition));
  } while (!text.empty());
  return conditions;
}

}  // namespace kivod
