// What can be typed: one table of commands, and everything that is derived from it. Words may be
// shortened as long as they are unambiguous.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kivosh {

enum class Action {
  kShowDatabase,
  kShowAttributes,
  kShowByAuditId,
  kShowByMac,
  kShowByIpv4,
  kHelp,
  kQuit,
};

struct Command {
  Action action;
  std::string value;  // what follows the words, as it was typed
};

// Why words are no command, in one line.
struct GrammarError {
  std::string text;
};

using Words = std::vector<std::string>;

// Reads a whole command; there is at least one word.
std::variant<Command, GrammarError> parse(const Words &words);

// A way to go on: the words that are left, with the name of the value, and what the command does.
struct Continuation {
  std::string words;  // empty: the command is whole
  std::string help;
};

// What can follow the words. Nothing when they begin no command.
std::vector<Continuation> continuations(const Words &words);

// The words that can stand next and begin like this, without repetition.
std::vector<std::string> completions(const Words &words, std::string_view begun);

// What stands next can be a value only: anything may be typed.
bool value_is_next(const Words &words);

}  // namespace kivosh
