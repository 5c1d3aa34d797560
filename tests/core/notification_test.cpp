// Registrations, the old value, what a change callback receives, and what it may do.
#include "kivo/notification.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

#include "kivo/attribute_removal.h"
#include "kivo/attribute_write.h"
#include "kivo/records.h"
#include "platform/named_alloc.h"
#include "support/process.h"
#include "support/trace_log.h"

using kivo_test::Texts;
using kivo_test::TraceLog;
using kivo_test::traces;

namespace {

template <typename Pointer>
std::string address_text(Pointer pointer) {
  char text[32];
  std::snprintf(text, sizeof(text), "%p", (const void *)pointer);
  return text;
}

std::vector<const void *> elements_of(const platform_queue &queue) {
  std::vector<const void *> elements;
  const void *at = nullptr;
  while ((at = queue_get_next(&queue, at)) != nullptr) elements.push_back(at);
  return elements;
}

struct Change {
  kivo_db *db;
  uint32_t label, n_values;
  kivo_attr_value value;
  const kivo_attr_value *old_values;
  uint32_t action;
  std::vector<const void *> handles;
};

std::vector<Change> g_changes;
std::function<void(platform_queue *)> g_in_callback;  // runs in the next callback only

void record_change(kivo_db *db, uint32_t label, uint32_t n_values, const kivo_attr_value *value,
                   const kivo_attr_value *old_values, uint32_t action, platform_queue *handles) {
  g_changes.push_back({db, label, n_values, *value, old_values, action, elements_of(*handles)});
  if (g_in_callback) std::exchange(g_in_callback, nullptr)(handles);
}

int g_other_calls = 0;
void count_other(kivo_db *, uint32_t, uint32_t, const kivo_attr_value *, const kivo_attr_value *,
                 uint32_t, platform_queue *) {
  ++g_other_calls;
}

constexpr uint32_t kUser = 1;
constexpr uint32_t kAddress = 8;
constexpr uint32_t kMac = 42;
constexpr uint32_t kNoAccelType = 9;
constexpr uint32_t kLabel = 5;

class Notification : public ::testing::Test {
 protected:
  Notification() {
    kivo_test::reset_process();
    create_anew();
    EXPECT_EQ(0u, kivo_create_record(db_, kLabel, nullptr));
    g_changes.clear();
    g_other_calls = 0;
  }
  ~Notification() override {
    g_in_callback = nullptr;
    kivo_test::reset_process();
  }

  void create_anew(kivo_notify_cb callback = record_change) {
    db_ = kivo_test::create_database(1,
                                     {{kUser, 0, KIVO_DATA_TYPE_VAR_STR},
                                      {kAddress, 6, KIVO_DATA_TYPE_IPV4_ADDR},
                                      {kMac, 0, KIVO_DATA_TYPE_MAC_ADDR}},
                                     callback);
  }
  uint32_t write(uint32_t type, const std::string &value, uint32_t label = kLabel) {
    return kivo_add_or_update_attr(db_, label, nullptr, type, value.data(),
                                   static_cast<uint32_t>(value.size()));
  }
  uint32_t listen(uint32_t type, uint32_t actions, void *handle) {
    return kivo_register_attr_change_notification(db_, type, actions, handle);
  }
  const kivo_notify_reg *registration(uint32_t type) {
    kivo_accel_entry *entry = nullptr;
    EXPECT_EQ(0u, kivo_get_accel_from_type(type, db_, &entry));
    const auto registrations = elements_of(entry->notify_regs);
    EXPECT_GE(1u, registrations.size());
    return registrations.empty() ? nullptr : static_cast<const kivo_notify_reg *>(registrations[0]);
  }

