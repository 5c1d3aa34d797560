/* Debug flags, trace module ids and the gate that the library's traces pass.
 *
 * The library's traces come in two classes: error traces (level 3) and event traces (level 6). One
 * is written when the trace facility wants the level for kivo_trace_id and then the gate is open.
 * So a program that wants to see them all says after the start, with platform/trace.h:
 *   trace_add_stream_sink(stderr); trace_set_level(kivo_trace_id, 6); kivo_debug_level_all = 1;
 *
 * The shadow store and the request service trace under the host application's module instead,
 * without the gate. */
#ifndef KIVO_DEBUG_H
#define KIVO_DEBUG_H

#include "kivo/export.h"

/* Trace module ids, 0 until kivo_init() has run: the library's own, and one for its attribute
 * traces that nothing in the library reads. */
KIVO_API uint16_t kivo_trace_id;
KIVO_API uint16_t kivo_attr_trace_id;

/* The debug flags "KIVO:ALL", "KIVO:ERROR" and "KIVO:EVENT": 0 at load, nonzero is on. Switched by
 * the process, at any time. ERROR opens the gate for event traces too. */
KIVO_API int32_t kivo_debug_level_all;
KIVO_API int32_t kivo_debug_level_error;
KIVO_API int32_t kivo_debug_level_event;

/* Where the gate reads the flags: null, ALL, ERROR, EVENT. Whoever repoints an element (never to null)
 * redirects the gate. */
KIVO_API int32_t *kivo_debug_level[4];

/* Flag words of other modules, 0 at load; the library neither reads nor writes them. */
KIVO_API int32_t attrdb_debug_level_all;
KIVO_API int32_t attrdb_debug_level_error;
KIVO_API int32_t attrdb_debug_level_event;
KIVO_API int32_t attrdb_debug_level_compare;
KIVO_API int32_t sh_attrdb_debug_level_all;
KIVO_API int32_t sh_attrdb_debug_level_error;
KIVO_API int32_t sh_attrdb_debug_level_event;

/* Kinds of debug messages, for the two operations below. */
#define KIVO_DEBUG_KIND_NONE  UINT32_C(0) /* follows ALL, without a name */
#define KIVO_DEBUG_KIND_ALL   UINT32_C(1)
#define KIVO_DEBUG_KIND_ERROR UINT32_C(2)
#define KIVO_DEBUG_KIND_EVENT UINT32_C(3)

/* 1 when kivo_debug_level_all is on, wherever the gate reads it; else 0. */
KIVO_API uint32_t kivo_debugging_all_on(void) KIVO_NOEXCEPT;

/* The gate: 1 when a message of this kind is to be written.
 * kind          a KIVO_DEBUG_KIND_*; greater ones pass only by ALL, or by ERROR as below.
 * honour_error  nonzero: the flag ERROR opens the gate for every kind.
 * Reads at most three flags. */
KIVO_API uint32_t kivo_debugging_event_active(uint32_t kind, uint32_t honour_error) KIVO_NOEXCEPT;

/* Formats a debug message "[KIVO:name:line] text", cut at 511 characters, and traces it under
 * kivo_trace_id at level 6 when the facility wants that and the gate is open for kind.
 * kind    a KIVO_DEBUG_KIND_*, the flag that the prefix names; above 3 the name is empty.
 * line    of the caller; 0 leaves it out of the prefix.
 * format  as for printf(3), with its arguments.
 * Without memory for the text nothing is written. */
KIVO_API void kivo_buginf(uint32_t kind, uint64_t line, const char *format, ...) KIVO_NOEXCEPT
    __attribute__((format(printf, 3, 4)));

#endif
