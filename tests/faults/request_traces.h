// The traces of the show-database request, as its contract lists them, and what a request wrote of
// them. A trace goes by the key of its row: "cb" for the callback, "rq" for the handler and the
// epilogue. "$" in a text is what a request fills in, and follows the key: "rq0=1". What is behind
// "*" is somewhere in the text.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "platform/trace.h"

namespace kivo_test {

struct RequestTrace {
  const char *key;
  uint16_t module;
  uint32_t number;
  uint32_t level;
  std::string text;
  uint16_t indent = 0;
};

constexpr uint16_t kA = TRACE_MODULE_HOST_APP;
constexpr uint16_t kH = TRACE_MODULE_REQUEST_HANDLER;

// clang-format off
inline const RequestTrace kRequestTraces[] = {
    {"cb0",  kA,  0, 3, "show kivo database command handler failed: Invalid argument."},
    {"cb1",  kA,  1, 3, "Cannot marshal common message. Invalid argument."},
    {"cb2",  kA,  2, 7, "Error already set when doing compound marshal: $"},
    {"cb3",  kA,  3, 8, "Marshaled zelui_kivo_db_common_msg message to shell manager"},
    {"cb5",  kA,  5, 3, "Could not get scratch buffer."},
    {"cb6",  kA,  6, 8, "*ATTR_DB", 1},
    {"cb7",  kA,  7, 3, "Could not render message: $"},
    {"cb8",  kA,  8, 3, "Failed to marshal zelui_kivo_db_common_msg message: $"},
    {"cb9",  kA,  9, 3, "Cannot marshal db filter message. Invalid argument."},
    {"cb10", kA, 10, 7, "Error already set when doing compound marshal: $"},
    {"cb11", kA, 11, 8, "Marshaled zelui_kivo_db_filter_msg message to shell manager"},
    {"cb13", kA, 13, 3, "Could not get scratch buffer."},
    {"cb14", kA, 14, 8, "*filter_info", 1},
    {"cb15", kA, 15, 3, "Could not render message: $"},
    {"cb16", kA, 16, 3, "Failed to marshal zelui_kivo_db_filter_msg message: $"},
    {"cb17", kA, 17, 3, "Cannot marshal db message. Invalid argument."},
    {"cb18", kA, 18, 7, "Error already set when doing compound marshal: $"},
    {"cb19", kA, 19, 8, "Marshaled zelui_kivo_db_msg message to shell manager"},
    {"cb21", kA, 21, 3, "Could not get scratch buffer."},
    {"cb22", kA, 22, 8, "*db_info", 1},
    {"cb23", kA, 23, 3, "Could not render message: $"},
    {"cb24", kA, 24, 3, "Failed to marshal zelui_kivo_db_msg message: $"},
    {"rq0",  kA,  0, 7, "Finished cmd handler of show_kivo_database_request, return $"},
    {"rq1",  kH,  1, 7, "Handling content-generating show_kivo_database_request request handler"},
    {"rq2",  kA,  2, 7, "Request content"},
    {"rq3",  kA,  3, 7, "Handler called with connection in error: $"},
    {"rq4",  kA,  4, 7, "Calling finished"},
    {"rq6",  kA,  6, 8, "Marshaled show_kivo_database_resp_bundle_start message to shell manager"},
    {"rq7",  kA,  7, 8, "  - message was empty"},
    {"rq8",  kA,  8, 3, "Failed to marshal show_kivo_database_resp_bundle_start message: $"},
    {"rq9",  kH,  9, 3, "Handler for show_kivo_database_request failed with error: $"},
    {"rq10", kH, 10, 3, "Assuming show_kivo_database_resp handler has corrupted channel"},
    {"rq11", kH, 11, 7, "Initial asynchronous handler show_kivo_database_request succeeded"},
    {"rq12", kH, 12, 7, "Response was synchronous. Application will NOT invoke show_kivo_database_request epilogue function, as it is being invoked automatically now"},
    {"rq13", kA, 13, 7, "Application registered continuation for show_kivo_database_request"},
    {"rq14", kH, 14, 7, "Response is asynchronous. Application will invoke show_kivo_database_request epilogue function when ready"},
    {"rq15", kA, 15, 0, "Application registered continuation for show_kivo_database_request while in asynchronous return state"},
    {"rq16", kA, 16, 0, "Invalid result $ from show_kivo_database_request callback"},
    {"rq18", kA, 18, 8, "Marshaled show_kivo_database_resp_bundle_abort message to shell manager"},
    {"rq19", kA, 19, 8, "  - message was empty"},
    {"rq20", kA, 20, 3, "Failed to marshal show_kivo_database_resp_bundle_abort message: $"},
    {"rq21", kH, 21, 3, "Unable to abort bundle in show_kivo_database_resp handler: $"},
    {"rq22", kH, 22, 7, "Handling content-generating show_kivo_database_request request closure"},
    {"rq23", kH, 23, 3, "Closure for show_kivo_database_request invoked with error: $"},
    {"rq24", kH, 24, 3, "Assuming show_kivo_database_resp closure has corrupted channel"},
    {"rq25", kH, 25, 7, "show_kivo_database_resp epilogue succeeded, completing response"},
    {"rq27", kA, 27, 8, "Marshaled show_kivo_database_resp_bundle_commit message to shell manager"},
    {"rq28", kA, 28, 8, "  - message was empty"},
    {"rq29", kA, 29, 3, "Failed to marshal show_kivo_database_resp_bundle_commit message: $"},
    {"rq31", kA, 31, 8, "Marshaled show_kivo_database_resp_bundle_abort message to shell manager"},
    {"rq32", kA, 32, 8, "  - message was empty"},
    {"rq33", kA, 33, 3, "Failed to marshal show_kivo_database_resp_bundle_abort message: $"},
    {"rq34", kH, 34, 3, "Unable to abort bundle in show_kivo_database_resp epilogue: $"},
    {"rq35", kH, 35, 3, "Had error: $"},
};
// clang-format on

// What a "$" of the row stands for in the record, behind "="; null when the record is no such row.
inline bool follows(const RequestTrace &row, const trace_record &record, std::string &filled) {
  const std::string text(record.text, record.length);
  const size_t hole = row.text.find('$');
  const size_t tail = hole == std::string::npos ? 0 : row.text.size() - hole - 1;
  if (row.module != record.module || row.number != record.number || row.level != record.level ||
      row.indent != record.indent) {
    return false;
  }
  if (hole == std::string::npos)
    return row.text[0] == '*' ? text.find(row.text.substr(1)) != text.npos : row.text == text;
  filled = "=" + text.substr(std::min(hole, text.size()));
  if (!text.starts_with(row.text.substr(0, hole)) || filled.size() - 1 < tail) return false;
  if (!filled.ends_with(row.text.substr(hole + 1))) return false;
  filled.resize(filled.size() - tail);
  return true;
}

// Collects the keys of the records under the two modules while it lives; "dump" for the fields of
// the request that the channel lists, and what is in no row as it is.
class RequestTraces {
 public:
  RequestTraces() {
    trace_set_all_levels(TRACE_LEVEL_MAX);
    trace_add_sink(receive, nullptr, this);
  }
  ~RequestTraces() {
    trace_remove_sink(receive, this);
    trace_set_all_levels(TRACE_LEVEL_DEFAULT);
  }
  RequestTraces(const RequestTraces &) = delete;
  RequestTraces &operator=(const RequestTraces &) = delete;

  std::vector<std::string> keys;

 private:
  static void receive(const trace_record *record, void *arg) {
    auto &keys = static_cast<RequestTraces *>(arg)->keys;
    if (record->module != kA && record->module != kH) return;
    const bool dumped = !keys.empty() && (keys.back() == "rq2" || keys.back() == "dump");
    std::string filled;
    const auto *row = std::find_if(std::begin(kRequestTraces), std::end(kRequestTraces),
                                   [&](const auto &r) { return follows(r, *record, filled); });
    if (row != std::end(kRequestTraces)) {
      keys.push_back(row->key + (row->text.find('$') != std::string::npos ? filled : ""));
    } else if (!dumped || record->module != kA || record->level != 7) {
      keys.push_back("no row: " + std::to_string(record->number) + " " + record->text);
    } else if (keys.back() != "dump") {
      keys.emplace_back("dump");
    }
  }
};

}  // namespace kivo_test
