// The database show on the console: header, attribute table, notification columns and filters,
// compared byte for byte. What a record shows is show_record_test.cpp's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "kivo/kivo.h"
#include "platform/console.h"
#include "platform/named_alloc.h"
#include "support/console_capture.h"
#include "support/process.h"
#include "support/trace_log.h"

namespace {

using kivo_test::create_database;
using kivo_test::TraceLine;
using Rows = std::initializer_list<kivo_attr_config>;

const std::string kRule = "\n" + std::string(66, '-');
const std::string kTable =
    "\n\n           ATTRIBUTE  ATTR TYPE"
    "\n--------------------  ---------";
const std::string kNotifyTable =
    "\n\n           ATTRIBUTE  ATTR TYPE    NOTIFY CLIENTS  ACT   NOTIFY HANDLES"
    "\n--------------------  ---------  ----------------  ---  ---------------";
const std::string kLegend =
    "\n\nACTIONS\n-------\nERR : Error, invalid action, A/U : Add or Update, REM : Remove,"
    "\nAUR : Add or Update or Remove, UNC : Unconditional";
const std::string kUserRow = "\nuser-name             VAR STR  ";
const std::string kPortRow = "\nport                  INT 32   ";
const std::string kNobody = "               ---   -             -----";
const std::string kClientLine = "\n" + std::string(32, ' ');
const std::string kHandleLine = "\n" + std::string(54, ' ');

constexpr kivo_attr_config kUser = {1, 0, KIVO_DATA_TYPE_VAR_STR};
constexpr kivo_attr_config kPort = {6, KIVO_INDEX_KIND_NONE, KIVO_DATA_TYPE_INT32};
constexpr kivo_attr_config kAudit = {819, 0, KIVO_DATA_TYPE_SESN_GUID};

std::string header(const std::string &owner, const std::string &n_records) {
  return kRule + "\nDATABASE          : ATTR_DB\nOWNER             : " + owner +
         "\nNUMBER OF RECORDS : " + n_records;
}

// A client's notification handle; before it is named, it may do something.
struct Handle {
  void *link;
  const char *name;
  void (*before)() = nullptr;
};

const char *name_of(kivo_db *, uint32_t, void *handle) {
  const auto *named = static_cast<const Handle *>(handle);
  if (named->before != nullptr) named->before();
  return named->name;
}

void ignore_change(kivo_db *, uint32_t, uint32_t, const kivo_attr_value *, const kivo_attr_value *,
                   uint32_t, platform_queue *) {}

template <typename T>
uint64_t address(const T *pointer) {
  return reinterpret_cast<uint64_t>(pointer);
}

class ShowDatabase : public testing::Test {
 protected:
  void SetUp() override {
    kivo_test::reset_process();
    kivo_debug_level_all = 1;
    create(Rows{kUser, kPort});
    create_database(2, {kUser}, nullptr, nullptr, "other");
  }
  void TearDown() override { kivo_debug_level_all = 0; }

  kivo_db *create(Rows rows, const char *owner = "owner", kivo_notify_cb notify = ignore_change,
                  kivo_handle_name_cb name = name_of) {
    return create_database(1, rows, notify, name, "ATTR_DB", owner);
  }
  std::string show(uint32_t command, uint64_t filter = 0) {
    log_.take();
    kivo_show_db(command, filter);
    return console_.take();
  }
  // What the notification columns of type 1 hold.
  std::string columns() {
    const std::string text = show(KIVO_SHOW_NOTIFICATIONS);
    const size_t begin = text.find(kUserRow) + kUserRow.size();
    return text.substr(begin, text.find(kLegend) - begin);
  }
  bool traced(uint32_t level, const std::string &text) {
    const auto lines = log_.take();
    return std::find(lines.begin(), lines.end(), TraceLine{kivo_trace_id, level, text}) !=
           lines.end();
  }

