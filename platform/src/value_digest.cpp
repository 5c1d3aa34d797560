// Digests of values.
// Threads: none; the process serialises all calls.
#include "value_digest.h"

#include <sodium/crypto_shorthash_siphash24.h>
#include <unistd.h>

#include <cstring>

namespace kivo_platform {
namespace {

struct DigestKey {
  std::array<unsigned char, crypto_shorthash_siphashx24_KEYBYTES> of_long_values;
  std::uint64_t addend;
  std::array<std::uint64_t, 3> factors;  // odd
};
constinit DigestKey key{};

// Mixes the lowest kBits over one another, one to one: multiplication by an odd number is, within
// 2^kBits, and so is adding the upper half to the lower bit by bit.
template <std::uint32_t kBits>
std::uint64_t mix(std::uint64_t word) noexcept {
  constexpr std::uint64_t kMask = UINT64_MAX >> (64 - kBits);
  word = (word ^ key.addend) & kMask;
  for (const std::uint64_t factor : key.factors) {
    word = (word * factor) & kMask;
    word ^= word >> (kBits / 2);
  }
  return word;
}

// The bytes of a value of up to eight as a number. Values of one size differ in it.
std::uint64_t word_of(Bytes value) noexcept {
  const std::size_t size = value.size();
  std::uint32_t low = 0;
  std::uint32_t high = 0;
  if (size < 4) {
    std::memcpy(&low, value.data(), size);
    return low;
  }
  std::memcpy(&low, value.data(), 4);
  std::memcpy(&high, value.data() + size - 4, 4);
  return std::uint64_t{high} << 32 | low;
}

constexpr std::uint32_t low_half(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
constexpr std::uint32_t high_half(std::uint64_t word) {
  return static_cast<std::uint32_t>(word >> 32);
}

ValueDigest digest_of_short(Bytes value) noexcept {
  const std::uint64_t mixed = mix<64>(word_of(value));
  return {ValueDigest::Width::kAny,
          low_half(mixed),
          {high_half(mixed), static_cast<std::uint32_t>(value.size()), 0}};
}

ValueDigest digest_of_long(Bytes value) noexcept {
  std::uint64_t words[crypto_shorthash_siphashx24_BYTES / sizeof(std::uint64_t)];
  crypto_shorthash_siphashx24(reinterpret_cast<unsigned char *>(words),
                              reinterpret_cast<const unsigned char *>(value.data()), value.size(),
                              key.of_long_values.data());
  return {ValueDigest::Width::kAny,
          low_half(words[0]),
          {high_half(words[0]), low_half(words[1]), high_half(words[1])}};
}

}  // namespace

bool draw_digest_key() noexcept {
  if (getentropy(&key, sizeof key) != 0) return false;
  for (std::uint64_t &factor : key.factors) factor |= 1;
  return true;
}

ValueDigest digest_of(Bytes value) noexcept {
  switch (value.size()) {
    case 4:
      return {ValueDigest::Width::kFourBytes, low_half(mix<32>(low_half(word_of(value)))), {}};
    case 6: {
      // The two halves of the word share two bytes.
      const std::uint64_t word = word_of(value);
      const std::uint64_t mixed = mix<48>(low_half(word) | (word >> 48) << 32);
      return {ValueDigest::Width::kSixBytes, low_half(mixed), {high_half(mixed), 0, 0}};
    }
    default:
      return value.size() <= sizeof(std::uint64_t) ? digest_of_short(value) : digest_of_long(value);
  }
}

}  // namespace kivo_platform
