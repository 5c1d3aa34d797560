#include "model/types.h"

#include <algorithm>

namespace kivo_model {
namespace {

constexpr auto kNone = Accel::kNone;
constexpr auto kPlain = Accel::kPlain;
constexpr auto kIndex = Accel::kIndexed;

}  // namespace

// clang-format off
const TypeRow kTypes[kTypeCount] = {
    // type                     shape             values  in the two databases
    {AAA_ATTR_USER_NAME,        Shape::kText,      300, {kIndex, kIndex}},
    {AAA_ATTR_DOMAIN,           Shape::kText,        3, {kIndex, kNone}},
    {AAA_ATTR_METHOD,           Shape::kText,        2, {kIndex, kPlain}},
    {AAA_ATTR_PORT,             Shape::kNumber,     50, {kPlain, kNone}},
    {AAA_ATTR_IPV4_ADDRESS,     Shape::kNumber,    400, {kIndex, kPlain}},
    {AAA_ATTR_INTERFACE_NAME,   Shape::kText,       40, {kNone,  kNone}},
    {AAA_ATTR_IPV6_ADDRESSES,   Shape::kAddresses,  60, {kPlain, kIndex}},
    {AAA_ATTR_SESSION_ID,       Shape::kText,      900, {kIndex, kNone}},
    {AAA_ATTR_START_TIME,       Shape::kNumber,     20, {kPlain, kNone}},
    {AAA_ATTR_CALLED_STATION,   Shape::kText,       30, {kPlain, kIndex}},
    {AAA_ATTR_SERVICE_TYPE,     Shape::kNumber,      5, {kPlain, kNone}},
    {AAA_ATTR_SESSION_TIME,     Shape::kNumber,     90, {kPlain, kNone}},
    {AAA_ATTR_MAC_ADDRESS,      Shape::kText,      500, {kIndex, kIndex}},
    {AAA_ATTR_INTERFACE_ID,     Shape::kNumber,    200, {kIndex, kNone}},
    {AAA_ATTR_INTERFACE,        Shape::kText,      200, {kIndex, kNone}},
    {AAA_ATTR_AUDIT_SESSION_ID, Shape::kText,      900, {kIndex, kNone}},
    {AAA_ATTR_EXT_USER,         Shape::kIdentity,   40, {kPlain, kNone}},
    {AAA_ATTR_EXT_DEVICE,       Shape::kIdentity,   40, {kNone,  kPlain}},
    {AAA_ATTR_EXT_LOCATION,     Shape::kIdentity,   40, {kPlain, kNone}},
    {kUnsupported,              Shape::kText,        3, {kNone,  kNone}},
};
// clang-format on

const TypeRow *row_of(uint32_t type) {
  const TypeRow *row = std::ranges::find(kTypes, type, &TypeRow::type);
  return row == std::end(kTypes) ? nullptr : row;
}

}  // namespace kivo_model
