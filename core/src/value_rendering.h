// Rendering of a record's values by their kind and, for a few types, by their number: on the
// console, and as short texts in the slots of a reply. Values may be shorter than their kind:
// nothing is read past what is stored.
#pragma once

#include <cstdint>

#include "kivo/database.h"
#include "kivo/fetch.h"

namespace kivo {

// A value of the record of a label; no bytes when it is absent or could not be read.
struct StoredValue {
  uint32_t label;
  uint32_t aaa_type;
  const uint8_t *bytes;
  uint32_t length;
};

// Reads a value; it holds until the record is next written.
StoredValue read_value(kivo_db &db, uint32_t label, uint32_t aaa_type) noexcept;

// Writes a value at the current position of the console. Type 10 is read from the record anew.
void render_on_console(kivo_db &db, kivo_data_type data_type, const StoredValue &value) noexcept;

// Writes a value into a slot, cut to its size. Kinds without a text leave the slot as it was.
void render_in_slot(kivo_db &db, kivo_data_type data_type, const StoredValue &value,
                    kivo_value_slot &slot) noexcept;

}  // namespace kivo
