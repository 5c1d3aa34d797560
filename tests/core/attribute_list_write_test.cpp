// Writing whole attribute lists: both operations side by side, since they differ in the words of
// their traces and in what a failed notification does.
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <utility>

#include "kivo/attribute_write.h"
#include "kivo/notification.h"
#include "kivo/records.h"
#include "kivo/shadow_db.h"
#include "platform/named_alloc.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::AttrList;
using kivo_test::find_record;
using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

Texts g_changes;                      // "label type/action value"
std::function<void()> g_in_callback;  // runs in the next callback only

void record_change(kivo_db *, uint32_t label, uint32_t, const kivo_attr_value *value,
                   const kivo_attr_value *, uint32_t action, platform_queue *) {
  g_changes.push_back(std::to_string(label) + " " + std::to_string(value->aaa_type) + "/" +
                      std::to_string(action) + " " +
                      std::string(reinterpret_cast<const char *>(value->data), value->size));
  if (g_in_callback) std::exchange(g_in_callback, nullptr)();
}

struct Operation {
  const char *test_name;
  uint32_t (*write)(kivo_db *, uint32_t, attrdb_record *, uint32_t) noexcept;
  std::string entry, prefix;  // of its traces
  bool stops_at_failed_notification;

  friend void PrintTo(const Operation &operation, std::ostream *out) {
    *out << operation.test_name;
  }
};

const Operation kOperations[] = {
    {"AddOrUpdate", kivo_add_or_update_attr_list,
     "6 add or update attr list:", "Add/update attr list: ", false},
    {"CleanAndAdd", kivo_clean_and_add_attr_list,
     "6 clean and add attr list:", "Clean/Add attr list: ", true},
};

constexpr uint32_t kUser = 1;
constexpr uint32_t kDomain = 2;
constexpr uint32_t kMethod = 3;
constexpr uint32_t kAddresses = 10;
constexpr uint32_t kExternalUser = 1125;
constexpr uint32_t kUnsupported = 1491;
constexpr uint32_t kLabel = 5;

class ListWrite : public ::testing::TestWithParam<Operation> {
 protected:
  ListWrite() {
    kivo_test::reset_process();
    create_anew();
    listen();
    EXPECT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    EXPECT_EQ(0u, kivo_create_record(db_, 6, nullptr));
    g_changes.clear();
    kivo_debug_level_all = 1;
  }
  ~ListWrite() override {
    EXPECT_EQ(0u, aaa_live_cursors());
    g_in_callback = nullptr;
    kivo_test::reset_process();
  }

