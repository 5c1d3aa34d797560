/* Registry of the subsystems that a process loads, and the table of trace module ids.
 *
 * A library hands its record to subsys_enqueue() from a load-time constructor, before main; the
 * process calls subsys_start() once it is ready, which runs the entries in order. Nothing here
 * allocates: records are static objects of the libraries that own them. */
#ifndef PLATFORM_SUBSYS_H
#define PLATFORM_SUBSYS_H

#include <stdint.h>

#include "platform/export.h"

#define SUBSYS_RECORD_VERSION 2u  /* the layout below */
#define SUBSYS_MAX            64u /* records that the registry holds */

/* One subsystem: 64-bit words, in the address space of the process. Never written by the registry.
 */
typedef struct subsys_record {
  uint64_t version; /* SUBSYS_RECORD_VERSION */
  const char *name; /* static text, for traces */
  uint64_t phase;   /* start phase, 1 first */
  uint64_t enabled; /* 0: registered, but not started */
  void (*start)(void);
  uint64_t priority;    /* within a phase: smaller first; equal ones in the order of registration */
  uint64_t reserved[4]; /* 0 */
} subsys_record;

/* Registers a record; works before main. The record must live as long as the process.
 * Returns 0; AAA_ERR_INVALID_ARG for null, another version or no start function; AAA_ERR_NO_ROOM
 * beyond SUBSYS_MAX. A record that is registered already is not registered twice (status 0). */
PLATFORM_API uint32_t subsys_enqueue(const subsys_record *record) PLATFORM_NOEXCEPT;

/* Runs the start function of every enabled record that has not run yet, by phase, then priority.
 * What a start function registers runs in the same call, in its place among what is left. A later
 * call runs only what was registered or enabled since; a call from inside a start function runs
 * nothing. Returns the number of functions run. */
PLATFORM_API uint32_t subsys_start(void) PLATFORM_NOEXCEPT;

#define ZEL_DEBUG_MODULES 2048u

/* Trace module id of every module slot of the process, filled at load: slot n has the id n.
 * The process may rewrite it before subsys_start(); ids are 0 to TRACE_MODULES - 1 (trace.h). */
PLATFORM_API uint16_t zel_debug_modules[ZEL_DEBUG_MODULES];

#endif
