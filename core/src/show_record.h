// One record in full on the console: its external identities, then its attributes.
#pragma once

#include <cstdint>

#include "kivo/database.h"

namespace kivo {

void kivo_show_record(kivo_db &db, uint32_t label) noexcept;

}  // namespace kivo
