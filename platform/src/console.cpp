// The operator's console stream: the variable alone. The host points it at the stream of the
// command that runs; the library reads it anew for every write. Nothing in the platform uses it.
#include "platform/console.h"

constinit FILE *devShZelConsoleFd = nullptr;
