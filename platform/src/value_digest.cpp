// Digests of values, by their size: up to 8 bytes, up to 32, above.
// Threads: none; the process serialises all calls.
#include "value_digest.h"

#include <sodium/crypto_shorthash_siphash24.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace kivo_platform {

constinit MixingKey mixing_key{};

namespace {

// ---- Up to eight bytes

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

ValueDigest digest_of_short(Bytes value) noexcept {
  const std::uint64_t mixed = mix<64>(word_of(value));
  return {ValueDigest::Width::kAny,
          low_half(mixed),
          {high_half(mixed), static_cast<std::uint32_t>(value.size()), 0}};
}

// ---- Up to 32 bytes: multilinear hashing, which is strongly universal. A result is the upper half
// of an addend and the products of each 32-bit word with a factor of its own, modulo 2^64; whatever
// two values are, over the keys it is the same for both with a probability of 2^-32. Four results
// under independent keys make a digest.

constexpr std::size_t kMediumSizeMax = 32;
constexpr std::size_t kResults = 4;

struct MultilinearKey {
  std::array<std::uint64_t, kResults> addends;
  std::array<std::array<std::uint64_t, kResults>, kMediumSizeMax / sizeof(std::uint32_t)> factors;
  std::array<std::uint64_t, kResults> size_factors;
};
constinit MultilinearKey multilinear_key{};

ValueDigest digest_of_medium(Bytes value) noexcept {
  const std::size_t size = value.size();
  std::array<std::uint64_t, kResults> sums = multilinear_key.addends;
  const auto add = [&](std::uint32_t word, const std::array<std::uint64_t, kResults> &factors) {
    for (std::size_t i = 0; i < kResults; ++i) sums[i] += word * factors[i];
  };
  // The first, second and third eight bytes, as far as there are more, and the last eight: values
  // of one size differ in them.
  std::size_t word = 0;
  const auto add_eight = [&](std::size_t at) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, value.data() + at, sizeof eight);
    add(low_half(eight), multilinear_key.factors[word++]);
    add(high_half(eight), multilinear_key.factors[word++]);
  };
  add_eight(size - 8);
  add_eight(0);
  if (size > 16) add_eight(8);
  if (size > 24) add_eight(16);
  add(static_cast<std::uint32_t>(size), multilinear_key.size_factors);
  // One of them leads to the bucket, by its lowest bits: mixed, since values in an arithmetic
  // progression have sums in one.
  return {ValueDigest::Width::kAny,
          low_half(mix<32>(high_half(sums[0]))),
          {high_half(sums[1]), high_half(sums[2]), high_half(sums[3])}};
}

// ---- Above: SipHash

constinit std::array<unsigned char, crypto_shorthash_siphashx24_KEYBYTES> siphash_key{};

[[gnu::noinline]] ValueDigest digest_of_long(Bytes value) noexcept {
  std::uint64_t words[crypto_shorthash_siphashx24_BYTES / sizeof(std::uint64_t)];
  crypto_shorthash_siphashx24(reinterpret_cast<unsigned char *>(words),
                              reinterpret_cast<const unsigned char *>(value.data()), value.size(),
                              siphash_key.data());
  return {ValueDigest::Width::kAny,
          low_half(words[0]),
          {high_half(words[0]), low_half(words[1]), high_half(words[1])}};
}

// getentropy() gives 256 bytes at a time.
template <typename Key>
bool draw(Key &key) noexcept {
  constexpr std::size_t kAtOnce = 256;
  auto *const bytes = reinterpret_cast<unsigned char *>(&key);
  for (std::size_t at = 0; at < sizeof key; at += kAtOnce) {
    if (getentropy(bytes + at, std::min(kAtOnce, sizeof key - at)) != 0) return false;
  }
  return true;
}

}  // namespace

bool draw_digest_keys() noexcept {
  if (!draw(mixing_key) || !draw(multilinear_key) || !draw(siphash_key)) return false;
  for (std::uint64_t &factor : mixing_key.factors) factor |= 1;
  return true;
}

ValueDigest digest_of_other(Bytes value) noexcept {
  if (value.size() <= sizeof(std::uint64_t)) return digest_of_short(value);
  return value.size() <= kMediumSizeMax ? digest_of_medium(value) : digest_of_long(value);
}

}  // namespace kivo_platform