  void create_anew() {
    db_ = kivo_test::create_database(1,
                                     {{kUser, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {kDomain, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {kMethod, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {kAddresses, 6, KIVO_DATA_TYPE_IPV6_ADDR},
                                      {kExternalUser, 6, KIVO_DATA_TYPE_VAR_BIN}},
                                     record_change);
  }
  void listen() {
    size_t n = 0;
    for (uint32_t type : {kUser, kDomain, kMethod, kAddresses, kExternalUser}) {
      EXPECT_EQ(0u, kivo_register_attr_change_notification(db_, type, 4, &handles_[n++]));
    }
  }
  uint32_t write(const AttrList &list, uint32_t label = kLabel, attrdb_record *record = nullptr) {
    return GetParam().write(db_, label, record, list.handle());
  }
  static std::string stored(uint32_t type, uint32_t label = kLabel) {
    const std::vector<uint8_t> bytes = kivo_test::stored_bytes(label, type);
    return {bytes.begin(), bytes.end()};
  }
  // Traces that begin, behind their level, with the operation's own words.
  static Texts own_traces(TraceLog &log) {
    Texts own;
    for (std::string &text : traces(log)) {
      if (text.find(GetParam().prefix) == 2) own.push_back(std::move(text));
    }
    return own;
  }
  static std::string error(const char *text) { return "3 " + GetParam().prefix + text; }

  kivo_db *db_ = nullptr;
  platform_queue_link handles_[5] = {};
};

INSTANTIATE_TEST_SUITE_P(Both, ListWrite, ::testing::ValuesIn(kOperations),
                         [](const auto &row) { return std::string(row.param.test_name); });

TEST_P(ListWrite, RefusesANullDatabaseAndList0) {
  AttrList list;
  TraceLog log;
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, GetParam().write(nullptr, kLabel, nullptr, list.handle()));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, GetParam().write(db_, kLabel, find_record(kLabel), 0));
  EXPECT_EQ((Texts{error("invalid params"), error("invalid params")}), traces(log));
}

TEST_P(ListWrite, WritesAndAnnouncesOneByOneInTheOrderOfTheList) {
  ASSERT_EQ(0u, kivo_add_or_update_attr(db_, kLabel, nullptr, kMethod, "dot1x", 5));
  g_changes.clear();
  AttrList list;
  list.add(kUser, "eve").add(9, "port 1").add(kDomain, "example");
  list.add(kUser, "eve").add(kUser, "bob");
  g_in_callback = [] { EXPECT_EQ("", stored(kDomain)); };
  TraceLog log;
  EXPECT_EQ(0u, write(list));
  EXPECT_EQ((Texts{"5 1/1 eve", "5 2/1 example", "5 1/0 eve", "5 1/1 bob"}), g_changes);
  EXPECT_EQ("bob", stored(kUser));
  EXPECT_EQ("port 1", stored(9));
  EXPECT_EQ("dot1x", stored(kMethod));  // neither operation removes anything
  Texts written = traces(log);
  ASSERT_LT(2u, written.size());
  EXPECT_EQ(GetParam().entry + "ATTR_DB", written[0]);
  EXPECT_EQ("6 get record", written[1]);
  EXPECT_EQ(0u, write(list, 404, find_record(kLabel)));  // a given record is not fetched
  EXPECT_EQ("404 1/1 eve", g_changes.at(4));
  EXPECT_EQ("6 aaa_type: user-name accln tbl index: 0", traces(log).at(1));
}

TEST_P(ListWrite, PassesOverALabelWithoutARecordAndNeverOpensTheList) {
  uint32_t stale = 0;
  ASSERT_EQ(0u, aaa_list_alloc(&stale));
  ASSERT_EQ(0u, aaa_list_free(stale));
  TraceLog log;
  EXPECT_EQ(0u, GetParam().write(db_, 404, nullptr, stale));
  EXPECT_EQ((Texts{GetParam().entry + "ATTR_DB", "6 get record",
                   GetParam().entry + "ATTR_DB, rec doesn't exist"}),
            traces(log));
  EXPECT_EQ(KIVO_ERR_NO_CURSOR, GetParam().write(db_, kLabel, nullptr, stale));
  EXPECT_EQ((Texts{GetParam().entry + "ATTR_DB", "6 get record"}), traces(log));
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, GetParam().write(db_, 0, nullptr, stale));
  EXPECT_EQ((Texts{GetParam().entry + "ATTR_DB", "6 get record",
                   "3 get record, unique label: invalid input params",
                   error("get record internal failed, error:invalid argument")}),
            traces(log));
  AttrList empty;
  EXPECT_EQ(0u, write(empty));
  EXPECT_EQ(Texts{}, g_changes);
}

TEST_P(ListWrite, SkipsWhatTheStoreDoesNotSupportAndStopsAtOtherFailures) {
  AttrList list;
  list.add(kUser, "eve").add(kUnsupported, "x").add(kDomain, "example");
  list.add(kAddresses, "short").add(kMethod, "dot1x");
  TraceLog log;
  EXPECT_EQ(AAA_ERR_INVALID_ARG, write(list));
  EXPECT_EQ((Texts{"6 " + GetParam().prefix + "Unsupported attribute: 1491.Continue to next",
                   error("add attr to rec failed, error:attribute service: invalid argument")}),
            own_traces(log));
  EXPECT_EQ((Texts{"5 1/1 eve", "5 2/1 example"}), g_changes);
  EXPECT_EQ("example", stored(kDomain));
  EXPECT_EQ("", stored(kMethod));
}

TEST_P(ListWrite, GoesOnOrStopsWhenAValueCannotBeAnnounced) {
  const std::string unfit[] = {"", std::string(256, 'x')};
  for (const std::string &value : unfit) {
    kivo_test::reset_process();
    ASSERT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    kivo_debug_level_all = 1;
    g_changes.clear();
    AttrList list;
    list.add(kUser, "eve").add(kDomain, value.data(), static_cast<uint32_t>(value.size()));
    list.add(kMethod, "dot1x");
    TraceLog log;
    const bool stops = GetParam().stops_at_failed_notification;
    EXPECT_EQ(stops ? KIVO_ERR_INVALID_ARG : 0u, write(list));
    EXPECT_EQ(Texts{error("Notify failed, error:invalid argument")}, own_traces(log));
    EXPECT_EQ(value, stored(kDomain));
    EXPECT_EQ(stops ? Texts{"5 1/1 eve"} : (Texts{"5 1/1 eve", "5 3/1 dot1x"}), g_changes);
    EXPECT_EQ(stops ? "" : "dot1x", stored(kMethod));
  }
}

