// Replies as operators read them: aligned tables, or JSON documents (docs/kivosh-json.md).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "grammar.h"
#include "reply.h"

namespace kivosh {

// The database, the session that was found, or the attribute types: whichever the reply has. Values
// that a reply cannot carry, or may have cut, are marked.
void show_as_table(const Reply &reply, const Catalogue &catalogue, FILE *stream);

// Each document is one line of ASCII without its end. A parser gets every text back as it was;
// bytes that are no UTF-8 are an object with their digits.

// The reply under the names of its messages' fields, with what the catalogue says beside each
// position.
std::string as_json(const Reply &reply, const Catalogue &catalogue);
// What can be typed.
std::string as_json(const std::vector<Continuation> &commands);
// Why a command has no other document.
// status  the exit status that it stands for
// line    of the script, 0 for none
std::string error_as_json(const std::string &text, int status, size_t line);

}  // namespace kivosh
