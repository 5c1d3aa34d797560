// Every message that is traced, as its contract has it: number, module (L the library's, A the host
// application's, H the request handlers') with the levels it may have, and text.
#include "support/trace_words.h"

#include <cstdio>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "kivo/kivo.h"
#include "platform/error_text.h"

namespace kivo_test {
namespace {

struct Message {
  uint32_t number;
  const char *where;
  const char *text;
};

constexpr Message kLibrary[] = {
    {100, "L6", "%s"},
    {200, "L3", "create database: bad params"},
    {201, "L3", "create database: db/owner name lengths exceeded max:%d"},
    {202, "L3", "register client:%s No free entry to store registration"},
    {203, "L6", "register client:%s # clients per process %d reached max %d"},
    {204, "L3", "register client:%s Couldn't allocate memory for attributes"},
    {205, "L3", "create_acceleration_table failed"},
    {206, "L3", "create_acceleration_table failed, NULL accel tbl"},
    {207, "L3", "acceleration table create failed, table's index exceeded its size"},
    {208, "L3", "create_acceleration_table tbl slot = %d already taken attr_type = %d"},
    {209, "L3", "create acceleration_table failed"},
    {210, "L3", "create databse:%s shim_register_client failed, error:%s"},
    {250, "L6", "aaa_type: %s accln tbl index: %d"},
    {251, "L6", "get_accel_from_type failed tbl %p, type %d: none accel type"},
    {300, "L6", "Inserting record with label: %x"},
    {301, "L6", "get record"},
    {302, "L3", "get record, unique label: invalid input params"},
    {303, "L3", "get record: get record failed, error:%s"},
    {304, "L3", "Delete record: failederror:%s"},
    {305, "L3", "match labels by attr: invalid params"},
    {306, "L3", "match records by attr: invalid params"},
    {307, "L6", "match records by attr:%s, attr type:%d"},
    {308, "L3", "get records by attr %d: get records failed, error:%s"},
    {309, "L3", "match label by attr: invalid params"},
    {310, "L3", "get label by attr: get record failed, error:%s, rec %p"},
    {311, "L6", "match label by attr type:%d"},
    {312, "L3", "match record by attr: invalid params"},
    {313, "L6", "match record by attr:%s, attr type:%d"},
    {314, "L3", "get record by attr: get record failed, error:%s"},
    {400, "L3", "register attr change: client info is null"},
    {401, "L3", "attr_change_notification: change notification failed(%s) Failed."},
    {402, "L6", "attr_change_notification: change notification failed(%s) no accel type %d"},
    {403, "L6", "attr_change_notification: update vector data (%s) action %d, type %d, func_cb %p"},
    {404, "L6", "attr_change_notification: new vector data (%s) action %d, type %d, func_cb %p"},
    {405, "L3", "Attribute size %u greater than max allowed: %u"},
    {406, "L3", "attr_change_notification: bad attr params.Size: %u, data: %p, client_info: %p"},
    {407, "L6",
     "attr_change_notification: change notification failed(%s) not supported index attr %d"},
    {408, "L6", "attr_change_notification notify type %d, size %d, data %p"},
    {500, "L3", "add or update attr: invalid params"},
    {501, "L6", "add or update attr:%s, attr type:%d"},
    {502, "L3", "Add/update attr list: get record internal failed, error:%s"},
    {503, "L6", "add or update attr:%s, attr type:%d, rec doesn't exist"},
    {504, "L3", "Add/update attr: add/update attr to rec failed, error:%s"},
    {505, "L36", "Add/update attr list: Notify failed, error:%s"},
    {520, "L3", "add attr to record: invalid params"},
    {521, "L3", "kivo_add_attr_to_record: Add attr failed, error:%s"},
    {522, "L3", "kivo_add_attr_to_record: Notify failed, error:%s"},
    {523, "L3", "add attr to label: invalid params"},
    {524, "L3", "Add attr list: invlaid params"},
    {525, "L6", "add attr list:%s"},
    {526, "L3", "Add attr list: get record internal failed, error:%s"},
    {527, "L6", "add attr list:%s rec doesn't exist"},
    {528, "L3", "kivo_add_attr: Add failed, error:%s"},
    {530, "L3", "add attr list: invalid params"},
    {531, "L3", "Add attr list: invalid params"},
    {532, "L6", "Add attr list:%s"},
    {533, "L6", "Add attr list:%s rec doesn't exist"},
    {534, "L3", "Add attr list: get attr failed, error:%s"},
    {535, "L3", "Add attr list: add attr to rec failed, error:%s"},
    {536, "L3", "Add attr list: failed, error:%s"},
    {540, "L3", "add or update attr to rec: invalid params"},
    {541, "L3", "add or update attr to rec: failed, error:%s"},
    {542, "L3", "Add/update attr to rec: Notify failed, error:%s"},
    {550, "L3", "Add/update attr list: invalid params"},
    {551, "L6", "add or update attr list:%s"},
    {552, "L6", "add or update attr list:%s, rec doesn't exist"},
    {553, "L3", "Add/update attr list: get attr failed, error:%s"},
    {554, "L6", "Add/update attr list: Unsupported attribute: %u.Continue to next"},
    {555, "L3", "Add/update attr list: add attr to rec failed, error:%s"},
    {560, "L3", "Clean/Add attr list: invalid params"},
    {561, "L6", "clean and add attr list:%s"},
    {562, "L3", "Clean/Add attr list: get record internal failed, error:%s"},
    {563, "L6", "clean and add attr list:%s, rec doesn't exist"},
    {564, "L3", "Clean/Add attr list: get attr failed, error:%s"},
    {565, "L6", "Clean/Add attr list: Unsupported attribute: %u.Continue to next"},
    {566, "L3", "Clean/Add attr list: add attr to rec failed, error:%s"},
    {567, "L3", "Clean/Add attr list: Notify failed, error:%s"},
    {570, "L3", "remove attrs: invalid params"},
    {571, "L6", "remove attrs:"},
    {572, "L3", "Remove attr by type: Get attr from rec failed, error:%s"},
    {573, "L3", "Remove attr by type: Notify failed, error:%s"},
    {574, "L3", "Remove attr by type: Remove failed, error:%s"},
    {575, "L6", "remove attrs:%s"},
    {576, "L6", "remove attrs:%s rec doesn't exist"},
    {577, "L3", "Remove attrs by type: Remove attr failed, error:%s"},
    {578, "L3", "remove attrs: invalid rec"},
    {579, "L3", "Remove attr by type/val: Remove attr failed, error:%s"},
    {580, "L3", "Remove attrs from rec by type and val: Notify failed, error:%s"},
    {600, "L3", "Failed to initialize kivo index list hashtable"},
    {601, "L3", "Failed to add index %u to kivo index list hashtable"},
    {602, "L6", "Hash items after cleanup =%d"},
    {620, "L6", "start_multi_attr_query"},
    {621, "L3", "start_multi_attr_query Invalid params"},
    {622, "L6", "kivo_add_attr_to_query"},
    {623, "L3", "add_attr_to_multi_query: Null ctx param"},
    {624, "L3", "add_attr_to_multi_query: Invalid params"},
    {625, "L6", "add_attr_to_multi_query: MAQI_NO_MATCHES"},
    {626, "L3", "check_attr_indxed_int: invalid params"},
    {627, "L3", "add_attr_to_multi_query failed: type %d indexed %d"},
    {628, "L3", "check_attr_indxed_int: Error in accl_tbl type %d, error:%s"},
    {629, "L6", "check_attr_indxed_int: not accel type %d, "},
    {630, "L3", "add_attr_to_multi_query list create failed: type %d indexed %d"},
    {631, "L3", "add_attr_to_multi_query get failed: type %d indexed %d"},
    {632, "L6", "add_attr_to_multi_query index attr no matches: type %d indexed %d"},
    {633, "L3", "add_attr_to_multi_query lists intersect failed: type %d indexed %d"},
    {634, "L6", "add_attr_to_multi_query index attr no intersect: type %d indexed %d"},
    {635, "L3", "add_attr_to_multi_query lists size failed: type %d indexed %d"},
    {636, "L3", "add_attr_to_multi_query:  unindexed attrs failed"},
    {637, "L6", "add_attr_to_multi_query unindex attr no match: type %d indexed %d"},
    {638, "L6", "add_attr_to_multi_query unindex attr stored : type %d indexed %d"},
    {639, "L6", "add_attr_to_multi_query: Too many unindexed attrs"},
    {640, "L3", "match_attr_to_candidates_int: invalid params"},
    {641, "L6", "kivo_get_matches_for_query"},
    {642, "L6", "get_matches_to_multi_query: KIVO_MAQI_NO_MATCHES"},
    {643, "L6", "get_matches_to_multi_query: TOO MANY MATCHES %d"},
    {650, "L3", "match_sessions_from_list: invalid params"},
    {651, "L6", "match sessions from list :%s"},
    {652, "L3", "match_sessions_from_list: get attr failed, error:%s"},
    {653, "L3", "match_sessions_from_list: accel lookup error, error:%s"},
    {654, "L6", "match_sessions_from_list: type %d not accel type"},
    {655, "L3", "match_sessions_from_list: get labels by attr failed, error:%s"},
    {656, "L6", "match_sessions_from_list: get labels by attr no match, type: %d"},
    {657, "L3", "match_sessions_from_list: Intersection failed, error:%s"},
    {658, "L6", "match_sessions_from_list: Intersection is 0, error:%s"},
    {659, "L3", "match_sessions_from_list: Fail in get list size, error:%s"},
    {660, "L6", "match_sessions_from_list: No matches db_handle:[%p]"},
    {670, "L3", "get session list: invalid params"},
    {671, "L6", "get session list"},
    {672, "L3", "get session list: list create failed"},
    {700, "L3", "get attr: invalid params"},
    {701, "L6", ">>>>> get attr: for attr_type %s"},
    {702, "L3", "get attr: Could not get attr from db - rc %d"},
    {703, "L6", "get attrs: rec doesn't exist attr_type %d"},
    {800, "L6", "\n\nMatching record information with Audit Session ID %s:\n"},
    {801, "L6", "\n\nMatching record information with MAC Address %s:\n"},
    {802, "L6", "\n\nMatching record information with IPV4 Address %i:"},
    {803, "L3", "Kivo index list create failed, Error: %s"},
    {804, "L3", "Get accel for attr failed,Error: %s"},
    {805, "L6", "show database: type %d not a indexed type"},
    {806, "L3", "Memory allocation for interface field failed"},
    {807, "L3", "Memory allocation for username failed"},
    {900, "A8", "%s is %s external identity"},
    {901, "A3", "Failed to decode the %s attribute."},
    {902, "A8", "Decoded subtype for %s attribute is %d"},
    {903, "A3", "Failed to store the %s attribute "},
    {904, "A7", "Add/Update %s attr of size: %u for label 0x%x"},
    {905, "A3", "Unable to allocate the attr entry for %s"},
    {906, "A3", "Unable to allocate the protocol%s value entry type %d for length %d"},
    {907, "A7", "Adding %s subtype %d in shadow db"},
    {908, "A7", "Updating %s subtype %d in shadow db"},
    {909, "A8", "%s subtype %d already present. updating value."},
    {910, "A3", "Invalid shadow record."},
    {911, "A3", "Unable to remove attr. %s subtype %d is not present."},
    {912, "A7", "%s Subtype %d is present. Removing attr"},
    {913, "A3", "%u: Unable to alloc shadow entry"},
    {914, "A7", "%u: Allocating new SHDB record entry"},
    {915, "A3", "Invalid entry to cleanup"},
    {916, "A3", "Invalid argument for cleanup."},
    {917, "A8", "%u: Free'd the shadow record"},
    {918, "A3", "Attr Index %d is invalid."},
    {919, "A3", "Record is invalid."},
    {920, "A7", "No external identities present in DB."},
    {921, "A3", "%u: Invalid identity list passed to get session identities"},
    {922, "A3", "No attr entries for index %d"},
    {923, "A3", "%s: Failed to add aaa attribute"},
    {924, "A8", "%u: Added %s atribute to the list"},
    {925, "A3", "show attr: invalid params"},
    {926, "A3", "Get record failed"},
    {927, "A3", "Failed to get the shadow rec"},
};

constexpr Message kCallback[] = {
    {0, "A3", "show kivo database command handler failed: Invalid argument."},
    {1, "A3", "Cannot marshal common message. Invalid argument."},
    {2, "A7", "Error already set when doing compound marshal: %s"},
    {3, "A8", "Marshaled %s message to shell manager"},
    {5, "A3", "Could not get scratch buffer."},
    {6, "A8", "%s"},
    {7, "A3", "Could not render message: %s"},
    {8, "A3", "Failed to marshal %s message: %s"},
    {9, "A3", "Cannot marshal db filter message. Invalid argument."},
    {10, "A7", "Error already set when doing compound marshal: %s"},
    {11, "A8", "Marshaled %s message to shell manager"},
    {13, "A3", "Could not get scratch buffer."},
    {14, "A8", "%s"},
    {15, "A3", "Could not render message: %s"},
    {16, "A3", "Failed to marshal %s message: %s"},
    {17, "A3", "Cannot marshal db message. Invalid argument."},
    {18, "A7", "Error already set when doing compound marshal: %s"},
    {19, "A8", "Marshaled %s message to shell manager"},
    {21, "A3", "Could not get scratch buffer."},
    {22, "A8", "%s"},
    {23, "A3", "Could not render message: %s"},
    {24, "A3", "Failed to marshal %s message: %s"},
};

constexpr Message kHandler[] = {
    {0, "A7", "Finished cmd handler of %s, return %u"},
    {1, "H7", "Handling content-generating %s request handler"},
    {2, "A7", "Request content"},
    {3, "A7", "Handler called with connection in error: %s"},
    {4, "A7", "Calling finished"},
    {6, "A8", "Marshaled %s message to shell manager"},
    {7, "A8", "  - message was empty"},
    {8, "A3", "Failed to marshal %s message: %s"},
    {9, "H3", "Handler for %s failed with error: %s"},
    {10, "H3", "Assuming %s handler has corrupted channel"},
    {11, "H7", "Initial asynchronous handler %s succeeded"},
    {12, "H7",
     "Response was synchronous. Application will NOT invoke %s epilogue function, as it is "
     "being invoked automatically now"},
    {13, "A7", "Application registered continuation for %s"},
    {14, "H7", "Response is asynchronous. Application will invoke %s epilogue function when ready"},
    {15, "A0", "Application registered continuation for %s while in asynchronous return state"},
    {16, "A0", "Invalid result %d from %s callback"},
    {18, "A8", "Marshaled %s message to shell manager"},
    {19, "A8", "  - message was empty"},
    {20, "A3", "Failed to marshal %s message: %s"},
    {21, "H3", "Unable to abort bundle in %s handler: %s"},
    {22, "H7", "Handling content-generating %s request closure"},
    {23, "H3", "Closure for %s invoked with error: %s"},
    {24, "H3", "Assuming %s closure has corrupted channel"},
    {25, "H7", "%s epilogue succeeded, completing response"},
    {27, "A8", "Marshaled %s message to shell manager"},
    {28, "A8", "  - message was empty"},
    {29, "A3", "Failed to marshal %s message: %s"},
    {31, "A8", "Marshaled %s message to shell manager"},
    {32, "A8", "  - message was empty"},
    {33, "A3", "Failed to marshal %s message: %s"},
    {34, "H3", "Unable to abort bundle in %s epilogue: %s"},
    {35, "H3", "Had error: %s"},
};

constexpr std::pair<uint32_t, const char *> kStatusNames[] = {
    {0, "ok"},
    {KIVO_ERR_FAILED, "failed"},
    {KIVO_ERR_NO_MEMORY, "nomem"},
    {KIVO_ERR_INVALID_ARG, "invalid"},
    {KIVO_ERR_NO_ROOM, "noroom"},
    {KIVO_ERR_NO_CURSOR, "nocursor"},
    {KIVO_ERR_NOT_FOUND, "notfound"},
    {ATTRDB_ERR_NO_MEMORY, "storemem"},
    {ATTRDB_ERR_NOT_READY, "notready"},
    {AAA_ERR_INVALID_ARG, "aaainvalid"},
};

constexpr std::pair<const char *, const char *> kShortNames[] = {
    {"show_kivo_database_request", "req"},
    {"show_kivo_database_resp", "resp"},
    {"show_kivo_database_resp_bundle_start", "start"},
    {"show_kivo_database_resp_bundle_commit", "commit"},
    {"show_kivo_database_resp_bundle_abort", "abort"},
    {"zelui_kivo_db_common_msg", "common"},
    {"zelui_kivo_db_filter_msg", "filter"},
    {"zelui_kivo_db_msg", "list"},
};

// What a text was filled with: short for the texts of statuses, for messages and addresses.
std::string short_of(const std::string &filled, char conversion) {
  if (conversion == 'p') return filled == "(nil)" ? "nil" : "p";
  for (const auto &[status, name] : kStatusNames) {
    if (status != 0 && filled == error_text(status)) return name;
  }
  for (const auto &[name, shorter] : kShortNames) {
    if (filled == name) return shorter;
  }
  const std::string unknown = "unknown status 0x0000";
  return filled.starts_with(unknown) ? filled.substr(unknown.size()) : filled;
}

// Whether a text was made from a format; what its conversions were filled with goes into `filled`.
bool is_made_from(const char *format, const std::string &text, std::string &filled) {
  size_t at = 0;
  char conversion = 0;
  for (;;) {
    const char *const hole = std::strchr(format, '%');
    const std::string literal = hole != nullptr ? std::string(format, hole) : format;
    const size_t found = hole != nullptr ? text.find(literal, at) : text.rfind(literal);
    if (found == std::string::npos || found < at || (conversion == 0 && found != 0)) return false;
    if (conversion != 0) {
      if (!filled.empty()) filled += ',';
      filled += short_of(text.substr(at, found - at), conversion);
    }
    at = found + literal.size();
    if (hole == nullptr) return at == text.size();
    conversion = hole[1];
    format = hole + 2;
  }
}

uint16_t module_of(char letter) {
  return letter == 'L'   ? uint16_t{KIVO_TRACE_MODULE_SLOT}
         : letter == 'A' ? TRACE_MODULE_HOST_APP
                         : TRACE_MODULE_REQUEST_HANDLER;
}

// The record's word by a table, empty when no row of it is the record's.
std::string word_by(std::span<const Message> table, const char *prefix,
                    const trace_record &record) {
  for (const Message &row : table) {
    std::string filled;
    if (row.number != record.number || module_of(row.where[0]) != record.module ||
        std::string(row.where + 1).find(std::to_string(record.level)) == std::string::npos ||
        !is_made_from(row.text, record.text, filled)) {
      continue;
    }
    if (prefix[0] == 'c' && row.text == std::string("%s"))
      filled = record.indent == 1 ? "" : "not indented";
    std::string word = prefix + std::to_string(row.number);
    if (!filled.empty()) word.append("(").append(filled).append(")");
    return word;
  }
  return {};
}

}  // namespace

std::string status_name(uint32_t status) {
  for (const auto &[value, name] : kStatusNames) {
    if (value == status) return name;
  }
  char digits[9];
  std::snprintf(digits, sizeof digits, "%x", status);
  return digits;
}

TraceWords::TraceWords() {
  trace_set_all_levels(TRACE_LEVEL_MAX);
  trace_add_sink(receive, nullptr, this);
}

TraceWords::~TraceWords() {
  trace_remove_sink(receive, this);
  trace_set_all_levels(TRACE_LEVEL_DEFAULT);
}

void TraceWords::receive(const trace_record *record, void *arg) {
  std::string &words = static_cast<TraceWords *>(arg)->words_;
  std::string word = word_by(kLibrary, "", *record);
  if (word.empty()) word = word_by(kHandler, "r", *record);
  if (word.empty()) word = word_by(kCallback, "c", *record);
  const bool follows_dump = words.ends_with("r2") || words.ends_with("dump");
  if (word.empty() && follows_dump && record->module == TRACE_MODULE_HOST_APP &&
      record->level == 7) {
    if (words.ends_with("dump")) return;
    word = "dump";
  }
  if (word.empty()) {
    word.append("[").append(std::to_string(record->module)).append("/");
    word.append(std::to_string(record->number)).append("/").append(std::to_string(record->level));
    word.append(" ").append(record->text).append("]");
  }
  if (!words.empty()) words += ' ';
  words += word;
}

std::string TraceWords::take() { return std::exchange(words_, {}); }

}  // namespace kivo_test
