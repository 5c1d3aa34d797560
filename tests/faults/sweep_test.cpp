// Every exported operation with its first, second, ... n-th platform call failing, until it gets
// through without meeting the fault. Whichever call fails: the status is one that the operation's
// header names (or the platform's own), nothing leaks, what stood in the record stays, and the same
// operation done again without a fault has its normal outcome.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "support/trace_log.h"
#include "world.h"

namespace kivo_test {
namespace {

constexpr uint32_t kDead = 0xdead;  // the status of every injected fault that has one
constexpr uint32_t kCallsMax = 200;

struct Operation {
  std::string name;
  std::function<uint32_t(World &)> run;            // repeatable in one World
  std::set<uint32_t> failures;                     // what it may return when a platform call fails
  std::function<void(World &)> outcome = nullptr;  // of a run that succeeded
  std::function<void(World &)> before = nullptr;
  uint32_t success = 0;
  std::function<void(World &)> after_failure = nullptr;
};

using Ids = std::map<int, std::string>;

uint32_t recreate(World &w) {
  const kivo_attr_config rows[] = {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR},
                                   {AAA_ATTR_SESSION_ID, 6, KIVO_DATA_TYPE_VAR_STR}};
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, note_change, nullptr};
  kivo_db *result = nullptr;
  const uint32_t status = kivo_create_database("ATTR_DB", "owner", &client, rows, 2, &result);
  EXPECT_EQ(status == 0 ? w.db : nullptr, result);
  return status;
}

// Thirteen sessions have the name, so that the set needs a second block inside the look-up.
void name_twelve_more(World &) {
  for (uint32_t label = 101; label <= 112; ++label) {
    kivo_create_record(nullptr, label, nullptr);
    auth_mgr_idc_add_or_update_attr(find_record(label)->ctxt, AAA_ATTR_USER_NAME, "ann", 3,
                                    nullptr);
  }
}

uint32_t find_labels(World &w) {
  uint32_t count = 0;
  kivo_index_list_empty(w.none.list);
  const uint32_t status =
      kivo_match_labels_by_attr(w.db, AAA_ATTR_USER_NAME, "ann", 3, &w.none.list, &count);
  if (status == 0) {
    EXPECT_EQ(13u, count);
    EXPECT_EQ(13u, w.none.labels().size());
  }
  return status;
}

uint32_t merge(World &w) {
  AttrList list;
  return kivo_merge_rec_to_list_without_replace(w.db, w.record, list.handle());
}

uint32_t destroy_new_shadow_record(World &) {
  shadowdb_rec *made = shadowdb_alloc_record(9);
  if (made == nullptr) return 0;
  return shadowdb_destroy_record(made);
}

uint32_t grow_set(World &) {
  kivo_index_list *list = nullptr;
  if (kivo_index_list_create(&list) != 0) return KIVO_INDEX_LIST_NO_MEMORY;
  const std::vector<uint32_t> labels = first_labels(30);
  uint32_t status = kivo_index_list_add_many(&list, labels.data(), 30);
  uint32_t size = 0;
  kivo_index_list_size(list, &size);
  EXPECT_TRUE(status == 0 ? size == 30 : size == 12 || size == 24) << "whole blocks went in";
  if (status == 0) status = kivo_index_list_add(&list, 31);
  kivo_index_list_free(list);
  return status;
}

uint32_t intersect(World &w) {
  kivo_index_list *common = nullptr;
  const uint32_t status = kivo_index_list_intersection(w.thirteen.list, w.thirteen.list, &common);
  EXPECT_EQ(status != 0, common == nullptr);
  if (status == 0) {
    uint32_t size = 0;
    EXPECT_EQ(0u, kivo_index_list_size(common, &size));
    EXPECT_EQ(13u, size);
  }
  kivo_index_list_free(common);
  return status;
}

template <typename Read>
uint32_t read(Read &&call) {
  const void *value = nullptr;
  uint32_t length = 0;
  const uint32_t status = call(&value, &length);
  if (status == 0) {
    EXPECT_EQ("ann", std::string(static_cast<const char *>(value), length));
  }
  return status;
}

// A show tells everything on the console: the header comes first and the session is counted.
std::function<uint32_t(World &)> show(uint32_t command, uint64_t filter) {
  return [=](World &w) {
    kivo_show_db(command, filter);
    EXPECT_EQ(0u,
              w.console.take().find("\n" + std::string(66, '-') + "\nDATABASE          : ATTR_DB"));
    return 0u;
  };
}

