// Texts of the statuses: one table, ordered as status.h is. Traces print these behind "error:", so
// they are short, begin in lower case and have no full stop.
// Threads: none; the process serialises all calls.
#include "platform/error_text.h"

#include <cstdio>

#include "internal.h"
#include "platform/status.h"

namespace kivo_platform {
namespace {

struct Row {
  std::uint32_t status;
  const char *text;
};

// clang-format off
constexpr Row kTexts[] = {
    {PLATFORM_OK,              "success"},
    {ATTRDB_ERR_NO_MEMORY,     "record store: out of memory"},
    {ATTRDB_ERR_INVALID_ARG,   "record store: invalid argument"},
    {ATTRDB_ERR_LABEL_IN_USE,  "record store: label in use"},
    {ATTRDB_ERR_NOT_READY,     "record store: not initialised"},
    {ATTRDB_ERR_ADOPTED,       "record store: context belongs to a record"},
    {ATTRDB_ERR_NOT_FOUND,     "record store: no such record"},
    {AAA_ERR_UNSUPPORTED_ATTR, "attribute type not supported"},
    {AAA_ERR_NO_MEMORY,        "attribute service: out of memory"},
    {AAA_ERR_INVALID_ARG,      "attribute service: invalid argument"},
    {AAA_ERR_NO_ROOM,          "attribute service: no room"},
    {AAA_ERR_STALE_LIST,       "attribute service: no such list"},
    {AAA_ERR_NOT_FOUND,        "attribute service: no such value"},
    {MESSAGE_ERR_NO_MEMORY,    "message: out of memory"},
    {MESSAGE_ERR_INVALID_ARG,  "message: invalid argument"},
    {MESSAGE_ERR_NO_ROOM,      "message: too long"},
    {CHANNEL_ERR_FAILED,       "connection given up"},
    {CHANNEL_ERR_NO_MEMORY,    "connection: out of memory"},
    {CHANNEL_ERR_INVALID_ARG,  "connection: invalid argument"},
    {CHANNEL_ERR_NO_ROOM,      "connection: peer does not read"},
    {CHANNEL_ERR_CLOSED,       "connection closed by peer"},
    {CHANNEL_ERR_FRAME,        "connection: not a message"},
    {CHANNEL_ERR_TIMEOUT,      "connection timed out"},
    {CHANNEL_ERR_SYSTEM,       "connection: system error"},
    {KIVO_ERR_FAILED,          "operation failed"},
    {KIVO_ERR_NO_MEMORY,       "out of memory"},
    {KIVO_ERR_INVALID_ARG,     "invalid argument"},
    {KIVO_ERR_NO_ROOM,         "no room for a client"},
    {KIVO_ERR_NO_CURSOR,       "no cursor over the attribute list"},
    {KIVO_ERR_NOT_FOUND,       "no shadow record"},
    {KIVO_ERR_INVALID_VALUE,   "invalid value"},
};
// clang-format on

constexpr std::uint32_t kUnknownTexts = 8;
constinit char g_unknown[kUnknownTexts][32]{};
constinit std::uint32_t g_next_unknown = 0;

}  // namespace

const char *status_text(std::uint32_t status) noexcept {
  for (const Row &row : kTexts) {
    if (row.status == status) return row.text;
  }
  char(&text)[32] = g_unknown[g_next_unknown++ % kUnknownTexts];
  std::snprintf(text, sizeof text, "unknown status 0x%08x", status);
  return text;
}

}  // namespace kivo_platform

const char *error_text(uint32_t status) noexcept { return kivo_platform::status_text(status); }
