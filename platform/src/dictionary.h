// Hidden twin of the dictionary's look-up by type.
// Threads: any; nothing changes.
#pragma once

#include <cstdint>

namespace kivo_platform {

const char *attribute_name(std::uint32_t type) noexcept;

}  // namespace kivo_platform
