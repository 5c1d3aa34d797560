// The attribute dictionary: names and kinds by type, types by name, all from the one table of
// aaa_dictionary.h. Both tables are made by the compiler and are read-only.
// Threads: any; nothing here changes.
#include "dictionary.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

#include "platform/aaa.h"
#include "platform/attrdb.h"

namespace kivo_platform {
namespace {

constexpr std::size_t kNameBytes = 24;  // 23 characters and the NUL

struct Entry {
  std::array<char, kNameBytes> name{};
  std::uint32_t kind = AAA_KIND_UNKNOWN;
};

struct Row {
  std::uint32_t type;
  std::string_view name;
  std::uint32_t kind;
};

#define DICTIONARY_ROW(constant, number, name, kind) {number, name, kind},
constexpr Row kRows[] = {AAA_DICTIONARY(DICTIONARY_ROW)};
#undef DICTIONARY_ROW

constexpr bool rows_ascend_and_fit() {
  std::uint32_t before = 0;
  for (const Row &row : kRows) {
    if (row.type <= before || row.type > AAA_ATTR_TYPE_MAX) return false;
    if (row.name.size() >= kNameBytes || row.kind >= AAA_KIND_UNKNOWN) return false;
    before = row.type;
  }
  return true;
}
static_assert(rows_ascend_and_fit());

constexpr std::array<char, kNameBytes> numbered_name(std::uint32_t type) {
  std::array<char, kNameBytes> name{};
  constexpr std::string_view prefix = "attribute-";
  char *end = std::copy(prefix.begin(), prefix.end(), name.begin());
  std::uint32_t power = 1;
  while (type / power >= 10) power *= 10;
  for (; power != 0; power /= 10) *end++ = static_cast<char>('0' + type / power % 10);
  return name;
}

constexpr auto make_entries() {
  std::array<Entry, AAA_ATTR_TYPE_MAX + 1> entries{};
  for (std::uint32_t type = 1; type < entries.size(); ++type) {
    entries[type].name = numbered_name(type);
  }
  for (const Row &row : kRows) {
    entries[row.type].name = {};
    std::copy(row.name.begin(), row.name.end(), entries[row.type].name.begin());
    entries[row.type].kind = row.kind;
  }
  return entries;
}

constexpr auto kEntries = make_entries();

}  // namespace

const char *attribute_name(std::uint32_t type) noexcept {
  if (type == 0 || type > AAA_ATTR_TYPE_MAX) return "attribute-unknown";
  return kEntries[type].name.data();
}

}  // namespace kivo_platform

using namespace kivo_platform;

extern "C" const char *aaa_dict_get_attr_name(std::uint32_t type) noexcept {
  return attribute_name(type);
}

extern "C" const char *get_attr_name_from_type(std::uint32_t type) noexcept {
  return attribute_name(type);
}

extern "C" const char *attrdb_get_attr_name_from_type(std::uint32_t type) noexcept {
  return attribute_name(type);
}

extern "C" std::uint32_t aaa_dict_get_attr_kind(std::uint32_t type) noexcept {
  return type <= AAA_ATTR_TYPE_MAX ? kEntries[type].kind : AAA_KIND_UNKNOWN;
}

extern "C" std::uint32_t aaa_dict_get_attr_type(const char *name) noexcept {
  if (name == nullptr) return 0;
  for (const Row &row : kRows) {
    if (row.name == name) return row.type;
  }
  // A number counts when the type's name is written so: not 042, and not 42, which has a name.
  const char *digits = std::strrchr(name, '-');
  if (digits == nullptr) return 0;
  std::uint32_t type = 0;
  std::from_chars(digits + 1, digits + std::strlen(digits), type);
  const bool valid = type != 0 && type <= AAA_ATTR_TYPE_MAX;
  return valid && std::strcmp(attribute_name(type), name) == 0 ? type : 0;
}
