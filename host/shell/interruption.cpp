// See interruption.h.
#include "interruption.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>

namespace kivosh {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t g_interrupted = 0;
termios g_modes;  // written before a handler can read them
bool g_has_modes = false;

void on_interrupt(int) { g_interrupted = 1; }

// Ends the shell by the signal, which has its default again. A terminal that others work at in the
// meantime is left alone.
void on_end(int signal) {
  const int error = errno;
  if (g_has_modes && tcgetpgrp(STDIN_FILENO) == getpgrp()) {
    tcsetattr(STDIN_FILENO, TCSANOW, &g_modes);
  }
  raise(signal);
  errno = error;
}

}  // namespace

Interruption::Interruption() {
  forget();
  g_has_modes = tcgetattr(STDIN_FILENO, &g_modes) == 0;
  for (size_t i = 0; i < std::size(kSignals); ++i) {
    struct sigaction action = {};
    const bool is_interrupt = kSignals[i] == SIGINT;
    action.sa_handler = is_interrupt ? on_interrupt : on_end;
    action.sa_flags = SA_RESTART;
    if (!is_interrupt) action.sa_flags |= static_cast<int>(SA_RESETHAND);
    sigaction(kSignals[i], nullptr, &before_[i]);
    // What the shell was started to ignore (under nohup, say) stays ignored.
    if (before_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

Interruption::~Interruption() {
  for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &before_[i], nullptr);
}

void Interruption::forget() noexcept { g_interrupted = 0; }

bool interrupted() noexcept { return g_interrupted != 0; }

SignalsHeld::SignalsHeld() {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : kSignals) sigaddset(&held, signal);
  pthread_sigmask(SIG_BLOCK, &held, &before_);
}

SignalsHeld::~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace kivosh
