// Hidden twins of the attribute list operations, for the merge of a record into a list.
// Threads: none; the process serialises all calls.
#pragma once

#include <bitset>
#include <cstdint>

#include "platform/aaa.h"
#include "stored_attributes.h"

namespace kivo_platform {

using TypeSet = std::bitset<AAA_ATTR_TYPE_MAX + 1>;

// Twin of aaa_attr_add() for arguments that are valid but for the handle.
std::uint32_t add_to_list(std::uint32_t handle, std::uint32_t type, Bytes value) noexcept;

// The dictionary types that a list holds. Returns 0; AAA_ERR_STALE_LIST.
std::uint32_t types_of_list(std::uint32_t handle, TypeSet &types) noexcept;

}  // namespace kivo_platform
