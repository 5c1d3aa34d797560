// The three operations of the KIVO library that the platform calls, the only ones. The references
// are weak: each is null in a process without the library, and every use asks first.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>

struct kivo_index_list;
struct shadowdb_rec;

extern "C" {

// Appends labels to a label set. Returns 0, 1 without memory, 2 for a handle that is none.
__attribute__((weak)) std::uint32_t kivo_index_list_add_many(kivo_index_list **list,
                                                             const std::uint32_t *labels,
                                                             std::uint32_t count);

// A session's shadow record; null without memory.
__attribute__((weak)) shadowdb_rec *shadowdb_alloc_record(std::uint32_t label);
__attribute__((weak)) std::uint32_t shadowdb_destroy_record(shadowdb_rec *record);

}  // extern "C"
