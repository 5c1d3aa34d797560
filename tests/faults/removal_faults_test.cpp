// Removals whose steps fail: who is told by then, what stays, and which status of several comes
// back.
#include "fault_row.h"

namespace kivo_test {
namespace {

constexpr uint32_t kId = AAA_ATTR_SESSION_ID;
constexpr uint32_t kAddresses = AAA_ATTR_IPV6_ADDRESSES;

const std::string kByTypeFailed = "3 Remove attr by type: Remove failed, error:";
const std::string kByTypeNotify = "3 Remove attr by type: Notify failed, error:";
const std::string kOneOfTypesFailed = "3 Remove attrs by type: Remove attr failed, error:";
const std::string kByValueFailed = "3 Remove attr by type/val: Remove attr failed, error:";
const std::string kByValueNotify = "3 Remove attrs from rec by type and val: Notify failed, error:";

uint32_t by_type(World &w) { return kivo_remove_attr_from_record_by_type(w.db, w.record, kId); }

uint32_t by_value(World &w) {
  return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record, kId, 3, "s-1");
}

uint32_t identity_by_value(World &w) {
  return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record, AAA_ATTR_EXT_DEVICE, 3,
                                                        identity(5, "x").data());
}

// Removals of the session id and of identities are told.
void give_session_id(World &w) {
  static void *handles[2][1];
  kivo_register_attr_change_notification(w.db, kId, KIVO_ACTION_REMOVE, handles[0]);
  kivo_register_attr_change_notification(w.db, AAA_ATTR_EXT_DEVICE, KIVO_ACTION_REMOVE, handles[1]);
  w.write(kId, "s-1");
}

std::function<void(World &)> keeps(const std::string &value, const std::string &told) {
  return [=](World &w) {
    EXPECT_EQ(value, World::stored(kId));
    EXPECT_EQ("ann", World::stored(AAA_ATTR_USER_NAME));
    EXPECT_EQ((std::map<int, std::string>{{5, "x"}}), w.identities());
    EXPECT_EQ(told, notified);
  };
}

uint32_t three_types(World &w) {
  const uint32_t types[] = {AAA_ATTR_USER_NAME, kId, AAA_ATTR_AUDIT_SESSION_ID};
  return kivo_remove_attrs_by_type(w.db, kSession, nullptr, types, 3);
}

// The third type cannot be removed either, for another reason than the first.
uint32_t three_types_and_another_fault(World &w) {
  arm_further_fault("auth_mgr_idc_remove_attr_by_type", 3, 0xbeef);
  return three_types(w);
}

