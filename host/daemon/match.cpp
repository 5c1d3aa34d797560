// See match.h.
#include "match.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "kivo/query.h"
#include "kivo/records.h"
#include "sessions/handles.h"
#include "sessions/stored_value.h"
#include "sessions/value_text.h"
#include "text/counted.h"
#include "text/text_table.h"

namespace kivod {
namespace {

struct Column {
  const char *heading;
  uint32_t type;
  uint32_t instead;  // shown for a session that lacks the type; 0 for none
};

constexpr Column kColumns[] = {
    {"USER", AAA_ATTR_USER_NAME, 0},
    {"MAC", AAA_ATTR_MAC_ADDRESS, 0},
    {"IPV4", AAA_ATTR_IPV4_ADDRESS, 0},
    {"IPV6", AAA_ATTR_IPV6_ADDRESSES, 0},
    {"SERVER", AAA_ATTR_ACCESS_SERVER_ADDRESS, AAA_ATTR_ACCESS_SERVER_ID},
    {"INTERFACE", AAA_ATTR_INTERFACE_NAME, 0},
    {"SESSION-ID", AAA_ATTR_SESSION_ID, 0},
    {"METHOD", AAA_ATTR_METHOD, 0},
    {"START", AAA_ATTR_START_TIME, 0},
};

host_text::TextTable make_table() {
  std::vector<std::string> headings = {"LABEL"};
  for (const Column &column : kColumns) headings.emplace_back(column.heading);
  return host_text::TextTable(std::move(headings));
}

// The first value, and how many more there are.
std::string make_cell(const attrdb_record &record, uint32_t type) {
  std::vector<std::string_view> values;
  get_stored_values(record, type, values);
  if (values.empty()) return {};
  const std::string cell = shown_value(type, values[0]);
  return values.size() == 1 ? cell : cell + " +" + std::to_string(values.size() - 1);
}

std::vector<std::string> make_row(const attrdb_record &record) {
  std::vector<std::string> cells = {std::to_string(record.label)};
  for (const Column &column : kColumns) {
    cells.push_back(make_cell(record, column.type));
    if (cells.back().empty() && column.instead != 0) {
      cells.back() = make_cell(record, column.instead);
    }
  }
  return cells;
}

bool is_indexed(kivo_db *db, const AttrCondition &condition) {
  kivo_accel_entry *entry = nullptr;
  return kivo_get_accel_from_type(condition.type, db, &entry) == PLATFORM_OK && entry != nullptr &&
         entry->indexed != 0;
}

bool meets(const attrdb_record &record, const AttrCondition &condition,
           std::vector<std::string_view> &values) {
  get_stored_values(record, condition.type, values);
  return std::ranges::find(values, condition.bytes) != values.end();
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

Answer print_matches(kivo_db *db, const std::vector<AttrCondition> &conditions) {
  const auto indexed = [&](const AttrCondition &condition) { return is_indexed(db, condition); };
  if (std::ranges::none_of(conditions, indexed)) return Answer::kNotIndexed;
  kivo_maqi query;
  LabelSet labels;
  uint32_t count = 0;
  if (kivo_start_multi_attr_query(db, &query) != PLATFORM_OK ||
      !add_conditions(query, conditions) ||
      kivo_get_matches_for_query(&query, labels.receive(), &count) != PLATFORM_OK) {
    return Answer::kFailed;
  }
  host_text::TextTable table = make_table();
  std::vector<std::string_view> values;
  uint32_t n_found = 0;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(labels.get(), &cursor)) {
    attrdb_record *record = nullptr;
    if (kivo_get_record(db, label, &record) != PLATFORM_OK) return Answer::kFailed;
    const auto met = [&](const AttrCondition &condition) {
      return meets(*record, condition, values);
    };
    if (record == nullptr || !std::ranges::all_of(conditions, met)) continue;
    table.add(make_row(*record));
    ++n_found;
  }
  if (n_found != 0) table.print(stdout);
  std::printf("%s\n", host_text::counted(n_found, "session").c_str());
  return n_found != 0 ? Answer::kFound : Answer::kNone;
}

}  // namespace kivod
