// Registry of subsystems and the table of trace module ids. Libraries call in from their load-time
// constructors, in an order that nobody fixes: everything here is constant-initialised data.
// Invariant: entries stand in the order of registration and are never removed; started says whose
// start function was called, and is set before the call, so that nothing runs twice.
// Threads: none; the process serialises all calls.
#include "platform/subsys.h"

#include "platform/status.h"

#define IDS_4(n)    (n), (n) + 1, (n) + 2, (n) + 3
#define IDS_16(n)   IDS_4(n), IDS_4((n) + 4), IDS_4((n) + 8), IDS_4((n) + 12)
#define IDS_64(n)   IDS_16(n), IDS_16((n) + 16), IDS_16((n) + 32), IDS_16((n) + 48)
#define IDS_256(n)  IDS_64(n), IDS_64((n) + 64), IDS_64((n) + 128), IDS_64((n) + 192)
#define IDS_1024(n) IDS_256(n), IDS_256((n) + 256), IDS_256((n) + 512), IDS_256((n) + 768)

constinit uint16_t zel_debug_modules[] = {IDS_1024(0), IDS_1024(1024)};
static_assert(sizeof zel_debug_modules == ZEL_DEBUG_MODULES * sizeof(uint16_t));

namespace {

struct Entry {
  const subsys_record *record;
  bool started;
};

constinit Entry g_entries[SUBSYS_MAX]{};
constinit uint32_t g_n_entries = 0;
constinit bool g_starting = false;

bool runs_before(const subsys_record &a, const subsys_record &b) noexcept {
  return a.phase != b.phase ? a.phase < b.phase : a.priority < b.priority;
}

// The entry to start next, null when there is none. Chosen anew each time: a start function may
// have registered records or enabled one.
Entry *next_to_start() noexcept {
  Entry *next = nullptr;
  for (uint32_t i = 0; i < g_n_entries; ++i) {
    Entry &entry = g_entries[i];
    if (entry.started || entry.record->enabled == 0) continue;
    if (next == nullptr || runs_before(*entry.record, *next->record)) next = &entry;
  }
  return next;
}

}  // namespace

uint32_t subsys_enqueue(const subsys_record *record) noexcept {
  if (record == nullptr || record->version != SUBSYS_RECORD_VERSION || record->start == nullptr) {
    return AAA_ERR_INVALID_ARG;
  }
  for (uint32_t i = 0; i < g_n_entries; ++i) {
    if (g_entries[i].record == record) return PLATFORM_OK;
  }
  if (g_n_entries == SUBSYS_MAX) return AAA_ERR_NO_ROOM;
  g_entries[g_n_entries++] = {record, false};
  return PLATFORM_OK;
}

uint32_t subsys_start(void) noexcept {
  if (g_starting) return 0;
  g_starting = true;
  uint32_t n_run = 0;
  while (Entry *entry = next_to_start()) {
    entry->started = true;
    entry->record->start();
    ++n_run;
  }
  g_starting = false;
  return n_run;
}