  kivo_db *db_ = nullptr;
  platform_queue_link handles_[3] = {};
};

using Registration = Notification;
using OldValue = Notification;
using Dispatch = Notification;
using Callback = Notification;

TEST_F(Registration, IsRefusedWithoutDatabaseAccelTypeOrHandle) {
  struct Row {
    kivo_db *db;
    uint32_t type;
    void *handle;
    Texts traces;
  };
  const std::string failed = "attr_change_notification: change notification failed(ATTR_DB) ";
  const Texts no_entry = {"6 aaa_type: interface-name accln tbl index: -1",
                          "6 get_accel_from_type failed tbl (nil), type 9: none accel type",
                          "6 " + failed + "no accel type 9"};
  const Row rows[] = {
      {nullptr, kUser, handles_, {"3 register attr change: client info is null"}},
      {db_, 0, handles_, {"3 " + failed + "Failed."}},
      {db_, kNoAccelType, handles_, no_entry},
      {db_, kNoAccelType, nullptr, no_entry},
      {db_, kUser, nullptr, {"6 aaa_type: user-name accln tbl index: 0"}},
  };
  kivo_debug_level_all = 1;
  const uint64_t blocks = named_live_blocks();
  TraceLog log;
  for (const Row &row : rows) {
    EXPECT_EQ(KIVO_ERR_INVALID_ARG,
              kivo_register_attr_change_notification(row.db, row.type, 1, row.handle));
    EXPECT_EQ(row.traces, traces(log));
  }
  EXPECT_EQ(blocks, named_live_blocks());
  EXPECT_EQ(KIVO_ERR_FAILED, kivo_deregister_attr_change_notification(db_, kUser, 1, handles_));
  EXPECT_EQ(KIVO_ERR_FAILED, kivo_deregister_attr_change_notification(nullptr, 0, 0, nullptr));
}

TEST_F(Registration, GathersActionsAndHandlesOfEveryCall) {
  kivo_debug_level_event = 1;
  TraceLog log;
  const auto expect_trace = [&](const std::string &what, const std::string &action) {
    EXPECT_EQ((Texts{"6 aaa_type: user-name accln tbl index: 0",
                     "6 attr_change_notification: " + what + " vector data (ATTR_DB) action " +
                         action + ", type 1, func_cb " + address_text(record_change)}),
              traces(log));
  };
  EXPECT_EQ(0u, listen(kUser, 1, &handles_[0]));
  expect_trace("new", "1");
  EXPECT_EQ(0u, listen(kUser, 2, &handles_[2]));
  expect_trace("update", "2");
  EXPECT_EQ(0u, listen(kUser, 0, &handles_[1]));
  EXPECT_EQ(0u, listen(kUser, 0, &handles_[2]));
  const kivo_notify_reg *reg = registration(kUser);
  ASSERT_NE(nullptr, reg);
  EXPECT_EQ(db_, reg->client);
  EXPECT_EQ(KIVO_ACTION_ADD_UPDATE_OR_REMOVE, reg->actions);
  EXPECT_EQ((std::vector<const void *>{&handles_[0], &handles_[2], &handles_[1]}),
            elements_of(reg->handles));
  EXPECT_EQ(0u, listen(kUser, 4, &handles_[0]));
  EXPECT_EQ(7u, registration(kUser)->actions);
  EXPECT_EQ(nullptr, registration(kAddress));
}

TEST_F(Registration, KeepsItsCallbackUntilTheClientRegistersAgain) {
  ASSERT_EQ(0u, listen(kUser, 1, &handles_[0]));
  // A creation that fails this late replaces the client's callbacks and leaves the table alone.
  const kivo_client_params params = {KIVO_CLIENT_FLAG_VALID, 1, count_other, nullptr};
  const kivo_attr_config row = {kUser, 6, KIVO_DATA_TYPE_VAR_STR};
  ASSERT_EQ(KIVO_ERR_INVALID_ARG, kivo_create_database("ATTR_DB", "", &params, &row, 1, &db_));
  EXPECT_EQ(0u, write(kUser, "eve"));
  EXPECT_EQ(1u, g_changes.size());
  ASSERT_EQ(0u, listen(kUser, 0, &handles_[0]));
  EXPECT_EQ(0u, write(kUser, "bob"));
  EXPECT_EQ(1u, g_changes.size());
  EXPECT_EQ(1, g_other_calls);
}

TEST_F(OldValue, KeepsTheBytesBehindItsZeroByte) {
  kivo_attr_value &old = kivo_notify_old_value;
  const auto first_bytes = [&] {  // zero bytes as dots
    std::string text(old.data, old.data + 11);
    std::replace(text.begin(), text.end(), '\0', '.');
    return text;
  };
  ASSERT_EQ(0u, kivo_set_notify_old_attr_value(kUser, 10, "0123456789"));
  EXPECT_EQ("0123456789.", first_bytes());
  ASSERT_EQ(0u, kivo_set_notify_old_attr_value(kAddress, 3, "abc"));
  EXPECT_EQ(kAddress, old.aaa_type);
  EXPECT_EQ(3u, old.size);
  EXPECT_EQ("abc.456789.", first_bytes());
  ASSERT_EQ(0u, kivo_set_notify_old_attr_value(kMac, 0, nullptr));
  EXPECT_EQ(0u, old.size);
  EXPECT_EQ(".bc.456789.", first_bytes());
  ASSERT_EQ(0u, kivo_set_notify_old_attr_value(kMac, 6, &old.data[4]));  // its own bytes
  EXPECT_EQ("456789.789.", first_bytes());
  kivo_init_notify_old_attr();
  EXPECT_EQ(0u, old.aaa_type);
  EXPECT_EQ(0u, old.size);
  EXPECT_EQ(".56789.789.", first_bytes());
}

TEST_F(OldValue, HoldsAtMost255Bytes) {
  kivo_debug_level_all = 1;
  const std::string bytes(256, 'x');
  kivo_attr_value &old = kivo_notify_old_value;
  old.data[255] = 'y';
  TraceLog log;
  EXPECT_EQ(0u, kivo_set_notify_old_attr_value(kUser, 255, bytes.data()));
  EXPECT_EQ(255u, old.size);
  EXPECT_EQ('x', old.data[254]);
  EXPECT_EQ(0, old.data[255]);
  EXPECT_EQ(Texts{}, traces(log));
  const kivo_attr_value before = old;
  EXPECT_EQ(22u, kivo_set_notify_old_attr_value(kMac, 256, bytes.data()));
  EXPECT_EQ(0, std::memcmp(&before, &old, sizeof(old)));
  EXPECT_EQ(Texts{"3 Attribute size 256 greater than max allowed: 256"}, traces(log));
}

TEST_F(Dispatch, ReachesRegistrationsByTheirActions) {
  // Of a write that changes the record, one that changes nothing, and a removal.
  constexpr const char *kReceived[] = {"", "1", "2", "12", "102", "102", "102", "102"};
  for (uint32_t actions = 0; actions < std::size(kReceived); ++actions) {
    create_anew();
    g_changes.clear();
    ASSERT_EQ(0u, listen(kUser, actions, &handles_[0]));
    EXPECT_EQ(0u, write(kUser, "eve"));
    EXPECT_EQ(0u, write(kUser, "eve"));
    EXPECT_EQ(0u, kivo_remove_attr_from_record_by_type(db_, kivo_test::find_record(kLabel), kUser));
    std::string received;
    for (const Change &change : g_changes) received += std::to_string(change.action);
    EXPECT_EQ(kReceived[actions], received) << "registered for " << actions;
  }
}

TEST_F(Dispatch, PassesTheChangeTheOldValueAndTheHandles) {
  for (platform_queue_link *handle : {&handles_[1], &handles_[0]}) {
    ASSERT_EQ(0u, listen(kUser, 1, handle));
  }
  EXPECT_EQ(0u, write(kUser, "a longer name"));
  EXPECT_EQ(0u, write(kUser, std::string(255, 'x')));
  EXPECT_EQ(0u, write(kUser, "eve"));
  ASSERT_EQ(3u, g_changes.size());
  const std::string values[] = {"a longer name", std::string(255, 'x'), "eve"};
  for (size_t i = 0; i < 3; ++i) {
    const Change &change = g_changes[i];
    EXPECT_EQ(db_, change.db);
    EXPECT_EQ(kLabel, change.label);
    EXPECT_EQ(1u, change.n_values);
    EXPECT_EQ(kUser, change.value.aaa_type);
    EXPECT_EQ(values[i].size(), change.value.size);
    std::string padded = values[i];
    padded.resize(256);
    EXPECT_EQ(padded, std::string(reinterpret_cast<const char *>(change.value.data), 256));
    EXPECT_EQ(&kivo_notify_old_value, change.old_values);
    EXPECT_EQ((std::vector<const void *>{&handles_[1], &handles_[0]}), change.handles);
  }
}

TEST_F(Dispatch, TracesEachCallButNoSkippedRegistration) {
  kivo_debug_level_all = 1;
  const uint32_t address = 0;
  const auto traces_of_write = [&] {
    TraceLog log;
    EXPECT_EQ(0u, kivo_add_or_update_attr(db_, kLabel, nullptr, kAddress, &address, 4));
    Texts texts = traces(log);
    EXPECT_LT(2u, texts.size());
    return Texts(texts.begin() + 2, texts.end());  // behind those of the write itself
  };
  const std::string lookup = "6 aaa_type: ipv4-address accln tbl index: 1";
  ASSERT_EQ(0u, listen(kAddress, 4, &handles_[0]));
  EXPECT_EQ((Texts{lookup, "6 attr_change_notification notify type 8, size 4, data " +
                               address_text(&address)}),
            traces_of_write());
  create_anew(nullptr);
  ASSERT_EQ(0u, listen(kAddress, 7, &handles_[0]));
  EXPECT_EQ(Texts{lookup}, traces_of_write());
  create_anew();
  ASSERT_EQ(0u, listen(kAddress, 3, &handles_[0]));
  EXPECT_EQ(Texts{lookup}, traces_of_write());  // the write changes nothing
}

TEST_F(Dispatch, KeepsTwoDatabasesApart) {
  kivo_db *const other =
      kivo_test::create_database(2, {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}}, count_other);
  ASSERT_EQ(0u, listen(kUser, 4, &handles_[0]));
  ASSERT_EQ(0u, kivo_register_attr_change_notification(other, kUser, 4, &handles_[1]));
  EXPECT_EQ(0u, write(kUser, "eve"));
  EXPECT_EQ(1u, g_changes.size());
  EXPECT_EQ(0, g_other_calls);
  EXPECT_EQ(0u, kivo_add_or_update_attr(other, kLabel, nullptr, kUser, "bob", 3));
  EXPECT_EQ(1u, g_changes.size());
  EXPECT_EQ(1, g_other_calls);
}

