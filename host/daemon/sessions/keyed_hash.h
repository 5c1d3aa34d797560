// Hash of what peers choose, for the tables of the standard library: under a key that nobody
// outside knows, nobody can choose names that meet in one bucket. Threads: none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kivod {

class KeyedHash {
 public:
  // Draws a key from the system's random source; throws std::system_error when there is none.
  KeyedHash();

  size_t operator()(std::string_view bytes) const noexcept;
  size_t operator()(uint32_t number) const noexcept;

 private:
  std::array<unsigned char, 16> key_;
};

}  // namespace kivod
