// The add operations when a step fails: what is written and told by then, and what ends a list.
#include "fault_row.h"

namespace kivo_test {
namespace {

constexpr uint32_t kName = AAA_ATTR_USER_NAME;
constexpr uint32_t kId = AAA_ATTR_SESSION_ID;

const std::string kToRecordFailed = "3 kivo_add_attr_to_record: Add attr failed, error:";
const std::string kFetchFailed = "3 get record: get record failed, error:" + kDeadText;
const std::string kInternalFailed =
    "3 Add attr list: get record internal failed, error:" + kDeadText;
const std::string kListWriteFailed = "3 Add attr list: add attr to rec failed, error:";

uint32_t to_record(World &w) { return kivo_add_attr_to_record(w.db, w.record, kId, "s-1", 3); }
uint32_t by_label(World &w) { return kivo_add_attr(w.db, kSession, nullptr, kId, "s-1", 3); }
uint32_t list(World &w) { return kivo_add_attr_list(w.db, kSession, nullptr, w.list.handle()); }
uint32_t update(World &w) {
  return kivo_add_or_update_attr_to_record(w.db, w.record, kId, "s-1", 3);
}

void fill(World &w) { w.list.add(kName, "bob").add(kId, "s-1").add_u32(8, kAddress); }

// What is stored of the list's three attributes, and who was told.
std::function<void(World &)> holds(const std::string &name, const std::string &id, bool address,
                                   const std::string &told) {
  return [=](World &) {
    EXPECT_EQ(name, World::stored(kName));
    EXPECT_EQ(id, World::stored(kId));
    EXPECT_EQ(address, World::holds(AAA_ATTR_IPV4_ADDRESS));
    EXPECT_EQ(told, notified);
  };
}

const auto kNothing = holds("ann", "", false, "");
const auto kFirstOnly = holds("bob", "", false, "1/1 1/1 ");

const std::vector<FaultRow> kRows = {
    {.name = "ToRecordThatTheStoreRefuses",
     .call = to_record,
     .operation = "auth_mgr_idc_add_or_update_attr",
     .traces = {kToRecordFailed + kDeadText},
     .after = kNothing},
    {.name = "ByLabelWhoseFetchFails",
     .call = by_label,
     .operation = "attrdb_get_record",
     .traces = {"6 add attr list:ATTR_DB", kFetchFailed, kInternalFailed},
     .after = kNothing},
    {.name = "ByLabelThatTheStoreRefuses",
     .call = by_label,
     .operation = "auth_mgr_idc_add_or_update_attr",
     .traces = {"6 add attr list:ATTR_DB", kToRecordFailed + kDeadText,
                "3 kivo_add_attr: Add failed, error:" + kDeadText},
     .after = kNothing},
    {.name = "ListWhoseFetchFails",
     .call = list,
     .operation = "attrdb_get_record",
     .traces = {"6 Add attr list:ATTR_DB", kFetchFailed, kInternalFailed},
     .after = kNothing,
     .before = fill},
    {.name = "ListWithoutCursor",
     .call = list,
     .operation = "aaa_cursor_alloc",
     .status = KIVO_ERR_NO_CURSOR,
     .traces = {"6 Add attr list:ATTR_DB"},
     .after = kNothing,
     .before = fill},
    {.name = "ListWhoseFirstMoveFails",
     .call = list,
     .operation = "aaa_cursor_get_next",
     .traces = {"6 Add attr list:ATTR_DB"},
     .after = kNothing,
     .before = fill},
    {.name = "ListWhoseSecondMoveFails",
     .call = list,
     .operation = "aaa_cursor_get_next",
     .nth = 2,
     .traces = {"6 Add attr list:ATTR_DB"},
     .after = kFirstOnly,
     .before = fill},
    {.name = "ListWhoseSecondValueCannotBeRead",
     .call = list,
     .operation = "aaa_cursor_get_value",
     .nth = 2,
     .traces = {"6 Add attr list:ATTR_DB", "3 Add attr list: get attr failed, error:" + kDeadText},
     .after = kFirstOnly,
     .before = fill},
    {.name = "ListEndsAtTypeThatIsNotSupported",
     .call = list,
     .operation = "auth_mgr_idc_add_or_update_attr",
     .nth = 2,
     .fault_status = AAA_ERR_UNSUPPORTED_ATTR,
     .status = AAA_ERR_UNSUPPORTED_ATTR,
     .traces = {"6 Add attr list:ATTR_DB", kToRecordFailed + error_text(AAA_ERR_UNSUPPORTED_ATTR),
                kListWriteFailed + error_text(AAA_ERR_UNSUPPORTED_ATTR)},
     .after = kFirstOnly,
     .before = fill},
    {.name = "ListGoesOnWhenNobodyCanBeTold",
     .call = list,
     .status = 0,
     .traces = {"6 Add attr list:ATTR_DB",
                "3 kivo_add_attr_to_record: Notify failed, error:" + kInvalid,
                "3 Add attr list: failed, error:" + kInvalid},
     .after = holds(std::string(256, 'v'), "s-1", false, "11/1 11/1 "),
     .before =
         [](World &w) { w.list.add(kName, std::string(256, 'v').data(), 256).add(kId, "s-1"); }},
    {.name = "UpdateThatTheStoreRefusesIsToldAllTheSame",
     .call = update,
     .operation = "auth_mgr_idc_add_or_update_attr",
     .traces = {"3 add or update attr to rec: failed, error:" + kDeadText},
     .after = holds("ann", "", false, "11/0 "),
     .before =
         [](World &w) {
           static void *handle[1];
           kivo_register_attr_change_notification(w.db, kId, KIVO_ACTION_UNCONDITIONAL, handle);
         }},
    {.name = "UpdateThatNobodyCanBeTold",
     .call =
         [](World &w) {
           return kivo_add_or_update_attr_to_record(nullptr, w.record, kId, "s-1", 3);
         },
     .status = 0,
     .traces = {"3 Add/update attr to rec: Notify failed, error:" + kInvalid},
     .after = holds("ann", "s-1", false, "")},
};

class Adding : public testing::TestWithParam<FaultRow> {};

TEST_P(Adding, HasItsStatusTracesAndStateAndLeaksNothing) { run_row(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, Adding, testing::ValuesIn(kRows),
                         [](const auto &row) { return row.param.name; });

}  // namespace
}  // namespace kivo_test
