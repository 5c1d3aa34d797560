// The folder that the default socket lies in.
#pragma once

#include <optional>
#include <string>

namespace kivod {

// Makes a folder for the process's user and the group, and nobody else (mode 0750); one that was
// made so before is given to the group, any other is left as it is. Whatever fails here, listening
// in it will say so.
void make_socket_folder(const std::string &folder, const std::optional<std::string> &group);

}  // namespace kivod
