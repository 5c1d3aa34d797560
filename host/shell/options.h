// The shell's command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "grammar.h"
#include "text/socket_path.h"

namespace kivosh {

struct Options {
  std::string socket = host_text::kDefaultSocketPath;
  uint32_t timeout_ms = 10000;  // 0: for ever
  bool json = false;
  Words words;  // none: a prompt
};

// Reads the command line. Nothing when the program is to end at once; `exit_status` then tells how:
// 0 after --help or --version, 2 after a usage error, which is told on standard error in one line.
// Options may stand anywhere in front of --; behind it everything is a word.
std::optional<Options> parse_options(int argc, char **argv, int &exit_status);

}  // namespace kivosh
