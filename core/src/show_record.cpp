// See show_record.h. Only the attribute types of the database's configuration are shown.
#include "show_record.h"

#include "console.h"
#include "database.h"
#include "kivo/shadow_db.h"
#include "platform/aaa.h"
#include "value_rendering.h"

namespace kivo {
namespace {

void write_rule() noexcept { kivo_console_write("\n--------------------------------------------"); }

void write_columns() noexcept {
  kivo_console_write("\n\n        ATTRIBUTE     VALUE");
  kivo_console_write("\n--------------------  ------------------------");
}

void show_attribute(kivo_db &db, uint32_t label, const kivo_attr_config &row) noexcept {
  const StoredValue value = read_value(db, label, row.aaa_type);
  kivo_console_write("\n%-30s : ", aaa_dict_get_attr_name(row.aaa_type));
  render_on_console(db, row.data_type, value);
}

}  // namespace

void kivo_show_record(kivo_db &db, uint32_t label) noexcept {
  kivo_console_write("\n\nSession Opaque Attributes");
  write_rule();
  write_columns();
  shadowdb_show_rec(&db, label);
  write_rule();
  write_columns();
  const ConfigRows rows = config_rows(db);
  if (rows.empty()) {
    kivo_console_write("\nNo Attributes Found.");
    return;
  }
  for (const kivo_attr_config &row : rows) show_attribute(db, label, row);
}

}  // namespace kivo
