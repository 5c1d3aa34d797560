/* Trace facility: numbered records with a module, a level, an indent and a formatted text, handed
 * to the sinks that the process adds.
 *
 * Conventions:
 * 1. Levels follow syslog: 0 emergency, 3 error, 4 warning, 5 notice, 6 information, 7 debug,
 *    8 detail. A record is written when its level does not exceed the module's; level 0 always.
 * 2. A trace preserves errno, allocates nothing and cannot fail. A text is cut at
 *    TRACE_TEXT_MAX - 1 bytes.
 * 3. Callers ask trace_enabled() first, so that arguments of an unwanted trace cost nothing.
 *    trace_write() itself does not ask again. */
#ifndef PLATFORM_TRACE_H
#define PLATFORM_TRACE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "platform/export.h"

#define TRACE_MODULES       2048u /* module ids are 0 to 2047; 0 is nobody's */
#define TRACE_LEVEL_DEFAULT 5u
#define TRACE_LEVEL_MAX     8u
#define TRACE_TEXT_MAX      1024u
#define TRACE_INDENT_MAX    32u
#define TRACE_SINKS_MAX     16u

/* What the ready-made sinks that write lines pass on: see below. */
#define TRACE_LIMIT_RECORDS 20u
#define TRACE_LIMIT_S       10u
#define TRACE_LIMIT_LEVEL   5u
#define TRACE_LIMIT_KINDS   256u

/* Fixed module ids (see zel_debug_modules in subsys.h for the others). */
#define TRACE_MODULE_HOST_APP        UINT16_C(1024) /* the host application */
#define TRACE_MODULE_REQUEST_HANDLER UINT16_C(1025) /* handlers of the request channel */
#define TRACE_MODULE_PLATFORM        UINT16_C(1026) /* the platform's own */

/* Level of each module; read by trace_enabled() only, written by trace_set_level(). */
PLATFORM_API uint8_t trace_levels[TRACE_MODULES];

/* 1 when a record of this module and level is wanted. One load and a compare. */
static inline int trace_enabled(uint16_t module, uint32_t level) {
  return level <= trace_levels[module & (TRACE_MODULES - 1u)];
}

/* Sets the level of one module. A module of TRACE_MODULES or more is taken modulo TRACE_MODULES, as
 * by trace_enabled(); a level above 255 counts as 255. */
PLATFORM_API void trace_set_level(uint16_t module, uint32_t level) PLATFORM_NOEXCEPT;

/* Sets the level of every module. */
PLATFORM_API void trace_set_all_levels(uint32_t level) PLATFORM_NOEXCEPT;

/* A record as the sinks see it; valid during the call of the sink only. */
typedef struct trace_record {
  uint64_t sequence; /* 1 for the first record of the process */
  uint64_t time_ns;  /* CLOCK_REALTIME */
  uint16_t module;
  uint16_t indent; /* scopes open, 0 to TRACE_INDENT_MAX */
  uint32_t level;
  uint32_t number;  /* of the message, within its module */
  const char *text; /* NUL-terminated, without indent and line end */
  size_t length;    /* of the text, without the NUL */
} trace_record;

/* Writes a record: formats the text as printf does and hands it to every sink.
 * A null fmt is the empty text. A trace written from inside a sink or its flush is dropped, and not
 * numbered. Costs little without sinks: nothing is formatted then. */
PLATFORM_API void trace_write(uint16_t module, uint32_t level, uint32_t number, const char *fmt,
                              ...) PLATFORM_NOEXCEPT __attribute__((format(printf, 4, 5)));
PLATFORM_API void trace_vwrite(uint16_t module, uint32_t level, uint32_t number, const char *fmt,
                               va_list args) PLATFORM_NOEXCEPT
    __attribute__((format(printf, 4, 0)));

/* Writes a further record under the module and level of the one written last (module 0 and
 * TRACE_LEVEL_DEFAULT when there was none). Does not ask trace_enabled() either. */
PLATFORM_API void trace_follow_on(uint32_t number, const char *fmt, ...) PLATFORM_NOEXCEPT
    __attribute__((format(printf, 2, 3)));

/* Opens and closes a scope: records within are indented by one. Unbalanced calls stop at 0 and at
 * TRACE_INDENT_MAX shown; what is pushed beyond the maximum is counted, so that pops balance. */
PLATFORM_API void trace_indent_push(void) PLATFORM_NOEXCEPT;
PLATFORM_API void trace_indent_pop(void) PLATFORM_NOEXCEPT;

/* A sink: called for every record, in the order of adding, on the writer's own thread. It must not
 * block for long, and not add or remove sinks. */
typedef void (*trace_sink)(const trace_record *record, void *arg);
typedef void (*trace_sink_flush)(void *arg);

/* Adds a sink; flush may be null. The same function may be added with several args.
 * Returns 0; AAA_ERR_INVALID_ARG for a null sink; AAA_ERR_NO_ROOM beyond TRACE_SINKS_MAX. */