TEST_P(ListWrite, RoutesExternalIdentitiesToTheShadowRecordAsChanged) {
  const std::string five = std::string("\5\0", 2) + "eve";
  const std::string seven = std::string("\7\0", 2) + "bob";
  AttrList list;
  for (const std::string &value : {five, seven, five}) {
    list.add(kExternalUser, value.data(), static_cast<uint32_t>(value.size()));
  }
  EXPECT_EQ(0u, write(list.add(kUser, "eve")));
  EXPECT_EQ((Texts{"5 1125/1 " + five, "5 1125/1 " + seven, "5 1125/1 " + five, "5 1/1 eve"}),
            g_changes);
  EXPECT_EQ("", stored(kExternalUser));
  const shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(find_record(kLabel)->ctxt);
  ASSERT_NE(nullptr, shadow);
  Texts identities;
  for (const shadowdb_attr_entry *at = shadow->attr_lists[1]; at != nullptr; at = at->next) {
    identities.emplace_back(reinterpret_cast<const char *>(at->value), at->length);
  }
  EXPECT_EQ((Texts{five, seven}), identities);
}

TEST_P(ListWrite, GoesOnWithItsListWhateverACallbackDoesToIt) {
  uint32_t handle = 0;
  ASSERT_EQ(0u, aaa_list_alloc(&handle));
  const std::string domain(200, 'd');
  ASSERT_EQ(0u, aaa_attr_add(handle, kUser, "eve", 3, 0, 0));
  ASSERT_EQ(0u, aaa_attr_add(handle, kDomain, domain.data(), 200, 0, 0));
  ASSERT_EQ(0u, aaa_attr_add(handle, kMethod, "dot1x", 5, 0, 0));
  g_in_callback = [&] {
    for (int i = 0; i < 1000; ++i) {
      EXPECT_EQ(0u, aaa_attr_add(handle, kUser, domain.data(), 200, 0, 0));
    }
    g_in_callback = [&] { EXPECT_EQ(0u, aaa_list_free(handle)); };
  };
  EXPECT_EQ(0u, GetParam().write(db_, kLabel, nullptr, handle));
  EXPECT_EQ((Texts{"5 1/1 eve", "5 2/1 " + domain, "5 3/1 dot1x"}), g_changes);
  EXPECT_EQ(0u, aaa_live_lists());
  EXPECT_EQ("dot1x", stored(kMethod));
}

TEST_P(ListWrite, GoesOnWhenACallbackWritesCreatesAndDeletes) {
  AttrList list;
  list.add(kUser, "eve").add(kDomain, "example");
  g_in_callback = [&] {
    EXPECT_EQ(0u, kivo_delete_record(db_, 6));
    for (uint32_t label = 100; label < 5000; ++label) {
      EXPECT_EQ(0u, kivo_create_record(db_, label, nullptr));
    }
    EXPECT_EQ(0u, kivo_add_or_update_attr(db_, kLabel, nullptr, kMethod, "dot1x", 5));
    EXPECT_EQ(0u, write(list, 4999));
  };
  EXPECT_EQ(0u, write(list));
  EXPECT_EQ(
      (Texts{"5 1/1 eve", "5 3/1 dot1x", "4999 1/1 eve", "4999 2/1 example", "5 2/1 example"}),
      g_changes);
  EXPECT_EQ("example", stored(kDomain, 4999));
  EXPECT_EQ("dot1x", stored(kMethod));
  EXPECT_EQ("example", stored(kDomain));
}

TEST_P(ListWrite, GoesOnWithTheNewTableWhenACallbackCreatesTheDatabaseAnew) {
  AttrList list;
  list.add(kUser, "eve").add(kDomain, "example").add(kMethod, "dot1x");
  const uint64_t blocks = named_live_blocks();
  g_in_callback = [&] {
    create_anew();
    EXPECT_EQ(blocks + 2, named_live_blocks());
    EXPECT_EQ(0u, kivo_register_attr_change_notification(db_, kMethod, 1, &handles_[2]));
  };
  EXPECT_EQ(0u, write(list));
  EXPECT_EQ((Texts{"5 1/1 eve", "5 3/1 dot1x"}), g_changes);
  EXPECT_EQ("example", stored(kDomain));
  EXPECT_EQ(blocks - 4, named_live_blocks());  // five registrations went, one came
}

}  // namespace
