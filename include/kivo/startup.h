/* Start-up: how the process brings the library to life. Loading the library enrols a record named
 * "kivo" in the process's registry of subsystems; subsys_start() (platform/subsys.h), which the
 * process calls once, before anything else of the library, then calls kivo_init(). There is no
 * shutdown. */
#ifndef KIVO_STARTUP_H
#define KIVO_STARTUP_H

#include "kivo/export.h"

/* Slots of zel_debug_modules that hold the library's trace module ids. */
#define KIVO_TRACE_MODULE_SLOT      1924u
#define KIVO_ATTR_TRACE_MODULE_SLOT 1944u

/* Takes the trace module ids, initialises the record store, makes the hash table of the label sets
 * and the value pool of the shadow store. Reports nothing: what fails here shows as failures of the
 * operations that need it. */
KIVO_API void kivo_init(void) KIVO_NOEXCEPT;

/* The hook for setting up traces; does nothing. Called by kivo_init(). */
KIVO_API void kivo_trace_init(void) KIVO_NOEXCEPT;

#endif
