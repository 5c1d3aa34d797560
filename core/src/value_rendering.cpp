// See value_rendering.h. The table below has one row for each kind, and a column for each
// destination: where the two differ stands there.
#include "value_rendering.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "alloc_tags.h"
#include "console.h"
#include "kivo/attribute_read.h"
#include "kivo/records.h"
#include "platform/auth_mgr_idc.h"
#include "platform/named_alloc.h"
#include "trace.h"

namespace kivo {
namespace {

constexpr const char *kCanNotPrint = "--- Can not print ---";
constexpr const char *kDataNotFound = "--- Data not found ---";
constexpr const char *kCouldNotPrint = "Could not print";
constexpr uint32_t kBinaryShown = 32;
constexpr uint32_t kIpv6Size = 16;
constexpr uint32_t kMacSize = 6;

// Where a rendering goes.
class Destination {
 public:
  virtual void write(const char *format, ...) noexcept __attribute__((format(printf, 2, 3))) = 0;
  // There was no buffer for a text.
  virtual void write_no_memory(const TraceMessage &message) noexcept = 0;

 protected:
  ~Destination() = default;
};

class Console final : public Destination {
 public:
  void write(const char *format, ...) noexcept override {
    va_list args;
    va_start(args, format);
    std::vfprintf(console(), format, args);
    va_end(args);
  }
  void write_no_memory(const TraceMessage &message) noexcept override {
    write("%s", kCouldNotPrint);
    kivo_trace_error(message);
  }
};

// Appends to a slot, cut to its size. A slot that is not written to keeps what it held.
class Slot final : public Destination {
 public:
  explicit Slot(kivo_value_slot &slot) noexcept : slot_(slot) {}
  void write(const char *format, ...) noexcept override {
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(slot_ + used_, sizeof(slot_) - used_, format, args);
    va_end(args);
    if (length > 0) used_ = std::min(used_ + static_cast<size_t>(length), sizeof(slot_) - 1);
  }
  void write_no_memory(const TraceMessage &) noexcept override { write("%s", kCouldNotPrint); }

