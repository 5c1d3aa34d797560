// An array that grows by whole chunks: elements never move, and the number of an element gives its
// address by arithmetic. Under the session slots, the hash tables, the label sets and the pools of
// postings.
// Invariants: elements [0, capacity()) are constructed; growing either adds a chunk or changes
// nothing. No destructor: process-wide arrays outlive everything; release() gives it all back.
// Threads: none; the process serialises all calls.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "slabs.h"

namespace kivo_platform {

template <typename T, std::uint32_t kPerChunk>
class ChunkedArray {
  static_assert(std::has_single_bit(kPerChunk));
  static_assert(sizeof(T) * kPerChunk % kChunkAlignment == 0 && alignof(T) <= kChunkAlignment);

 public:
  constexpr ChunkedArray() noexcept = default;
  ChunkedArray(const ChunkedArray &) = delete;
  ChunkedArray &operator=(const ChunkedArray &) = delete;

  T &operator[](std::uint32_t i) noexcept { return chunks_[i / kPerChunk][i % kPerChunk]; }
  const T &operator[](std::uint32_t i) const noexcept {
    return chunks_[i / kPerChunk][i % kPerChunk];
  }

  std::uint32_t capacity() const noexcept { return chunk_count_ * kPerChunk; }

  // Adds kPerChunk value-initialised elements; false without memory or beyond kMaxElements.
  [[nodiscard]] bool grow() noexcept {
    if (chunk_count_ == kMaxElements / kPerChunk || !grow_directory()) return false;
    void *chunk = take_chunk(sizeof(T) * kPerChunk);
    if (chunk == nullptr) return false;
    auto *elements = static_cast<T *>(chunk);
    std::uninitialized_value_construct_n(elements, kPerChunk);
    chunks_[chunk_count_++] = elements;
    return true;
  }

  void release() noexcept {
    for (std::uint32_t i = 0; i < chunk_count_; ++i) {
      std::destroy_n(chunks_[i], kPerChunk);
      give_chunk(chunks_[i], sizeof(T) * kPerChunk);
    }
    ::operator delete(chunks_);
    chunks_ = nullptr;
    chunk_count_ = directory_size_ = 0;
  }

 private:
  // So that a number plus 1, and twice a number, are numbers too.
  static constexpr std::uint32_t kMaxElements = UINT32_C(1) << 31;

  bool grow_directory() noexcept {
    if (chunk_count_ < directory_size_) return true;
    const std::uint32_t size = std::max(UINT32_C(16), directory_size_ * 2);
    auto **directory = static_cast<T **>(::operator new(size * sizeof(T *), std::nothrow));
    if (directory == nullptr) return false;
    std::copy_n(chunks_, chunk_count_, directory);
    ::operator delete(chunks_);
    chunks_ = directory;
    directory_size_ = size;
    return true;
  }

  T **chunks_ = nullptr;
  std::uint32_t chunk_count_ = 0;
  std::uint32_t directory_size_ = 0;
};

}  // namespace kivo_platform
