// Values as text: by the store's type codes, and addresses by their size.
// Invariants: no byte behind a value's size is read; no text outgrows its buffer, a long one ends
// in "..." instead.
// Threads: none; the process serialises all calls.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "platform/attrdb.h"
#include "stored_attributes.h"

namespace kivo_platform {
namespace {

constexpr std::string_view kCut = "...";
constexpr std::size_t kAddressHexBytes = 64;
constexpr std::size_t kAddressTextBytes = 2 * kAddressHexBytes + kCut.size() + 1;
constexpr std::size_t kRing = 8;

// A text that grows in a caller's buffer. What does not fit whole is left out.
class Text {
 public:
  Text(char *buffer, std::size_t size) noexcept : begin_(buffer), end_(buffer), size_(size) {
    *end_ = '\0';
  }

  // Whether n more characters fit, with the mark of a cut behind them.
  bool has_room(std::size_t n) const noexcept { return used() + n + kCut.size() < size_; }

  void add(std::string_view piece) noexcept {
    end_ += piece.copy(end_, size_ - used() - 1);
    *end_ = '\0';
  }
  void add_hex(unsigned char byte) noexcept {
    constexpr char digits[] = "0123456789abcdef";
    const char pair[] = {digits[byte >> 4], digits[byte & 15]};
    add({pair, sizeof pair});
  }

 private:
  std::size_t used() const noexcept { return static_cast<std::size_t>(end_ - begin_); }

  char *begin_;
  char *end_;
  std::size_t size_;
};

void print_hex(Bytes value, Text &text) noexcept {
  for (const char c : value) {
    if (!text.has_room(2)) return text.add(kCut);
    text.add_hex(static_cast<unsigned char>(c));
  }
}

void print_text(Bytes value, Text &text) noexcept {
  for (const char c : value) {
    const bool printable = c >= ' ' && c <= '~';
    if (!text.has_room(printable ? 1 : 4)) return text.add(kCut);
    if (printable) {
      text.add({&c, 1});
    } else {
      text.add("\\x");
      text.add_hex(static_cast<unsigned char>(c));
    }
  }
}

void print_mac(Bytes value, Text &text) noexcept {
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (i == 2 || i == 4) text.add(".");
    text.add_hex(static_cast<unsigned char>(value[i]));
  }
}

void print_inet(int family, Bytes value, Text &text) noexcept {
  char address[INET6_ADDRSTRLEN];
  text.add(inet_ntop(family, value.data(), address, sizeof address));
}

void print_ipv4(Bytes value, Text &text) noexcept { print_inet(AF_INET, value, text); }
void print_ipv6(Bytes value, Text &text) noexcept { print_inet(AF_INET6, value, text); }

// Sixteen bytes of an address; a prefix is kept as text, and one of sixteen characters is told from
// an address by its characters, the stroke among them.
void print_ipv6_or_prefix(Bytes value, Text &text) noexcept {
  const bool prefix = value.find('/') != Bytes::npos &&
                      value.find_first_not_of("0123456789abcdefABCDEF:./") == Bytes::npos;
  if (prefix) return print_text(value, text);
  if (value.size() == 16) return print_ipv6(value, text);
  print_hex(value, text);
}

template <typename Number>
void print_number(Bytes value, Text &text) noexcept {
  Number number = 0;
  std::memcpy(&number, value.data(), sizeof number);
  char digits[2 + 2 * sizeof number + 1];
  std::snprintf(digits, sizeof digits, "0x%" PRIx64, std::uint64_t{number});
  text.add(digits);
}

struct Format {
  std::uint32_t size;  // of a value that fits; 0 any
  void (*print)(Bytes value, Text &text) noexcept;
};

// By type code. The codes are the value kinds' numbers; tables below and above agree by this order.
constexpr Format kFormats[] = {
    {4, print_number<std::uint32_t>},  // AAA_KIND_INT32
    {8, print_number<std::uint64_t>},  // AAA_KIND_INT64
    {4, print_ipv4},                   // AAA_KIND_IPV4
    {0, print_ipv6_or_prefix},         // AAA_KIND_IPV6
    {6, print_mac},                    // AAA_KIND_MAC
    {24, print_text},                  // AAA_KIND_SESN_GUID
    {8, print_number<std::uint64_t>},  // AAA_KIND_POINTER
    {0, print_hex},                    // AAA_KIND_VAR_BIN
    {0, print_text},                   // AAA_KIND_VAR_STR
    {0, print_hex},                    // AAA_KIND_UNKNOWN
};
static_assert(std::size(kFormats) == AAA_KIND_UNKNOWN + 1);
static_assert(ATTRDB_TYPE_UNKNOWN == AAA_KIND_UNKNOWN);

void print_address(Bytes value, Text &text) noexcept {
  if (value.size() == 4) return print_ipv4(value, text);
  if (value.size() == 6) return print_mac(value, text);
  if (value.size() == 16) return print_ipv6(value, text);
  print_hex(value, text);
}

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" const char *auth_mgr_safe_printable_mac(const void *value, std::uint32_t size) noexcept {
  static constinit std::array<std::array<char, kAddressTextBytes>, kRing> ring{};
  static constinit std::size_t next = 0;
  if (value == nullptr) return "";
  std::array<char, kAddressTextBytes> &buffer = ring[next];
  next = (next + 1) % kRing;
  Text text(buffer.data(), buffer.size());
  print_address(as_bytes(value, size), text);
  return buffer.data();
}

extern "C" std::uint32_t attrdb_kivo_type_to_attrdb_type(std::uint32_t kind) noexcept {
  return std::min(kind, ATTRDB_TYPE_UNKNOWN);
}

extern "C" const char *attrdb_print_data_with_kivo_type(const void *value, std::uint32_t size,
                                                        char *text, std::uint32_t code) noexcept {
  if (text == nullptr) return "";
  Text out(text, ATTRDB_PRINT_TEXT_MAX);
  if (value == nullptr) return text;
  const Format &format = kFormats[std::min(code, ATTRDB_TYPE_UNKNOWN)];
  const bool fits = format.size == 0 || format.size == size;
  (fits ? format.print : print_hex)(as_bytes(value, size), out);
  return text;
}
