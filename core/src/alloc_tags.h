// Allocation tags of the library: one identifier for each kind of block that it takes from the
// named allocator or a pool, so that live memory can be told apart by what it is for.
#pragma once

#include <cstdint>

namespace kivo {

inline constexpr uint32_t kTagBase = 0x3b00000;

inline constexpr uint32_t kTagDebugMessage = kTagBase | 1;
inline constexpr uint32_t kTagAttrConfig = kTagBase | 2;
inline constexpr uint32_t kTagAccelTable = kTagBase | 3;
inline constexpr uint32_t kTagNotifyReg = kTagBase | 4;
inline constexpr uint32_t kTagShadowRecord = kTagBase | 5;
inline constexpr uint32_t kTagShadowEntry = kTagBase | 6;
inline constexpr uint32_t kTagShowText = kTagBase | 7;
inline constexpr uint32_t kTagLabelTable = kTagBase | 8;
// 22 to 26 are the size classes of the shadow value pool (shadow_db.cpp).

}  // namespace kivo
