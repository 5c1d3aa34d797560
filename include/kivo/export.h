/* Linkage of the library's exported names, and the status type's values.
 *
 * Conventions of all headers in this folder:
 * 1. Operations return an unsigned 32-bit status, 0 for success (platform/status.h), unless they
 * say otherwise. "No match" is never an error.
 * 2. Pointers must not be null unless the argument says that they may be.
 * 3. A database handle (kivo_db) is valid for the life of the process; a record pointer until its
 *    record is deleted; a value pointer until that record is next written or deleted.
 * 4. The library starts no thread and takes no lock: the process serialises all calls.
 * 5. Change callbacks run inside the write that they announce. They may call back into the library:
 *    read, write, remove, register, create and delete other records, create the database anew. Only
 *    the record whose change is being announced must not be deleted.
 * 6. kivo_init() (startup.h) has run, through subsys_start(), before anything else is called. */
#ifndef KIVO_EXPORT_H
#define KIVO_EXPORT_H

#include <stdint.h>

#include "platform/status.h"

#ifdef __cplusplus
#define KIVO_API      extern "C" __attribute__((visibility("default")))
#define KIVO_NOEXCEPT noexcept
#else
#define KIVO_API extern __attribute__((visibility("default")))
#define KIVO_NOEXCEPT
#endif

#endif