TEST_F(Callback, MayWriteRegisterCreateAndDelete) {
  ASSERT_EQ(0u, kivo_create_record(db_, 7, nullptr));
  ASSERT_EQ(0u, listen(kUser, 1, &handles_[0]));
  g_in_callback = [&](platform_queue *handles) {
    EXPECT_EQ(0u, listen(kMac, 1, &handles_[1]));
    EXPECT_EQ(0u, write(kMac, "\1\2\3\4\5\6"));
    EXPECT_EQ(0u, write(kUser, "bob"));  // the very attribute that is announced
    EXPECT_EQ(0u, kivo_delete_record(db_, 7));
    for (uint32_t label = 100; label < 5000; ++label) {
      EXPECT_EQ(0u, kivo_create_record(db_, label, nullptr));
    }
    EXPECT_EQ(0u, write(kUser, "joe", 4999));
    EXPECT_EQ(0u, listen(kUser, 0, &handles_[2]));
    EXPECT_EQ((std::vector<const void *>{&handles_[0], &handles_[2]}), elements_of(*handles));
  };
  EXPECT_EQ(0u, write(kUser, "eve"));
  Texts order;
  for (const Change &change : g_changes) {
    order.push_back(std::to_string(change.label) + " " + std::to_string(change.value.aaa_type) +
                    " " + reinterpret_cast<const char *>(change.value.data));
  }
  EXPECT_EQ((Texts{"5 1 eve", "5 42 \1\2\3\4\5\6", "5 1 bob", "4999 1 joe"}), order);
  EXPECT_EQ(nullptr, kivo_test::find_record(7));
  EXPECT_EQ((std::vector<uint8_t>{'b', 'o', 'b'}), kivo_test::stored_bytes(kLabel, kUser));
}

