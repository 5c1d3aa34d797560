/*
 * Stands in for the header of PCRE, which <freeradius/regex.h> of libfreeradius 3.2.1 (Debian 12)
 * includes for two types that it points to. Nothing here uses the library's regular expressions,
 * and later releases include it no more, as PCRE is gone from Debian 13.
 */
typedef struct real_pcre pcre;
typedef struct pcre_extra pcre_extra;