// Attributes of every route: the record's own, an identity, one that nobody registered for.
void fill_list(World &w) {
  w.list.add(AAA_ATTR_SESSION_ID, "s-1")
      .add(AAA_ATTR_EXT_DEVICE, identity(6, "y").data(), 3)
      .add(AAA_ATTR_INTERFACE_NAME, "eth0")
      .add_u32(AAA_ATTR_IPV4_ADDRESS, kAddress);
}

void list_is_written(World &w) {
  EXPECT_EQ("s-1", World::stored(AAA_ATTR_SESSION_ID));
  EXPECT_EQ("eth0", World::stored(AAA_ATTR_INTERFACE_NAME));
  EXPECT_EQ(4u, World::stored(AAA_ATTR_IPV4_ADDRESS).size());
  EXPECT_EQ((Ids{{5, "x"}, {6, "y"}}), w.identities());
}

// A list write that stopped has written a run from the list's start.
void list_is_written_in_order(World &w) {
  const bool written[] = {World::holds(AAA_ATTR_SESSION_ID), w.identities().count(6) != 0,
                          World::holds(AAA_ATTR_INTERFACE_NAME),
                          World::holds(AAA_ATTR_IPV4_ADDRESS)};
  for (size_t i = 1; i < std::size(written); ++i) EXPECT_LE(written[i], written[i - 1]) << i;
}

// Two indexed conditions with thirteen sessions, an unindexed one that is checked at once, and the
// result. Whatever fails, the query holds nothing afterwards.
uint32_t query(World &w) {
  kivo_maqi query;
  uint32_t flag = 0;
  uint32_t count = 0;
  kivo_index_list *found = nullptr;
  uint32_t status = kivo_start_multi_attr_query(w.db, &query);
  for (const uint32_t type : {AAA_ATTR_USER_NAME, AAA_ATTR_USER_NAME, AAA_ATTR_AUDIT_SESSION_ID}) {
    const std::string value = type == AAA_ATTR_USER_NAME ? "ann" : kAuditId;
    if (status == 0) {
      status = kivo_add_attr_to_query(&query, type, value.data(),
                                      static_cast<uint32_t>(value.size()), &flag);
    }
  }
  EXPECT_EQ(status == 0, flag == 1);
  EXPECT_EQ(status == 0 ? 13u : 0u, query.num_candidates);
  if (status == 0) status = kivo_get_matches_for_query(&query, &found, &count);
  EXPECT_EQ(status == 0 ? 13u : 0u, count);
  EXPECT_EQ(nullptr, query.candidates);
  kivo_index_list_free(found);
  return status;
}

// One indexed condition and one that is stored, checked when the result is taken.
uint32_t late_query(World &w) {
  kivo_maqi query;
  uint32_t flag = 0;
  uint32_t count = 0;
  kivo_index_list *found = nullptr;
  uint32_t status = kivo_start_multi_attr_query(w.db, &query);
  if (status == 0)
    status = kivo_add_attr_to_query(&query, AAA_ATTR_AUDIT_SESSION_ID, kAuditId, 24, &flag);
  if (status == 0) status = kivo_add_attr_to_query(&query, AAA_ATTR_USER_NAME, "ann", 3, &flag);
  if (status == 0) status = kivo_get_matches_for_query(&query, &found, &count);
  EXPECT_EQ(status == 0 ? 1u : 0u, count);
  EXPECT_EQ(nullptr, query.candidates);
  kivo_index_list_free(found);
  return status;
}

uint32_t match_sessions(World &w) {
  kivo_index_list *found = nullptr;
  uint32_t count = 0;
  const uint32_t status = kivo_match_sessions_from_list(w.db, w.list.handle(), &found, &count);
  EXPECT_EQ(status == 0 ? 13u : 0u, count);
  EXPECT_EQ(status == 0, found != nullptr);
  kivo_index_list_free(found);
  return status;
}

// A partial walk is not detected: only the list's own creation fails.
uint32_t list_sessions(World &w) {
  kivo_index_list *all = nullptr;
  uint32_t count = 0;
  const uint32_t status = kivo_get_session_list(w.db, &all, &count);
  EXPECT_EQ(status == 0 ? 13u : 0u, count);
  kivo_index_list_free(all);
  return status;
}

