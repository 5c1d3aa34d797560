// The attribute types that a random sequence uses, and what the two databases make of them.
#pragma once

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
constexpr uint32_t kHandles = 3;         // that a client has for each of its types
constexpr size_t kAddressSize = 16;

enum class Accel { kNone, kPlain, kIndexed };
enum class Shape { kText, kNumber, kAddresses, kIdentity };

struct TypeRow {
  uint32_t type;
  Shape shape;
  uint32_t vocabulary;  // how many values of it there are
  Accel accel[kDatabases];
};
constexpr uint32_t kTypeCount = 20;
extern const TypeRow kTypes[kTypeCount];

// The row of a type, null for one that the sequence does not know.
const TypeRow *row_of(uint32_t type);
inline bool is_identity(uint32_t type) {
  const TypeRow *row = row_of(type);
  return row != nullptr && row->shape == Shape::kIdentity;
}
inline Accel accel_of(uint32_t db, uint32_t type) {
  const TypeRow *row = row_of(type);
  return row == nullptr ? Accel::kNone : row->accel[db];
}

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
