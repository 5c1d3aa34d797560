// See match.h.
#include "match.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "kivo/query.h"
#include "kivo/records.h"
#include "sessions/handles.h"
#include "sessions/stored_value.h"
#include "text/printable.h"
#include "text/text_table.h"

namespace kivod {
namespace {

std::string text_cell(std::string_view bytes) { return host_text::printable(bytes); }

std::string address_cell(std::string_view bytes) {
  return auth_mgr_safe_printable_mac(bytes.empty() ? nullptr : bytes.data(),
                                     static_cast<uint32_t>(bytes.size()));
}

// The first of several addresses, and how many more there are.
std::string addresses_cell(std::string_view bytes) {
  constexpr size_t kSize = 16;
  std::string cell = address_cell(bytes.substr(0, kSize));
  if (bytes.size() > kSize) cell += " +" + std::to_string(bytes.size() / kSize - 1);
  return cell;
}

std::string time_cell(std::string_view bytes) {
  uint64_t seconds = 0;
  if (bytes.size() != sizeof(seconds)) return {};
  std::memcpy(&seconds, bytes.data(), sizeof(seconds));
  const auto time = static_cast<time_t>(seconds);
  tm utc{};
  std::array<char, 32> text{};
  if (gmtime_r(&time, &utc) == nullptr) return {};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text.data();
}

struct Column {
  const char *heading;
  uint32_t type;
  uint32_t instead;  // shown as text for a session that lacks the type; 0 for none
  std::string (*cell)(std::string_view bytes);
};

constexpr Column kColumns[] = {
    {"USER", AAA_ATTR_USER_NAME, 0, text_cell},
    {"MAC", AAA_ATTR_MAC_ADDRESS, 0, address_cell},
    {"IPV4", AAA_ATTR_IPV4_ADDRESS, 0, address_cell},
    {"IPV6", AAA_ATTR_IPV6_ADDRESSES, 0, addresses_cell},
    {"SERVER", AAA_ATTR_ACCESS_SERVER_ADDRESS, AAA_ATTR_ACCESS_SERVER_ID, address_cell},
    {"INTERFACE", AAA_ATTR_INTERFACE_NAME, 0, text_cell},
    {"SESSION", AAA_ATTR_SESSION_ID, 0, text_cell},
    {"METHOD", AAA_ATTR_METHOD, 0, text_cell},
    {"START", AAA_ATTR_START_TIME, 0, time_cell},
};

host_text::TextTable make_table() {
  std::vector<std::string> headings = {"LABEL"};
  for (const Column &column : kColumns) headings.emplace_back(column.heading);
  return host_text::TextTable(std::move(headings));
}

std::vector<std::string> make_row(const attrdb_record &record) {
  std::vector<std::string> cells = {std::to_string(record.label)};
  for (const Column &column : kColumns) {
    const std::string_view bytes = stored_value(record, column.type);
    const bool use_instead = bytes.empty() && column.instead != 0;
    cells.push_back(use_instead ? text_cell(stored_value(record, column.instead))
                                : column.cell(bytes));
  }
  return cells;
}

bool is_indexed(kivo_db *db, const AttrCondition &condition) {
  kivo_accel_entry *entry = nullptr;
  return kivo_get_accel_from_type(condition.type, db, &entry) == PLATFORM_OK && entry != nullptr &&
         entry->indexed != 0;
}

bool meets(const attrdb_record &record, const AttrCondition &condition) {
  const std::string_view stored = stored_value(record, condition.type);
  if (condition.type != AAA_ATTR_IPV6_ADDRESSES) return stored == condition.bytes;
  for (size_t i = 0; i < stored.size(); i += condition.bytes.size()) {
    if (stored.substr(i, condition.bytes.size()) == condition.bytes) return true;
  }
  return false;
}

bool add_conditions(kivo_maqi &query, const std::vector<AttrCondition> &conditions) {
  for (const AttrCondition &condition : conditions) {
    if (!is_indexed(query.db, condition)) continue;
    uint32_t may_match = 0;
    if (kivo_add_attr_to_query(&query, condition.type, condition.bytes.data(),
                               static_cast<uint32_t>(condition.bytes.size()),
                               &may_match) != PLATFORM_OK) {
      return false;
    }
  }
  return true;
}

}  // namespace

MatchResult print_matches(kivo_db *db, const std::vector<AttrCondition> &conditions) {
  const auto indexed = [&](const AttrCondition &condition) { return is_indexed(db, condition); };
  if (std::ranges::none_of(conditions, indexed)) return MatchResult::kNotIndexed;
  kivo_maqi query;
  LabelSet labels;
  uint32_t count = 0;
  if (kivo_start_multi_attr_query(db, &query) != PLATFORM_OK ||
      !add_conditions(query, conditions) ||
      kivo_get_matches_for_query(&query, labels.receive(), &count) != PLATFORM_OK) {
    return MatchResult::kFailed;
  }
  host_text::TextTable table = make_table();
  uint32_t n_found = 0;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(labels.get(), &cursor)) {
    attrdb_record *record = nullptr;
    if (kivo_get_record(db, label, &record) != PLATFORM_OK) return MatchResult::kFailed;
    const auto met = [&](const AttrCondition &condition) { return meets(*record, condition); };
    if (record == nullptr || !std::ranges::all_of(conditions, met)) continue;
    table.add(make_row(*record));
    ++n_found;
  }
  if (n_found != 0) table.print(stdout);
  std::printf("%u sessions\n", n_found);
  return n_found != 0 ? MatchResult::kFound : MatchResult::kNone;
}

}  // namespace kivod
