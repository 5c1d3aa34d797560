// See options.h.
#include "options.h"

#include <CLI/CLI.hpp>

namespace kivosh {
namespace {

constexpr int kUsageError = 2;
constexpr double kSecondsMost = 3600;

std::string list_of_commands() {
  std::string text = "Commands:\n";
  for (const Continuation &row : continuations({})) {
    text.append("  ").append(row.words);
    text.append(row.words.size() < 28 ? 28 - row.words.size() : 0, ' ');
    text.append("  ").append(row.help).append("\n");
  }
  return text.append(
      "Words may be shortened. Without a command: a prompt, or the lines of standard input.\n"
      "Exit status: 0; 1 no such session; 2 usage; 3 the daemon refused or cannot be reached.");
}

}  // namespace

std::optional<Options> parse_options(int argc, char **argv, int &exit_status) {
  Options options;
  double timeout = options.timeout_ms / 1000.0;
  CLI::App app("kivosh asks a running kivod who is on", "kivosh");
  app.set_version_flag("--version", std::string("kivosh ") + KIVO_VERSION);
  app.footer(list_of_commands());
  app.add_option("--socket", options.socket, "Where kivod listens")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--timeout", timeout, "How long to wait for the daemon; 0 for ever")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, kSecondsMost))
      ->capture_default_str();
  app.add_flag("--json", options.json, "Print each answer as one JSON document");
  app.add_option("command", options.words, "What to ask; see below")->type_name("WORD");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    exit_status = app.exit(error) == 0 ? 0 : kUsageError;
    return std::nullopt;
  }
  options.timeout_ms = static_cast<uint32_t>(timeout * 1000);
  if (timeout > 0 && options.timeout_ms == 0) options.timeout_ms = 1;
  return options;
}

}  // namespace kivosh
