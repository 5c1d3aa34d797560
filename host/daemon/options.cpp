// See options.h.
#include "options.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>

namespace kivod {
namespace {

constexpr int kUsageError = 2;
constexpr size_t kAuditSessionIdSize = 24;

std::string read_mac(const std::string &text, std::optional<host_text::MacAddress> &mac) {
  mac = host_text::parse_mac_address(text);
  return mac ? "" : "'" + text + "' is no MAC address";
}

std::string read_ipv4(const std::string &text, std::optional<uint32_t> &ipv4) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return "'" + text + "' is no IPv4 address";
  ipv4 = address.s_addr;
  return "";
}

std::string read_conditions(const std::string &text, std::vector<AttrCondition> &conditions) {
  std::string error;
  conditions = parse_conditions(text, error);
  return error;
}

std::string check_session_id(const std::string &text) {
  return text.size() == kAuditSessionIdSize ? "" : "an audit session id has 24 characters";
}

}  // namespace

std::optional<Options> parse_options(int argc, char **argv, int &exit_status) {
  Options options;
  std::string mac;
  std::string ipv4;
  std::string match;
  CLI::App app("kivod keeps the live sessions that access servers report", "kivod");
  app.set_version_flag("--version", std::string("kivod ") + KIVO_VERSION);
  app.add_option("--replay", options.replay,
                 "Read accounting logs in the detail format, in this order; - is standard input")
      ->type_name("FILE");
  app.add_option("--dictionaries", options.dictionaries, "Directory of the RADIUS dictionaries")
      ->type_name("DIR");
  app.add_flag("--show", options.show,
               "Show the database: its attributes, and who is told of their changes");
  app.add_option("--session-id", options.session_id, "Show the session with this audit session id")
      ->type_name("ID")
      ->check(check_session_id);
  app.add_option("--mac", mac, "Show the session of this MAC address, in any usual spelling")
      ->type_name("MAC")
      ->check([&](const std::string &text) { return read_mac(text, options.mac); });
  app.add_option("--ipv4", ipv4, "Show the sessions of this IPv4 address")
      ->type_name("ADDR")
      ->check([&](const std::string &text) { return read_ipv4(text, options.ipv4); });
  app.add_option(
         "--match", match,
         "Show the sessions that meet all conditions, as in 'domain=example.net, method=mac'")
      ->type_name("NAME=VALUE,...")
      ->check([&](const std::string &text) { return read_conditions(text, options.match); });
  app.add_flag("--attributes", options.attributes, "List the attributes with their numbers");
  app.add_flag("--counts", options.counts, "Count the sessions in each index");
  app.add_flag("--records", options.records, "Show every session in detail");
  app.add_flag("--quiet", options.quiet, "Print no summary of the replay");
  auto *serve = app.add_flag("--serve", options.serve,
                             "Then answer kivosh until SIGTERM or SIGINT; also without a log");
  app.add_option("--socket", options.socket, "Where to listen")
      ->type_name("PATH")
      ->capture_default_str()
      ->needs(serve);
  app.add_option("--group", options.group,
                 "Let members of this group ask, besides root and the daemon's own user")
      ->type_name("NAME")
      ->needs(serve);
  try {
    app.parse(argc, argv);
    if (options.replay.empty() && !options.serve) throw CLI::RequiredError("--replay or --serve");
  } catch (const CLI::ParseError &error) {
    exit_status = app.exit(error) == 0 ? 0 : kUsageError;
    return std::nullopt;
  }
  return options;
}

}  // namespace kivod