TEST_F(Callback, MayCreateTheDatabaseAnewAndWhatItWalksIsReleasedAfterTheOutermostDispatch) {
  const kivo_client_params params = {KIVO_CLIENT_FLAG_VALID, 1, record_change, nullptr};
  const kivo_attr_config unindexed = {kUser, 6, KIVO_DATA_TYPE_VAR_STR};
  const auto fail = [&](uint32_t n_rows) {
    EXPECT_NE(0u, kivo_create_database("", "", &params, &unindexed, n_rows, &db_));
  };
  platform_queue_link other_handle = {};
  const auto create_other = [&] {
    kivo_db *other = kivo_test::create_database(2, {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}});
    return kivo_register_attr_change_notification(other, kUser, 1, &other_handle);
  };
  struct Row {
    const char *name;
    std::function<void()> act;
    int under, after;  // live blocks, against those in front of the write
  };
  // The database has a configuration, a table and two registrations; the other one has one.
  const Row rows[] = {
      {"Once", [&] { create_anew(); }, 2, -2},
      {"Twice", [&] { create_anew(), create_anew(); }, 4, -2},
      {"AndRegisterAgain",
       [&] {
         create_anew();
         EXPECT_EQ(0u, listen(kUser, 1, &handles_[2]));
         EXPECT_EQ(0u, write(kUser, "joe", 6));
       },
       3, -1},
      {"InVainWithoutRows", [&] { fail(0); }, 0, -1},
      {"InVainWithoutAnIndexedRow", [&] { fail(1); }, 1, -1},
      {"TheOtherOneIsReleasedAtOnce",
       [&] {
         kivo_test::create_database(2, {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}});
       },
       -1, -1},
  };
  ASSERT_EQ(0u, kivo_create_record(db_, 6, nullptr));
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    create_anew();
    ASSERT_EQ(0u, create_other());
    ASSERT_EQ(0u, listen(kUser, 4, &handles_[0]));
    ASSERT_EQ(0u, listen(kAddress, 4, &handles_[1]));
    const auto blocks = static_cast<int>(named_live_blocks());
    const auto grown = [&] { return static_cast<int>(named_live_blocks()) - blocks; };
    g_changes.clear();
    g_in_callback = [&](platform_queue *outer) {
      g_in_callback = [&](platform_queue *nested) {
        row.act();
        EXPECT_EQ(row.under, grown());
        EXPECT_EQ(&handles_[1], queue_get_next(nested, nullptr));
      };
      EXPECT_EQ(0u, write(kAddress, "\xc0\0\2\1"));
      EXPECT_EQ(row.under, grown());
      EXPECT_EQ(&handles_[0], queue_get_next(outer, nullptr));
    };
    EXPECT_EQ(0u, write(kUser, "eve"));
    EXPECT_EQ(row.after, grown());
    EXPECT_LE(2u, g_changes.size());
  }
}

}  // namespace
