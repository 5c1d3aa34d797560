// Replies as operators read them: aligned tables, or one JSON document.
#pragma once

#include <cstdio>
#include <string>

#include "reply.h"

namespace kivosh {

// The database, the session that was found, or the attribute types: whichever the reply has. Values
// that a reply cannot carry, or may have cut, are marked.
void show_as_table(const Reply &reply, const Catalogue &catalogue, FILE *stream);

// The reply under the names of its messages' fields, with what the catalogue says beside each
// position. Bytes that are no UTF-8 become U+FFFD; all control characters are escaped. A value that
// the reply cannot carry is null; one that it may have cut has "may_be_cut" beside it.
std::string as_json(const Reply &reply, const Catalogue &catalogue);

}  // namespace kivosh
