// Debug flags, module ids, the gate, and the formatter of prefixed debug messages.
// The flags are plain words that the process may change at any time. The gate reads them afresh for
// each trace, through kivo_debug_level: whoever repoints an element redirects it.
#include "trace.h"

#include <cstdarg>
#include <cstdio>

#include "alloc_tags.h"
#include "platform/named_alloc.h"

uint16_t kivo_trace_id = 0;
uint16_t kivo_attr_trace_id = 0;

int32_t kivo_debug_level_all = 0;
int32_t kivo_debug_level_error = 0;
int32_t kivo_debug_level_event = 0;
int32_t *kivo_debug_level[4] = {nullptr, &kivo_debug_level_all, &kivo_debug_level_error,
                                &kivo_debug_level_event};

int32_t attrdb_debug_level_all = 0;
int32_t attrdb_debug_level_error = 0;
int32_t attrdb_debug_level_event = 0;
int32_t attrdb_debug_level_compare = 0;
int32_t sh_attrdb_debug_level_all = 0;
int32_t sh_attrdb_debug_level_error = 0;
int32_t sh_attrdb_debug_level_event = 0;

namespace {

constexpr uint32_t kLevelAll = 1;
constexpr uint32_t kLevelError = 2;
constexpr uint32_t kKinds = 4;
constexpr const char *kivo_debug_names[kKinds] = {"", "KIVO:ALL", "KIVO:ERROR", "KIVO:EVENT"};
constexpr uint32_t kivo_debug_kind_map[kKinds] = {1, 1, 2, 3};

constexpr size_t kMessageSize = 512;

bool flag_is_on(uint32_t level) noexcept { return *kivo_debug_level[level] != 0; }

// Writes the prefix and returns its length.
size_t write_prefix(char *text, uint32_t kind, uint64_t line) noexcept {
  const char *name = kivo_debug_names[kind < kKinds ? kind : 0];
  const int length = line != 0
                         ? std::snprintf(text, kMessageSize, "[%s:%s:%lu] ", "KIVO", name, line)
                         : std::snprintf(text, kMessageSize, "[%s:%s] ", "KIVO", name);
  return length > 0 ? static_cast<size_t>(length) : 0;
}

}  // namespace

namespace kivo {

bool gate_is_open(uint32_t kind, bool honour_error) noexcept {
  if (flag_is_on(kLevelAll)) return true;
  if (honour_error && flag_is_on(kLevelError)) return true;
  if (kind >= kKinds) return false;
  return flag_is_on(kivo_debug_kind_map[kind]);
}

}  // namespace kivo

uint32_t kivo_debugging_all_on(void) noexcept { return kivo_debug_level_all != 0 ? 1 : 0; }

uint32_t kivo_debugging_event_active(uint32_t kind, uint32_t honour_error) noexcept {
  return kivo::gate_is_open(kind, honour_error != 0) ? 1 : 0;
}

void kivo_buginf(uint32_t kind, uint64_t line, const char *format, ...) noexcept {
  auto *text =
      static_cast<char *>(NAMED_ZALLOC(kivo::kTagDebugMessage, "kivo debug message", kMessageSize));
  if (text == nullptr) return;
  const size_t prefix = write_prefix(text, kind, line);
  va_list args;
  va_start(args, format);
  std::vsnprintf(text + prefix, kMessageSize - prefix, format, args);
  va_end(args);
  if (trace_enabled(kivo_trace_id, kivo::kEventLevel) && kivo::gate_is_open(kind, true)) {
    trace_write(kivo_trace_id, kivo::kEventLevel, kivo::msg::kDebugMessage.number,
                kivo::msg::kDebugMessage.text, text);
  }
  named_free(text);
}
