/* Linkage of the library's exported names, and the status type's values.
 *
 * Conventions of all headers in this folder:
 * 1. Operations return an unsigned 32-bit status, 0 for success (platform/status.h), unless they
 *    say otherwise. "No match" is never an error. error_text() (platform/error_text.h) has a text
 *    for every status.
 * 2. Pointers must not be null unless the argument says that they may be. Where a status for null
 *    is named it is returned; elsewhere a null pointer is not noticed.
 * 3. A database handle (kivo_db) is valid for the life of the process; a record pointer until its
 *    record is deleted; a value pointer until that record is next written or deleted.
 * 4. Arguments are read during the call only, and outputs stay untouched on error, unless the
 *    operation says otherwise.
 * 5. The library starts no thread and takes no lock: the process serialises all calls.
 * 6. Change callbacks run inside the write that they announce. They may call back into the library:
 *    read, write, remove, query, register, create and delete other records, create the database
 *    anew. Only a record whose change is being announced, to this callback or to one around it,
 *    must not be deleted. What a callback writes is announced in its turn, inside the callback.
 * 7. kivo_init() (startup.h) has run, through subsys_start(), before anything else is called. */
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
