// The console's shows and listings, and the fetches for replies: their texts byte for byte, how a
// value of each kind is rendered in both, and what they say when something is missing or fails.
#include <algorithm>
#include <cstring>
#include <vector>

#include "kivo/fetch.h"
#include "platform/console.h"
#include "platform/named_alloc.h"
#include "support/faults.h"
#include "support/trace_words.h"
#include "world.h"

namespace kivo_test {
namespace {

std::string header(const std::string &owner = "owner", const std::string &n = "13") {
  return "\n" + std::string(66, '-') +
         "\nDATABASE          : ATTR_DB\nOWNER             : " + owner +
         "\nNUMBER OF RECORDS : " + n;
}
const std::string kHeader = header();
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
const std::string kUnnamed = "  owner             AUR  - details N/A -";
const std::string kNoClient = "               ---   -             -----";
const std::string kFrame =
    "\n--------------------------------------------\n\n        ATTRIBUTE     VALUE"
    "\n--------------------  ------------------------";
const std::string kTop = "\n\nSession Opaque Attributes" + kFrame;
const std::string kIdentity = "\nexternal-device                : 05 00 78 \n";
const std::string kValues =
    "\nuser-name                      : ann"
    "\nipv4-address                   : 192.0.2.1"
    "\nsession-id                     : s-1"
    "\nexternal-device                : --- Data not found ---"
    "\nstart-time                     : --- Data not found ---";
const std::string kFirst = kTop + kIdentity + kFrame + kValues;
const std::string kMac = std::string("\x00\x11\x22\x33\x44\xff", 6);
const std::string kReads =
    " 301 701(user-name) 301 701(ipv4-address) 301 701(session-id)"
    " 301 701(external-device) 301 701(start-time)";
const std::string kNoRead = "--- Data not found ---", kNoPrint = "--- Can not print ---";

std::string told(const std::string &console) { return "console:" + console; }
void put_mac(World &w) { w.put(42, kMac); }
void only_user(World &w) {
  w.recreate(1, "ATTR_DB", "owner", {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}});
}
std::function<void(World &)> only(uint32_t type, kivo_data_type kind, const std::string &value) {
  return [=](World &w) {
    w.recreate(1, "ATTR_DB", "owner", {{type, 0, kind}});
    w.put(type, value);
  };
}
std::string one(const std::string &line) {
  return told(kHeader + kTop + kIdentity + kFrame + line);
}

std::vector<Row> show_rows() {
  static const std::string by_audit =
      std::string("ok: 311(819) 800(") + kAuditId + ") 301" + kReads;
  static const std::string by_mac = "ok: 311(42) 801(0011.2233.44ff) 301" + kReads;
  static const std::string by_address = "ok: 307(ATTR_DB,8) 802(-939326975) 301 701(user-name)";
  static const std::string longer = std::string(kAuditId) + " and more";
  static const std::string by_longer = "ok: 311(819) 800(" + longer + ") 301" + kReads;
  static const std::string high("\x01\x02\x03\xc8", 4);  // little-endian 0xc8030201
  static const std::string user_read = std::string("ok: 311(819) 800(") + kAuditId + ") 301 301 ";
  static const std::string text_lost = user_read + "701(user-name) 807";
  static const std::string port_lost = user_read + "701(interface) 806";
  static const std::string read_lost = user_read + "701(user-name) 702(57005)";
  static const std::string fetch_lost = user_read + "701(ipv6-addresses) 301 303(dead)";
  const std::string none = "\n\nNo matching records found with supplied ";
  return {
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId)), "", by_audit.c_str(),
       told(kHeader + kFirst), "ok"},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, longer.c_str())), "", by_longer.c_str(),
       told(kHeader + kFirst)},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, "short")), "", "ok: 311(819)",
       told(kHeader + none + "Audit Session ID: short\n")},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION)), "",
       "ok:", told(kHeader + none + "Audit Session ID: \n")},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId)), "attrdb_get_label_by_attr",
       "ok: 310(dead,nil)", told(kHeader + none + "Audit Session ID: " + kAuditId + "\n")},
      {CALL(w.show(KIVO_SHOW_BY_MAC, kMac.data())), "", by_mac.c_str(), told(kHeader + kFirst),
       "ok", put_mac},
      {CALL(w.show(KIVO_SHOW_BY_MAC, kMac.data())), "", "ok: 311(42)",
       told(kHeader + none + "MAC Address: 0011.2233.44ff\n")},
      {CALL(w.show(KIVO_SHOW_BY_MAC)), "", "ok:", told(kHeader + none + "MAC Address: \n")},
      {CALL(w.show(KIVO_SHOW_BY_IPV4, high.data())), "", "ok: 307(ATTR_DB,8)",
       told(kHeader + "\n Num matches: 0" + none + "IPV4 Address: -939326975")},
      {CALL(w.show(KIVO_SHOW_BY_IPV4, high.data())), "",
       "ok: 307(ATTR_DB,8) 802(-939326975) 301 301 701(user-name) 301 301 701(user-name)",
       told(kHeader + "\n Num matches: 2\n\nIPV4 match# 1, and its data:\n" + kTop + kIdentity +
            kFrame + "\nuser-name                      : ann\n\nIPV4 match# 2, and its data:\n" +
            kTop + kFrame + "\nuser-name                      : ann"),
       "ok",
       [](World &w) {
         only_user(w);
         w.put(kAddress, high);
         w.put(kAddress, high, 101);
       }},
      {CALL(w.show(KIVO_SHOW_BY_IPV4, high.data())), "chunk_malloc", "ok: 803(nomem)",
       told(kHeader)},
      {CALL(w.show(KIVO_SHOW_BY_IPV4, kHome.data())), "attrdb_get_labels_by_attr",
       "ok: 307(ATTR_DB,8) 308(8,dead)",
       told(kHeader + "\n Num matches: 9" + none + "IPV4 Address: 16908480")},

      {CALL(w.show(KIVO_SHOW_ATTRIBUTES)), "", "ok: 250(user-name,0)",
       told(kHeader + kTable + kUserRow), nullptr, only_user},
      {CALL(w.show(7)), "", "ok: 250(user-name,0)", told(kHeader + kTable + kUserRow), nullptr,
       only_user},
      {CALL(w.show(KIVO_SHOW_NOTIFICATIONS)), "", "ok: 250(user-name,0)",
       told(kHeader + kNotifyTable + kUserRow + kNoClient + kLegend), nullptr, only_user},
      {CALL(w.show(KIVO_SHOW_NOTIFICATIONS)), "",
       "ok: 250(user-name,0) 250(ipv4-address,1) 250(session-id,2) 250(external-device,3)"
       " 250(start-time,4)",
       told(kHeader + kNotifyTable + kUserRow + kUnnamed + "\nipv4-address          IPV4_ADDR" +
            kUnnamed + "\nsession-id            VAR STR  " + kUnnamed +
            "\nexternal-device       VAR BIN  " + kUnnamed + "\nstart-time            INT 64   " +
            kNoClient + kLegend)},
      {CALL(w.show(KIVO_SHOW_ATTRIBUTES)), "", "ok: 250(user-name,0) 804(invalid)",
       told(kHeader + kTable + kUserRow + "\nattribute-unknown     INT 32   "), nullptr,
       [](World &w) {
         w.recreate(1, "ATTR_DB", "owner",
                    {{kUser, 0, KIVO_DATA_TYPE_VAR_STR}, {0, 6, 0}, {kAddress, 0, 2}});
       }},
      {CALL(w.show(KIVO_SHOW_NOTIFICATIONS)), "",
       "ok:", told(header("newer") + kNotifyTable + "\nNo Attributes Found."), nullptr,
       [](World &w) {
         w.recreate(1, "ATTR_DB", "newer", {{kUser, 6, 8}});
         w.recreate(1, "ATTR_DB", "newer", {});
       }},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId)), "",
       "ok: 311(819) 800(0a0b0c0d0000000112345678) 301", one("\nNo Attributes Found."), nullptr,
       [](World &w) { w.recreate(1, "ATTR_DB", "owner", {}); }},
      {CALL(w.show(KIVO_SHOW_NOTIFICATIONS)), "",
       "ok:", "console:\n\nNo database found with provided name : ATTR_DB", nullptr,
       [](World &w) {
         w.recreate(1, "ATTR_DB2", "owner", {{kUser, 0, 8}});
       }},
      {CALL(w.show(KIVO_SHOW_ATTRIBUTES)), "", "ok: 250(user-name,0) 250(port,0) 250(user-name,1)",
       told(kHeader + kTable + kUserRow + header("second") + kTable +
            "\nport                  INT 32   " + kUserRow),
       nullptr,
       [](World &w) {
         only_user(w);
         create_database(2, {{6, 0, 0}, {kUser, 0, KIVO_DATA_TYPE_VAR_STR}}, nullptr, nullptr,
                         "ATTR_DB", "second");
       }},

      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId)), "named_zalloc", text_lost.c_str(),
       one("\nuser-name                      : Could not print"), nullptr,
       only(kUser, KIVO_DATA_TYPE_VAR_STR, "ann")},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId)), "named_zalloc", port_lost.c_str(),
       one("\ninterface                      : Could not print"), nullptr,
       only(AAA_ATTR_INTERFACE, KIVO_DATA_TYPE_INT32, "12")},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId)), "auth_mgr_idc_get_attr",
       read_lost.c_str(), one("\nuser-name                      : " + kNoRead), nullptr,
       only(kUser, KIVO_DATA_TYPE_VAR_STR, "ann")},
      {CALL(w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId)), "attrdb_get_record#3",
       fetch_lost.c_str(), one("\nipv6-addresses                 : \nfailed getting record."),
       nullptr, only(kAddresses, KIVO_DATA_TYPE_IPV6_ADDR, std::string(16, 'a'))},
  };
}

