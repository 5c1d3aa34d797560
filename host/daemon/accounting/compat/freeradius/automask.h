/*
 * Stands in for a header that <freeradius/autoconf.h> includes and that Debian's libfreeradius-dev
 * does not ship. Upstream generates it to mask warnings while building the server itself; nothing
 * in it matters to a program that links the library, so it is empty here.
 */
