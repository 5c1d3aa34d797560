// Writing one attribute: checks in their order, the record that is meant, what is announced, and
// what stays written.
#include "kivo/attribute_write.h"

#include <gtest/gtest.h>

#include "kivo/notification.h"
#include "kivo/records.h"
#include "kivo/shadow_db.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::find_record;
using kivo_test::stored_bytes;
using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

Texts g_changes;  // "label type/action value"
void record_change(kivo_db *, uint32_t label, uint32_t, const kivo_attr_value *value,
                   const kivo_attr_value *, uint32_t action, platform_queue *) {
  g_changes.push_back(std::to_string(label) + " " + std::to_string(value->aaa_type) + "/" +
                      std::to_string(action) + " " +
                      std::string(reinterpret_cast<const char *>(value->data), value->size));
}

constexpr uint32_t kUser = 1;
constexpr uint32_t kDomain = 2;
constexpr uint32_t kAddresses = 10;
constexpr uint32_t kNoAccelType = 9;
constexpr uint32_t kExternalUser = 1125;
constexpr uint32_t kLabel = 5;

class AttributeWrite : public ::testing::Test {
 protected:
  AttributeWrite() {
    kivo_test::reset_process();
    db_ = kivo_test::create_database(1,
                                     {{kUser, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {kDomain, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {kAddresses, 6, KIVO_DATA_TYPE_IPV6_ADDR},
                                      {kExternalUser, 6, KIVO_DATA_TYPE_VAR_BIN}},
                                     record_change);
    size_t n = 0;
    for (uint32_t type : {kUser, kDomain, kAddresses, kExternalUser}) {
      EXPECT_EQ(0u, kivo_register_attr_change_notification(db_, type, 4, &handles_[n++]));
    }
    EXPECT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    g_changes.clear();
    kivo_debug_level_all = 1;
  }
  ~AttributeWrite() override { kivo_test::reset_process(); }

  uint32_t write(uint32_t type, const std::string &value) {
    return kivo_add_or_update_attr(db_, kLabel, nullptr, type, value.data(),
                                   static_cast<uint32_t>(value.size()));
  }
  static std::string stored(uint32_t type) {
    const std::vector<uint8_t> bytes = stored_bytes(kLabel, type);
    return {bytes.begin(), bytes.end()};
  }

  kivo_db *db_ = nullptr;
  platform_queue_link handles_[4] = {};
};

TEST_F(AttributeWrite, RefusesBadArguments) {
  attrdb_record *const record = find_record(kLabel);
  struct Row {
    const char *name;
    kivo_db *db;
    uint32_t label;
    attrdb_record *record;
    uint32_t type;
    const void *value;
    uint32_t size;
  };
  const Row rows[] = {
      {"Size0", db_, kLabel, record, kUser, "x", 0},
      {"Type0", db_, kLabel, record, 0, "x", 1},
      {"NeitherLabelNorRecord", db_, 0, nullptr, kUser, "x", 1},
      {"NoValue", db_, kLabel, record, kUser, nullptr, 1},
      {"NoDatabase", nullptr, kLabel, record, kUser, "x", 1},
  };
  TraceLog log;
  for (const Row &row : rows) {
    EXPECT_EQ(KIVO_ERR_INVALID_ARG,
              kivo_add_or_update_attr(row.db, row.label, row.record, row.type, row.value, row.size))
        << row.name;
    EXPECT_EQ(Texts{"3 add or update attr: invalid params"}, traces(log)) << row.name;
  }
  EXPECT_EQ("", stored(kUser));
  EXPECT_EQ(Texts{}, g_changes);
}

TEST_F(AttributeWrite, FetchesTheRecordByLabelAndAnnouncesTheChange) {
  TraceLog log;
  EXPECT_EQ(0u, write(kUser, "eve"));
  Texts written = traces(log);
  ASSERT_EQ(4u, written.size());
  EXPECT_EQ(0u, written[3].find("6 attr_change_notification notify type 1, size 3, data 0x"));
  written.pop_back();
  EXPECT_EQ((Texts{"6 add or update attr:ATTR_DB, attr type:1", "6 get record",
                   "6 aaa_type: user-name accln tbl index: 0"}),
            written);
  EXPECT_EQ("eve", stored(kUser));
  EXPECT_EQ(0u, write(kUser, "eve"));
  EXPECT_EQ(0u, write(kUser, "evelyn"));
  EXPECT_EQ((Texts{"5 1/1 eve", "5 1/0 eve", "5 1/1 evelyn"}), g_changes);
}

TEST_F(AttributeWrite, UsesAGivenRecordAndTellsTheGivenLabel) {
  attrdb_record *const record = find_record(kLabel);
  TraceLog log;
  EXPECT_EQ(0u, kivo_add_or_update_attr(db_, 0, record, kUser, "eve", 3));
  EXPECT_EQ("6 aaa_type: user-name accln tbl index: 0", traces(log).at(1));  // no fetch
  EXPECT_EQ(0u, kivo_add_or_update_attr(db_, 404, record, kUser, "bob", 3));
  EXPECT_EQ((Texts{"0 1/1 eve", "404 1/1 bob"}), g_changes);
  EXPECT_EQ("bob", stored(kUser));
}

TEST_F(AttributeWrite, PassesOverALabelWithoutARecord) {
  TraceLog log;
  EXPECT_EQ(0u, kivo_add_or_update_attr(db_, 404, nullptr, kUser, "eve", 3));
  EXPECT_EQ((Texts{"6 add or update attr:ATTR_DB, attr type:1", "6 get record",
                   "6 add or update attr:ATTR_DB, attr type:1, rec doesn't exist"}),
            traces(log));
  EXPECT_EQ(Texts{}, g_changes);
  EXPECT_EQ(nullptr, find_record(404));
}

TEST_F(AttributeWrite, PassesOnThatTheServiceRefuses) {
  struct Row {
    const char *name;
    uint32_t type, size, status;
    const char *text;
  };
  constexpr Row kRows[] = {
      {"TypeOutsideTheDictionary", 1491, 1, AAA_ERR_UNSUPPORTED_ATTR,
       "attribute type not supported"},
      {"TooLong", kUser, 65536, AAA_ERR_NO_ROOM, "attribute service: no room"},
      {"NotWholeAddresses", kAddresses, 17, AAA_ERR_INVALID_ARG,
       "attribute service: invalid argument"},
  };
  for (const Row &row : kRows) {
    TraceLog log;
    EXPECT_EQ(row.status, write(row.type, std::string(row.size, 'x'))) << row.name;
    EXPECT_EQ(std::string("3 Add/update attr: add/update attr to rec failed, error:") + row.text,
              traces(log).back())
        << row.name;
  }
  EXPECT_EQ("", stored(kUser));
  EXPECT_EQ(Texts{}, g_changes);
}

TEST_F(AttributeWrite, KeepsAValueThatIsTooLongToAnnounce) {
  for (uint32_t size : {256u, 65535u}) {
    const std::string value(size, 'x');
    char refusal[128];
    std::snprintf(refusal, sizeof(refusal),
                  "3 attr_change_notification: bad attr params.Size: %u, data: %p, "
                  "client_info: %p",
                  size, static_cast<const void *>(value.data()), static_cast<void *>(db_));
    TraceLog log;
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, write(kUser, value));
    EXPECT_EQ((Texts{"6 add or update attr:ATTR_DB, attr type:1", "6 get record", refusal,
                     "6 Add/update attr list: Notify failed, error:invalid argument"}),
              traces(log));
    EXPECT_EQ(value, stored(kUser));
  }
  EXPECT_EQ(Texts{}, g_changes);
}

TEST_F(AttributeWrite, AnnouncesNoTypeWithoutAnAccelEntry) {
  TraceLog log;
  EXPECT_EQ(0u, write(kNoAccelType, "port 1"));
  EXPECT_EQ(
      "6 attr_change_notification: change notification failed(ATTR_DB) not supported "
      "index attr 9",
      traces(log).back());
  EXPECT_EQ("port 1", stored(kNoAccelType));
  EXPECT_EQ(Texts{}, g_changes);
}

TEST_F(AttributeWrite, LeavesExternalIdentitiesInTheRecordItself) {
  EXPECT_EQ(0u, write(kExternalUser, "id"));
  EXPECT_EQ("id", stored(kExternalUser));
  EXPECT_EQ(Texts{"5 1125/1 id"}, g_changes);
  const shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(find_record(kLabel)->ctxt);
  ASSERT_NE(nullptr, shadow);
  EXPECT_EQ(0u, shadow->has_identities);
}

TEST_F(AttributeWrite, AnnouncesTheWrittenAddressesOnly) {
  const std::string a(16, 'a');
  const std::string b(16, 'b');
  EXPECT_EQ(0u, write(kAddresses, a));
  EXPECT_EQ(0u, write(kAddresses, b + a));
  EXPECT_EQ(0u, write(kAddresses, b));
  EXPECT_EQ(a + b, stored(kAddresses));
  EXPECT_EQ((Texts{"5 10/1 " + a, "5 10/1 " + b + a, "5 10/0 " + b}), g_changes);
}

TEST_F(AttributeWrite, TakesAValueThatLiesInTheRecordItself) {
  const std::string name = "abcdefghijklmnopqrstuvwxyz0123456789";
  ASSERT_EQ(0u, write(kUser, name));
  g_changes.clear();
  attrdb_record *const record = find_record(kLabel);
  const auto write_part = [&](uint32_t type, uint32_t from, uint32_t size) {
    const void *value = nullptr;
    uint32_t stored_size = 0;
    uint32_t count = 0;
    ASSERT_EQ(0u, auth_mgr_idc_get_attr(record->ctxt, kUser, &value, &stored_size, &count));
    EXPECT_EQ(0u, kivo_add_or_update_attr(db_, kLabel, record, type,
                                          static_cast<const char *>(value) + from, size));
  };
  write_part(kDomain, 6, 30);  // the record grows and moves
  EXPECT_EQ(name.substr(6), stored(kDomain));
  write_part(kUser, 26, 10);  // the value moves down within its own place
  EXPECT_EQ("0123456789", stored(kUser));
  EXPECT_EQ((Texts{"5 2/1 " + name.substr(6), "5 1/1 0123456789"}), g_changes);
}

}  // namespace
