// The library's tracing vocabulary: its two trace classes, the shadow store's levels, and the gate.
// Every other room traces through the macros below: the facility is asked first, then the debug
// flags; the arguments are worked out only when both agree.
#pragma once

#include <cstdint>

#include "kivo/debug.h"
#include "platform/error_text.h"
#include "platform/trace.h"
#include "trace_messages.h"

namespace kivo {

inline constexpr uint32_t kErrorLevel = 3;
inline constexpr uint32_t kEventLevel = 6;

// Levels of the shadow store, under the host application's module.
inline constexpr uint32_t kShadowFailure = 3;
inline constexpr uint32_t kShadowProgress = 7;
inline constexpr uint32_t kShadowDetail = 8;

// The gate, for calls inside the library.
bool gate_is_open(uint32_t kind, bool honour_error) noexcept;

inline bool wants_error_trace() noexcept {
  return trace_enabled(kivo_trace_id, kErrorLevel) && gate_is_open(KIVO_DEBUG_KIND_ERROR, true);
}

// The first half of the question: for short functions, which leave the rest, and the trace, to
// another that is called for it.
inline bool facility_wants_events() noexcept { return trace_enabled(kivo_trace_id, kEventLevel); }

inline bool wants_event_trace() noexcept {
  return facility_wants_events() && gate_is_open(KIVO_DEBUG_KIND_EVENT, true);
}

// A name for a trace; a null one is the empty text.
inline const char *name_or_empty(const char *name) noexcept { return name != nullptr ? name : ""; }

}  // namespace kivo

#define kivo_trace_error(message, ...)                                  \
  do {                                                                  \
    if (::kivo::wants_error_trace())                                    \
      trace_write(kivo_trace_id, ::kivo::kErrorLevel, (message).number, \
                  (message).text __VA_OPT__(, ) __VA_ARGS__);           \
  } while (0)

#define kivo_trace_event(message, ...)                                  \
  do {                                                                  \
    if (::kivo::wants_event_trace())                                    \
      trace_write(kivo_trace_id, ::kivo::kEventLevel, (message).number, \
                  (message).text __VA_OPT__(, ) __VA_ARGS__);           \
  } while (0)

#define kivo_trace_shadow(level, message, ...)                      \
  do {                                                              \
    if (trace_enabled(TRACE_MODULE_HOST_APP, (level)))              \
      trace_write(TRACE_MODULE_HOST_APP, (level), (message).number, \
                  (message).text __VA_OPT__(, ) __VA_ARGS__);       \
  } while (0)
