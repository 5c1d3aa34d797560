// The table of a database's attribute types on the console, with or without the clients and handles
// that are registered for their changes.
#pragma once

#include "kivo/database.h"

namespace kivo {

void show_attribute_table(kivo_db &db, bool with_notifications) noexcept;

}  // namespace kivo
