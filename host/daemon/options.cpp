// See options.h.
#include "options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <sstream>

#include "platform/aaa_dictionary.h"
#include "sessions/value_text.h"
#include "text/printable.h"

namespace kivod {
namespace {

constexpr int kUsageError = 2;
constexpr size_t kHelpColumn = 26;  // of the descriptions

// Reads the value that sessions are to have; `what` names it in a complaint.
std::string read_key(const std::string &text, uint32_t type, const char *what,
                     std::optional<AttrCondition> &key) {
  key = AttrCondition{type, {}};
  return read_value(type, text, key->bytes) ? "" : "'" + text + "' is no " + what;
}

std::string read_conditions(const std::string &text, std::vector<AttrCondition> &conditions) {
  std::string error;
  conditions = parse_conditions(text, error);
  return error;
}

// What is complained of stands in the complaint, byte for byte.
int tell(const CLI::App &app, const CLI::ParseError &error) {
  std::ostringstream complaint;
  const int status = app.exit(error, std::cout, complaint);
  std::istringstream lines(complaint.str());
  for (std::string line; std::getline(lines, line);) {
    std::fprintf(stderr, "%s\n", host_text::printable(line).c_str());
  }
  return status == 0 ? 0 : kUsageError;
}

}  // namespace

std::optional<Options> parse_options(int argc, char **argv, int &exit_status) {
  Options options;
  std::string mac;
  std::string ipv4;
  std::string match;
  CLI::App app("kivod keeps the live sessions that access servers report", "kivod");
  app.set_version_flag("--version", std::string("kivod ") + KIVO_VERSION);
  app.get_formatter()->column_width(kHelpColumn);
  app.add_option("--replay", options.replay,
                 "Read accounting logs in the detail format, in this\norder; - is standard input")
      ->type_name("FILE");
  app.add_option("--dictionaries", options.dictionaries, "Directory of the RADIUS dictionaries")
      ->type_name("DIR");
  app.add_flag("--show", options.show,
               "Show the database: its attributes, and who is told\nof their changes");
  app.add_option("--session-id", options.session_id,
                 "Show the sessions with this audit-session-id, else\n"
                 "those with this session-id (Acct-Session-Id)")
      ->type_name("ID")
      ->check([](const std::string &text) { return text.empty() ? "an id has characters" : ""; });
  app.add_option("--mac", mac, "Show the sessions of this MAC address, in any usual\nspelling")
      ->type_name("MAC")
      ->check([&](const std::string &text) {
        return read_key(text, AAA_ATTR_MAC_ADDRESS, "MAC address", options.mac);
      });
  app.add_option("--ipv4", ipv4, "Show the sessions of this IPv4 address")
      ->type_name("ADDR")
      ->check([&](const std::string &text) {
        return read_key(text, AAA_ATTR_IPV4_ADDRESS, "IPv4 address", options.ipv4);
      });
  app.add_option("--match", match,
                 "Show the sessions that meet all conditions, as in\n"
                 "'domain=example.net, method=mac'")
      ->type_name("NAME=VALUE,...")
      ->check([&](const std::string &text) { return read_conditions(text, options.match); });
  app.add_flag("--attributes", options.attributes, "List the attributes with their numbers");
  app.add_flag("--counts", options.counts, "Count the sessions in each index");
  app.add_flag("--records", options.records, "Show every session in full");
  app.add_flag("--quiet", options.quiet, "Print no summary of the replay");
  app.add_option("--max-sessions", options.limits.in_all,
                 "Begin no session while this many are live")
      ->type_name("N")
      ->check(CLI::Range(uint32_t{1}, UINT32_MAX).description(""));
  app.add_option("--max-sessions-per-server", options.limits.of_a_server,
                 "Begin no session while its access server has as many")
      ->type_name("N")
      ->check(CLI::Range(uint32_t{1}, UINT32_MAX).description(""));
  auto *serve = app.add_flag("--serve", options.serve,
                             "Then answer kivosh until SIGTERM or SIGINT; also\nwithout a log");
  app.add_option("--socket", options.socket,
                 "With --serve: where to listen, unless at\n" + options.socket)
      ->type_name("PATH")
      ->option_text("PATH")
      ->needs(serve);
  app.add_option("--group", options.group,
                 "With --serve: let members of this group ask,\n"
                 "besides root and the daemon's own user")
      ->type_name("NAME")
      ->option_text("NAME")
      ->needs(serve);
  try {
    app.parse(argc, argv);
    if (options.replay.empty() && !options.serve) throw CLI::RequiredError("--replay or --serve");
  } catch (const CLI::ParseError &error) {
    exit_status = tell(app, error);
    return std::nullopt;
  }
  return options;
}

}  // namespace kivod
