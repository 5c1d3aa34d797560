// Values of a session as people write and read them: one table says for each type, or else for its
// kind, how a text becomes the bytes that are stored and how these are shown. What accounting
// brings as a text and what operators ask for go through the same readers, so that equal values are
// equal bytes. What is shown without escapes is read again as the same value.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kivod {

// Reads a value of a type into the bytes that are stored: names that compare without case in lower
// case, addresses and prefixes in any spelling, numbers as decimal or 0x, times as seconds since
// 1970 or as RFC 3339 in UTC. False when the text is no value of the type; `bytes` then holds
// anything.
bool read_value(uint32_t type, std::string_view text, std::string &bytes);

// One value of a type as a line for a terminal. Bytes that are no value of the type are shown too.
std::string shown_value(uint32_t type, std::string_view bytes);

// An IPv6 prefix as it is stored.
// address  16 bytes in network order; what lies behind the prefix does not count.
// bits     0 to 128.
std::string prefix_text(std::span<const uint8_t, 16> address, unsigned bits);

}  // namespace kivod