void prepare_show(World &w) {
  create_database(1, {{AAA_ATTR_USER_NAME, 0, KIVO_DATA_TYPE_VAR_STR},
                      {AAA_ATTR_INTERFACE, 6, KIVO_DATA_TYPE_INT32},
                      {AAA_ATTR_IPV6_ADDRESSES, 6, KIVO_DATA_TYPE_IPV6_ADDR}});
  w.write(AAA_ATTR_INTERFACE, "12");
  w.write(AAA_ATTR_IPV6_ADDRESSES, std::string(32, 'a').replace(16, 1, "b"));
  w.write(AAA_ATTR_IPV4_ADDRESS, std::string(reinterpret_cast<const char *>(&kAddress), 4));
  w.write(AAA_ATTR_MAC_ADDRESS, "abcdef");
}

std::vector<Operation> operations() {
  const uint32_t no_memory = KIVO_ERR_NO_MEMORY;
  const std::set<uint32_t> list_failures = {kDead, KIVO_ERR_NO_CURSOR, no_memory, 22};
  const auto address_of = [](const char *text) { return reinterpret_cast<uint64_t>(text); };
  // clang-format off
  return {
    {"DebugMessage", [](World &) { kivo_buginf(KIVO_DEBUG_KIND_EVENT, 1, "%d", 1); return 0u; }, {0}},
    {"Recreation", recreate, {KIVO_ERR_FAILED, KIVO_ERR_INVALID_ARG},
     [](World &w) { EXPECT_EQ(1u, kivo_get_index_from_aaa_type(w.db, AAA_ATTR_SESSION_ID)); EXPECT_EQ(2u, w.db->indexed_count + w.db->unindexed_count); }},
    {"RecordCreation", [](World &w) { return kivo_create_record(w.db, kNoSession, nullptr); }, {kDead},
     [](World &) { EXPECT_NE(nullptr, find_record(kNoSession)); }},
    {"RecordFetch", [](World &w) { attrdb_record *found = nullptr; const uint32_t status = kivo_get_record(w.db, kSession, &found); EXPECT_EQ(status == 0 ? w.record : nullptr, found); return status; }, {kDead}},
    {"RecordDeletion", [](World &w) { return kivo_delete_record(w.db, kNoSession); }, {kDead},
     [](World &) { EXPECT_EQ(nullptr, find_record(kNoSession)); }, [](World &w) { kivo_create_record(w.db, kNoSession, nullptr); }},
    {"LabelsOfValue", find_labels, {kDead, ATTRDB_ERR_NO_MEMORY}, nullptr, name_twelve_more},
    {"LabelOfValue", [](World &w) { uint32_t label = 9; const uint32_t status = kivo_match_label_by_attr(w.db, 1, "ann", 3, &label); EXPECT_EQ(status == 0 ? kSession : 0, label); return status; }, {kDead}},
    {"RecordOfValue", [](World &w) { attrdb_record *found = nullptr; const uint32_t status = kivo_match_record_by_attr(w.db, 1, "ann", 3, &found); EXPECT_TRUE(found == w.record || found == nullptr); return status; }, {0}},
    {"InterfaceStep", [](World &) { uint32_t next = 0; return kivo_get_next_if_id(0, &next); }, {kDead}},
    {"Merge", merge, {kDead}},
    {"Registration", [](World &w) { static void *handle[1]; return kivo_register_attr_change_notification(w.db, AAA_ATTR_START_TIME, 1, handle); }, {KIVO_ERR_INVALID_ARG},
     [](World &w) { EXPECT_NE(nullptr, queue_get_next(&w.db->accel_tbl[4].notify_regs, nullptr)); }},
    {"Update", [](World &w) { return kivo_add_or_update_attr(w.db, kSession, nullptr, AAA_ATTR_SESSION_ID, "s-1", 3); }, {kDead},
     [](World &) { EXPECT_EQ("s-1", World::stored(AAA_ATTR_SESSION_ID)); EXPECT_EQ("11/1 ", notified); }},
    {"ListUpdate", [](World &w) { return kivo_add_or_update_attr_list(w.db, kSession, nullptr, w.list.handle()); }, list_failures, list_is_written, fill_list, 0, list_is_written_in_order},
    {"ListClean", [](World &w) { return kivo_clean_and_add_attr_list(w.db, kSession, nullptr, w.list.handle()); }, list_failures, list_is_written, fill_list, 0, list_is_written_in_order},
    {"AddToRecord", [](World &w) { return kivo_add_attr_to_record(w.db, w.record, AAA_ATTR_SESSION_ID, "s-1", 3); }, {kDead}, [](World &) { EXPECT_EQ("s-1", World::stored(AAA_ATTR_SESSION_ID)); }},
    {"AddByLabel", [](World &w) { return kivo_add_attr(w.db, kSession, nullptr, AAA_ATTR_SESSION_ID, "s-1", 3); }, {kDead}, [](World &) { EXPECT_EQ("s-1", World::stored(AAA_ATTR_SESSION_ID)); }},
    {"AddList", [](World &w) { return kivo_add_attr_list(w.db, kSession, nullptr, w.list.handle()); }, {kDead, KIVO_ERR_NO_CURSOR}, [](World &) { EXPECT_EQ("eth0", World::stored(AAA_ATTR_INTERFACE_NAME)); }, fill_list},
    {"UpdateInRecord", [](World &w) { return kivo_add_or_update_attr_to_record(w.db, w.record, AAA_ATTR_SESSION_ID, "s-1", 3); }, {kDead}, [](World &) { EXPECT_EQ("s-1", World::stored(AAA_ATTR_SESSION_ID)); }},
    {"RemovalByType", [](World &w) { return kivo_remove_attr_from_record_by_type(w.db, w.record, AAA_ATTR_SESSION_ID); }, {kDead},
     [](World &) { EXPECT_FALSE(World::holds(AAA_ATTR_SESSION_ID)); }, [](World &w) { w.write(AAA_ATTR_SESSION_ID, "s-1"); }},
    {"RemovalOfTypes", [](World &w) { const uint32_t types[] = {AAA_ATTR_SESSION_ID, AAA_ATTR_METHOD}; return kivo_remove_attrs_by_type(w.db, kSession, nullptr, types, 2); }, {kDead},
     [](World &) { EXPECT_FALSE(World::holds(AAA_ATTR_SESSION_ID)); }, [](World &w) { w.write(AAA_ATTR_SESSION_ID, "s-1"); }},
    {"RemovalByValue", [](World &w) { return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record, AAA_ATTR_SESSION_ID, 3, "s-1"); }, {kDead},
     [](World &) { EXPECT_FALSE(World::holds(AAA_ATTR_SESSION_ID)); }, [](World &w) { w.write(AAA_ATTR_SESSION_ID, "s-1"); }},
    {"RemovalOfIdentity", [](World &w) { return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record, AAA_ATTR_EXT_DEVICE, 3, identity(6, "y").data()); }, {KIVO_ERR_INVALID_ARG},
     [](World &w) { EXPECT_EQ((Ids{{5, "x"}}), w.identities()); }, [](World &w) { w.write_identity(6, "y"); }},
    {"Query", query, {KIVO_ERR_INVALID_ARG, no_memory}, nullptr, name_twelve_more},
    {"LateQuery", late_query, {KIVO_ERR_INVALID_ARG, no_memory}, nullptr,
     [](World &w) { w.db = create_database(1, {{AAA_ATTR_AUDIT_SESSION_ID, 0, KIVO_DATA_TYPE_SESN_GUID}}); }},
    {"SessionMatch", match_sessions, {kDead, ATTRDB_ERR_NO_MEMORY, KIVO_ERR_NO_CURSOR, KIVO_INDEX_LIST_NO_MEMORY, KIVO_INDEX_LIST_INVALID, KIVO_INDEX_LIST_HASH_FAILED}, nullptr,
     [](World &w) { name_twelve_more(w); w.list.add(AAA_ATTR_USER_NAME, "ann").add(AAA_ATTR_METHOD, "mac").add(AAA_ATTR_USER_NAME, "ann"); }},
    {"SessionList", list_sessions, {0, no_memory}, nullptr, name_twelve_more},
    {"Listing", [](World &w) { kivo_show_all_records(1); return w.console.take().empty() ? 1u : 0u; }, {0}},
    {"Fetch", [](World &) { uint32_t found = 1; uint32_t indexes[KIVO_REPLY_SLOTS]; kivo_value_slot slots[KIVO_REPLY_SLOTS]; kivo_fetch_show_records_filter_by_session_id(kAuditId, &found, indexes, slots); return found == 1 ? 0u : kDead; }, {0, kDead}},
    {"ShadowRecord", destroy_new_shadow_record, {0}, nullptr, nullptr, 1},
    {"Identity", [](World &w) { return w.write_identity(6, "y"); }, {no_memory}, [](World &w) { EXPECT_EQ((Ids{{5, "x"}, {6, "y"}}), w.identities()); }},
    {"LongIdentity", [](World &w) { return w.write_identity(6, std::string(300, 'y')); }, {no_memory}, [](World &w) { EXPECT_EQ(std::string(300, 'y'), w.identities()[6]); }},
    {"IdentitiesOfIndex", [](World &w) { return shadowdb_get_session_attribute(w.shadow, w.list.handle(), 2); }, {0}, [](World &w) { EXPECT_EQ(identity(5, "x"), w.listed(AAA_ATTR_EXT_DEVICE)); }},
    {"Identities", [](World &w) { return shadowdb_get_session_attributes(w.shadow, w.list.handle()); }, {0}, [](World &w) { EXPECT_EQ(identity(5, "x"), w.listed(AAA_ATTR_EXT_DEVICE)); }},
    {"ShadowShow", [](World &w) { return shadowdb_show_rec(w.db, kSession); }, {kDead, KIVO_ERR_NOT_FOUND}, [](World &w) { EXPECT_EQ("\nexternal-device                : 05 00 78 \n", w.console.take()); }},
    {"LabelSet", grow_set, {KIVO_INDEX_LIST_NO_MEMORY}},
    {"Intersection", intersect, {KIVO_INDEX_LIST_INVALID, KIVO_INDEX_LIST_HASH_FAILED}},
    {"ReadFromRecord", [](World &w) { return read([&](const void **value, uint32_t *length) { return kivo_get_attr_from_record(w.db, w.record, 1, value, length); }); }, {KIVO_ERR_FAILED}},
    {"ReadByLabel", [](World &w) { return read([&](const void **value, uint32_t *length) { return kivo_get_attr(w.db, kSession, nullptr, 1, value, length); }); }, {kDead, KIVO_ERR_FAILED}},
    {"ShowByAuditSession", show(KIVO_SHOW_BY_AUDIT_SESSION, address_of(kAuditId)), {0}, nullptr, prepare_show},
    {"ShowByMac", show(KIVO_SHOW_BY_MAC, address_of("abcdef")), {0}, nullptr, prepare_show},
    {"ShowByIpv4", show(KIVO_SHOW_BY_IPV4, kAddress), {0}, nullptr, prepare_show},
  };
  // clang-format on
}

