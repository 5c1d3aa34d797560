// Listings on the console: the sizes of the record store's index trees, every record in detail, and
// a database's attribute types with their numbers.
#include <algorithm>

#include "console.h"
#include "database.h"
#include "kivo/shadow_db.h"
#include "shown_database.h"

namespace kivo {
namespace {

constexpr uint32_t kAddressSize = 16;

struct TreeCount {
  const char *format;
  uint32_t (*total)() noexcept;
};

constexpr TreeCount kTreeCounts[] = {
    {"\nTotal Sessions    : %u", attrdb_get_total_sessions},
    {"\nMAC Sessions      : %u", attrdb_get_total_mac_tree_sessions},
    {"\nSwidb Sessions    : %u", attrdb_get_total_swidb_tree_sessions},
    {"\nIIF-ID Sessions    : %u", attrdb_get_total_iif_id_tree_sessions},
    {"\nDomain Sessions   : %u", attrdb_get_total_domain_tree_sessions},
    {"\nMethod Sessions   : %u", attrdb_get_total_method_tree_sessions},
    {"\nAudit Sessions    : %u", attrdb_get_total_audit_sess_id_tree_sessions},
    {"\nSess-id Sessions  : %u", attrdb_get_total_session_id_tree_sessions},
};

void list_all_records(const kivo_db &db) noexcept {
  kivo_db copy = db;
  kivo_show_walk_ctx context = {&copy, attrdb_get_total_sessions(), 0};
  attrdb_walk_all_records(kivo_show_record_attrs_test, &context);
}

// The record store's code for printing a value of the type.
uint32_t type_code(kivo_db &db, uint32_t aaa_type) noexcept {
  kivo_accel_entry *entry = nullptr;
  if (kivo_get_accel_from_type(aaa_type, &db, &entry) != PLATFORM_OK || entry == nullptr) {
    return ATTRDB_TYPE_UNKNOWN;
  }
  return attrdb_kivo_type_to_attrdb_type(entry->data_type);
}

void print_line(uint32_t aaa_type, const void *value, uint32_t size, uint32_t code) noexcept {
  char text[ATTRDB_PRINT_TEXT_MAX] = "";
  kivo_console_write("\n%-30s: %s", attrdb_get_attr_name_from_type(aaa_type),
                     attrdb_print_data_with_kivo_type(value, size, text, code));
}

// One line; a line for each address of type 10.
void print_attribute(kivo_db &db, const attrdb_record &record, uint32_t aaa_type) noexcept {
  const void *value = nullptr;
  uint32_t size = 0;
  uint32_t count = 0;
  if (auth_mgr_idc_get_attr(record.ctxt, aaa_type, &value, &size, &count) != PLATFORM_OK ||
      value == nullptr) {
    return;
  }
  const uint32_t code = type_code(db, aaa_type);
  if (aaa_type != AAA_ATTR_IPV6_ADDRESSES) {
    print_line(aaa_type, value, size, code);
    return;
  }
  for (uint32_t i = 0; i < count; ++i) {
    print_line(aaa_type, static_cast<const uint8_t *>(value) + size_t{i} * kAddressSize,
               kAddressSize, code);
  }
}

}  // namespace
}  // namespace kivo

using namespace kivo;

void kivo_show_all_records(uint32_t detail) noexcept {
  for (const kivo_db &db : client_info) {
    if (!is_shown(db)) continue;
    write_database_header(db);
    if (detail != 0) {
      list_all_records(db);
      continue;
    }
    for (const TreeCount &row : kTreeCounts) kivo_console_write(row.format, row.total());
  }
}

uint32_t kivo_show_record_attrs_test(attrdb_record *record, void *context) noexcept {
  if (record == nullptr || context == nullptr) return 0;
  auto &walk = *static_cast<kivo_show_walk_ctx *>(context);
  kivo_db &db = *walk.db;
  kivo_console_write("\n\nDisplaying Record: [%u/%u]", walk.number, walk.total);
  kivo_console_write("\nUnique Label: 0x%x\n", record->label);
  kivo_console_write("%-30s: %s", "Attribute Name", "Value");
  kivo_console_write("\n----------------------------------------------------------------");
  const uint32_t n = db.accel_tbl == nullptr ? 0 : std::min(KIVO_SHOW_RECORD_ATTRS, db.accel_count);
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t aaa_type = db.accel_tbl[i].aaa_type;
    if (aaa_type >= 1 && aaa_type <= AAA_ATTR_TYPE_MAX) print_attribute(db, *record, aaa_type);
  }
  shadowdb_show_rec(&db, record->label);
  ++walk.number;
  return 1;
}

void kivo_show_attrs_short(const kivo_db *db) noexcept {
  if (db == nullptr) return;
  kivo_console_write("\n\n%-30s  %-10s  %-10s", "Attribute Name", "Id", "Type");
  for (const kivo_attr_config &row : config_rows(*db)) {
    kivo_console_write("\n%-30s %-4u       %-10s", aaa_dict_get_attr_name(row.aaa_type),
                       row.aaa_type, data_type_name(row.data_type));
  }
}
