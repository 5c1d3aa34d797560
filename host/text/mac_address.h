// MAC addresses as people and devices spell them. RFC 3580 asks for 00-10-A4-23-19-C0; access
// servers also send 00:10:a4:23:19:c0, 0010.a423.19c0, 0010-a423-19c0 and 0010a42319c0, in either
// case.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace host_text {

using MacAddress = std::array<uint8_t, 6>;

// Reads an address that is the whole text, blanks around it aside. One separator is used throughout
// and stands between groups of equal length (2, 4 or 6 digits), or there is none.
std::optional<MacAddress> parse_mac_address(std::string_view text) noexcept;

}  // namespace host_text
