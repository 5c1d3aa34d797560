// See message_buffer.h.
#include "message_buffer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/messages.h"

using kivo_platform::FrontFrame;
using kivo_platform::kFrameHead;

namespace {
constexpr std::size_t kCapacityMin = 1024;
constexpr std::size_t kCapacityKept = 16384;
}  // namespace

std::uint8_t *message_buffer::extend(std::size_t n) noexcept {
  out_of_memory_ = false;
  if (n > room() || !grow(n)) return nullptr;
  std::uint8_t *const added = bytes_.get() + end_;
  end_ += n;
  return added;
}

bool message_buffer::grow(std::size_t n) noexcept {
  if (capacity_ - end_ >= n) return true;
  const std::size_t used = size();
  const std::size_t wanted = used + n;
  if (wanted > capacity_) {
    const std::size_t capacity = std::max({kCapacityMin, wanted, std::min(2 * capacity_, most_)});
    std::unique_ptr<std::uint8_t[]> bytes(new (std::nothrow) std::uint8_t[capacity]);
    if (bytes == nullptr) {
      out_of_memory_ = true;
      return false;
    }
    if (used != 0) std::memcpy(bytes.get(), data(), used);
    bytes_ = std::move(bytes);
    capacity_ = capacity;
  } else {
    std::memmove(bytes_.get(), data(), used);
  }
  begin_ = 0;
  end_ = used;
  return true;
}

void message_buffer::consume(std::size_t n) noexcept {
  begin_ += n;
  if (begin_ == end_) begin_ = end_ = 0;
}

void message_buffer::trim() noexcept {
  if (size() != 0 || capacity_ <= kCapacityKept) return;
  bytes_.reset();
  capacity_ = 0;
}

FrontFrame message_buffer::front_frame(std::size_t &message_size) const noexcept {
  if (size() < kFrameHead) return FrontFrame::kPartial;
  const std::uint8_t *head = data();
  message_size = std::size_t{head[0]} << 24 | std::size_t{head[1]} << 16 |
                 std::size_t{head[2]} << 8 | std::size_t{head[3]};
  if (message_size == 0 || message_size > MESSAGE_FRAME_MAX) return FrontFrame::kBad;
  return size() - kFrameHead < message_size ? FrontFrame::kPartial : FrontFrame::kWhole;
}
