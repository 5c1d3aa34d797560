// What the request callback traces under the host application's module: number, level and text, one
// row each. Numbers are the callback's own, apart from those of trace_messages.h; tools that read
// traces know them.
#pragma once

#include <cstdint>

#include "platform/trace.h"

namespace kivo {

struct ReplyMessage {
  uint32_t number;
  uint32_t level;
  const char *text;
};

inline constexpr uint32_t kReplyFailure = 3;
inline constexpr uint32_t kReplyProgress = 7;
inline constexpr uint32_t kReplyDetail = 8;

namespace msg {

// clang-format off
inline constexpr ReplyMessage kCallbackBadArgument  { 0, kReplyFailure,  "show kivo database command handler failed: Invalid argument."};

// The database
inline constexpr ReplyMessage kCommonNoDefinitions  { 1, kReplyFailure,  "Cannot marshal common message. Invalid argument."};
inline constexpr ReplyMessage kCommonErrorSet       { 2, kReplyProgress, "Error already set when doing compound marshal: %s"};
inline constexpr ReplyMessage kCommonMarshaled      { 3, kReplyDetail,   "Marshaled %s message to shell manager"};
inline constexpr ReplyMessage kCommonNoScratch      { 5, kReplyFailure,  "Could not get scratch buffer."};
inline constexpr ReplyMessage kCommonRendered       { 6, kReplyDetail,   "%s"};
inline constexpr ReplyMessage kCommonRenderFailed   { 7, kReplyFailure,  "Could not render message: %s"};
inline constexpr ReplyMessage kCommonMarshalFailed  { 8, kReplyFailure,  "Failed to marshal %s message: %s"};

// One session
inline constexpr ReplyMessage kFilterNoDefinitions  { 9, kReplyFailure,  "Cannot marshal db filter message. Invalid argument."};
inline constexpr ReplyMessage kFilterErrorSet       {10, kReplyProgress, "Error already set when doing compound marshal: %s"};
inline constexpr ReplyMessage kFilterMarshaled      {11, kReplyDetail,   "Marshaled %s message to shell manager"};
inline constexpr ReplyMessage kFilterNoScratch      {13, kReplyFailure,  "Could not get scratch buffer."};
inline constexpr ReplyMessage kFilterRendered       {14, kReplyDetail,   "%s"};
inline constexpr ReplyMessage kFilterRenderFailed   {15, kReplyFailure,  "Could not render message: %s"};
inline constexpr ReplyMessage kFilterMarshalFailed  {16, kReplyFailure,  "Failed to marshal %s message: %s"};

// The attribute types
inline constexpr ReplyMessage kListNoDefinitions    {17, kReplyFailure,  "Cannot marshal db message. Invalid argument."};
inline constexpr ReplyMessage kListErrorSet         {18, kReplyProgress, "Error already set when doing compound marshal: %s"};
inline constexpr ReplyMessage kListMarshaled        {19, kReplyDetail,   "Marshaled %s message to shell manager"};
inline constexpr ReplyMessage kListNoScratch        {21, kReplyFailure,  "Could not get scratch buffer."};
inline constexpr ReplyMessage kListRendered         {22, kReplyDetail,   "%s"};
inline constexpr ReplyMessage kListRenderFailed     {23, kReplyFailure,  "Could not render message: %s"};
inline constexpr ReplyMessage kListMarshalFailed    {24, kReplyFailure,  "Failed to marshal %s message: %s"};
// clang-format on

}  // namespace msg
}  // namespace kivo

#define kivo_trace_reply(message, ...)                                      \
  do {                                                                      \
    if (trace_enabled(TRACE_MODULE_HOST_APP, (message).level))              \
      trace_write(TRACE_MODULE_HOST_APP, (message).level, (message).number, \
                  (message).text __VA_OPT__(, ) __VA_ARGS__);               \
  } while (0)
