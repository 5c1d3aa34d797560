// See stored_value.h.
#include "stored_value.h"

#include <algorithm>

#include "kivo/shadow_db.h"

namespace kivod {
namespace {

void get_identities(const attrdb_record &record, uint32_t index,
                    std::vector<std::string_view> &values) {
  const shadowdb_rec *shadow = auth_mgr_idc_peek_shadow_record_in_ctxt(record.ctxt);
  if (shadow == nullptr) return;
  std::vector<const shadowdb_attr_entry *> entries;
  for (const auto *entry = shadow->attr_lists[index]; entry != nullptr; entry = entry->next) {
    if (entry->length > sizeof(entry->subtype)) entries.push_back(entry);
  }
  std::ranges::sort(entries, {}, &shadowdb_attr_entry::subtype);
  for (const auto *entry : entries) {
    values.emplace_back(reinterpret_cast<const char *>(entry->value) + sizeof(entry->subtype),
                        entry->length - sizeof(entry->subtype));
  }
}

}  // namespace

void get_stored_values(const attrdb_record &record, uint32_t type,
                       std::vector<std::string_view> &values) {
  constexpr size_t kAddressSize = 16;
  values.clear();
  uint32_t index = 0;
  if (kivo_check_is_shadow_attrib(type, &index) != 0) return get_identities(record, index, values);
  std::string_view stored = stored_value(record, type);
  while (type == AAA_ATTR_IPV6_ADDRESSES && stored.size() > kAddressSize) {
    values.push_back(stored.substr(0, kAddressSize));
    stored.remove_prefix(kAddressSize);
  }
  if (!stored.empty()) values.push_back(stored);
}

}  // namespace kivod
