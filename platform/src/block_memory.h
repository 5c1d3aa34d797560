// Memory of attribute blocks: size classes in steps of 32 bytes up to 512, coarser ones up to
// 4,096, cut from chunks that stay with the process, and general memory above. A block remembers
// its size, so none has a header here.
// Invariant: a block goes back with the size that it was taken with.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>

namespace kivo_platform {

// The size that a block for this many bytes would have.
std::uint32_t block_memory_size(std::uint32_t bytes) noexcept;

// A block of a size that block_memory_size() gave, aligned to 32 bytes (general memory: to 16);
// null without memory. Contents are undefined.
void *take_block_memory(std::uint32_t size) noexcept;
void give_block_memory(void *block, std::uint32_t size) noexcept;

}  // namespace kivo_platform
