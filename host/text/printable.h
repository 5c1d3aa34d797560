// Texts that somebody else chose, as a terminal may have them. A user names himself, a peer names
// its port; neither may move the operator's cursor, turn lines around or hide a part of itself.
#pragma once

#include <string>
#include <string_view>

namespace host_text {

// The text with all that does not show as itself escaped byte by byte as \xNN, and a backslash as
// two, so that different bytes print as different characters (which may be letters that look alike).
// Shown as they are: characters of UTF-8 (RFC 3629, without exception) whose General_Category in
// Unicode is neither Other (C: control, format, surrogate, private use, unassigned, thus also
// noncharacters) nor Separator (Z; a blank aside that stands inside), and that are not
// Default_Ignorable_Code_Point (variation selectors, fillers).
std::string printable(std::string_view text);

// How many columns of a terminal a printable text takes: none for combining characters, two for
// wide.
size_t columns_of(std::string_view text) noexcept;

// How many bytes at the beginning are whole characters of UTF-8: all, if the text is UTF-8.
size_t utf8_size(std::string_view text) noexcept;

}  // namespace host_text
