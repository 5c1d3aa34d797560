// The daemon's command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "conditions.h"
#include "sessions/session_table.h"
#include "text/socket_path.h"

namespace kivod {

struct Options {
  std::vector<std::string> replay;
  std::string dictionaries;  // empty: where they were found at configuration
  bool show = false;
  std::optional<std::string> session_id;  // an audit session id or an Acct-Session-Id
  std::optional<AttrCondition> mac;
  std::optional<AttrCondition> ipv4;
  bool attributes = false;
  bool counts = false;
  bool records = false;
  std::vector<AttrCondition> match;  // empty: not asked for
  bool quiet = false;
  SessionLimits limits;
  bool serve = false;
  std::string socket = host_text::kDefaultSocketPath;
  std::optional<std::string> group;  // whose members may ask
};

// Reads the command line. Nothing when the program is to end at once; `exit_status` then tells how:
// 0 after --help or --version, 2 after a usage error, which is told on standard error.
std::optional<Options> parse_options(int argc, char **argv, int &exit_status);

}  // namespace kivod
