// Commands line by line: at a prompt with history, completion and help, or from a file.
#pragma once

#include "commands.h"

namespace kivosh {

// Reads standard input to its end, or to exit. Lines that begin with # are comments. At a terminal
// the result tells whether the input could be read; otherwise it is the worst outcome of all lines,
// so that a script's failure is not lost. Throws std::bad_alloc.
Outcome run_lines(Commands &commands);

}  // namespace kivosh
