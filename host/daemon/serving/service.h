// The daemon at work: one thread that answers requests about the sessions.
#pragma once

#include <optional>
#include <string>

namespace kivod {

// Listens on a socket and answers until SIGTERM or SIGINT; prints "Listening on PATH" once it does.
// `group` may ask besides root and the process's user. False when it cannot listen, or not any
// more; `error` then has one line that says why.
bool serve(const std::string &socket, const std::optional<std::string> &group, std::string &error);

}  // namespace kivod