TEST(Shows, OfADatabaseAndItsRecords) { run_rows(show_rows()); }

// ---- Values by kind

std::string word32(uint32_t value) { return {reinterpret_cast<const char *>(&value), 4}; }
std::string word64(uint64_t value) { return {reinterpret_cast<const char *>(&value), 8}; }
std::string ipv6(char n) { return std::string("\x20\x01\x0d\xb8", 4) + std::string(11, '\0') + n; }

TEST(Values, AreRenderedByKindAndTypeOnTheConsoleAndInReplies) {
  const std::string kept = "kept";  // a slot that is left alone
  const struct {
    kivo_data_type kind;
    uint32_t type;
    std::string value, console, slot;
  } rows[] = {
      {KIVO_DATA_TYPE_INT32, 6, word32(0xdeadbeef), "0xdeadbeef", "0xdeadbeef"},
      {KIVO_DATA_TYPE_INT32, 6, "abc", kNoPrint, kNoPrint},
      {KIVO_DATA_TYPE_INT32, 6, word32(1) + "x", "0x00000001", "0x00000001"},
      {KIVO_DATA_TYPE_INT32, 220, word32(0xdeadbeef), "0xDEADBEEF", "0xDEADBEEF"},
      {KIVO_DATA_TYPE_INT32, 221, "3735928559", "0xDEADBEEF", "0xDEADBEEF"},
      {KIVO_DATA_TYPE_INT32, 221, "010", "0x0000000A", "0x0000000A"},
      {KIVO_DATA_TYPE_INT32, 221, "4294967298", "0x00000002", "0x00000002"},
      {KIVO_DATA_TYPE_INT32, 221, "eth0", "0x00000000", "0x00000000"},
      {KIVO_DATA_TYPE_INT32, 221, "", kNoRead, kNoRead},
      {KIVO_DATA_TYPE_INT32, 951, word32(1), "", "0x00000001"},
      {KIVO_DATA_TYPE_INT64, 12, word64(UINT64_MAX), "0x18446744073709551615",
       "0x18446744073709551615"},
      {KIVO_DATA_TYPE_INT64, 12, word64(7), "0x               7", "0x               7"},
      {KIVO_DATA_TYPE_INT64, 12, "1234567", kNoPrint, kNoPrint},
      {KIVO_DATA_TYPE_POINTER, 600, word64(4096), "0x            4096", "0x            4096"},
      {KIVO_DATA_TYPE_IPV4_ADDR, 4, "\xc0\x02\x02\x07", "192.2.2.7", "192.2.2.7"},
      {KIVO_DATA_TYPE_IPV4_ADDR, 8, "abc", "616263", "616263"},
      {KIVO_DATA_TYPE_IPV4_ADDR, 4, ipv6(1), "2001:db8::1", "2001:db8::1"},
      {KIVO_DATA_TYPE_IPV6_ADDR, 687, "2001:db8::/64", "2001:db8::/64", kept},
      {KIVO_DATA_TYPE_IPV6_ADDR, 10, ipv6(3) + ipv6(1), "2001:db8::3, 2001:db8::1", kept},
      {KIVO_DATA_TYPE_IPV6_ADDR, 700, ipv6(1), "", kept},
      {KIVO_DATA_TYPE_MAC_ADDR, 42, kMac, "0011223344ff", "0011.2233.44ff"},
      {KIVO_DATA_TYPE_MAC_ADDR, 42, "12345", kNoPrint, kNoPrint},
      {KIVO_DATA_TYPE_MAC_ADDR, 42, "1234567", "313233343536", "3132.3334.3536"},
      {KIVO_DATA_TYPE_SESN_GUID, 600, std::string(30, 'g'), std::string(30, 'g'),
       std::string(25, 'g')},
      {KIVO_DATA_TYPE_VAR_BIN, 601, std::string(33, '\xa5').replace(32, 1, "z"),
       "a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5", kept},
      {KIVO_DATA_TYPE_VAR_STR, kUser, "100%s", "100%s", "100%s"},
      {KIVO_DATA_TYPE_VAR_STR, kUser, std::string(65535, 't'), std::string(65535, 't'),
       std::string(25, 't')},
      {KIVO_DATA_TYPE_VAR_STR, kUser, "", kNoRead, kNoRead},
  };
  for (const auto &row : rows) {
    World w;
    only(row.type, row.kind, row.value)(w);
    w.put(3, "what may lie behind it");
    const uint64_t live = named_live_blocks();
    w.begin_anew();
    w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId);
    const std::string shown = w.changes();
    const size_t begin = std::min(one("").size() + 34, shown.size());
    EXPECT_EQ(row.console, shown.substr(begin)) << row.type << " of kind " << row.kind;
    kivo_value_slot slots[KIVO_REPLY_SLOTS] = {"kept"};
    uint32_t indexes[KIVO_REPLY_SLOTS] = {9};
    uint32_t found = 1;
    kivo_fetch_show_records_filter_by_session_id(kAuditId, &found, indexes, slots);
    EXPECT_EQ(row.slot, slots[0]) << row.type << " of kind " << row.kind;
    EXPECT_EQ(0u, indexes[0]);
    EXPECT_EQ(live, named_live_blocks());
  }
}

