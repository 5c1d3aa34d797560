// Memory of the store's arrays and attribute blocks: chunks of some kilobytes, cut from slabs that
// grow with the use made of them, from 64 KiB to 2 MiB. Slabs of 2 MiB are huge pages where the
// system has them, and a look-up among a million sessions then misses the TLB far less.
// A slab is never given back: the store keeps what it once used. Chunks that are given back wait
// for the next of their size.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>

namespace kivo_platform {

inline constexpr std::size_t kChunkAlignment = 64;

// A chunk of `bytes`, a multiple of kChunkAlignment up to 64 KiB, aligned to kChunkAlignment;
// contents undefined. Null without memory.
void *take_chunk(std::size_t bytes) noexcept;
void give_chunk(void *chunk, std::size_t bytes) noexcept;

}  // namespace kivo_platform
