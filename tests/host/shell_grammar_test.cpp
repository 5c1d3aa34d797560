// The grammar of kivosh: shortened words, what is wrong with words, and what can follow.
#include <gtest/gtest.h>

#include "grammar.h"

namespace {

using namespace kivosh;

// As "ACTION VALUE", or what is wrong.
std::string parsed(const Words &words) {
  const auto result = parse(words);
  if (const auto *error = std::get_if<GrammarError>(&result)) return error->text;
  const auto &command = std::get<Command>(result);
  return std::to_string(static_cast<int>(command.action)) + " " + command.value;
}
std::string action(Action action, const std::string &value = "") {
  return std::to_string(static_cast<int>(action)) + " " + value;
}

TEST(ShellGrammar, TakesWordsInFullAndShortened) {
  const struct {
    Words words;
    std::string result;
  } rows[] = {
      {{"show", "database"}, action(Action::kShowDatabase)},
      {{"s", "d"}, action(Action::kShowDatabase)},
      {{"sh", "da", "at"}, action(Action::kShowAttributes)},
      {{"show", "database", "mac", "0:1"}, action(Action::kShowByMac, "0:1")},
      {{"s", "d", "m", "mac"}, action(Action::kShowByMac, "mac")},
      {{"s", "d", "au", ""}, action(Action::kShowByAuditId, "")},
      {{"s", "d", "session-id", "i"}, action(Action::kShowByAuditId, "i")},  // not listed
      {{"s", "d", "s", "i"}, action(Action::kShowByAuditId, "i")},
      {{"s", "d", "i", "192.0.2.1"}, action(Action::kShowByIpv4, "192.0.2.1")},
      {{"h"}, action(Action::kHelp)},
      {{"q"}, action(Action::kQuit)},
      {{"exit"}, action(Action::kQuit)},

      {{"shows"}, "'shows' is not known here; expected: show, help, exit, quit"},
      {{""}, "'' is ambiguous: show, help, exit, quit"},
      {{"show"}, "more is needed; expected: database"},
      {{"show", "x"}, "'x' is not known here; expected: database"},
      {{"show", "database", "x"},
       "'x' is not known here; expected: attributes, audit-session-id, mac, ipv4"},
      {{"show", "database", ""}, "'' is ambiguous: attributes, audit-session-id, mac, ipv4"},
      {{"show", "database", "mac"}, "more is needed; expected: MAC"},
      {{"show", "database", "mac", "1", "2"}, "nothing can follow here: '2'"},
      {{"help", "me"}, "nothing can follow here: 'me'"},
      {{"SHOW", "database"}, "'SHOW' is not known here; expected: show, help, exit, quit"},
  };
  for (const auto &row : rows) EXPECT_EQ(row.result, parsed(row.words));
}

TEST(ShellGrammar, TellsWhatCanStandNext) {
  const struct {
    Words words;
    std::string begun;
    std::vector<std::string> found;
  } rows[] = {
      {{}, "", {"show", "help", "exit", "quit"}},
      {{}, "s", {"show"}},
      {{"sh"}, "", {"database"}},
      {{"sh", "da"}, "", {"attributes", "audit-session-id", "mac", "ipv4"}},
      {{"sh", "da"}, "s", {}},
      {{"sh", "da"}, "mac", {"mac"}},
      {{"sh", "da"}, "x", {}},
      {{"sh", "da", "mac"}, "", {}},
      {{"sh", "da", "mac", "1"}, "", {}},
      {{"x"}, "", {}},
  };
  for (const auto &row : rows) EXPECT_EQ(row.found, completions(row.words, row.begun));
  EXPECT_TRUE(value_is_next({"s", "d", "m"}));
  for (const Words &words : {Words{"s", "d"}, {"s", "d", "m", "1"}, {"s", "d", "at"}, {"x"}}) {
    EXPECT_FALSE(value_is_next(words));
  }
}

TEST(ShellGrammar, ListsTheWaysOn) {
  const auto rest = [](const Words &words) {
    std::string text;
    for (const Continuation &row : continuations(words)) {
      EXPECT_FALSE(row.help.empty());
      text += "[" + row.words + "]";
    }
    return text;
  };
  EXPECT_EQ("[][attributes][audit-session-id ID][mac MAC][ipv4 ADDR]", rest({"sh", "da"}));
  EXPECT_EQ("[MAC]", rest({"sh", "da", "mac"}));
  EXPECT_EQ("[ID]", rest({"sh", "da", "session-id"}));
  EXPECT_EQ("[]", rest({"sh", "da", "mac", "1"}));
  EXPECT_EQ("", rest({"sh", "da", "mac", "1", "2"}));
  EXPECT_EQ(
      "[show database][show database attributes][show database audit-session-id ID]"
      "[show database mac MAC][show database ipv4 ADDR][help][exit][quit]",
      rest({}));
}

}  // namespace
