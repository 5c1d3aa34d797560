// The reading of attribute pairs under any bytes: each line "Name = value" of an input is decoded.
// A result must have the size of its kind, a refusal a printable reason and no value.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "accounting_pair.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

// 0: any size.
size_t size_of(radius_kind kind) {
  switch (kind) {
    case RADIUS_KIND_INTEGER:
    case RADIUS_KIND_SIGNED:
    case RADIUS_KIND_DATE:
    case RADIUS_KIND_IPV4:
    case RADIUS_KIND_IPV4_PREFIX:
      return 4;
    case RADIUS_KIND_ETHERNET:
      return 6;
    case RADIUS_KIND_INTEGER64:
    case RADIUS_KIND_INTERFACE_ID:
      return 8;
    case RADIUS_KIND_IPV6:
    case RADIUS_KIND_IPV6_PREFIX:
      return 16;
    case RADIUS_KIND_TEXT:
    case RADIUS_KIND_OCTETS:
      return 0;
  }
  std::abort();
}

void check_value(const kivod::AccountingPair &pair, size_t written_size) {
  const size_t size = size_of(pair.kind());
  require(size == 0 || pair.bytes().size() == size);
  require(size != 0 || pair.bytes().size() <= written_size);
  // Every byte is there to be read.
  const std::string copy(reinterpret_cast<const char *>(pair.bytes().data()), pair.bytes().size());
  if (pair.text()) require(copy == *pair.text());
  if (pair.kind() == RADIUS_KIND_INTEGER || pair.kind() == RADIUS_KIND_DATE) {
    uint32_t word = 0;
    std::memcpy(&word, copy.data(), sizeof(word));
    require(pair.integer() == word);
  }
  if (const auto prefix = pair.ipv6_prefix()) require(prefix->bits <= 128);
  require(pair.tag() <= 31);
}

void check_error(const kivod::AccountingPair &pair, std::string_view error) {
  require(pair.bytes().empty() && !pair.text() && !pair.integer());
  require(!error.empty() && error.size() < RADIUS_ERROR_MAX);
  for (const char c : error) require(c >= ' ' && c <= '~');
}

void decode_line(kivod::PairDecoder &decoder, std::string_view line) {
  const size_t first = line.find_first_not_of(" \t");
  if (first != line.npos) line.remove_prefix(first);
  const size_t separator = line.find(" = ");
  if (separator == line.npos) return;
  const std::string_view value = line.substr(separator + 3);
  kivod::AccountingPair pair;
  if (decoder.decode(line.substr(0, separator), value, pair) == RADIUS_OK) {
    check_value(pair, value.size());
  } else {
    check_error(pair, decoder.error());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static std::string error;
  static auto decoder = kivod::PairDecoder::open("", error);
  if (!decoder) {
    std::fprintf(stderr, "%s\n", error.c_str());
    std::abort();
  }
  std::string_view rest(reinterpret_cast<const char *>(data), size);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    decode_line(*decoder, rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return 0;
}
