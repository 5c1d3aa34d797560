// kivosh, the operator's shell: asks a running kivod, once or at a prompt.
#include <clocale>
#include <cstdio>
#include <new>

#include "commands.h"
#include "options.h"
#include "prompt.h"

namespace {

int run(const kivosh::Options &options) {
  using kivosh::Outcome;
  kivosh::Commands commands(kivosh::Daemon(options.socket, options.timeout_ms), options.json);
  const Outcome outcome =
      options.words.empty() ? kivosh::run_lines(commands) : commands.run(options.words);
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return static_cast<int>(outcome);
  kivosh::print_error("cannot write to standard output");
  return static_cast<int>(Outcome::kDaemonFailed);
}

}  // namespace

int main(int argc, char **argv) {
  std::setlocale(LC_ALL, "");
  int exit_status = 0;
  const auto options = kivosh::parse_options(argc, argv, exit_status);
  if (!options) return exit_status;
  try {
    return run(*options);
  } catch (const std::bad_alloc &) {
    kivosh::print_error("out of memory");
    return static_cast<int>(kivosh::Outcome::kDaemonFailed);
  }
}
