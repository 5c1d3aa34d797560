// Rendering of one stored attribute value on the console, by its kind and, for a few types, by its
// number. Values may be shorter than their kind: nothing is read past what is stored.
#pragma once

#include <cstdint>

#include "kivo/database.h"

namespace kivo {

// A value as read from the record of a label.
struct StoredValue {
  uint32_t label;
  uint32_t aaa_type;
  const uint8_t *bytes;
  uint32_t length;
};

// Writes the value at the current position of the console. Type 10 is read from the record anew.
void display_value(kivo_db &db, kivo_data_type data_type, const StoredValue &value) noexcept;

}  // namespace kivo
