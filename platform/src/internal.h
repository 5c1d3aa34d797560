// Hidden twins of exported operations, for calls from one platform file into another.
// Everything inside the platform calls these and never the exported name: an exported operation
// that a process replaces (a test that injects faults does) then sees the outside callers' calls
// only, with any compiler. The exported function is a one-line forwarder to its twin.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/named_alloc.h"
#include "platform/trace.h"

namespace kivo_platform {

// Twins of named_zalloc(), named_alloc() and named_free(); the same contract.
// A call site is a static object: static named_site site = NAMED_SITE("attribute block", kTag);
void *zalloc(named_site *site, std::size_t size) noexcept;
void *alloc(named_site *site, std::size_t size) noexcept;
void release(void *block) noexcept;

// The call site of a live block; null when the block is not live (given back, damaged, foreign).
// Reads the 16 bytes in front of the block.
const named_site *site_of(const void *block) noexcept;

// For pools that serve blocks of their own under a call site: enrol the site and count one block.
void count_taken(named_site *site, std::uint64_t bytes) noexcept;
void count_released(named_site *site, std::uint64_t bytes) noexcept;

// Twin of error_text().
const char *status_text(std::uint32_t status) noexcept;

// Tests the level and then writes: trace_enabled() and trace_write() in one. Arguments are
// evaluated in any case; where they cost something, ask trace_enabled() first.
void trace(std::uint16_t module, std::uint32_t level, std::uint32_t number, const char *fmt,
           ...) noexcept __attribute__((format(printf, 4, 5)));

// Twins of trace_add_sink() and trace_remove_sink().
std::uint32_t add_sink(trace_sink sink, trace_sink_flush flush, void *arg) noexcept;
void remove_sink(trace_sink sink, void *arg) noexcept;

// The time of the records: CLOCK_REALTIME, in nanoseconds.
std::uint64_t real_time_ns() noexcept;

// Twin of fatal_stop().
[[noreturn]] void stop(const char *condition, const char *file, std::uint32_t line) noexcept;

}  // namespace kivo_platform
