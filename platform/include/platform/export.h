/* Linkage of the platform's exported names. Every public header of the platform includes this one.
 * PLATFORM_API marks an exported name: C linkage, default visibility, everything else is hidden.
 * PLATFORM_NOEXCEPT says to C++ callers that no exception leaves the operation.
 * Threads: the platform starts none and locks nothing; the process serialises all calls. */
#ifndef PLATFORM_EXPORT_H
#define PLATFORM_EXPORT_H

#ifdef __cplusplus
#define PLATFORM_API      extern "C" __attribute__((visibility("default")))
#define PLATFORM_NOEXCEPT noexcept
#else
#define PLATFORM_API extern __attribute__((visibility("default")))
#define PLATFORM_NOEXCEPT
#endif

#endif
