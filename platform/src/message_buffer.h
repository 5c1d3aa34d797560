// Bytes on their way through a connection: appended at the end, consumed from the front, bounded.
// Frames lie in it as they do on the wire: four bytes of length, most significant first, and the
// bytes of the message.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kivo_platform {

inline constexpr std::size_t kFrameHead = 4;

// What the front of a buffer is.
enum class FrontFrame { kWhole, kPartial, kBad };

}  // namespace kivo_platform

struct message_buffer {
 public:
  explicit message_buffer(std::size_t most) noexcept : most_(most) {}

  // Room for n more bytes behind the last, to be filled by the caller. Null when that would be more
  // than the bound; also without memory, and then out_of_memory() tells.
  std::uint8_t *extend(std::size_t n) noexcept;
  // Takes the last n bytes of an extension back.
  void shorten(std::size_t n) noexcept { end_ -= n; }
  void consume(std::size_t n) noexcept;
  // Gives the memory of a large frame back once it is gone.
  void trim() noexcept;

  const std::uint8_t *data() const noexcept { return bytes_.get() + begin_; }
  std::size_t size() const noexcept { return end_ - begin_; }
  std::size_t room() const noexcept { return most_ - size(); }
  bool out_of_memory() const noexcept { return out_of_memory_; }

  // The frame at the front; its message begins kFrameHead bytes in and has message_size bytes.
  kivo_platform::FrontFrame front_frame(std::size_t &message_size) const noexcept;

 private:
  bool grow(std::size_t n) noexcept;

  std::size_t most_;
  std::unique_ptr<std::uint8_t[]> bytes_;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool out_of_memory_ = false;
};
