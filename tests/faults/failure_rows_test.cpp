// Every failure that the library tells of, one row each: what fails, what the caller gets, what is
// traced (module, level and text, in order) and what is left afterwards. Failures of the platform
// are injected (support/faults.h); after every row nothing may be leaked. Failures at start-up and
// of a first creation need a process of their own and stand in the other programs of this folder.
#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "platform/error_text.h"
#include "support/trace_log.h"
#include "world.h"

namespace kivo_test {
namespace {

using Traces = std::vector<TraceLine>;

// Error and event traces of the library; the shadow store's, by level.
Traces E(const std::string &text) { return {{KIVO_TRACE_MODULE_SLOT, 3, text}}; }
Traces V(const std::string &text) { return {{KIVO_TRACE_MODULE_SLOT, 6, text}}; }
Traces S(uint32_t level, const std::string &text) { return {{TRACE_MODULE_HOST_APP, level, text}}; }
Traces operator+(Traces a, const Traces &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct Fault {
  const char *operation = nullptr;  // null: nothing is injected
  uint32_t nth = 1;
  uint32_t status = 0xdead;
  bool is_reached = true;
};

struct Row {
  std::string name;
  std::function<uint32_t(World &)> call;
  Fault fault = {};
  uint32_t status = 0;
  Traces traces = {};
  std::function<void(World &)> after = nullptr;
  std::function<void(World &)> before = nullptr;
  bool errors_only = false;  // traces of level 3 are compared, no others
};

constexpr uint32_t kDead = 0xdead;
const std::string kDeadText = "unknown status 0x0000dead";
const std::string kInvalid = error_text(KIVO_ERR_INVALID_ARG);
const std::string kNoMemory = error_text(KIVO_ERR_NO_MEMORY);

// Addresses in traces differ from run to run.
std::string without_addresses(const std::string &text) {
  static const std::regex address("(data:? |client_info: |func_cb )0x[0-9a-f]+");
  return std::regex_replace(text, address, "$1<p>");
}

Traces without_addresses(const Traces &traces, bool errors_only) {
  Traces kept;
  for (const TraceLine &line : traces) {
    if (errors_only && line.level != 3) continue;
    kept.push_back({line.module, line.level, without_addresses(line.text)});
  }
  return kept;
}

std::string show(const Traces &traces) {
  std::string text;
  for (const TraceLine &line : traces) {
    text += std::to_string(line.module) + " " + std::to_string(line.level) + " " + line.text + "\n";
  }
  return text;
}

// ---- Calls that several rows share

uint32_t create(uint32_t client_id, const char *db_name, const char *owner,
                const std::vector<kivo_attr_config> &rows,
                uint32_t flags = KIVO_CLIENT_FLAG_VALID) {
  const kivo_client_params client = {flags, client_id, note_change, nullptr};
  kivo_db *const untouched = reinterpret_cast<kivo_db *>(&notified);
  kivo_db *result = untouched;
  const uint32_t status = kivo_create_database(db_name, owner, &client, rows.data(),
                                               static_cast<uint32_t>(rows.size()), &result);
  EXPECT_EQ(status != 0, result == untouched);
  return status;
}

const std::vector<kivo_attr_config> kOneRow = {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR}};
const std::vector<kivo_attr_config> kUnindexedRow = {
    {AAA_ATTR_USER_NAME, 6, KIVO_DATA_TYPE_VAR_STR}};
const std::string kName32(32, 'n');

// A label look-up; what it must leave in the output on a failure.
uint32_t match_label(kivo_db *db, uint32_t type, const char *value, uint32_t expected) {
  uint32_t label = 99;
  const uint32_t status = kivo_match_label_by_attr(db, type, value, 3, &label);
  EXPECT_EQ(expected, label);
  return status;
}

uint32_t match_record(kivo_db *db, const char *value, bool is_cleared) {
  attrdb_record *const untouched = reinterpret_cast<attrdb_record *>(&notified);
  attrdb_record *found = untouched;
  const uint32_t status = kivo_match_record_by_attr(db, AAA_ATTR_USER_NAME, value, 3, &found);
  EXPECT_EQ(is_cleared ? nullptr : untouched, found);
  return status;
}

uint32_t get_record(kivo_db *db, uint32_t label, bool is_cleared) {
  attrdb_record *const untouched = reinterpret_cast<attrdb_record *>(&notified);
  attrdb_record *found = untouched;
  const uint32_t status = kivo_get_record(db, label, &found);
  EXPECT_EQ(is_cleared ? nullptr : untouched, found);
  return status;
}

// Labels of everybody called ann; afterwards the set holds what the store left in it.
uint32_t match_labels(World &w, kivo_db *db, const char *value, uint32_t n_expected) {
  uint32_t count = 0;
  const uint32_t status =
      kivo_match_labels_by_attr(db, AAA_ATTR_USER_NAME, value, 3, &w.none.list, &count);
  EXPECT_EQ(n_expected, count);
  EXPECT_EQ(std::vector<uint32_t>(n_expected, kSession), w.none.labels());
  return status;
}

uint32_t intersect(const kivo_index_list *a, const kivo_index_list *b) {
  kivo_index_list *const untouched = reinterpret_cast<kivo_index_list *>(&notified);
  kivo_index_list *result = untouched;
  const uint32_t status = kivo_index_list_intersection(a, b, &result);
  EXPECT_EQ(nullptr, result);
  return status;
}

uint32_t update(kivo_db *db, uint32_t label, uint32_t type, const std::string &value) {
  return kivo_add_or_update_attr(db, label, nullptr, type, value.data(),
                                 static_cast<uint32_t>(value.size()));
}

// Reads an attribute by label; a failure that comes before the store leaves the outputs alone.
uint32_t read_by_label(kivo_db *db, uint32_t label, uint32_t type) {
  const void *value = &notified;
  uint32_t length = 99;
  const uint32_t status = kivo_get_attr(db, label, nullptr, type, &value, &length);
  EXPECT_TRUE(value == &notified && length == 99);
  return status;
}

uint32_t read_from(World &w, uint32_t type) {
  const void *value = nullptr;
  uint32_t length = 0;
  return kivo_get_attr_from_record(nullptr, w.record, type, &value, &length);
}

uint32_t show_db(uint32_t command, uint64_t filter) {
  kivo_show_db(command, filter);
  return 0;
}

uint32_t show_by_audit(World &) {
  return show_db(KIVO_SHOW_BY_AUDIT_SESSION, reinterpret_cast<uint64_t>(kAuditId));
}

// ---- What rows leave behind

void nothing_changed(World &w) {
  EXPECT_EQ("ann", World::stored(AAA_ATTR_USER_NAME));
  EXPECT_EQ((std::map<int, std::string>{{5, "x"}}), w.identities());
  EXPECT_EQ("", notified);
  EXPECT_STREQ("owner", w.db->owner_name);
  EXPECT_NE(nullptr, w.db->attr_cfg);
  EXPECT_EQ(w.old_table, w.db->accel_tbl);
}

// The configuration is gone, and nothing else: the old table still answers.
void only_configuration_is_gone(World &w) {
  EXPECT_EQ(nullptr, w.db->attr_cfg);
  EXPECT_EQ(0u, w.db->indexed_count + w.db->unindexed_count);
  EXPECT_STREQ("ATTR_DB", w.db->db_name);
  EXPECT_STREQ("owner", w.db->owner_name);
  EXPECT_EQ(w.old_table, w.db->accel_tbl);
  EXPECT_EQ(0u, update(w.db, kSession, AAA_ATTR_SESSION_ID, "s"));
  EXPECT_EQ("11/1 ", notified);
}

void claimed_without_configuration(World &w) {
  EXPECT_EQ(nullptr, w.db->attr_cfg);
  EXPECT_STREQ("NEW", w.db->db_name);
  EXPECT_STREQ("newer", w.db->owner_name);
  EXPECT_EQ(1u, w.db->client_id);
}

std::function<void(World &)> console_shows(const std::string &text) {
  return [text](World &w) { EXPECT_EQ(text, w.console.take()); };
}

// ---- Traces that several rows share

const std::string kRegisterFailed =
    "attr_change_notification: change notification failed(ATTR_DB) ";
const std::string kShimFailed = " shim_register_client failed, error:";
const Traces kGet = V("get record");
const Traces kFetchFailed = kGet + E("get record: get record failed, error:" + kDeadText);
const Traces kInternalFailed =
    E("Add/update attr list: get record internal failed, error:" + kDeadText);
const Traces kUpdateEntry = V("add or update attr:ATTR_DB, attr type:1");
const Traces kNoAccel9 = V("aaa_type: interface-name accln tbl index: -1") +
                         V("get_accel_from_type failed tbl (nil), type 9: none accel type");
const Traces kDevice = S(8, "external-device is an external identity");
const Traces kDeviceWrite = S(7, "Add/Update external-device attr of size: 3 for label 0x7");
const Traces kNoEntry = S(3, "Unable to allocate the attr entry for external-device");
const Traces kNotStored = S(3, "Failed to store the external-device attribute ");

Traces decoded(int subtype) {
  return S(8, "Decoded subtype for external-device attribute is " + std::to_string(subtype));
}

Traces no_value_memory(int subtype) {
  return decoded(subtype) +
         S(3, "Unable to allocate the protocolexternal-device value entry type " +
                  std::to_string(subtype) + " for length 3");
}

// The look-up and the callback of an announced write.
Traces announced(const std::string &name, uint32_t type, int slot, uint32_t size) {
  return V("aaa_type: " + name + " accln tbl index: " + std::to_string(slot)) +
         V("attr_change_notification notify type " + std::to_string(type) + ", size " +
           std::to_string(size) + ", data <p>");
}

Traces not_identity(const std::string &name) { return S(8, name + " is not an external identity"); }

const Traces kWroteName = not_identity("user-name") + announced("user-name", 1, 0, 3);
const Traces kWroteAddress = not_identity("ipv4-address") + announced("ipv4-address", 8, 1, 4);

// ---- Console texts

const std::string kColumns =
    "\n\n        ATTRIBUTE     VALUE\n--------------------  ------------------------";
const std::string kRule = "\n" + std::string(44, '-');

std::string header(const std::string &db_name, const std::string &owner) {
  return "\n" + std::string(66, '-') + "\nDATABASE          : " + db_name +
         "\nOWNER             : " + owner + "\nNUMBER OF RECORDS : 1";
}

const std::string kHeader = header("ATTR_DB", "owner");
const std::string kRecordTop = kHeader + "\n\nSession Opaque Attributes" + kRule + kColumns +
                               "\nexternal-device                : 05 00 78 \n" + kRule + kColumns;

// The database shows just this type.
std::function<void(World &)> configured(uint32_t type, kivo_data_type data_type,
                                        const std::string &value) {
  return [=](World &w) {
    create_database(1, {{type, 0, data_type}}, note_change);
    if (!value.empty()) w.write(type, value);
  };
}

// ---- The table

// clang-format off
const std::vector<Row> kPlainRows = {
  // Debug control
  {.name = "DebugMessageWithoutMemoryIsNotWritten", .call = [](World &) { kivo_buginf(3, 1, "%s", "x"); return 0u; },
   .fault = {"named_zalloc"}, .after = nothing_changed},

  // Database creation
  {.name = "CreationWithoutClient", .call = [](World &) { kivo_db *db = nullptr; return kivo_create_database("NEW", "newer", nullptr, kOneRow.data(), 1, &db); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("create database: bad params"), .after = nothing_changed},
  {.name = "CreationWithoutValidFlag", .call = [](World &) { return create(1, "NEW", "newer", kOneRow, 2); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("create database: bad params"), .after = nothing_changed},
  {.name = "CreationWithDatabaseNameOf32Characters", .call = [](World &) { return create(1, kName32.c_str(), "newer", kOneRow); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("create database: db/owner name lengths exceeded max:32"), .after = nothing_changed},
  {.name = "CreationWithOwnerNameOf32Characters", .call = [](World &) { return create(1, "NEW", kName32.c_str(), kOneRow); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("create database: db/owner name lengths exceeded max:32"), .after = nothing_changed},
  {.name = "CreationOfThirdClient", .call = [](World &) { return create(3, "NEW", "third", kOneRow); },
   .status = KIVO_ERR_NO_ROOM, .traces = E("register client:third No free entry to store registration") + E("create databse:NEW" + kShimFailed + error_text(KIVO_ERR_NO_ROOM)),
   .after = nothing_changed},
  {.name = "RecreationWithoutRows", .call = [](World &) { return create(1, "NEW", "newer", {}); },
   .status = KIVO_ERR_FAILED, .traces = E("register client:newer Couldn't allocate memory for attributes") + E("create databse:NEW" + kShimFailed + error_text(KIVO_ERR_FAILED)),
   .after = only_configuration_is_gone},
  {.name = "RecreationWithoutMemoryForConfiguration", .call = [](World &) { return create(1, "NEW", "newer", kOneRow); },
   .fault = {"named_zalloc"}, .status = KIVO_ERR_FAILED,
   .traces = E("register client:newer Couldn't allocate memory for attributes") + E("create databse:NEW" + kShimFailed + error_text(KIVO_ERR_FAILED)),
   .after = only_configuration_is_gone},
  {.name = "RecreationWithoutIndexedRow", .call = [](World &) { return create(1, "NEW", "newer", kUnindexedRow); },
   .status = KIVO_ERR_INVALID_ARG,
   .traces = E("create_acceleration_table failed") + E("create acceleration_table failed") + E("create databse:NEW" + kShimFailed + kInvalid),
   .after = [](World &w) {
     claimed_without_configuration(w);
     EXPECT_EQ(w.old_table, w.db->accel_tbl);
     EXPECT_EQ(2u, kivo_get_index_from_aaa_type(w.db, AAA_ATTR_SESSION_ID));
     EXPECT_EQ(0u, update(w.db, kSession, AAA_ATTR_SESSION_ID, "s"));
     EXPECT_EQ("11/1 ", notified);
   }},
  {.name = "RecreationWithoutMemoryForAccelTable", .call = [](World &) { return create(1, "NEW", "newer", kOneRow); },
   .fault = {"named_zalloc", 2}, .status = KIVO_ERR_INVALID_ARG,
   .traces = E("create_acceleration_table failed, NULL accel tbl") + E("create acceleration_table failed") + E("create databse:NEW" + kShimFailed + kInvalid),
   .after = [](World &w) {
     claimed_without_configuration(w);
     EXPECT_EQ(nullptr, w.db->accel_tbl);
     for (uint32_t type = 0; type <= AAA_ATTR_TYPE_MAX; ++type) ASSERT_EQ(KIVO_SLOT_NONE, kivo_get_index_from_aaa_type(w.db, type));
     EXPECT_EQ(0u, update(w.db, kSession, AAA_ATTR_USER_NAME, "bob"));
     EXPECT_EQ("bob ", World::stored(AAA_ATTR_USER_NAME) + " " + notified);
   }},

  // Acceleration table
  {.name = "AccelOfTypeZero", .call = [](World &w) { kivo_accel_entry *entry = w.old_table; const uint32_t status = kivo_get_accel_from_type(0, w.db, &entry); EXPECT_EQ(w.old_table, entry); return status; },
   .status = KIVO_ERR_INVALID_ARG},
  {.name = "AccelWithoutDatabase", .call = [](World &w) { kivo_accel_entry *entry = w.old_table; const uint32_t status = kivo_get_accel_from_type(1, nullptr, &entry); EXPECT_EQ(w.old_table, entry); return status; },
   .status = KIVO_ERR_INVALID_ARG},
  {.name = "AccelWithoutOutput", .call = [](World &w) { return kivo_get_accel_from_type(1, w.db, nullptr); },
   .status = KIVO_ERR_INVALID_ARG},

  // Records
  {.name = "RecordThatTheStoreCannotMake", .call = [](World &w) { return kivo_create_record(w.db, kNoSession, nullptr); },
   .fault = {"attrdb_create_and_insert_primary_record"}, .status = kDead, .traces = V("Inserting record with label: 8"),
   .after = [](World &) { EXPECT_EQ(nullptr, find_record(kNoSession)); }},
  {.name = "RecordFetchWithoutDatabase", .call = [](World &) { return get_record(nullptr, kSession, false); },
   .status = KIVO_ERR_INVALID_ARG, .traces = kGet},
  {.name = "RecordFetchWithoutOutput", .call = [](World &w) { return kivo_get_record(w.db, kSession, nullptr); },
   .status = KIVO_ERR_INVALID_ARG, .traces = kGet},
  {.name = "RecordFetchOfLabelZero", .call = [](World &w) { return get_record(w.db, 0, true); },
   .status = KIVO_ERR_INVALID_ARG, .traces = kGet + E("get record, unique label: invalid input params")},
  {.name = "RecordFetchThatTheStoreFails", .call = [](World &w) { return get_record(w.db, kSession, true); },
   .fault = {"attrdb_get_record"}, .status = kDead, .traces = kFetchFailed},
  {.name = "DeletionThatTheStoreFails", .call = [](World &w) { return kivo_delete_record(w.db, kSession); },
   .fault = {"attrdb_delete_record"}, .status = kDead, .traces = E("Delete record: failederror:" + kDeadText), .after = nothing_changed},
  {.name = "LabelsOfNoValue", .call = [](World &w) { return match_labels(w, w.db, nullptr, 0); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("match labels by attr: invalid params")},
  {.name = "LabelsWithoutDatabase", .call = [](World &w) { return match_labels(w, nullptr, "ann", 0); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("match records by attr: invalid params")},
  {.name = "LabelsThatTheStoreFailsHalfWay", .call = [](World &w) { return match_labels(w, w.db, "ann", 1); },
   .fault = {"attrdb_get_labels_by_attr"}, .status = kDead,
   .traces = V("match records by attr:ATTR_DB, attr type:1") + E("get records by attr 1: get records failed, error:" + kDeadText)},
  {.name = "LabelOfNoValue", .call = [](World &w) { return match_label(w.db, 1, nullptr, 99); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("match label by attr: invalid params")},
  {.name = "LabelThatTheStoreFails", .call = [](World &) { return match_label(nullptr, 1, "ann", 0); },
   .fault = {"attrdb_get_label_by_attr"}, .status = kDead, .traces = E("get label by attr: get record failed, error:" + kDeadText + ", rec (nil)")},
  {.name = "RecordOfNoValue", .call = [](World &w) { return match_record(w.db, nullptr, false); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("match record by attr: invalid params")},
  {.name = "RecordOfValueWithoutDatabase", .call = [](World &) { return match_record(nullptr, "ann", false); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("match record by attr: invalid params")},
  {.name = "RecordOfValueThatTheStoreFailsIsNone", .call = [](World &w) { return match_record(w.db, "ann", true); },
   .fault = {"attrdb_get_record_by_attr"}, .status = 0,
   .traces = V("match record by attr:ATTR_DB, attr type:1") + E("get record by attr: get record failed, error:" + kDeadText)},
  {.name = "InterfaceStepThatTheStoreFails", .call = [](World &) { uint32_t next = 0; return kivo_get_next_if_id(0, &next); },
   .fault = {"attrdb_get_next_if_id"}, .status = kDead},
  {.name = "MergeOfNoRecord", .call = [](World &w) { return kivo_merge_rec_to_list_without_replace(w.db, nullptr, w.list.handle()); },
   .status = KIVO_ERR_FAILED},
  {.name = "MergeThatTheServiceFails", .call = [](World &w) { return kivo_merge_rec_to_list_without_replace(w.db, w.record, w.list.handle()); },
   .fault = {"auth_mgr_idc_merge_rec_to_list_without_replace"}, .status = kDead, .after = nothing_changed},

  // Registration and the old value
  {.name = "RegistrationWithoutDatabase", .call = [](World &w) { return kivo_register_attr_change_notification(nullptr, 1, 1, &w); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("register attr change: client info is null")},
  {.name = "RegistrationForTypeZero", .call = [](World &w) { return kivo_register_attr_change_notification(w.db, 0, 1, &w); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E(kRegisterFailed + "Failed.")},
  {.name = "RegistrationForTypeWithoutEntry", .call = [](World &w) { return kivo_register_attr_change_notification(w.db, AAA_ATTR_INTERFACE_NAME, 1, &w); },
   .status = KIVO_ERR_INVALID_ARG, .traces = kNoAccel9 + V(kRegisterFailed + "no accel type 9")},
  {.name = "RegistrationOfNoHandle", .call = [](World &w) { return kivo_register_attr_change_notification(w.db, AAA_ATTR_START_TIME, 1, nullptr); },
   .status = KIVO_ERR_INVALID_ARG, .traces = V("aaa_type: start-time accln tbl index: 4"),
   .after = [](World &w) { EXPECT_EQ(nullptr, queue_get_next(&w.db->accel_tbl[4].notify_regs, nullptr)); }},
  {.name = "RegistrationWithoutMemory", .call = [](World &w) { return kivo_register_attr_change_notification(w.db, AAA_ATTR_START_TIME, 1, &w); },
   .fault = {"named_zalloc"}, .status = KIVO_ERR_INVALID_ARG,
   .traces = V("aaa_type: start-time accln tbl index: 4") + V("attr_change_notification: new vector data (ATTR_DB) action 1, type 12, func_cb <p>") + E(kRegisterFailed + "Failed."),
   .after = [](World &w) { EXPECT_EQ(nullptr, queue_get_next(&w.db->accel_tbl[4].notify_regs, nullptr)); }},
  {.name = "OldValueOf256Bytes", .call = [](World &) { return kivo_set_notify_old_attr_value(8, 256, kName32.data()); },
   .status = 22, .traces = E("Attribute size 256 greater than max allowed: 256"),
   .after = [](World &) { EXPECT_EQ(1u, kivo_notify_old_value.aaa_type); EXPECT_EQ(2u, kivo_notify_old_value.size); EXPECT_STREQ("ab", reinterpret_cast<char *>(kivo_notify_old_value.data)); },
   .before = [](World &) { kivo_set_notify_old_attr_value(1, 2, "ab"); }},

  // Single write and its announcement
  {.name = "UpdateWithoutValue", .call = [](World &w) { return kivo_add_or_update_attr(w.db, kSession, nullptr, 1, nullptr, 3); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("add or update attr: invalid params"), .after = nothing_changed},
  {.name = "UpdateWithoutLabelAndRecord", .call = [](World &w) { return update(w.db, 0, 1, "bob"); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("add or update attr: invalid params"), .after = nothing_changed},
  {.name = "UpdateWithoutDatabase", .call = [](World &) { return update(nullptr, kSession, 1, "bob"); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("add or update attr: invalid params"), .after = nothing_changed},
  {.name = "UpdateWhoseFetchFails", .call = [](World &w) { return update(w.db, kSession, 1, "bob"); },
   .fault = {"attrdb_get_record"}, .status = kDead, .traces = kUpdateEntry + kFetchFailed + kInternalFailed, .after = nothing_changed},
  {.name = "UpdateOfNoRecord", .call = [](World &w) { return update(w.db, kNoSession, 1, "bob"); },
   .status = 0, .traces = kUpdateEntry + kGet + V("add or update attr:ATTR_DB, attr type:1, rec doesn't exist"), .after = nothing_changed},
  {.name = "UpdateThatTheServiceRefuses", .call = [](World &w) { return update(w.db, kSession, 1, "bob"); },
   .fault = {"auth_mgr_idc_add_or_update_attr"}, .status = kDead,
   .traces = kUpdateEntry + kGet + E("Add/update attr: add/update attr to rec failed, error:" + kDeadText), .after = nothing_changed},
  {.name = "UpdateThatCannotBeAnnounced", .call = [](World &w) { return update(w.db, kSession, 1, std::string(256, 'v')); },
   .status = KIVO_ERR_INVALID_ARG,
   .traces = kUpdateEntry + kGet + E("attr_change_notification: bad attr params.Size: 256, data: <p>, client_info: <p>") + V("Add/update attr list: Notify failed, error:" + kInvalid),
   .after = [](World &) { EXPECT_EQ(std::string(256, 'v'), World::stored(1)); EXPECT_EQ("", notified); }},
  {.name = "UpdateOfTypeWithoutEntryIsAnnouncedToNobody", .call = [](World &w) { return update(w.db, kSession, AAA_ATTR_INTERFACE_NAME, "eth"); },
   .status = 0,
   .traces = V("add or update attr:ATTR_DB, attr type:9") + kGet + kNoAccel9 + V(kRegisterFailed + "not supported index attr 9"),
   .after = [](World &) { EXPECT_EQ("eth", World::stored(AAA_ATTR_INTERFACE_NAME)); EXPECT_EQ("", notified); }},

  // Shadow store
  {.name = "IdentityWithoutShadowRecord", .call = [](World &w) { w.shadow = nullptr; return w.write_identity(6, "y"); },
   .status = 22, .traces = kNotStored},
  {.name = "IdentityOfNoValueWithLength", .call = [](World &w) { uint32_t changed = 9; const uint32_t status = shadowdb_add_or_update_attr(w.shadow, 2, AAA_ATTR_EXT_DEVICE, nullptr, 3, &changed); EXPECT_EQ(9u, changed); return status; },
   .status = KIVO_ERR_INVALID_ARG, .traces = kNotStored, .after = nothing_changed},
  {.name = "IdentityWithIndexSeven", .call = [](World &w) { uint32_t changed = 0; return shadowdb_add_or_update_attr(w.shadow, 7, AAA_ATTR_EXT_DEVICE, "abc", 3, &changed); },
   .status = KIVO_ERR_INVALID_ARG, .traces = kNotStored, .after = nothing_changed},
  {.name = "IdentityOf65536Bytes", .call = [](World &w) { return w.write_identity(5, std::string(65534, 'v')); },
   .status = KIVO_ERR_INVALID_ARG, .traces = kNotStored, .after = nothing_changed},
  {.name = "IdentityWithoutMemoryForEntry", .call = [](World &w) { uint32_t changed = 9; const uint32_t status = w.write_identity(5, "y", &changed); EXPECT_EQ(9u, changed); return status; },
   .fault = {"named_alloc"}, .status = KIVO_ERR_NO_MEMORY, .traces = kDeviceWrite + kNoEntry, .after = nothing_changed},
  {.name = "IdentityWithoutMemoryForValueKeepsTheOldOne", .call = [](World &w) { uint32_t changed = 9; const uint32_t status = w.write_identity(5, "y", &changed); EXPECT_EQ(9u, changed); return status; },
   .fault = {"variable_chunk_malloc"}, .status = KIVO_ERR_NO_MEMORY, .traces = kDeviceWrite + no_value_memory(5), .after = nothing_changed},
  {.name = "RemovalFromNoShadowRecord", .call = [](World &) { return shadowdb_remove_attr(nullptr, 2, AAA_ATTR_EXT_DEVICE, 2, "ab"); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "Invalid shadow record.")},
  {.name = "RemovalOfSubtypeNotThere", .call = [](World &w) { const std::string nine = identity(9, "x"); return shadowdb_remove_attr(w.shadow, 2, AAA_ATTR_EXT_DEVICE, 3, nine.data()); },
   .status = 0, .traces = decoded(9) + S(3, "Unable to remove attr. external-device subtype 9 is not present."), .after = nothing_changed},
  {.name = "ShadowRecordWithoutMemory", .call = [](World &) { return shadowdb_alloc_record(9) == nullptr ? 0u : 1u; },
   .fault = {"named_alloc"}, .traces = S(3, "9: Unable to alloc shadow entry")},
  {.name = "DestructionOfNoShadowRecord", .call = [](World &) { return shadowdb_destroy_record(nullptr); },
   .status = 1, .traces = S(3, "Invalid entry to cleanup") + S(3, "Invalid argument for cleanup.")},

  // Shadow retrieval and display
  {.name = "IdentitiesOfIndexSevenEvenWithoutRecord", .call = [](World &w) { return shadowdb_get_session_attribute(nullptr, w.list.handle(), 7); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "Attr Index 7 is invalid.")},
  {.name = "IdentitiesOfOneIndexWithoutRecord", .call = [](World &w) { return shadowdb_get_session_attribute(nullptr, w.list.handle(), 2); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "Record is invalid.")},
  {.name = "IdentitiesWithoutRecord", .call = [](World &w) { return shadowdb_get_session_attributes(nullptr, w.list.handle()); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "Record is invalid.")},
  {.name = "IdentitiesOfOneIndexNeverWrittenNeedNoList", .call = [](World &w) { return shadowdb_get_session_attribute(w.fresh_shadow, 0, 2); },
   .traces = S(7, "No external identities present in DB.")},
  {.name = "IdentitiesNeverWrittenNeedNoList", .call = [](World &w) { return shadowdb_get_session_attributes(w.fresh_shadow, 0); },
   .traces = S(7, "No external identities present in DB.")},
  {.name = "IdentitiesOfOneIndexWithoutList", .call = [](World &w) { return shadowdb_get_session_attribute(w.shadow, 0, 2); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "7: Invalid identity list passed to get session identities")},
  {.name = "IdentitiesWithoutList", .call = [](World &w) { return shadowdb_get_session_attributes(w.shadow, 0); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "7: Invalid identity list passed to get session identities")},
  {.name = "IdentitiesOfEmptyIndex", .call = [](World &w) { return shadowdb_get_session_attribute(w.shadow, w.list.handle(), 0); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "No attr entries for index 0")},
  {.name = "IdentityOfOneIndexThatTheListCannotTakeIsPassedOver", .call = [](World &w) { return shadowdb_get_session_attribute(w.shadow, w.list.handle(), 2); },
   .fault = {"aaa_attr_add"}, .status = 0, .traces = S(3, "external-device: Failed to add aaa attribute") + S(8, "7: Added external-device atribute to the list"),
   .after = [](World &w) { EXPECT_EQ(identity(5, "x"), w.listed(AAA_ATTR_EXT_DEVICE)); }, .before = [](World &w) { w.write_identity(6, "y"); }},
  {.name = "IdentityThatTheListCannotTakeIsPassedOver", .call = [](World &w) { return shadowdb_get_session_attributes(w.shadow, w.list.handle()); },
   .fault = {"aaa_attr_add", 2}, .status = 0, .traces = S(8, "7: Added external-device atribute to the list") + S(3, "external-device: Failed to add aaa attribute"),
   .after = [](World &w) { EXPECT_EQ(identity(6, "y"), w.listed(AAA_ATTR_EXT_DEVICE)); }, .before = [](World &w) { w.write_identity(6, "y"); }},
  {.name = "ShadowShowWithoutDatabase", .call = [](World &) { return shadowdb_show_rec(nullptr, kSession); },
   .status = KIVO_ERR_INVALID_ARG, .traces = S(3, "show attr: invalid params"), .after = console_shows("")},
  {.name = "ShadowShowWhoseFetchFails", .call = [](World &w) { return shadowdb_show_rec(w.db, kSession); },
   .fault = {"attrdb_get_record"}, .status = kDead, .traces = kFetchFailed + S(3, "Get record failed"), .after = console_shows("")},
  {.name = "ShadowShowOfNoRecord", .call = [](World &w) { return shadowdb_show_rec(w.db, kNoSession); },
   .status = KIVO_ERR_NOT_FOUND, .traces = kGet + S(3, "Failed to get the shadow rec"), .after = console_shows("")},
  {.name = "ShadowShowWithoutShadowRecord", .call = [](World &w) { return shadowdb_show_rec(w.db, kSession); },
   .fault = {"auth_mgr_idc_get_shadow_record_in_ctxt"}, .status = KIVO_ERR_NOT_FOUND, .traces = kGet + S(3, "Failed to get the shadow rec"), .after = console_shows("")},
  {.name = "ShadowShowMakesNoShadowRecord", .call = [](World &w) { return shadowdb_show_rec(w.db, kNoSession); },
   .fault = {.operation = "named_alloc", .is_reached = false}, .traces = kGet,
   .after = console_shows(""), .before = [](World &w) { kivo_create_record(w.db, kNoSession, nullptr); }},

  // Label sets
  {.name = "LabelSetWithoutMemory", .call = [](World &) { kivo_index_list *list = nullptr; const uint32_t status = kivo_index_list_create(&list); EXPECT_EQ(nullptr, list); return status; },
   .fault = {"chunk_malloc"}, .status = KIVO_INDEX_LIST_NO_MEMORY},
  {.name = "LabelThatNeedsBlockWithoutMemory", .call = [](World &w) { return kivo_index_list_add(&w.twelve.list, 13); },
   .fault = {"chunk_malloc"}, .status = KIVO_INDEX_LIST_NO_MEMORY,
   .after = [](World &w) { EXPECT_EQ(first_labels(12), w.twelve.labels()); EXPECT_EQ(0u, kivo_index_list_add(&w.twelve.list, 13)); EXPECT_EQ(first_labels(13), w.twelve.labels()); }},
  {.name = "LabelForNoSet", .call = [](World &) { kivo_index_list *none = nullptr; return kivo_index_list_add(&none, 1); },
   .status = KIVO_INDEX_LIST_INVALID},
  {.name = "LabelForUnmarkedSet", .call = [](World &) { kivo_index_list unmarked = {}; kivo_index_list *list = &unmarked; return kivo_index_list_add(&list, 1); },
   .status = KIVO_INDEX_LIST_INVALID},
  {.name = "PositionBehindTheEnd", .call = [](World &w) { uint32_t label = 99; uint32_t cursor = 12; EXPECT_EQ(0u, kivo_index_list_next(w.twelve.list, &cursor)); const uint32_t status = kivo_index_list_get(w.twelve.list, 12, &label); EXPECT_EQ(99u, label); return status; },
   .status = KIVO_INDEX_LIST_OUT_OF_RANGE},
  {.name = "IntersectionWithoutOutput", .call = [](World &w) { return kivo_index_list_intersection(w.twelve.list, w.thirteen.list, nullptr); },
   .status = KIVO_INDEX_LIST_INVALID},
  {.name = "IntersectionWithNoSet", .call = [](World &w) { return intersect(w.twelve.list, nullptr); }, .status = KIVO_INDEX_LIST_INVALID},
  {.name = "IntersectionWithEmptySet", .call = [](World &w) { return intersect(w.none.list, w.twelve.list); }, .status = KIVO_INDEX_LIST_INVALID},
  {.name = "IntersectionWithoutMemoryForResult", .call = [](World &w) { return intersect(w.thirteen.list, w.thirteen.list); },
   .fault = {"chunk_malloc"}, .status = KIVO_INDEX_LIST_INVALID},
  {.name = "IntersectionWithoutMemoryForThirteenthLabel", .call = [](World &w) { return intersect(w.thirteen.list, w.thirteen.list); },
   .fault = {"chunk_malloc", 2}, .status = KIVO_INDEX_LIST_INVALID, .traces = V("Hash items after cleanup =0"),
   .after = [](World &w) { EXPECT_EQ(first_labels(13), w.thirteen.labels()); }},
  {.name = "IntersectionWhoseFirstLabelCannotBeHashed", .call = [](World &w) { return intersect(w.thirteen.list, w.twelve.list); },
   .fault = {"htAdd"}, .status = KIVO_INDEX_LIST_HASH_FAILED,
   .traces = E("Failed to add index 1 to kivo index list hashtable") + V("Hash items after cleanup =0")},
  {.name = "IntersectionWhoseThirteenthLabelCannotBeHashed", .call = [](World &w) { return intersect(w.thirteen.list, w.twelve.list); },
   .fault = {"htAdd", 13}, .status = KIVO_INDEX_LIST_HASH_FAILED,
   .traces = E("Failed to add index 13 to kivo index list hashtable") + V("Hash items after cleanup =0"),
   .after = [](World &w) { EXPECT_EQ(first_labels(13), w.thirteen.labels()); }},

  // Attribute retrieval
  {.name = "ReadWithoutRecord", .call = [](World &w) { const void *value = nullptr; uint32_t length = 0; return kivo_get_attr_from_record(w.db, nullptr, 1, &value, &length); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("get attr: invalid params")},
  {.name = "ReadOfTypeZero", .call = [](World &w) { return read_by_label(w.db, kSession, 0); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("get attr: invalid params")},
  {.name = "ReadWithoutDatabase", .call = [](World &) { return read_by_label(nullptr, kSession, 1); },
   .status = KIVO_ERR_INVALID_ARG, .traces = E("get attr: invalid params")},
  {.name = "ReadThatTheServiceFails", .call = [](World &w) { return read_from(w, AAA_ATTR_USER_NAME); },
   .fault = {"auth_mgr_idc_get_attr"}, .status = KIVO_ERR_FAILED,
   .traces = V(">>>>> get attr: for attr_type user-name") + E("get attr: Could not get attr from db - rc 57005")},
  {.name = "ReadWhoseFetchFails", .call = [](World &w) { return read_by_label(w.db, kSession, 1); },
   .fault = {"attrdb_get_record"}, .status = kDead, .traces = kFetchFailed + kInternalFailed},
  {.name = "ReadOfNoRecord", .call = [](World &w) { return read_by_label(w.db, kNoSession, 1); },
   .status = 0, .traces = kGet + V("get attrs: rec doesn't exist attr_type 1")},

  // Display. Of the traces, the failures' are compared.
  {.name = "ShowWithoutDatabaseOfThatName", .call = [](World &) { return show_db(KIVO_SHOW_NOTIFICATIONS, 0); },
   .after = console_shows("\n\nNo database found with provided name : ATTR_DB"), .before = [](World &) { create(1, "NEW", "newer", kOneRow); }, .errors_only = true},
  {.name = "ShowByAuditSessionWithoutMatch", .call = [](World &) { return show_db(KIVO_SHOW_BY_AUDIT_SESSION, reinterpret_cast<uint64_t>("nobody")); },
   .after = console_shows(kHeader + "\n\nNo matching records found with supplied Audit Session ID: nobody\n"), .errors_only = true},
  {.name = "ShowByAuditSessionWhoseLookUpFails", .call = show_by_audit, .fault = {"attrdb_get_label_by_attr"},
   .traces = E("get label by attr: get record failed, error:" + kDeadText + ", rec (nil)"),
   .after = console_shows(kHeader + "\n\nNo matching records found with supplied Audit Session ID: " + kAuditId + "\n"), .errors_only = true},
  {.name = "ShowByMacWithoutMatch", .call = [](World &) { return show_db(KIVO_SHOW_BY_MAC, reinterpret_cast<uint64_t>("\x00\x11\x22\x33\x44\x55")); },
   .after = console_shows(kHeader + "\n\nNo matching records found with supplied MAC Address: 0011.2233.4455\n"), .errors_only = true},
  {.name = "ShowByIpv4WithoutMatch", .call = [](World &) { return show_db(KIVO_SHOW_BY_IPV4, kAddress); },
   .after = console_shows(kHeader + "\n Num matches: 0\n\nNo matching records found with supplied IPV4 Address: 16908480"), .errors_only = true},
  {.name = "ShowByIpv4WhoseLookUpFails", .call = [](World &) { return show_db(KIVO_SHOW_BY_IPV4, kAddress); },
   .fault = {"attrdb_get_labels_by_attr"}, .traces = E("get records by attr 8: get records failed, error:" + kDeadText),
   .after = console_shows(kHeader + "\n Num matches: 1\n\nNo matching records found with supplied IPV4 Address: 16908480"),
   .before = [](World &w) { w.write(AAA_ATTR_IPV4_ADDRESS, std::string(reinterpret_cast<const char *>(&kAddress), 4)); }, .errors_only = true},
  {.name = "ShowByIpv4WithoutMemoryForLabels", .call = [](World &) { return show_db(KIVO_SHOW_BY_IPV4, kAddress); },
   .fault = {"chunk_malloc"}, .traces = E(std::string("Kivo index list create failed, Error: ") + kNoMemory),
   .after = console_shows(kHeader), .errors_only = true},
  {.name = "ShowOfDatabaseWithoutConfiguration", .call = [](World &) { return show_db(KIVO_SHOW_NOTIFICATIONS, 0); },
   .after = console_shows(header("ATTR_DB", "owner") + "\n\n           ATTRIBUTE  ATTR TYPE    NOTIFY CLIENTS  ACT   NOTIFY HANDLES\n--------------------  ---------  ----------------  ---  ---------------\nNo Attributes Found."),
   .before = [](World &) { create(1, "ATTR_DB", "owner", {}); }, .errors_only = true},
  {.name = "ShowEndsBehindTheRowWhoseEntryIsNotFound", .call = [](World &) { return show_db(KIVO_SHOW_ATTRIBUTES, 0); },
   .traces = E("Get accel for attr failed,Error: " + kInvalid),
   .after = console_shows(kHeader + "\n\n           ATTRIBUTE  ATTR TYPE\n--------------------  ---------\nuser-name             VAR STR  \nattribute-unknown     INT 32   "),
   .before = [](World &) { create_database(1, {{1, 0, KIVO_DATA_TYPE_VAR_STR}, {0, 6, KIVO_DATA_TYPE_INT32}, {8, 0, KIVO_DATA_TYPE_IPV4_ADDR}}); }, .errors_only = true},
  {.name = "ShowOfMissingValue", .call = show_by_audit,
   .after = console_shows(kRecordTop + "\nsession-id                     : --- Data not found ---"), .before = configured(AAA_ATTR_SESSION_ID, KIVO_DATA_TYPE_VAR_STR, ""), .errors_only = true},
  {.name = "ShowOfValueThatCannotBeRead", .call = show_by_audit, .fault = {"auth_mgr_idc_get_attr"},
   .traces = E("get attr: Could not get attr from db - rc 57005"),
   .after = console_shows(kRecordTop + "\nuser-name                      : --- Data not found ---"), .before = configured(AAA_ATTR_USER_NAME, KIVO_DATA_TYPE_VAR_STR, "ann"), .errors_only = true},
  {.name = "ShowOfTextWithoutMemory", .call = show_by_audit, .fault = {"named_zalloc"}, .traces = E("Memory allocation for username failed"),
   .after = console_shows(kRecordTop + "\nuser-name                      : Could not print"), .before = configured(AAA_ATTR_USER_NAME, KIVO_DATA_TYPE_VAR_STR, "ann"), .errors_only = true},
  {.name = "ShowOfInterfaceWithoutMemory", .call = show_by_audit, .fault = {"named_zalloc"}, .traces = E("Memory allocation for interface field failed"),
   .after = console_shows(kRecordTop + "\ninterface                      : Could not print"), .before = configured(AAA_ATTR_INTERFACE, KIVO_DATA_TYPE_INT32, "12"), .errors_only = true},
  {.name = "ShowOfAddressesWhoseRecordCannotBeFetched", .call = show_by_audit, .fault = {"attrdb_get_record", 3},  // 1 for the identities, 2 for the value
   .traces = E("get record: get record failed, error:" + kDeadText),
   .after = console_shows(kRecordTop + "\nipv6-addresses                 : \nfailed getting record."), .before = configured(AAA_ATTR_IPV6_ADDRESSES, KIVO_DATA_TYPE_IPV6_ADDR, std::string(16, 'a')), .errors_only = true},
};
// clang-format on

// Rows that cannot be reached through the interface:
// - "register client:%s # clients per process %d reached max %d": a claimed entry is counted at
// most
//   once and never becomes free, so with an entry free at most one client is counted;
// - "acceleration table create failed, table's index exceeded its size": every row takes at most
// one
//   slot, and there are as many slots as rows;
// - the announcement's "change notification failed(%s) Failed.": it needs type 0, which the single
//   write refuses and which ends the walk of a list; its null database and null value are refused
//   before by every write;
// - "Failed to decode the %s attribute." on a write: a null value with a length is refused before;
//   with length 0 and on removals it is no failure of the operation;
// - "--- Can not print ---" for a kind without a rendering: creation refuses such a kind;
// - "Could not print" for a value of 4,294,967,295 bytes: the attribute service stores 65,535.

// ---- The two list writes fail alike, in their own words

struct ListWrite {
  std::string name;
  std::string title;
  std::string entry;
  decltype(&kivo_add_or_update_attr_list) call;
  bool notify_failure_ends_walk;
};

std::vector<Row> list_rows(const ListWrite &op) {
  const Traces begin = V(op.entry + " attr list:ATTR_DB") + kGet;
  const Traces bad_params = E(op.title + " attr list: invalid params");
  const std::string write_failed = op.title + " attr list: add attr to rec failed, error:";
  const auto write = [&op](World &w) { return op.call(w.db, kSession, nullptr, w.list.handle()); };
  const auto fill = [](World &w) { w.list.add(1, "bob").add(11, "s-1").add_u32(8, kAddress); };
  const auto fill_identity = [](World &w) {
    w.list.add(1, "bob").add(1126, identity(6, "y").data(), 3).add_u32(8, kAddress);
  };
  const auto first_is_written = [](World &w) {
    EXPECT_EQ("bob", World::stored(1));
    EXPECT_EQ("", World::stored(11) + World::stored(8));
    EXPECT_EQ((std::map<int, std::string>{{5, "x"}}), w.identities());
    EXPECT_EQ("1/1 ", notified);
  };
  const auto all_but_session_id_are_written = [](World &) {
    EXPECT_EQ("bob", World::stored(1));
    EXPECT_EQ(4u, World::stored(8).size());
    EXPECT_EQ("", World::stored(11));
    EXPECT_EQ("1/1 8/1 ", notified);
  };
  // An attribute of no bytes is written, but cannot be announced.
  const auto fill_unannounced = [](World &w) {
    w.list.add(1, "bob").add(11, "").add_u32(8, kAddress);
  };
  const Traces notify_failed =
      begin + kWroteName + not_identity("session-id") +
      E("attr_change_notification: bad attr params.Size: 0, data: <p>, client_info: <p>") +
      E(op.title + " attr list: Notify failed, error:" + kInvalid);
  const auto after_notify_failure = [&op](World &) {
    EXPECT_TRUE(World::holds(11));
    EXPECT_EQ(!op.notify_failure_ends_walk, World::holds(8));
  };
  // clang-format off
  return {
    {.name = op.name + "WithoutDatabase", .call = [&op](World &w) { return op.call(nullptr, kSession, nullptr, w.list.handle()); },
     .status = KIVO_ERR_INVALID_ARG, .traces = bad_params, .after = nothing_changed, .before = fill},
    {.name = op.name + "OfListZero", .call = [&op](World &w) { return op.call(w.db, kSession, nullptr, 0); },
     .status = KIVO_ERR_INVALID_ARG, .traces = bad_params, .after = nothing_changed},
    {.name = op.name + "WhoseFetchFails", .call = write, .fault = {"attrdb_get_record"}, .status = kDead,
     .traces = V(op.entry + " attr list:ATTR_DB") + kFetchFailed + E(op.title + " attr list: get record internal failed, error:" + kDeadText),
     .after = nothing_changed, .before = fill},
    {.name = op.name + "OfNoRecordOpensNoCursor", .call = [&op](World &w) { return op.call(w.db, kNoSession, nullptr, w.list.handle()); },
     .fault = {.operation = "aaa_cursor_alloc", .is_reached = false}, .status = 0,
     .traces = begin + V(op.entry + " attr list:ATTR_DB, rec doesn't exist"), .after = nothing_changed, .before = fill},
    {.name = op.name + "WithoutCursor", .call = write, .fault = {"aaa_cursor_alloc"}, .status = KIVO_ERR_NO_CURSOR,
     .traces = begin, .after = nothing_changed, .before = fill},
    {.name = op.name + "WhoseFirstMoveFails", .call = write, .fault = {"aaa_cursor_get_next"}, .status = kDead,
     .traces = begin, .after = nothing_changed, .before = fill},
    {.name = op.name + "WhoseSecondMoveFails", .call = write, .fault = {"aaa_cursor_get_next", 2}, .status = kDead,
     .traces = begin + kWroteName, .after = first_is_written, .before = fill},
    {.name = op.name + "WhoseSecondValueCannotBeRead", .call = write, .fault = {"aaa_cursor_get_value", 2}, .status = kDead,
     .traces = begin + kWroteName + E(op.title + " attr list: get attr failed, error:" + kDeadText), .after = first_is_written, .before = fill},
    {.name = op.name + "SkipsTypeThatIsNotSupported", .call = write, .fault = {"auth_mgr_idc_add_or_update_attr", 2, 2}, .status = 0,
     .traces = begin + kWroteName + not_identity("session-id") + V(op.title + " attr list: Unsupported attribute: 11.Continue to next") + kWroteAddress,
     .after = all_but_session_id_are_written, .before = fill},
    {.name = op.name + "WhoseSecondWriteFails", .call = write, .fault = {"auth_mgr_idc_add_or_update_attr", 2}, .status = kDead,
     .traces = begin + kWroteName + not_identity("session-id") + E(write_failed + kDeadText), .after = first_is_written, .before = fill},
    {.name = op.name + "WithoutShadowRecord", .call = write, .fault = {"auth_mgr_idc_get_shadow_record_in_ctxt"}, .status = 22,
     .traces = begin + kWroteName + kDevice + kNotStored + E(write_failed + error_text(22)), .after = first_is_written, .before = fill_identity},
    {.name = op.name + "WithoutMemoryForIdentity", .call = write, .fault = {"named_alloc"}, .status = KIVO_ERR_NO_MEMORY,
     .traces = begin + kWroteName + kDevice + kDeviceWrite + kNoEntry + E(write_failed + kNoMemory), .after = first_is_written, .before = fill_identity},
    {.name = op.name + "WithoutMemoryForIdentityValue", .call = write, .fault = {"variable_chunk_malloc"}, .status = KIVO_ERR_NO_MEMORY,
     .traces = begin + kWroteName + kDevice + kDeviceWrite + no_value_memory(6) + E(write_failed + kNoMemory), .after = first_is_written, .before = fill_identity},
    {.name = op.name + "ThatCannotBeAnnounced", .call = write, .status = op.notify_failure_ends_walk ? KIVO_ERR_INVALID_ARG : 0,
     .traces = op.notify_failure_ends_walk ? notify_failed : notify_failed + kWroteAddress, .after = after_notify_failure, .before = fill_unannounced},
  };
  // clang-format on
}

const ListWrite kListWrites[] = {
    {"ListUpdate", "Add/update", "add or update", kivo_add_or_update_attr_list, false},
    {"ListClean", "Clean/Add", "clean and add", kivo_clean_and_add_attr_list, true}};

std::vector<Row> all_rows() {
  std::vector<Row> rows = kPlainRows;
  for (const ListWrite &op : kListWrites) {
    for (Row &row : list_rows(op)) rows.push_back(std::move(row));
  }
  return rows;
}

class FailureRow : public testing::TestWithParam<Row> {};

void PrintTo(const Row &row, std::ostream *os) { *os << row.name; }

void run(const Row &row) {
  World world;
  if (row.before != nullptr) row.before(world);
  TraceLog log;
  kivo_debug_level_all = 1;
  if (row.fault.operation != nullptr) {
    arm_fault(row.fault.operation, row.fault.nth, row.fault.status);
  }
  const uint32_t status = row.call(world);
  const bool is_reached = disarm_fault();
  kivo_debug_level_all = 0;
  const Traces traces = log.take();
  EXPECT_EQ(row.status, status);
  EXPECT_EQ(row.fault.is_reached, is_reached) << "the call did not go the way that it should";
  EXPECT_EQ(show(row.traces), show(without_addresses(traces, row.errors_only)));
  if (row.after != nullptr) row.after(world);
}

TEST_P(FailureRow, HasItsStatusTracesAndStateAndLeaksNothing) {
  { const World settled; }
  const auto before = live_things();
  run(GetParam());
  { const World anew; }
  EXPECT_EQ(before, live_things());
}

INSTANTIATE_TEST_SUITE_P(Rows, FailureRow, testing::ValuesIn(all_rows()),
                         [](const auto &row) { return row.param.name; });

TEST(TagOfShadowClass, IsNoneForUnknownNameAndStopsTheProcessForNullName) {
  const World world;
  ASSERT_NE(nullptr, shadow_class_tag);
  EXPECT_EQ(0x3b0001au, shadow_class_tag("Shadow malloc"));
  EXPECT_EQ(0u, shadow_class_tag("Shadow 3"));
  EXPECT_DEATH(shadow_class_tag(nullptr), "name.*core/src/shadow_db.*603");
}

}  // namespace
}  // namespace kivo_test
