// Start-up: the record handed to the process's registry at load, and the initialisation that the
// registry calls later.
#include "kivo/startup.h"

#include "kivo/debug.h"
#include "kivo/index_list.h"
#include "kivo/shadow_db.h"
#include "platform/attrdb.h"
#include "platform/subsys.h"

namespace {

constexpr subsys_record kivo_subsys_record = {
    .version = 2,
    .name = "kivo",
    .phase = 1,
    .enabled = 1,
    .start = kivo_init,
    .priority = 10,
    .reserved = {},
};

[[gnu::constructor]] void register_subsystem() noexcept { subsys_enqueue(&kivo_subsys_record); }

}  // namespace

void kivo_trace_init(void) noexcept {}

void kivo_init(void) noexcept {
  kivo_trace_id = zel_debug_modules[KIVO_TRACE_MODULE_SLOT];
  kivo_attr_trace_id = zel_debug_modules[KIVO_ATTR_TRACE_MODULE_SLOT];
  attrdb_init();
  kivo_trace_init();
  kivo_index_list_hashtable_init();
  kivo_shadowdb_init();
}
