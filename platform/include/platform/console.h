/* The operator's console stream. The process owns the variable and points it at the stream of the
 * command that runs; whoever writes to the console reads it anew for every single write. */
#ifndef PLATFORM_CONSOLE_H
#define PLATFORM_CONSOLE_H

#include <stdio.h>

#include "platform/export.h"

/* Null at load: standard output then. The platform never writes to it and never closes it. */
PLATFORM_API FILE *devShZelConsoleFd;

#endif