  kivo_test::ConsoleCapture console_;
  kivo_test::TraceLog log_;
};

TEST_F(ShowDatabase, PlainTableNamesEveryKind) {
  create({kUser,
          kPort,
          {12, 6, KIVO_DATA_TYPE_INT64},
          {8, 0, KIVO_DATA_TYPE_IPV4_ADDR},
          {10, 0, KIVO_DATA_TYPE_IPV6_ADDR},
          {42, 0, KIVO_DATA_TYPE_MAC_ADDR},
          kAudit,
          {1490, 6, KIVO_DATA_TYPE_POINTER},
          {1129, 6, KIVO_DATA_TYPE_VAR_BIN}});
  const std::string expected = header("owner", "0") + kTable +
                               "\nuser-name             VAR STR  "
                               "\nport                  INT 32   "
                               "\nstart-time            INT 64   "
                               "\nipv4-address          IPV4_ADDR"
                               "\nipv6-addresses        IPV6_ADDR"
                               "\nmac-address           MAC_ADDR "
                               "\naudit-session-id      SESN_GUID"
                               "\nattribute-1490        POINTER  "
                               "\nexternal-cert         VAR BIN  ";
  for (const uint32_t command : {0u, 1u, 5u, 7u, 0xffffffffu}) EXPECT_EQ(expected, show(command));
}

TEST_F(ShowDatabase, EveryDatabaseOfTheNameIsShownInTheOrderOfTheTable) {
  ASSERT_EQ(0u, kivo_create_record(nullptr, 5, nullptr));
  ASSERT_EQ(0u, kivo_create_record(nullptr, 6, nullptr));
  create_database(2, {kPort, kUser}, nullptr, nullptr, "ATTR_DB", "second");
  EXPECT_EQ(header("owner", "2") + kTable + kUserRow + kPortRow + header("second", "2") + kTable +
                kPortRow + kUserRow,
            show(KIVO_SHOW_ATTRIBUTES));
}

TEST_F(ShowDatabase, MissingDatabaseIsTold) {
  create_database(1, {kUser}, nullptr, nullptr, "ATTR_DB2");
  create_database(2, {kUser}, nullptr, nullptr, "ATTR_D");
  for (const uint32_t command : {0u, 2u, 6u}) {
    EXPECT_EQ("\n\nNo database found with provided name : ATTR_DB", show(command));
  }
}

TEST_F(ShowDatabase, DatabaseWithoutAttributesShowsNoLegend) {
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  kivo_db *db = nullptr;
  ASSERT_NE(0u, kivo_create_database("ATTR_DB", "owner", &client, nullptr, 0, &db));
  EXPECT_EQ(header("owner", "0") + kTable + "\nNo Attributes Found.", show(KIVO_SHOW_ATTRIBUTES));
  EXPECT_EQ(header("owner", "0") + kNotifyTable + "\nNo Attributes Found.",
            show(KIVO_SHOW_NOTIFICATIONS));
}

TEST_F(ShowDatabase, RowOfTypeZeroEndsTheTable) {
  create({kUser, {0, 0, KIVO_DATA_TYPE_INT32}, kPort});
  EXPECT_EQ(header("owner", "0") + kNotifyTable + kUserRow + kNobody +
                "\nattribute-unknown     INT 32   ",
            show(KIVO_SHOW_NOTIFICATIONS));
  EXPECT_TRUE(traced(3, "Get accel for attr failed,Error: invalid argument"));
}

TEST_F(ShowDatabase, RowsWithoutRegistrationsShowAPlaceholder) {
  EXPECT_EQ(header("owner", "0") + kNotifyTable + kUserRow + kNobody + kPortRow + kNobody + kLegend,
            show(KIVO_SHOW_NOTIFICATIONS));
}

TEST_F(ShowDatabase, FurtherHandlesTakeLinesOfTheirOwn) {
  Handle first = {nullptr, "first"};
  Handle second = {nullptr, "second"};
  Handle port = {nullptr, "port"};
  kivo_db *db = create({kUser, kPort});
  for (Handle *handle : {&first, &second}) {
    ASSERT_EQ(0u, kivo_register_attr_change_notification(db, 1, 1, handle));
  }
  ASSERT_EQ(0u, kivo_register_attr_change_notification(db, 6, 2, &port));
  EXPECT_EQ(header("owner", "0") + kNotifyTable + kUserRow +
                "  owner             A/U  first          " + kHandleLine + "  second         " +
                kPortRow + "  owner             REM  port           " + kLegend,
            show(KIVO_SHOW_NOTIFICATIONS));
}

TEST_F(ShowDatabase, NamesAreCutToTheirColumns) {
  const struct {
    const char *owner;
    const char *handle;
    const char *columns;
  } rows[] = {
      {"owner-of-16-char", "fifteen-chars-1", "  owner-of-16-char  A/U  fifteen-chars-1"},
      {"owner-of-17-chars", "sixteen-chars-16", "  owner-of-17- ...  A/U  sixteen-chars-1"},
      {"", "", "                    A/U  - details n/a -"},
      {"o", nullptr, "  o                 A/U  - details n/a -"},
  };
  for (const auto &row : rows) {
    Handle handle = {nullptr, row.handle};
    kivo_db *db = create({kUser}, row.owner);
    ASSERT_EQ(0u, kivo_register_attr_change_notification(db, 1, 1, &handle));
    EXPECT_EQ(row.columns, columns());
  }
}

TEST_F(ShowDatabase, ActionsAreNamedByTheirBits) {
  const char *const names[] = {"ERR", "A/U", "REM", "AUR", "UNC", "UNC", "UNC",
                               "UNC", "---", "---", "---", "---", "UNC"};
  for (uint32_t actions = 0; actions < std::size(names); ++actions) {
    Handle handle = {nullptr, "h"};
    kivo_db *db = create({kUser}, "o", ignore_change, nullptr);
    ASSERT_EQ(0u, kivo_register_attr_change_notification(db, 1, actions, &handle));
    EXPECT_EQ(std::string("  o                 ") + names[actions] + "  - details N/A -",
              columns());
  }
}

TEST_F(ShowDatabase, ClientWithoutACallbackShowsThePlaceholder) {
  Handle handle = {nullptr, "h"};
  kivo_db *db = create({kUser}, "o", nullptr);
  ASSERT_EQ(0u, kivo_register_attr_change_notification(db, 1, 1, &handle));
  EXPECT_EQ(kNobody, columns());
}

// A type has one registration today; the columns are laid out for several.
TEST_F(ShowDatabase, FurtherClientsTakeLinesOfTheirOwn) {
  kivo_db *db = create({kUser}, "o");
  kivo_accel_entry *entry = nullptr;
  ASSERT_EQ(0u, kivo_get_accel_from_type(1, db, &entry));
  const auto add_registration = [&](uint32_t actions, kivo_notify_cb callback, Handle *handle) {
    auto *reg = static_cast<kivo_notify_reg *>(NAMED_ZALLOC(1, "test", sizeof(kivo_notify_reg)));
    *reg = {{}, db, actions, callback, handle != nullptr ? name_of : nullptr, {}};
    if (handle != nullptr) queue_enqueue(&reg->handles, handle);
    queue_enqueue(&entry->notify_regs, reg);
  };
  Handle one = {nullptr, "one"};
  Handle two = {nullptr, "two"};
  add_registration(0, nullptr, nullptr);
  add_registration(1, ignore_change, nullptr);
  add_registration(2, ignore_change, &one);
  add_registration(1, nullptr, nullptr);
  add_registration(3, ignore_change, &two);
  EXPECT_EQ(kNobody + "  o                 A/U  --" + kClientLine +
                "  o                 REM  one            " + kNobody + kClientLine +
                "  o                 AUR" + kHandleLine + "  two            ",
            columns());
}

TEST_F(ShowDatabase, StreamIsChosenForEveryWrite) {
  Handle handle = {nullptr, "h"};
  kivo_db *db = create({kUser}, "o");
  ASSERT_EQ(0u, kivo_register_attr_change_notification(db, 1, 1, &handle));
  static FILE *streams[2];
  kivo_test::ConsoleCapture other;
  streams[1] = other.stream();
  EXPECT_EQ(&devShZelConsoleFd, kivo_devsh_printf_init(console_.stream()));
  EXPECT_EQ(console_.stream(), devShZelConsoleFd);
  handle.before = [] { devShZelConsoleFd = streams[1]; };
  EXPECT_EQ(header("o", "0") + kNotifyTable + kUserRow + "  o                 A/U",
            show(KIVO_SHOW_NOTIFICATIONS));
  EXPECT_EQ("  h              " + kLegend, other.take());
}

TEST_F(ShowDatabase, WithoutAStreamStandardOutputIsTheConsole) {
  testing::internal::CaptureStdout();
  kivo_devsh_printf_init(nullptr);
  kivo_show_db(KIVO_SHOW_ATTRIBUTES, 0);
  std::fflush(stdout);
  EXPECT_EQ(header("owner", "0") + kTable + kUserRow + kPortRow,
            testing::internal::GetCapturedStdout());
}

// What the table walks stays until it ends; what it looks up is the new database's.
TEST_F(ShowDatabase, HandleNameMayCreateTheDatabaseAnew) {
  static uint64_t live_under_the_show;
  Handle first = {nullptr, "first", [] {
                    create_database(1, {{6, 0, KIVO_DATA_TYPE_INT32}}, ignore_change, name_of,
                                    "ATTR_DB", "new");
                    live_under_the_show = named_live_blocks();
                  }};
  Handle second = {nullptr, "second"};
  kivo_db *db = create({kUser, {2, 0, KIVO_DATA_TYPE_VAR_STR}, {6, 0, KIVO_DATA_TYPE_INT32}}, "o");
  for (Handle *handle : {&first, &second}) {
    ASSERT_EQ(0u, kivo_register_attr_change_notification(db, 1, 1, handle));
  }
  const uint64_t live = named_live_blocks();
  EXPECT_EQ(header("o", "0") + kNotifyTable + kUserRow +
                "  o                 A/U  first          " + kHandleLine + "  second         " +
                "\ndomain                VAR STR  " + kPortRow + kNobody + kLegend,
            show(KIVO_SHOW_NOTIFICATIONS));
  EXPECT_TRUE(traced(6, "show database: type 2 not a indexed type"));
  EXPECT_EQ(live + 2, live_under_the_show);
  EXPECT_EQ(live - 1, named_live_blocks());
}

void store(uint32_t label, uint32_t type, const std::string &value) {
  if (kivo_test::find_record(label) == nullptr) {
    ASSERT_EQ(0u, kivo_create_record(nullptr, label, nullptr));
  }
  uint32_t changed = 0;
  ASSERT_EQ(0u,
            auth_mgr_idc_add_or_update_attr(kivo_test::find_record(label)->ctxt, type, value.data(),
                                            static_cast<uint32_t>(value.size()), &changed));
}

// A record of a database that knows the user name only.
std::string record_of(const std::string &user) {
  const std::string frame =
      "\n--------------------------------------------\n\n        ATTRIBUTE     VALUE"
      "\n--------------------  ------------------------";
  return "\n\nSession Opaque Attributes" + frame + frame +
         "\nuser-name                      : " + user;
}

uint32_t ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  const uint8_t bytes[] = {a, b, c, d};
  uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

const std::string kAuditId = "0A0000010000002A5F3C9B7E";  // 24 characters
const std::string kMac("\x00\x11\x22\x33\x44\xff", 6);

TEST_F(ShowDatabase, AuditSessionIdFindsItsRecord) {
  create({kUser});
  store(5, 819, kAuditId);
  store(5, 1, "alice");
  const std::string expected = header("owner", "1") + record_of("alice");
  EXPECT_EQ(expected, show(KIVO_SHOW_BY_AUDIT_SESSION, address(kAuditId.c_str())));
  EXPECT_TRUE(traced(
      6, "\n\nMatching record information with Audit Session ID 0A0000010000002A5F3C9B7E:\n"));
  const std::string longer = kAuditId + " and more";
  EXPECT_EQ(expected, show(KIVO_SHOW_BY_AUDIT_SESSION, address(longer.c_str())));
}

TEST_F(ShowDatabase, ShortAuditSessionIdIsPaddedWithZeros) {
  create({kUser});
  store(5, 819, std::string("short") + std::string(19, '\0'));
  store(5, 1, "bob");
  store(6, 819, "short");
  EXPECT_EQ(header("owner", "2") + record_of("bob"),
            show(KIVO_SHOW_BY_AUDIT_SESSION, address("short")));
}

TEST_F(ShowDatabase, MacAddressFindsItsRecord) {
  create({kUser});
  store(5, 42, kMac);
  store(5, 1, "alice");
  EXPECT_EQ(header("owner", "1") + record_of("alice"),
            show(KIVO_SHOW_BY_MAC, address(kMac.data())));
  EXPECT_TRUE(traced(6, "\n\nMatching record information with MAC Address 0011.2233.44ff:\n"));
}

TEST_F(ShowDatabase, Ipv4AddressFindsAllItsRecords) {
  create({kUser});
  for (const uint32_t label : {9u, 5u, 7u}) {
    store(label, 8, std::string(label == 7 ? "\xc0\x00\x02\x02" : "\xc0\x00\x02\x01", 4));
    store(label, 1, "user" + std::to_string(label));
  }
  EXPECT_EQ(header("owner", "3") + "\n Num matches: 2\n\nIPV4 match# 1, and its data:\n" +
                record_of("user5") + "\n\nIPV4 match# 2, and its data:\n" + record_of("user9"),
            show(KIVO_SHOW_BY_IPV4, UINT64_C(0xffffffff00000000) | ipv4(192, 0, 2, 1)));
  // 192.0.2.1 as a little-endian number is 0x010200c0.
  EXPECT_TRUE(traced(6, "\n\nMatching record information with IPV4 Address 16908480:"));
}

TEST_F(ShowDatabase, FilterWithoutAMatchIsTold) {
  store(5, 1, "alice");
  const struct {
    const char *name;
    uint32_t command;
    uint64_t filter;
    const char *text;
  } rows[] = {
      {"AuditSession", KIVO_SHOW_BY_AUDIT_SESSION, address(kAuditId.c_str()),
       "\n\nNo matching records found with supplied Audit Session ID: 0A0000010000002A5F3C9B7E\n"},
      {"NullAuditSession", KIVO_SHOW_BY_AUDIT_SESSION, 0,
       "\n\nNo matching records found with supplied Audit Session ID: \n"},
      {"Mac", KIVO_SHOW_BY_MAC, address(kMac.data()),
       "\n\nNo matching records found with supplied MAC Address: 0011.2233.44ff\n"},
      {"NullMac", KIVO_SHOW_BY_MAC, 0,
       "\n\nNo matching records found with supplied MAC Address: \n"},
      // Little-endian 0xc8030201, highest bit set.
      {"Ipv4", KIVO_SHOW_BY_IPV4, ipv4(1, 2, 3, 200),
       "\n Num matches: 0\n\nNo matching records found with supplied IPV4 Address: -939326975"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(header("owner", "1") + row.text, show(row.command, row.filter)) << row.name;
  }
}

}  // namespace