const std::vector<FaultRow> kRows = {
    {.name = "ByTypeWhoseReadFails",
     .call = by_type,
     .operation = "auth_mgr_idc_get_attr",
     .traces = {"6 remove attrs:",
                "3 Remove attr by type: Get attr from rec failed, error:" + kDeadText},
     .after = keeps("s-1", ""),
     .before = give_session_id},
    {.name = "ByTypeThatTheStoreRefusesHasBeenTold",
     .call = by_type,
     .operation = "auth_mgr_idc_remove_attr_by_type",
     .traces = {"6 remove attrs:", kByTypeFailed + kDeadText},
     .after = keeps("s-1", "11/2 "),
     .before = give_session_id},
    {.name = "ByTypeThatNobodyCanBeToldGoesOn",
     .call = [](World &w) { return kivo_remove_attr_from_record_by_type(nullptr, w.record, kId); },
     .status = 0,
     .traces = {"6 remove attrs:", kByTypeNotify + kInvalid},
     .after = keeps("", ""),
     .before = give_session_id},
    {.name = "ByTypeOfValueTooLongToTell",
     .call = by_type,
     .status = 0,
     .traces = {"6 remove attrs:", kByTypeNotify + kInvalid},
     .after = keeps("", ""),
     .before =
         [](World &w) {
           give_session_id(w);
           w.write(kId, std::string(256, 'v'));
         }},
    {.name = "ByTypeOfAddressesThatNobodyCanBeTold",
     .call =
         [](World &w) {
           return kivo_remove_attr_from_record_by_type(nullptr, w.record, kAddresses);
         },
     .status = 0,
     .traces = {"6 remove attrs:", kByTypeNotify + kInvalid, kByTypeNotify + kInvalid},
     .after = [](World &) { EXPECT_FALSE(World::holds(kAddresses)); },
     .before = [](World &w) { w.write(kAddresses, std::string(16, 'a') + std::string(16, 'b')); }},
    {.name = "OfTypesWhoseFetchFails",
     .call = three_types,
     .operation = "attrdb_get_record",
     .traces = {"6 remove attrs:ATTR_DB", "3 get record: get record failed, error:" + kDeadText,
                "3 Add/update attr list: get record internal failed, error:" + kDeadText},
     .after = keeps("s-1", ""),
     .before = give_session_id},
    {.name = "OfTypesGoesOnAndReturnsTheLastFailure",
     .call = three_types_and_another_fault,
     .operation = "auth_mgr_idc_remove_attr_by_type",
     .status = 0xbeef,
     .traces = {"6 remove attrs:ATTR_DB", "6 remove attrs:", kByTypeFailed + kDeadText,
                kOneOfTypesFailed + kDeadText,
                "6 remove attrs:", "6 remove attrs:", kByTypeFailed + "unknown status 0x0000beef",
                kOneOfTypesFailed + "unknown status 0x0000beef"},
     .after =
         [](World &w) {
           keeps("", "11/2 ")(w);
           EXPECT_EQ(kAuditId, World::stored(AAA_ATTR_AUDIT_SESSION_ID));
         },
     .before = give_session_id},
    {.name = "ByValueThatTheStoreRefusesIsNotTold",
     .call = by_value,
     .operation = "auth_mgr_idc_remove_attr_by_type_and_value",
     .traces = {"6 remove attrs:ATTR_DB", kByValueFailed + kDeadText},
     .after = keeps("s-1", ""),
     .before = give_session_id},
    {.name = "ByNoValueIsTheStoresToRefuse",
     .call =
         [](World &w) {
           return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record, kId, 3, nullptr);
         },
     .status = AAA_ERR_INVALID_ARG,
     .traces = {"6 remove attrs:ATTR_DB", kByValueFailed + error_text(AAA_ERR_INVALID_ARG)},
     .after = keeps("s-1", ""),
     .before = give_session_id},
    {.name = "ByValueTooLongToTell",
     .call =
         [](World &w) {
           const std::string value(256, 'v');
           return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record, kId, 256,
                                                                 value.data());
         },
     .status = 0,
     .traces = {"6 remove attrs:ATTR_DB", kByValueNotify + kInvalid},
     .after = keeps("", ""),
     .before =
         [](World &w) {
           give_session_id(w);
           w.write(kId, std::string(256, 'v'));
         }},
    {.name = "OfIdentityWithoutShadowRecord",
     .call = identity_by_value,
     .operation = "auth_mgr_idc_get_shadow_record_in_ctxt",
     .status = KIVO_ERR_INVALID_ARG,
     .traces = {"6 remove attrs:ATTR_DB", kByValueFailed + kInvalid},
     .after = keeps("s-1", ""),
     .before = give_session_id},
    // Without a value the subtype is 1, which is not there: no failure, but nothing to tell.
    {.name = "OfIdentityByNoValue",
     .call =
         [](World &w) {
           return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record,
                                                                 AAA_ATTR_EXT_DEVICE, 3, nullptr);
         },
     .status = 0,
     .traces = {"6 remove attrs:ATTR_DB", kByValueNotify + kInvalid},
     .after = keeps("s-1", ""),
     .before = give_session_id},
};

class Removal : public testing::TestWithParam<FaultRow> {};

TEST_P(Removal, HasItsStatusTracesAndStateAndLeaksNothing) { run_row(GetParam()); }

// The service may report the length of one address: their number counts, for queries and shows too.
TEST(Addresses, AreCountedByTheirNumber) {
  World w;
  for (const char c : {'a', 'b', 'c'}) w.write(kAddresses, std::string(16, c));
  reports_one_address = true;
  kivo_maqi query;
  uint32_t flag = 0;
  kivo_index_list *found = nullptr;
  uint32_t count = 0;
  kivo_start_multi_attr_query(w.db, &query);
  kivo_add_attr_to_query(&query, AAA_ATTR_USER_NAME, "ann", 3, &flag);
  kivo_add_attr_to_query(&query, kAddresses, std::string(16, 'c').data(), 16, &flag);
  EXPECT_EQ(0u, kivo_get_matches_for_query(&query, &found, &count));
  EXPECT_EQ(1u, count);
  kivo_index_list_free(found);

  kivo_db *db = create_database(1, {{kAddresses, 0, KIVO_DATA_TYPE_IPV6_ADDR}}, note_change);
  static void *handle[1];
  kivo_register_attr_change_notification(db, kAddresses, KIVO_ACTION_REMOVE, handle);
  const std::string last = "6363:6363:6363:6363:6363:6363:6363:6363";
  kivo_show_all_records(1);
  EXPECT_NE(std::string::npos, w.console.take().find("\nipv6-addresses                : " + last));
  kivo_show_db(KIVO_SHOW_BY_AUDIT_SESSION, reinterpret_cast<uint64_t>(kAuditId));
  EXPECT_NE(std::string::npos, w.console.take().find(", " + last));
  notified.clear();
  EXPECT_EQ(0u, kivo_remove_attr_from_record_by_type(db, w.record, kAddresses));
  EXPECT_EQ("10/2 10/2 10/2 ", notified);
  reports_one_address = false;
}

INSTANTIATE_TEST_SUITE_P(Rows, Removal, testing::ValuesIn(kRows),
                         [](const auto &row) { return row.param.name; });

}  // namespace
}  // namespace kivo_test