class Sweep : public testing::TestWithParam<Operation> {};

void PrintTo(const Operation &operation, std::ostream *os) { *os << operation.name; }

// Runs the operation with its n-th platform call failing. Returns whether it got that far.
bool run_with_fault(const Operation &operation, uint32_t nth) {
  World world;
  if (operation.before != nullptr) operation.before(world);
  const TraceLog log;  // traces are on: what they need is worked out
  kivo_debug_level_all = 1;
  arm_fault("", nth, kDead);
  const uint32_t status = operation.run(world);
  const bool failed = disarm_fault();
  SCOPED_TRACE(failed ? "call " + std::to_string(nth) + ", " + failed_operation() : "no fault");
  if (failed) {
    EXPECT_EQ(1u, operation.failures.count(status)) << std::hex << status;
    EXPECT_EQ("ann", World::stored(AAA_ATTR_USER_NAME));
    EXPECT_EQ("x", world.identities()[5]);
    if (operation.after_failure != nullptr) operation.after_failure(world);
    EXPECT_EQ(operation.success, operation.run(world)) << "the operation done again";
  } else {
    EXPECT_EQ(operation.success, status);
  }
  if (operation.outcome != nullptr) operation.outcome(world);
  return failed;
}

TEST_P(Sweep, SurvivesTheFailureOfEveryPlatformCall) {
  { const World settled; }
  const auto before = live_things();
  uint32_t nth = 1;
  while (nth < kCallsMax && run_with_fault(GetParam(), nth)) {
    ++nth;
    { const World anew; }
    ASSERT_EQ(before, live_things()) << "after call " << nth - 1 << ", " << failed_operation();
  }
  EXPECT_LT(nth, kCallsMax);
  EXPECT_GT(nth, 1u) << "the operation calls nothing that can fail";
  { const World anew; }
  EXPECT_EQ(before, live_things());
}

INSTANTIATE_TEST_SUITE_P(Operations, Sweep, testing::ValuesIn(operations()),
                         [](const auto &operation) { return operation.param.name; });

}  // namespace
}  // namespace kivo_test
