// What the indexes know of a value instead of its bytes. Values with the same digest are taken for
// the same value, and nobody compares their bytes: a look-up would wait for the session's memory.
// A value of up to eight bytes goes through a one-to-one mixing, so its digest is as good as the
// value. Of a longer one it is 128 bits under secret keys from the system's random source, which
// nobody outside ever sees a result of: two values, chosen by whomever, meet with a probability of
// 2^-128, and any two of four million with one of 2^-85. The buckets of a table follow from the
// digest, so nobody can choose values that fill one either.
// Threads: none; the process serialises all calls.
#pragma once

#include <array>
#include <cstdint>

#include "stored_attributes.h"

namespace kivo_platform {

struct ValueDigest {
  // What a table must keep to tell its values apart, beside the hash.
  enum class Width : std::uint32_t {
    kFourBytes,  // values of four bytes: nothing
    kSixBytes,   // of six: the lower half of tag[0]
    kAny,        // all other: the tag
  };

  Width width;
  std::uint32_t hash;
  std::array<std::uint32_t, 3> tag;
};

// Draws the keys. To be called once, before the first digest; false when the system gives none.
[[nodiscard]] bool draw_digest_keys() noexcept;

ValueDigest digest_of(Bytes value) noexcept;

}  // namespace kivo_platform