// ---- The table of attributes and who hears of them

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

// The notification columns of the user name's row.
std::string columns(World &w) {
  w.begin_anew();
  w.show(KIVO_SHOW_NOTIFICATIONS);
  const std::string text = w.changes();
  const size_t begin = text.find(kUserRow) + kUserRow.size();
  return text.substr(begin, text.find(kLegend) - begin);
}

TEST(NotificationColumns, AreCutNamedAndContinued) {
  const struct {
    const char *owner, *handle;
    uint32_t actions;
    const char *columns;
  } rows[] = {
      {"owner-of-16-char", "fifteen-chars-1", 0, "  owner-of-16-char  ERR  fifteen-chars-1"},
      {"owner-of-17-chars", "sixteen-chars-16", 1, "  owner-of-17- ...  A/U  sixteen-chars-1"},
      {"", "", 2, "                    REM  - details n/a -"},
      {"o", nullptr, 3, "  o                 AUR  - details n/a -"},
      {"o", "h", 4, "  o                 UNC  h              "},
      {"o", "h", 12, "  o                 UNC  h              "},
      {"o", "h", 8, "  o                 ---  h              "},
  };
  for (const auto &row : rows) {
    World w;
    Handle handle = {nullptr, row.handle};
    kivo_db *db = create_database(1, {{kUser, 0, 8}}, ignore_change, name_of, "ATTR_DB", row.owner);
    kivo_register_attr_change_notification(db, kUser, row.actions, &handle);
    EXPECT_EQ(row.columns, columns(w));
  }
}

