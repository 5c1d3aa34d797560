// See grammar.h.
#include "grammar.h"

#include <algorithm>
#include <optional>
#include <span>

namespace kivosh {
namespace {

struct Row {
  Action action;
  bool listed;                // false: an older word, understood where no other is
  std::string_view words[3];  // the unused ones are empty
  std::string_view value;     // its name, empty for none
  std::string_view help;
};

// clang-format off
constexpr Row kRows[] = {
    {Action::kShowDatabase,   true,  {"show", "database"},                     "",     "name, owner and number of sessions"},
    {Action::kShowAttributes, true,  {"show", "database", "attributes"},       "",     "what a session has, and of which kind"},
    {Action::kShowByAuditId,  true,  {"show", "database", "audit-session-id"}, "ID",   "the session with this audit session id"},
    {Action::kShowByAuditId,  false, {"show", "database", "session-id"},       "ID",   "the session with this audit session id"},
    {Action::kShowByMac,      true,  {"show", "database", "mac"},              "MAC",  "the session of this MAC, however spelled"},
    {Action::kShowByIpv4,     true,  {"show", "database", "ipv4"},             "ADDR", "the session of this IPv4 address"},
    {Action::kHelp,           true,  {"help"},                                 "",     "what can be typed"},
    {Action::kQuit,           true,  {"exit"},                                 "",     "leave"},
    {Action::kQuit,           true,  {"quit"},                                 "",     "leave"},
};
// clang-format on

std::string_view word_at(const Row &row, size_t i) {
  return i < std::size(row.words) ? row.words[i] : "";
}
size_t length_of(const Row &row) {
  return static_cast<size_t>(std::ranges::find(row.words, "") - std::begin(row.words));
}

using Rows = std::vector<const Row *>;

// The distinct words at a place of some rows that begin like this; alone when one is typed in full.
std::vector<std::string> words_like(const Rows &rows, size_t place, std::string_view begun,
                                    bool listed = true) {
  std::vector<std::string> found;
  for (const Row *row : rows) {
    const std::string_view word = word_at(*row, place);
    if (row->listed != listed || word.empty() || !word.starts_with(begun)) continue;
    if (word == begun) return {std::string(word)};
    if (std::ranges::find(found, word) == found.end()) found.emplace_back(word);
  }
  return found;
}

// How far some words lead into the table.
struct Place {
  Rows rows;            // that begin with the words
  size_t words = 0;     // how many of them were words of rows
  bool valued = false;  // one more was a value
  std::optional<GrammarError> error;
};

std::string joined(const std::vector<std::string> &words) {
  std::string text;
  for (const std::string &word : words) text.append(text.empty() ? "" : ", ").append(word);
  return text;
}

void narrow(Place &place, std::string_view typed) {
  auto matching = words_like(place.rows, place.words, typed);
  if (matching.empty()) matching = words_like(place.rows, place.words, typed, false);
  const std::string quoted = std::string("'").append(typed).append("'");
  if (matching.size() > 1) {
    place.error = GrammarError{quoted + " is ambiguous: " + joined(matching)};
  } else if (matching.empty()) {
    const auto expected = words_like(place.rows, place.words, "");
    place.error = GrammarError{expected.empty()
                                   ? "nothing can follow here: " + quoted
                                   : quoted + " is not known here; expected: " + joined(expected)};
  } else {
    std::erase_if(place.rows,
                  [&](const Row *row) { return word_at(*row, place.words) != matching[0]; });
    ++place.words;
  }
}

Place walk(const Words &words) {
  Place place;
  for (const Row &row : kRows) place.rows.push_back(&row);
  for (const std::string &word : words) {
    const Row &first = *place.rows.front();
    if (!place.valued && place.rows.size() == 1 && length_of(first) == place.words &&
        !first.value.empty()) {
      place.valued = true;
    } else if (place.valued) {
      place.error = GrammarError{"nothing can follow here: '" + word + "'"};
    } else {
      narrow(place, word);
    }
    if (place.error) return place;
  }
  return place;
}

}  // namespace

std::variant<Command, GrammarError> parse(const Words &words) {
  const Place place = walk(words);
  if (place.error) return *place.error;
  const auto whole = std::ranges::find_if(
      place.rows, [&](const Row *row) { return length_of(*row) == place.words; });
  if (whole == place.rows.end()) {
    return GrammarError{"more is needed; expected: " +
                        joined(words_like(place.rows, place.words, ""))};
  }
  const Row &row = **whole;
  if (!row.value.empty() && !place.valued) {
    return GrammarError{"more is needed; expected: " + std::string(row.value)};
  }
  return Command{row.action, place.valued ? words.back() : ""};
}

std::vector<Continuation> continuations(const Words &words) {
  std::vector<Continuation> found;
  const Place place = walk(words);
  if (place.error) return found;
  for (const Row *row : place.rows) {
    if (!row->listed && place.words < length_of(*row)) continue;
    std::string rest;
    for (size_t i = place.words; i < length_of(*row); ++i) {
      rest.append(rest.empty() ? "" : " ").append(row->words[i]);
    }
    if (!row->value.empty() && !place.valued) {
      rest.append(rest.empty() ? "" : " ").append(row->value);
    }
    found.push_back({rest, std::string(row->help)});
  }
  return found;
}

std::vector<std::string> completions(const Words &words, std::string_view begun) {
  const Place place = walk(words);
  if (place.error || place.valued) return {};
  return words_like(place.rows, place.words, begun);
}

bool value_is_next(const Words &words) {
  const Place place = walk(words);
  return !place.error && !place.valued && place.rows.size() == 1 &&
         length_of(*place.rows[0]) == place.words && !place.rows[0]->value.empty();
}

}  // namespace kivosh
