// The value of type 10: a run of 16-byte addresses, each at most once. What the attribute context
// and the indexes both need to know about it.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>

#include "stored_attributes.h"

namespace kivo_platform {

inline constexpr std::uint32_t kAddressBytes = 16;
inline constexpr std::uint32_t kMaxAddresses = 4095;  // what 65,535 bytes hold

// Offset of an address in a run of them, npos when it is not there.
inline std::size_t find_address(Bytes addresses, Bytes address) noexcept {
  for (std::size_t at = 0; address.size() == kAddressBytes && at < addresses.size();
       at += kAddressBytes) {
    if (addresses.substr(at, kAddressBytes) == address) return at;
  }
  return Bytes::npos;
}

inline bool holds_address(Bytes addresses, Bytes address) noexcept {
  return find_address(addresses, address) != Bytes::npos;
}

}  // namespace kivo_platform
