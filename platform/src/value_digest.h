// What the indexes know of a value instead of its bytes. Values with the same digest are taken for
// the same value, and nobody compares their bytes: a look-up would wait for the session's memory.
// A value of up to eight bytes goes through a one-to-one mixing, so its digest is as good as the
// value. Of a longer one it is 128 bits under secret keys from the system's random source, which
// nobody outside ever sees a result of: two values, chosen by whomever, meet with a probability of
// 2^-128 (proven up to 32 bytes, above as far as SipHash is what it is taken for), and any two of
// four million with one of 2^-85. The buckets of a table follow from the digest, so nobody can
// choose values that fill one either.
// Threads: none; the process serialises all calls.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

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

// Draws the keys. To be called before the first digest, and not after it; false when the system
// gives none.
[[nodiscard]] bool draw_digest_keys() noexcept;

constexpr std::uint32_t low_half(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
constexpr std::uint32_t high_half(std::uint64_t word) {
  return static_cast<std::uint32_t>(word >> 32);
}

struct MixingKey {
  std::uint64_t addend;
  std::array<std::uint64_t, 3> factors;  // odd
};
extern MixingKey mixing_key;

// Mixes the lowest kBits over one another, one to one: multiplication by an odd number is, within
// 2^kBits, and so is adding the upper half to the lower bit by bit.
template <std::uint32_t kBits>
inline std::uint64_t mix(std::uint64_t word) noexcept {
  constexpr std::uint64_t kMask = UINT64_MAX >> (64 - kBits);
  word = (word ^ mixing_key.addend) & kMask;
  for (const std::uint64_t factor : mixing_key.factors) {
    word = (word * factor) & kMask;
    word ^= word >> (kBits / 2);
  }
  return word;
}

ValueDigest digest_of_other(Bytes value) noexcept;

inline ValueDigest digest_of(Bytes value) noexcept {
  switch (value.size()) {
    case 4: {
      std::uint32_t word = 0;
      std::memcpy(&word, value.data(), sizeof word);
      return {ValueDigest::Width::kFourBytes, low_half(mix<32>(word)), {}};
    }
    case 6: {
      std::uint16_t first = 0;
      std::uint32_t last = 0;
      std::memcpy(&first, value.data(), sizeof first);
      std::memcpy(&last, value.data() + sizeof first, sizeof last);
      const std::uint64_t mixed = mix<48>(std::uint64_t{first} << 32 | last);
      return {ValueDigest::Width::kSixBytes, low_half(mixed), {high_half(mixed), 0, 0}};
    }
    default:
      return digest_of_other(value);
  }
}

}  // namespace kivo_platform
