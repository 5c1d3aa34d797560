// See session_printer.h.
#include "session_printer.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "kivo/query.h"
#include "kivo/records.h"
#include "platform/aaa.h"
#include "sessions/handles.h"
#include "sessions/session_database.h"
#include "sessions/stored_value.h"
#include "sessions/value_text.h"
#include "text/counted.h"

namespace kivod {
namespace {

// Prints blocks whose values stand in one column, whatever the sessions have.
class Printer {
 public:
  explicit Printer(kivo_db *db) : db_(db) {
    for (const kivo_attr_config &row : session_attributes()) {
      width_ = std::max(width_, std::string_view(aaa_dict_get_attr_name(row.aaa_type)).size());
    }
  }

  // In the order of their labels. False when a record could not be read.
  bool print(const LabelSet &set) {
    std::vector<uint32_t> labels;
    uint32_t cursor = 0;
    while (const uint32_t label = kivo_index_list_next(set.get(), &cursor)) labels.push_back(label);
    std::ranges::sort(labels);
    for (const uint32_t label : labels) {
      attrdb_record *record = nullptr;
      if (kivo_get_record(db_, label, &record) != PLATFORM_OK) return false;
      if (record != nullptr) print(*record);
    }
    return true;
  }

 private:
  void print(const attrdb_record &record) {
    block_.clear();
    add_line("label", std::to_string(record.label));
    for (const kivo_attr_config &row : session_attributes()) {
      const char *name = aaa_dict_get_attr_name(row.aaa_type);
      get_stored_values(record, row.aaa_type, values_);
      for (const std::string_view value : values_) {
        add_line(name, shown_value(row.aaa_type, value));
        name = "";
      }
    }
    block_.push_back('\n');
    std::fwrite(block_.data(), 1, block_.size(), stdout);
  }

  void add_line(std::string_view name, const std::string &value) {
    constexpr size_t kGap = 2;
    block_.append(name).append(width_ - name.size() + kGap, ' ').append(value).push_back('\n');
  }

  kivo_db *db_;
  size_t width_ = 0;
  std::string block_;
  std::vector<std::string_view> values_;
};

bool find(kivo_db *db, const AttrCondition &condition, LabelSet &labels, uint32_t &count) {
  return labels && kivo_match_labels_by_attr(db, condition.type, condition.bytes.data(),
                                             static_cast<uint32_t>(condition.bytes.size()),
                                             labels.address(), &count) == PLATFORM_OK;
}

// Prints the sessions found and what they were found by.
Answer print_found(kivo_db *db, const LabelSet &labels, uint32_t count, const std::string &by) {
  if (!Printer(db).print(labels)) return Answer::kFailed;
  std::printf("%s%s\n", host_text::counted(count, "session").c_str(), by.c_str());
  return count != 0 ? Answer::kFound : Answer::kNone;
}

std::string described(const AttrCondition &condition) {
  return std::string(" with ") + aaa_dict_get_attr_name(condition.type) + " " +
         shown_value(condition.type, condition.bytes);
}

}  // namespace

Answer print_all_sessions(kivo_db *db) {
  LabelSet labels;
  uint32_t count = 0;
  if (kivo_get_session_list(db, labels.receive(), &count) != PLATFORM_OK) return Answer::kFailed;
  return print_found(db, labels, count, "") == Answer::kFailed ? Answer::kFailed : Answer::kFound;
}

Answer print_sessions(kivo_db *db, const AttrCondition &condition) {
  LabelSet labels;
  uint32_t count = 0;
  if (!find(db, condition, labels, count)) return Answer::kFailed;
  return print_found(db, labels, count, described(condition));
}

Answer print_sessions_of_id(kivo_db *db, const std::string &id) {
  for (const uint32_t type : {AAA_ATTR_AUDIT_SESSION_ID, AAA_ATTR_SESSION_ID}) {
    const AttrCondition condition{type, id};
    LabelSet labels;
    uint32_t count = 0;
    if (!find(db, condition, labels, count)) return Answer::kFailed;
    if (count != 0) return print_found(db, labels, count, described(condition));
  }
  std::printf("0 sessions with audit-session-id or session-id %s\n",
              shown_value(AAA_ATTR_SESSION_ID, id).c_str());
  return Answer::kNone;
}

}  // namespace kivod
