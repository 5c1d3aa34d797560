/* All of the library's interface. What a program needs to know of it stands in these headers:
 *
 *   export.h             conventions of them all: statuses, pointers, threads, callbacks
 *   startup.h            how the process brings the library to life
 *   database.h           databases, their attribute types, the change callback
 *   notification.h       who hears of which changes; the old value
 *   records.h            create, fetch, delete, find by one value
 *   attribute_write.h    write attributes, one by one or as lists
 *   attribute_removal.h  remove them
 *   attribute_read.h     read them
 *   shadow_db.h          external identities
 *   query.h              find by several values, or all
 *   index_list.h         label sets, in which queries answer
 *   display.h, fetch.h   the database on a console, and as texts for a reply
 *   show_request.h       answering the shell's requests
 *   debug.h              the library's traces
 *
 * Records, attribute lists, handles, statuses and the start are the platform's, by these headers of
 * its own: attrdb.h, aaa.h, aaa_dictionary.h, auth_mgr_idc.h, queue.h, status.h, error_text.h,
 * subsys.h, trace.h, console.h, channel.h, channel_server.h, channel_client.h, messages.h. The
 * others there (chunk.h, hash_table.h, named_alloc.h) serve the library; a program may use them.
 *
 * A program links both libraries, -lkivo -lkivo_platform: it calls both by name. */
#ifndef KIVO_KIVO_H
#define KIVO_KIVO_H

#include "kivo/attribute_read.h"
#include "kivo/attribute_removal.h"
#include "kivo/attribute_write.h"
#include "kivo/database.h"
#include "kivo/debug.h"
#include "kivo/display.h"
#include "kivo/fetch.h"
#include "kivo/index_list.h"
#include "kivo/notification.h"
#include "kivo/query.h"
#include "kivo/records.h"
#include "kivo/shadow_db.h"
#include "kivo/show_request.h"
#include "kivo/startup.h"

#endif