// A type has one registration today; the columns are laid out for several.
TEST(NotificationColumns, HaveLinesForFurtherClientsAndHandles) {
  World w;
  kivo_db *db = create_database(1, {{kUser, 0, 8}}, ignore_change, name_of, "ATTR_DB", "o");
  kivo_accel_entry *entry = nullptr;
  ASSERT_EQ(0u, kivo_get_accel_from_type(kUser, db, &entry));
  const auto add = [&](uint32_t actions, kivo_notify_cb callback, std::vector<Handle *> handles) {
    auto *reg = static_cast<kivo_notify_reg *>(NAMED_ZALLOC(1, "test", sizeof(kivo_notify_reg)));
    *reg = {{}, db, actions, callback, handles.empty() ? nullptr : name_of, {}};
    for (Handle *handle : handles) queue_enqueue(&reg->handles, handle);
    queue_enqueue(&entry->notify_regs, reg);
  };
  Handle one = {nullptr, "one"}, two = {nullptr, "two"}, three = {nullptr, "three"};
  add(0, nullptr, {});
  add(1, ignore_change, {});
  add(2, ignore_change, {&one, &two});
  add(3, ignore_change, {&three});
  const std::string client = "\n" + std::string(32, ' '), handle = "\n" + std::string(54, ' ');
  EXPECT_EQ(kNoClient + "  o                 A/U  --" + client +
                "  o                 REM  one            " + handle + "  two            " + client +
                "  o                 AUR" + handle + "  three          ",
            columns(w));
}

