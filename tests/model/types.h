// The attribute types that a random sequence uses, and what the two databases make of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kivo/kivo.h"

namespace kivo_model {

using Bytes = std::string;
using Attr = std::pair<uint32_t, Bytes>;
using Attrs = std::vector<Attr>;
using Labels = std::vector<uint32_t>;

constexpr uint32_t kDatabases = 2;
constexpr uint32_t kNoDatabase = 2;      // stands for a null handle
constexpr uint32_t kUnsupported = 1491;  // a type outside the dictionary
constexpr size_t kAddressSize = 16;

enum class Accel { kNone, kPlain, kIndex };
enum class Shape { kText, kNumber, kAddresses, kIdentity };

struct TypeRow {
  uint32_t type;
  Shape shape;
  uint32_t vocabulary;  // how many values of it there are
  Accel accel[kDatabases];
};

// clang-format off
inline constexpr TypeRow kTypes[] = {
    {AAA_ATTR_USER_NAME,        Shape::kText,      300, {Accel::kIndex, Accel::kIndex}},
    {AAA_ATTR_DOMAIN,           Shape::kText,        3, {Accel::kIndex, Accel::kNone}},
    {AAA_ATTR_METHOD,           Shape::kText,        2, {Accel::kIndex, Accel::kPlain}},
    {AAA_ATTR_PORT,             Shape::kNumber,     50, {Accel::kPlain, Accel::kNone}},
    {AAA_ATTR_IPV4_ADDRESS,     Shape::kNumber,    400, {Accel::kIndex, Accel::kPlain}},
    {AAA_ATTR_INTERFACE_NAME,   Shape::kText,       40, {Accel::kNone,  Accel::kNone}},
    {AAA_ATTR_IPV6_ADDRESSES,   Shape::kAddresses,  60, {Accel::kPlain, Accel::kIndex}},
    {AAA_ATTR_SESSION_ID,       Shape::kText,      900, {Accel::kIndex, Accel::kNone}},
    {AAA_ATTR_CALLED_STATION,   Shape::kText,       30, {Accel::kPlain, Accel::kIndex}},
    {AAA_ATTR_SERVICE_TYPE,     Shape::kNumber,      5, {Accel::kPlain, Accel::kNone}},
    {AAA_ATTR_MAC_ADDRESS,      Shape::kText,      500, {Accel::kIndex, Accel::kIndex}},
    {AAA_ATTR_INTERFACE_ID,     Shape::kNumber,    200, {Accel::kIndex, Accel::kNone}},
    {AAA_ATTR_INTERFACE,        Shape::kText,      200, {Accel::kIndex, Accel::kNone}},
    {AAA_ATTR_AUDIT_SESSION_ID, Shape::kText,      900, {Accel::kIndex, Accel::kNone}},
    {AAA_ATTR_EXT_USER,         Shape::kIdentity,   40, {Accel::kPlain, Accel::kNone}},
    {AAA_ATTR_EXT_DEVICE,       Shape::kIdentity,   40, {Accel::kNone,  Accel::kPlain}},
    {AAA_ATTR_EXT_LOCATION,     Shape::kIdentity,   40, {Accel::kPlain, Accel::kNone}},
    {kUnsupported,              Shape::kText,        3, {Accel::kNone,  Accel::kNone}},
};
// clang-format on
inline constexpr size_t kTypeCount = std::size(kTypes);
inline constexpr TypeRow kNoRow = {0, Shape::kText, 3, {Accel::kNone, Accel::kNone}};

inline const TypeRow &row_of(uint32_t type) {
  const TypeRow *row = std::ranges::find(kTypes, type, &TypeRow::type);
  return row == std::end(kTypes) ? kNoRow : *row;
}
inline bool is_identity(uint32_t type) { return row_of(type).shape == Shape::kIdentity; }

// The values that an index keeps of a stored one: itself, or its addresses.
inline std::vector<Bytes> parts_of(uint32_t type, const Bytes &value) {
  if (type != AAA_ATTR_IPV6_ADDRESSES) return {value};
  std::vector<Bytes> parts;
  for (size_t i = 0; i < value.size(); i += kAddressSize) {
    parts.push_back(value.substr(i, kAddressSize));
  }
  return parts;
}

}  // namespace kivo_model
