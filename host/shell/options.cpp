// See options.h.
#include "options.h"

#include <CLI/CLI.hpp>

#include "commands.h"

namespace kivosh {
namespace {

constexpr double kSecondsMost = 3600;

std::string list_of_commands() {
  return "Commands:\n" + lines_of(continuations({})) + kTwoSessionIds + "\n" +
         "Words may be shortened. A value that begins with - comes behind --.\n"
         "Without a command: a prompt, or the lines of standard input.\n"
         "Exit status: 0; 1 no such session; 2 usage; 3 the daemon refused or cannot be\n"
         "reached, or standard input or output failed.";
}

// The option parser's own usage line knows nothing of words.
class Help : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App *, std::string name) const override {
    return "Usage: " + name + " [OPTIONS] [--] [WORD]...\n";
  }
};

std::string check_seconds(const std::string &text) {
  double seconds = -1;
  // The comparisons also turn away what is read as "not a number".
  const bool fits =
      CLI::detail::lexical_cast(text, seconds) && seconds >= 0 && seconds <= kSecondsMost;
  return fits ? "" : "'" + text + "' is no number of seconds from 0 to 3600";
}

// The command's words as they were given, out of what the option parser left alone: as an option of
// its own it would take [a,b] apart. What looks like an option in front of -- is none that there
// is.
Words take_words(const std::vector<std::string> &arguments) {
  Words words;
  bool only_words = false;
  for (const std::string &argument : arguments) {
    if (!only_words && argument == "--") {
      only_words = true;
      continue;
    }
    if (!only_words && argument.size() > 1 && argument.starts_with('-')) {
      throw CLI::ExtrasError("'" + argument + "' is no option", CLI::ExitCodes::ExtrasError);
    }
    words.push_back(argument);
  }
  return words;
}

}  // namespace

std::optional<Options> parse_options(int argc, char **argv, int &exit_status) {
  Options options;
  double timeout = options.timeout_ms / 1000.0;
  CLI::App app("kivosh asks a running kivod who is on", "kivosh");
  app.set_version_flag("--version", std::string("kivosh ") + KIVO_VERSION);
  app.formatter(std::make_shared<Help>());
  app.footer(list_of_commands());
  app.add_option("--socket", options.socket, "Where kivod listens")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--timeout", timeout, "How long to wait for the daemon; 0 for ever")
      ->type_name("SECONDS")
      ->check(check_seconds)
      ->capture_default_str();
  const CLI::Option *const json =
      app.add_flag("--json", options.json, "Print each answer and error as a line of JSON");
  app.allow_extras();
  try {
    app.parse(argc, argv);
    options.words = take_words(app.remaining());
  } catch (const CLI::Success &help) {
    exit_status = app.exit(help);
    return std::nullopt;
  } catch (const CLI::ParseError &error) {
    const Outcome outcome = tell_failure(Outcome::kUsage, error.what(), json->count() > 0);
    exit_status = static_cast<int>(outcome);
    return std::nullopt;
  }
  options.timeout_ms = static_cast<uint32_t>(timeout * 1000);
  if (timeout > 0 && options.timeout_ms == 0) options.timeout_ms = 1;
  return options;
}

}  // namespace kivosh
