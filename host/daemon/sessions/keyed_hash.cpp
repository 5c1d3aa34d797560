// See keyed_hash.h. SipHash, by libsodium.
#include "keyed_hash.h"

#include <sodium/crypto_shorthash_siphash24.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace kivod {

static_assert(sizeof(KeyedHash) == crypto_shorthash_siphash24_KEYBYTES);

KeyedHash::KeyedHash() : key_() {
  if (getentropy(key_.data(), key_.size()) != 0) {
    throw std::system_error(errno, std::generic_category(), "no random numbers");
  }
}

size_t KeyedHash::operator()(std::string_view bytes) const noexcept {
  std::array<unsigned char, crypto_shorthash_siphash24_BYTES> digest;
  crypto_shorthash_siphash24(digest.data(), reinterpret_cast<const unsigned char *>(bytes.data()),
                             bytes.size(), key_.data());
  size_t hash = 0;
  std::memcpy(&hash, digest.data(), sizeof hash);
  return hash;
}

size_t KeyedHash::operator()(uint32_t number) const noexcept {
  return (*this)(std::string_view(reinterpret_cast<const char *>(&number), sizeof number));
}

}  // namespace kivod
