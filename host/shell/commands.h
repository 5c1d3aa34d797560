// Carries commands out: asks the daemon, prints the answer.
#pragma once

#include "daemon.h"
#include "grammar.h"

namespace kivosh {

// How a command went: the shell's exit statuses.
enum class Outcome : int { kDone = 0, kNoMatch = 1, kUsage = 2, kDaemonFailed = 3 };

class Commands {
 public:
  Commands(Daemon daemon, bool json) : daemon_(std::move(daemon)), json_(json) {}

  // Runs what the words say, one at least. The answer goes to standard output; why there is none,
  // in one line, to standard error. In JSON each command has one document on standard output,
  // whatever became of it. Throws std::bad_alloc.
  Outcome run(const Words &words);

  // What is wrong from here on is wrong with this line of a script; 0 for none.
  void at_line(size_t number) noexcept { line_ = number; }
  // Tells why something could not be run.
  Outcome fail(Outcome outcome, const std::string &text) const;

  // After exit or quit.
  bool ended() const noexcept { return ended_; }

 private:
  Outcome run(const Command &command);
  Outcome show(const Question &question);
  void help() const;

  Daemon daemon_;
  bool json_;
  size_t line_ = 0;  // of a script, 0 for none
  bool ended_ = false;
};

// Which of a session's two identifiers is which, for people.
inline constexpr const char *kTwoSessionIds =
    "A session's audit-session-id is its Acct-Multi-Session-Id, or was made by kivod;\n"
    "its session-id is its Acct-Session-Id.";

// What can follow some words, for people: a line each.
std::string lines_of(const std::vector<Continuation> &rows);

// A line of the shell's own on standard error, behind what was printed before. What it repeats of
// somebody's cannot steer the terminal. `line` is that of a script, 0 for none.
void print_error(const std::string &text, size_t line = 0);
// Tells why there is no answer, in JSON as a document on standard output too. Returns the outcome.
Outcome tell_failure(Outcome outcome, const std::string &text, bool json, size_t line = 0);

}  // namespace kivosh
