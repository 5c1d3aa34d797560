/* Everything that libkivo exports. See export.h for the conventions of all these headers. */
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