PLATFORM_API uint32_t trace_add_sink(trace_sink sink, trace_sink_flush flush,
                                     void *arg) PLATFORM_NOEXCEPT;
/* Removes the sink that was added with these two; nothing when there is none. */
PLATFORM_API void trace_remove_sink(trace_sink sink, void *arg) PLATFORM_NOEXCEPT;
/* Calls every sink's flush. The ready-made ones tell there what they left out. */
PLATFORM_API void trace_flush(void) PLATFORM_NOEXCEPT;

/* Ready-made sinks.
 *
 * The stream's and syslog's bound what peers can have written: of one module and number they pass
 * on at most TRACE_LIMIT_RECORDS records of levels 0 to TRACE_LIMIT_LEVEL in TRACE_LIMIT_S seconds,
 * counted from the first one, by the records' own times. Then the next record of whatever kind, a
 * flush, or the sink's removal tells what was left out, in a line of the platform's module, number
 * 2 and the level of the most severe:
 *   2024-02-29T23:59:59.000001Z [platform] error 2: records of [host] 1014 left out: 4980
 * Each sink keeps account of TRACE_LIMIT_KINDS kinds, more than the library, the platform and their
 * daemon have; one is given up when its seconds are over and what was left out of it is told. What
 * finds no account, with a host of more, shares one, whose line says "of other kinds": so these are
 * bounded too, but together. Higher levels, the ring and the process's own sinks get everything. */

/* One line a record to a stream: time in UTC, module, level name, number, text, two blanks a scope:
 *   2024-02-29T23:59:59.000001Z [module 1924] error 12:   text
 * The fixed modules are shown by name ("host", "request handler", "platform"), levels as emergency,
 * alert, critical, error, warning, notice, info, debug, detail, and level-N above them. Control
 * characters of the text are shown as \xNN.
 *
 * Never waits for whoever reads the lines, nor does its flush. On a pipe, a socket or a terminal a
 * line for which there is no room, or which cannot be written, is lost and counted, and the count
 * is the first line once there is room (platform's module, level 4, number 3):
 *   2024-02-29T23:59:59.000001Z [platform] warning 3: lines lost for want of room: 12
 * A line that was cut is ended before anything follows it, unless another file has taken the place
 * of that with its beginning; then it is lost as well. The flags of the descriptor, which other
 * processes may share, stay as they are. What the process itself left in the stream's buffer goes
 * first, as soon as there is room for it; more than PIPE_BUF bytes of it are for the process to
 * flush, and lines are lost until then. Into files, and streams without a descriptor, lines go
 * through the stream and its buffer. One case remains in which a line can wait: another user's pipe
 * before Linux 6.4, when another process takes the room in the moment between question and write,
 * and another user's terminal that is not the controlling one.
 * Costs two system calls a line; five or six on a terminal, and on a pipe before Linux 6.4.
 *
 * The caller owns the stream and removes the sink before closing it; removing flushes. Returns as
 * trace_add_sink() does; AAA_ERR_INVALID_ARG for null; AAA_ERR_NO_MEMORY. */
PLATFORM_API uint32_t trace_add_stream_sink(FILE *stream) PLATFORM_NOEXCEPT;
PLATFORM_API void trace_remove_stream_sink(FILE *stream) PLATFORM_NOEXCEPT;

/* syslog(3) with the level as priority (7 above it): module, number and text as above. The caller
 * has called openlog(). The C library may block in syslog() when the system's log is not read; a
 * process that must not wait for it writes to a stream. Added twice it is there once. Returns as
 * trace_add_sink() does. Removing flushes. */
PLATFORM_API uint32_t trace_add_syslog_sink(void) PLATFORM_NOEXCEPT;
PLATFORM_API void trace_remove_syslog_sink(void) PLATFORM_NOEXCEPT;

/* A ring of the last records, in memory of its own.
 * n_records  1 to 65,536; texts are kept up to 255 bytes.
 * Returns null for a bad count, without memory, or when there is no room for a sink. */
typedef struct trace_ring trace_ring;
PLATFORM_API trace_ring *trace_ring_create(uint32_t n_records) PLATFORM_NOEXCEPT;
/* Takes the ring out of the sinks and frees it; null is accepted. */
PLATFORM_API void trace_ring_destroy(trace_ring *ring) PLATFORM_NOEXCEPT;
/* Hands the ring's records to fn, oldest first. Records that come in meanwhile are not visited. */
PLATFORM_API void trace_ring_walk(const trace_ring *ring, trace_sink fn,
                                  void *arg) PLATFORM_NOEXCEPT;

/* A broken precondition that the process must not survive: writes a level 0 record that names the
 * condition and the place, flushes the sinks and aborts, in every kind of build. Without a sink, or
 * from inside one, the text goes to standard error. Null texts are accepted. */
PLATFORM_API void fatal_stop(const char *condition, const char *file,
                             uint32_t line) PLATFORM_NOEXCEPT __attribute__((noreturn));

#endif