// What the table walks stays until it ends; what it looks up is the new database's. The stream is
// chosen for every write.
TEST(NotificationColumns, MayChangeTheStreamAndCreateTheDatabaseAnew) {
  World w;
  static FILE *other;
  static ConsoleCapture *elsewhere;
  ConsoleCapture capture;
  elsewhere = &capture;
  other = elsewhere->stream();
  Handle handle = {nullptr, "h", [] {
                     create_database(1, {{6, 0, 0}}, ignore_change, name_of, "ATTR_DB", "new");
                     devShZelConsoleFd = other;
                   }};
  ConsoleCapture first;
  kivo_db *db = create_database(1, {{kUser, 0, 8}, {2, 0, 8}}, ignore_change, name_of);
  kivo_register_attr_change_notification(db, kUser, 1, &handle);
  EXPECT_EQ(&devShZelConsoleFd, kivo_devsh_printf_init(first.stream()));
  const uint64_t live = named_live_blocks();
  kivo_show_db(KIVO_SHOW_NOTIFICATIONS, 0);
  EXPECT_EQ(header() + kNotifyTable + kUserRow + "  owner             A/U", first.take());
  EXPECT_EQ("  h              \ndomain                VAR STR  " + kLegend, capture.take());
  EXPECT_EQ(live - 1, named_live_blocks());
}

// ---- Listings

TEST(Listings, HaveEveryRecordTheCountsAndTheTypes) {
  World w;
  for (uint32_t label = 101; label <= 112; ++label) kivo_delete_record(nullptr, label);
  kivo_create_record(nullptr, kNobody, nullptr);
  w.put(kAddresses, ipv6(1) + ipv6(2));
  w.put(713, "fourteenth");
  w.put(714, "fifteenth");
  std::vector<kivo_attr_config> rows = {
      {kUser, 0, 8}, {kAddresses, 0, 3}, {0, 6, 0}, {kAddress, 0, 2}};
  for (uint32_t type = 704; rows.size() < 15; ++type) rows.push_back({type, 0, 8});
  const kivo_client_params client = {KIVO_CLIENT_FLAG_VALID, 1, nullptr, nullptr};
  ASSERT_EQ(0u, kivo_create_database("ATTR_DB", "owner", &client, rows.data(), 15, &w.db));
  w.begin_anew();
  kivo_show_all_records(1);
  const std::string columns = "\nAttribute Name                : Value\n" + std::string(64, '-');
  const std::string base = header().substr(0, header().rfind('\n'));
  EXPECT_EQ(told(base + "\n\nDisplaying Record: [0/2]\nUnique Label: 0x7" + columns +
                 "\nuser-name                     : ann"
                 "\nipv6-addresses                : 2001:db8::1"
                 "\nipv6-addresses                : 2001:db8::2"
                 "\nipv4-address                  : 192.0.2.1"
                 "\nattribute-713                 : fourteenth" +
                 kIdentity + "\n\nDisplaying Record: [1/2]\nUnique Label: 0x8" + columns),
            w.changes());
  w.put(AAA_ATTR_MAC_ADDRESS, kMac);
  w.put(AAA_ATTR_METHOD, "m");
  w.put(AAA_ATTR_METHOD, "m", kNobody);
  w.begin_anew();
  kivo_show_all_records(0);
  EXPECT_EQ(told(base + "\nTotal Sessions    : 2\nMAC Sessions      : 1\nSwidb Sessions    : 0"
                        "\nIIF-ID Sessions    : 0\nDomain Sessions   : 0\nMethod Sessions   : 2"
                        "\nAudit Sessions    : 1\nSess-id Sessions  : 1"),
            w.changes());
  w.recreate(1, "NEW", "o",
             {{1248, 6, KIVO_DATA_TYPE_VAR_BIN}, {kUser, 0, KIVO_DATA_TYPE_VAR_STR}});
  w.begin_anew();
  kivo_show_attrs_short(w.db);
  EXPECT_EQ(told("\n\nAttribute Name                  Id          Type      "
                 "\nexternal-location              1248       VAR BIN   "
                 "\nuser-name                      1          VAR STR   "),
            w.changes());
  w.begin_anew();
  kivo_show_all_records(0);
  kivo_show_attrs_short(nullptr);
  kivo_show_walk_ctx context = {w.db, 1, 0};
  EXPECT_EQ(0u, kivo_show_record_attrs_test(nullptr, &context));
  EXPECT_EQ(0u, kivo_show_record_attrs_test(w.record, nullptr));
  EXPECT_EQ("", w.changes());
  EXPECT_EQ(1u, kivo_show_record_attrs_test(w.record, &context));
  EXPECT_EQ(1u, context.number);
}

