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
  // in one line, to standard error. Throws std::bad_alloc.
  Outcome run(const Words &words);

  // What is wrong from here on is wrong with this line of a script.
  void at_line(size_t number) noexcept { line_ = number; }
  void complain(const std::string &text) const;

  // After exit or quit.
  bool ended() const noexcept { return ended_; }

 private:
  Outcome run(const Command &command);
  Outcome show(const Question &question);

  Daemon daemon_;
  bool json_;
  size_t line_ = 0;  // of a script, 0 for none
  bool ended_ = false;
};

// What can follow the words, for people.
void print_continuations(const std::vector<Continuation> &rows);

// A line of the shell's own on standard error, behind what was printed before. What it repeats of
// somebody's cannot steer the terminal.
void print_error(const std::string &text);

}  // namespace kivosh
