// What signals do at the prompt: ^C gives up the command that waits, and a signal that ends the
// shell leaves the terminal as it was found. One of these lives at a time; without one, signals do
// what they do to any program.
#pragma once

#include <csignal>

namespace kivosh {

class Interruption {
 public:
  // Remembers the modes of the terminal on standard input.
  Interruption();
  ~Interruption();
  Interruption(const Interruption &) = delete;
  Interruption &operator=(const Interruption &) = delete;

  // From here on an interruption concerns the next command.
  static void forget() noexcept;

 private:
  struct sigaction before_[3];
};

// Whether ^C has come since.
bool interrupted() noexcept;

// Holds signals off while a file is written that they shall not leave half.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld &) = delete;
  SignalsHeld &operator=(const SignalsHeld &) = delete;

 private:
  sigset_t before_;
};

}  // namespace kivosh