 private:
  kivo_value_slot &slot_;
  size_t used_ = 0;
};

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

void write_hex_bytes(Destination &out, const uint8_t *bytes, uint32_t n) noexcept {
  for (uint32_t i = 0; i < n; ++i) out.write("%02x", bytes[i]);
}

// The value with a terminating NUL; null, after telling so, when there is no buffer for it.
NamedText copy_as_text(Destination &out, const StoredValue &value,
                       const TraceMessage &no_memory) noexcept {
  NamedText text;
  if (value.length != UINT32_MAX) {
    text.reset(static_cast<char *>(
        NAMED_ZALLOC(kTagShowText, "kivo show text", size_t{value.length} + 1)));
  }
  if (text == nullptr) {
    out.write_no_memory(no_memory);
    return nullptr;
  }
  std::memcpy(text.get(), value.bytes, value.length);
  return text;
}

// The interface is stored as decimal text.
void render_interface(Destination &out, const StoredValue &value) noexcept {
  const NamedText text = copy_as_text(out, value, msg::kShowInterfaceNoMemory);
  if (text == nullptr) return;
  out.write("0x%08X", static_cast<uint32_t>(std::strtol(text.get(), nullptr, 10)));
}

void render_int32(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  if (value.aaa_type == AAA_ATTR_INTERFACE) {
    render_interface(out, value);
  } else if (value.length < sizeof(uint32_t)) {
    out.write("%s", kCanNotPrint);
  } else if (value.aaa_type == AAA_ATTR_INTERFACE_ID) {
    out.write("0x%08X", read_word<uint32_t>(value));
  } else {
    out.write("0x%08x", read_word<uint32_t>(value));
  }
}

void render_int32_but_token(Destination &out, kivo_db &db, const StoredValue &value) noexcept {
  if (value.aaa_type != AAA_ATTR_AUTHORIZATION_TOKEN) render_int32(out, db, value);
}

void render_int64(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  if (value.length < sizeof(uint64_t)) {
    out.write("%s", kCanNotPrint);
  } else {
    out.write("0x%16lu", read_word<uint64_t>(value));
  }
}

void render_ipv4(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  out.write("%s", auth_mgr_safe_printable_mac(value.bytes, value.length));
}

void render_text(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  const int length = static_cast<int>(std::min(value.length, uint32_t{INT32_MAX}));
  out.write("%.*s", length, reinterpret_cast<const char *>(value.bytes));
}

// All addresses of a record's type 10, as the attribute service counts them.
void render_address_list(Destination &out, kivo_db &db, const StoredValue &value) noexcept {
  attrdb_record *record = nullptr;
  if (kivo_get_record(&db, value.label, &record) != PLATFORM_OK || record == nullptr) {
    out.write("\nfailed getting record.");
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
    const auto *address = static_cast<const uint8_t *>(addresses) + size_t{i} * kIpv6Size;
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, address, text, sizeof(text));
    out.write("%s%s", i == 0 ? "" : ", ", text);
  }
}

void render_ipv6(Destination &out, kivo_db &db, const StoredValue &value) noexcept {
  if (value.aaa_type == AAA_ATTR_IPV6_PREFIX) render_text(out, db, value);
  if (value.aaa_type == AAA_ATTR_IPV6_ADDRESSES) render_address_list(out, db, value);
}

void render_mac(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  if (value.length < kMacSize) {
    out.write("%s", kCanNotPrint);
  } else {
    write_hex_bytes(out, value.bytes, kMacSize);
  }
}

void render_mac_with_points(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  if (value.length < kMacSize) {
    out.write("%s", kCanNotPrint);
    return;
  }
  const uint8_t *mac = value.bytes;
  out.write("%02x%02x.%02x%02x.%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

void render_binary(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  write_hex_bytes(out, value.bytes, std::min(value.length, kBinaryShown));
}

void render_string(Destination &out, kivo_db &, const StoredValue &value) noexcept {
  const NamedText text = copy_as_text(out, value, msg::kShowTextNoMemory);
  if (text != nullptr) out.write("%s", text.get());
}

void render_nothing(Destination &, kivo_db &, const StoredValue &) noexcept {}

using Render = void (*)(Destination &, kivo_db &, const StoredValue &) noexcept;

struct Renderings {
  Render on_console;
  Render in_slot;
};

// By kivo_data_type. The one further difference: only the console traces that memory ran out.
// clang-format off
constexpr Renderings kRenderings[] = {
    // console                slot of a reply
    {render_int32_but_token,  render_int32},            // INT 32
    {render_int64,            render_int64},            // INT 64
    {render_ipv4,             render_ipv4},             // IPV4_ADDR
    {render_ipv6,             render_nothing},          // IPV6_ADDR
    {render_mac,              render_mac_with_points},  // MAC_ADDR
    {render_text,             render_text},             // SESN_GUID
    {render_int64,            render_int64},            // POINTER
    {render_binary,           render_nothing},          // VAR BIN
    {render_string,           render_string},           // VAR STR
};
// clang-format on
static_assert(std::size(kRenderings) == KIVO_DATA_TYPE_MAX);

void render(Destination &out, kivo_db &db, kivo_data_type data_type, const StoredValue &value,
            Render Renderings::*column) noexcept {
  if (value.bytes == nullptr || value.length == 0) {
    out.write("%s", kDataNotFound);
  } else if (data_type < std::size(kRenderings)) {
    (kRenderings[data_type].*column)(out, db, value);
  } else {
    out.write("%s", kCanNotPrint);
  }
}

}  // namespace

void render_on_console(kivo_db &db, kivo_data_type data_type, const StoredValue &value) noexcept {
  Console out;
  render(out, db, data_type, value, &Renderings::on_console);
}

void render_in_slot(kivo_db &db, kivo_data_type data_type, const StoredValue &value,
                    kivo_value_slot &slot) noexcept {
  Slot out(slot);
  render(out, db, data_type, value, &Renderings::in_slot);
}

StoredValue read_value(kivo_db &db, uint32_t label, uint32_t aaa_type) noexcept {
  const void *bytes = nullptr;
  uint32_t length = 0;
  if (kivo_get_attr(&db, label, nullptr, aaa_type, &bytes, &length) != PLATFORM_OK) length = 0;
  return {label, aaa_type, static_cast<const uint8_t *>(bytes), length};
}

}  // namespace kivo
