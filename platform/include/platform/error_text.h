/* Text of a status, for traces and for people. One table, error_text.cpp; see status.h. */
#ifndef PLATFORM_ERROR_TEXT_H
#define PLATFORM_ERROR_TEXT_H

#include <stdint.h>

#include "platform/export.h"

/* The text of a status.
 * status  any value; 0 is "success". An unknown one gives "unknown status 0x%08x".
 *
 * Returns a NUL-terminated text of at most 63 characters, never null. A known text is static; an
 * unknown one lies in a ring of 8 static buffers and holds until the 8th unknown status after it.
 * Cost: a search in a table of some twenty rows. */
PLATFORM_API const char *error_text(uint32_t status) PLATFORM_NOEXCEPT;

#endif
