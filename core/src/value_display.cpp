// See value_display.h. One row of the table for each kind.
#include "value_display.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "alloc_tags.h"
#include "console.h"
#include "kivo/records.h"
#include "platform/auth_mgr_idc.h"
#include "platform/named_alloc.h"
#include "trace.h"

namespace kivo {
namespace {

constexpr const char *kCanNotPrint = "--- Can not print ---";
constexpr const char *kCouldNotPrint = "Could not print";
constexpr uint32_t kBinaryShown = 32;
constexpr uint32_t kIpv6Size = 16;

struct FreeNamed {
  void operator()(void *block) const noexcept { named_free(block); }
};
using NamedText = std::unique_ptr<char, FreeNamed>;

template <typename Word>
Word read_word(const StoredValue &value) noexcept {
  Word word;
  std::memcpy(&word, value.bytes, sizeof(word));
  return word;
}

void write_hex_bytes(const uint8_t *bytes, uint32_t n) noexcept {
  for (uint32_t i = 0; i < n; ++i) kivo_console_write("%02x", bytes[i]);
}

// The value with a terminating NUL; null, after telling so, when there is no buffer for it.
NamedText copy_as_text(const StoredValue &value, const TraceMessage &no_memory) noexcept {
  NamedText text;
  if (value.length != UINT32_MAX) {
    text.reset(static_cast<char *>(
        NAMED_ZALLOC(kTagShowText, "kivo show text", size_t{value.length} + 1)));
  }
  if (text == nullptr) {
    kivo_console_write("%s", kCouldNotPrint);
    kivo_trace_error(no_memory);
    return nullptr;
  }
  std::memcpy(text.get(), value.bytes, value.length);
  return text;
}

// The interface is stored as decimal text.
void display_interface(const StoredValue &value) noexcept {
  const NamedText text = copy_as_text(value, msg::kShowInterfaceNoMemory);
  if (text == nullptr) return;
  kivo_console_write("0x%08X", static_cast<uint32_t>(std::strtol(text.get(), nullptr, 10)));
}

void display_int32(kivo_db &, const StoredValue &value) noexcept {
  if (value.aaa_type == AAA_ATTR_AUTHORIZATION_TOKEN) return;
  if (value.aaa_type == AAA_ATTR_INTERFACE) {
    display_interface(value);
  } else if (value.length < sizeof(uint32_t)) {
    kivo_console_write("%s", kCanNotPrint);
  } else if (value.aaa_type == AAA_ATTR_INTERFACE_ID) {
    kivo_console_write("0x%08X", read_word<uint32_t>(value));
  } else {
    kivo_console_write("0x%08x", read_word<uint32_t>(value));
  }
}

void display_int64(kivo_db &, const StoredValue &value) noexcept {
  if (value.length < sizeof(uint64_t)) {
    kivo_console_write("%s", kCanNotPrint);
  } else {
    kivo_console_write("0x%16lu", read_word<uint64_t>(value));
  }
}

void display_ipv4(kivo_db &, const StoredValue &value) noexcept {
  const bool fits = value.length >= KIVO_ATTR_SIZES_NEW[KIVO_DATA_TYPE_IPV4_ADDR];
  kivo_console_write("%s",
                     fits ? auth_mgr_safe_printable_mac(value.bytes, value.length) : kCanNotPrint);
}

void display_text(kivo_db &, const StoredValue &value) noexcept {
  const int length = static_cast<int>(std::min(value.length, uint32_t{INT32_MAX}));
  kivo_console_write("%.*s", length, reinterpret_cast<const char *>(value.bytes));
}

// All addresses of a record's type 10, as the attribute service counts them.
void display_address_list(kivo_db &db, const StoredValue &value) noexcept {
  attrdb_record *record = nullptr;
  if (kivo_get_record(&db, value.label, &record) != PLATFORM_OK || record == nullptr) {
    kivo_console_write("\nfailed getting record.");
    return;
  }
  const void *addresses = nullptr;
  uint32_t size = 0;
  uint32_t count = 0;
  if (auth_mgr_idc_get_attr(record->ctxt, AAA_ATTR_IPV6_ADDRESSES, &addresses, &size, &count) !=
          PLATFORM_OK ||
      addresses == nullptr) {
    return;
  }
  for (uint32_t i = 0; i < count; ++i) {
    const bool is_whole = size - i * kIpv6Size >= kIpv6Size;
    char text[INET6_ADDRSTRLEN] = "";
    if (is_whole) {
      inet_ntop(AF_INET6, static_cast<const uint8_t *>(addresses) + i * kIpv6Size, text,
                sizeof(text));
    }
    kivo_console_write(i == 0 ? "%s" : ", %s", is_whole ? text : kCanNotPrint);
    if (!is_whole) return;
  }
}

void display_ipv6(kivo_db &db, const StoredValue &value) noexcept {
  if (value.aaa_type == AAA_ATTR_IPV6_PREFIX) display_text(db, value);
  if (value.aaa_type == AAA_ATTR_IPV6_ADDRESSES) display_address_list(db, value);
}

void display_mac(kivo_db &, const StoredValue &value) noexcept {
  constexpr uint32_t kMacSize = 6;
  if (value.length < kMacSize) {
    kivo_console_write("%s", kCanNotPrint);
  } else {
    write_hex_bytes(value.bytes, kMacSize);
  }
}

void display_binary(kivo_db &, const StoredValue &value) noexcept {
  write_hex_bytes(value.bytes, std::min(value.length, kBinaryShown));
}

void display_string(kivo_db &, const StoredValue &value) noexcept {
  const NamedText text = copy_as_text(value, msg::kShowTextNoMemory);
  if (text != nullptr) kivo_console_write("%s", text.get());
}

using Display = void (*)(kivo_db &, const StoredValue &) noexcept;

// By kivo_data_type.
constexpr std::array<Display, KIVO_DATA_TYPE_MAX> kDisplays = {
    display_int32, display_int64,  display_ipv4,   // INT 32, INT 64, IPV4_ADDR
    display_ipv6,  display_mac,    display_text,   // IPV6_ADDR, MAC_ADDR, SESN_GUID
    display_int64, display_binary, display_string  // POINTER, VAR BIN, VAR STR
};

}  // namespace

void display_value(kivo_db &db, kivo_data_type data_type, const StoredValue &value) noexcept {
  if (data_type < kDisplays.size()) {
    kDisplays[data_type](db, value);
  } else {
    kivo_console_write("%s", kCanNotPrint);
  }
}

}  // namespace kivo
