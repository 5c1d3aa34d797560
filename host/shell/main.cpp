// kivosh, the operator's shell: asks a running kivod, once or at a prompt.
#include <langinfo.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>

#include "commands.h"
#include "options.h"
#include "prompt.h"

namespace {

// Replies are UTF-8, and so is what is typed, whatever the environment says. Numbers and messages
// stay as they are.
void speak_utf8() {
  std::setlocale(LC_CTYPE, "");
  if (std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) std::setlocale(LC_CTYPE, "C.UTF-8");
}

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
  speak_utf8();
  int exit_status = 0;
  std::optional<kivosh::Options> options;
  try {
    options = kivosh::parse_options(argc, argv, exit_status);
    return options ? run(*options) : exit_status;
  } catch (const std::bad_alloc &) {
    if (options && options->json) std::puts(R"({"error":"out of memory","status":3})");
    kivosh::print_error("out of memory");
    return static_cast<int>(kivosh::Outcome::kDaemonFailed);
  }
}