// ---- Fetches

TEST(Fetches, FillWhatTheyHaveAndLeaveTheRest) {
  World w;
  put_mac(w);
  constexpr uint32_t kRoom = 24;
  uint32_t indexes[kRoom], found = 1;
  kivo_data_type types[kRoom];
  kivo_value_slot slots[kRoom] = {};
  std::fill_n(indexes, kRoom, 99u);
  std::fill_n(types, kRoom, 99u);
  kivo_fetch_show_records_filter_by_mac_addr("\1\2\3\4\5\6", &found, indexes, slots);
  EXPECT_EQ("0 99 ", std::to_string(found) + " " + std::to_string(indexes[0]) + " " + slots[0]);
  kivo_fetch_show_records_filter_by_ipv4_addr("\1\2\3\4", &found, indexes, slots);
  found = 1;
  kivo_fetch_show_records_filter_by_mac_addr(kMac.data(), &found, indexes, nullptr);
  kivo_fetch_show_records_filter_by_mac_addr(nullptr, &found, indexes, slots);
  EXPECT_EQ(99u, indexes[0]);
  kivo_fetch_show_records_filter_by_ipv4_addr(kHome.data(), &found, indexes, slots);
  EXPECT_EQ("1 4 99 192.0.2.1", std::to_string(found) + " " + std::to_string(indexes[4]) + " " +
                                    std::to_string(indexes[5]) + " " + slots[1]);
  char name[KIVO_NAME_SIZE] = "before", owner[KIVO_NAME_SIZE] = "before";
  uint32_t records = 99;
  kivo_fetch_common_header(name, nullptr, &records);
  EXPECT_EQ("ATTR_DB before 13", std::string(name) + " " + owner + " " + std::to_string(records));
  EXPECT_STREQ("owner", client_info_show.owner_name);
  create_database(2, {{kUser, 0, 8}}, nullptr, nullptr, "ATTR_DB", "second");
  kivo_fetch_attr_name_type_data(indexes, types);
  EXPECT_EQ("5 8 99", std::to_string(indexes[5]) + " " + std::to_string(types[5]) + " " +
                          std::to_string(types[6]));
  kivo_fetch_common_header(nullptr, owner, nullptr);
  EXPECT_STREQ("second", owner);
  create_database(2, {{kUser, 0, 8}}, nullptr, nullptr, "OTHER");
  w.recreate(1, "NEW", "newer", {{kUser, 0, 8}});
  kivo_fetch_common_header(name, owner, &records);
  EXPECT_STREQ("ATTR_DB", name);
  EXPECT_EQ(nullptr, client_info_show.attr_cfg);
}

}  // namespace
}  // namespace kivo_test
