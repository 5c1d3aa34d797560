// The databases that are shown, their header, and the look-ups by which one record of them is
// found: what the shows, listings and fetches share.
#pragma once

#include <cstdint>
#include <cstring>

#include "console.h"
#include "database.h"
#include "kivo/display.h"
#include "kivo/records.h"

namespace kivo {

inline constexpr uint32_t kAuditSessionIdSize = 24;
inline constexpr uint32_t kMacKeySize = 6;
inline constexpr uint32_t kIpv4KeySize = 4;

// Whether a database is one of those that are shown.
inline bool is_shown(const kivo_db &db) noexcept {
  return std::strncmp(db.db_name, KIVO_SHOW_DB_NAME, KIVO_NAME_SIZE) == 0;
}

inline void write_database_header(const kivo_db &db) noexcept {
  kivo_console_write("\n------------------------------------------------------------------");
  kivo_console_write("\nDATABASE          : %s", db.db_name);
  kivo_console_write("\nOWNER             : %s", db.owner_name);
}

// The first 24 characters of a text, padded with zeros when it is shorter.
struct AuditSessionKey {
  explicit AuditSessionKey(const char *text) noexcept {
    std::memcpy(bytes, text, strnlen(text, sizeof(bytes)));
  }
  char bytes[kAuditSessionIdSize] = {};
};

// The label of the one record that is shown for a value, 0 when there is none.
inline uint32_t find_shown_label(kivo_db *db, uint32_t type, const void *value,
                                 uint32_t size) noexcept {
  uint32_t label = 0;
  return kivo_match_label_by_attr(db, type, value, size, &label) == PLATFORM_OK ? label : 0;
}

}  // namespace kivo
