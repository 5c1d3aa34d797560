// What each operation of the library answers, traces and changes, when it goes well, when it is
// asked wrongly, and when the platform fails under it.
#include <vector>
#include "kivo/fetch.h"

#include "world.h"

namespace kivo_test {
namespace {

const std::string kLong(256, 'v');
const std::string kName31(31, 'n'), kName32(32, 'n');
const std::string kFive = identity(5, "y"), kSix = identity(6, "y"), kNine = identity(9, "y");
constexpr kivo_attr_config kUserRow = {kUser, 0, KIVO_DATA_TYPE_VAR_STR};
constexpr kivo_attr_config kPlainRow = {kUser, 6, KIVO_DATA_TYPE_VAR_STR};

void *g_handle[1];  // of a registration: its first word is the queue's

const Row kDatabaseRows[] = {
    {CALL((kivo_buginf(3, 1, "%s", "x"), 0)), "", "ok: 100([KIVO:KIVO:EVENT:1] x)"},
    {CALL((kivo_buginf(3, 1, "%s", "x"), 0)), "named_zalloc", "ok:"},
    {CALL(w.recreate(1, "NEW", "newer", {kUserRow}, 9)), "", "invalid: 200", "-"},
    {CALL(w.recreate(1, "NEW", "newer", {kUserRow}, 2)), "", "invalid: 200", "-"},
    {CALL(w.recreate(1, kName32.c_str(), "newer", {kUserRow})), "", "invalid: 201(32)", "-"},
    {CALL(w.recreate(1, "NEW", kName32.c_str(), {kUserRow})), "", "invalid: 201(32)", "-"},
    {CALL(w.recreate(1, kName31.c_str(), nullptr, {kUserRow})), "",
     "ok:", "db=" + kName31 + "//1 rows=1 entries=0,-1,-1,-1, same", "failed invalid *"},
    {CALL(w.recreate(3, "NEW", "third", {kUserRow})), "", "noroom: 202(third) 210(NEW,noroom)",
     "-"},
    {CALL(w.recreate(1, "NEW", "newer", {})), "", "failed: 204(newer) 210(NEW,failed)",
     "rows=0! -"},
    {CALL(w.recreate(1, "NEW", "newer", {kUserRow})), "named_zalloc",
     "failed: 204(newer) 210(NEW,failed)", "rows=0! -"},
    {CALL(w.recreate(1, "NEW", "newer", {kPlainRow})), "", "invalid: 205 209 210(NEW,invalid)",
     "db=NEW/newer/1 rows=1! -"},
    {CALL(w.recreate(1, "NEW", "newer", {kUserRow})), "named_zalloc#2",
     "invalid: 206 209 210(NEW,invalid)", "db=NEW/newer/1 rows=1! entries=-1,-1,-1,-1,none -"},
    {CALL(w.recreate(1, "ATTR_DB", "owner", {kUserRow, {kAddress, 6, 0}, kPlainRow})), "",
     "ok: 208(0,1)", "rows=3 entries=0,1,-1,-1, same"},
    {CALL(kivo_destroy_database(w.db)), "", "failed:"},
    {CALL(kivo_register_client(w.db, nullptr)), "", "failed:"},
    {CALL(kivo_unregister_client(w.db, 1)), "", "failed:"},

    {CALL(w.entry(kUser, w.db)), "", "ok: 250(user-name,0)", "an-entry"},
    {CALL(w.entry(kEthernet, w.db)), "", "ok: 250(interface-name,-1) 251(nil,9)", "null"},
    {CALL(w.entry(0, w.db)), "", "invalid:", "-"},
    {CALL(w.entry(kUser, nullptr)), "", "invalid:", "-"},
    {CALL(kivo_get_accel_from_type(1, w.db, nullptr)), "", "invalid:"},
};

const Row kRecordRows[] = {
    {CALL(kivo_create_record(nullptr, kNobody, nullptr)), "", "ok: 300(8)", "8=there"},
    {CALL(kivo_create_record(w.db, kNobody, nullptr)), "attrdb_create_and_insert_primary_record",
     "dead: 300(8)"},
    {CALL(w.fetch(w.db, kSession)), "", "ok: 301", "label7", "dead"},
    {CALL(w.fetch(w.db, kNobody)), "", "ok: 301", "null"},
    {CALL(w.fetch(nullptr, kSession)), "", "invalid: 301", "-"},
    {CALL(kivo_get_record(w.db, kSession, nullptr)), "", "invalid: 301"},
    {CALL(w.fetch(w.db, 0)), "", "invalid: 301 302", "null"},
    {CALL(w.fetch(w.db, kSession)), "attrdb_get_record", "dead: 301 303(dead)", "null"},
    {CALL(kivo_delete_record(nullptr, 112)), "", "ok:", "", nullptr},
    {CALL(kivo_delete_record(w.db, kSession)), "attrdb_delete_record", "dead: 304(dead)"},
    {CALL(w.labels(w.db, "ann")), "", "ok: 307(ATTR_DB,1)",
     "sets=7,101,102,103,104,105,106,107,108,109,110,111,112;1,2,3,4,5,6,7,8,9,10,11,12;"
     "1,2,3,4,5,6,7,8,9,10,11,12,13 n13",
     "dead storemem *"},
    {CALL(w.labels(w.db, "bob")), "", "ok: 307(ATTR_DB,1)", "n0"},
    {CALL(w.labels(w.db, nullptr)), "", "invalid: 305", "n99"},
    {CALL(w.labels(nullptr, "ann")), "", "invalid: 306", "n99"},
    {CALL(kivo_match_labels_by_attr(w.db, 1, "ann", 3, nullptr, &w.db->client_id)), "",
     "invalid: 305"},
    {CALL(kivo_match_labels_by_attr(w.db, 1, "ann", 3, &w.nothing, nullptr)), "", "invalid: 305"},
    {CALL(kivo_match_labels_by_attr(w.db, 0, "ann", 3, &w.nothing, &w.db->walks)), "",
     "invalid: 305"},
    {CALL(kivo_match_labels_by_attr(w.db, 1, "ann", 0, &w.nothing, &w.db->walks)), "",
     "invalid: 305"},
    {CALL(w.labels(w.db, "bob")), "attrdb_get_labels_by_attr", "dead: 307(ATTR_DB,1) 308(1,dead)",
     "n0"},
    {CALL(w.label("ann")), "", "ok: 311(1)", "label7", "dead"},
    {CALL(w.label("bob")), "", "ok: 311(1)", "label0"},
    {CALL(w.label(nullptr)), "", "invalid: 309", "label99"},
    {CALL(kivo_match_label_by_attr(w.db, 0, "ann", 3, &w.db->walks)), "", "invalid: 309"},
    {CALL(kivo_match_label_by_attr(w.db, 1, "ann", 0, &w.db->walks)), "", "invalid: 309"},
    {CALL(kivo_match_label_by_attr(w.db, 1, "ann", 3, nullptr)), "", "invalid: 309"},
    {CALL(w.label("ann")), "attrdb_get_label_by_attr", "dead: 310(dead,nil)", "label0"},
    {CALL(w.record_of(w.db, "ann")), "", "ok: 313(ATTR_DB,1)", "label7"},
    {CALL(w.record_of(w.db, "bob")), "", "ok: 313(ATTR_DB,1)", "null"},
    {CALL(w.record_of(w.db, nullptr)), "", "invalid: 312", "-"},
    {CALL(w.record_of(nullptr, "ann")), "", "invalid: 312", "-"},
    {CALL(kivo_match_record_by_attr(w.db, 0, "ann", 3, &w.record)), "", "invalid: 312"},
    {CALL(kivo_match_record_by_attr(w.db, 1, "ann", 0, &w.record)), "", "invalid: 312"},
    {CALL(kivo_match_record_by_attr(w.db, 1, "ann", 3, nullptr)), "", "invalid: 312"},
    {CALL(w.record_of(w.db, "ann")), "attrdb_get_record_by_attr", "ok: 313(ATTR_DB,1) 314(dead)",
     "null"},
    {CALL(kivo_get_next_if_id(0, &w.db->walks)), "attrdb_get_next_if_id", "dead:"},
    {CALL(w.merge(w.record)), "", "ok:", "", "dead"},
    {CALL(w.merge(nullptr)), "", "failed:"},
    {CALL(w.merge(w.record)), "auth_mgr_idc_merge_rec_to_list_without_replace", "dead:"},

    {CALL(w.read(w.db, kSession, kUser)), "", "ok: 301 701(user-name)", "ann", "dead failed"},
    {CALL(w.read(w.db, kSession, kStart)), "", "ok: 301 701(start-time)", "null"},
    {CALL(w.read(w.db, kSession, 0)), "", "invalid: 700", "-"},
    {CALL(w.read(nullptr, kSession, kUser)), "", "invalid: 700", "-"},
    {CALL(kivo_get_attr(w.db, kSession, nullptr, 1, nullptr, &w.db->walks)), "", "invalid: 700"},
    {CALL(w.read(w.db, kSession, kUser)), "attrdb_get_record", "dead: 301 303(dead) 502(dead)",
     "-"},
    {CALL(w.read(w.db, kNobody, kUser)), "", "ok: 301 703(1)", "-"},
    {CALL(w.read_from(w.record, kUser)), "", "ok: 701(user-name)", "ann"},
    {CALL(w.read_from(w.record, 0)), "", "invalid: 700", "-"},
    {CALL(w.read_from(nullptr, kUser)), "", "invalid: 700", "-"},
    {CALL(w.read_from(w.record, kUser)), "auth_mgr_idc_get_attr",
     "failed: 701(user-name) 702(57005)"},
};

// ---- Registrations, the old value, the single write

const Row kNotifyRows[] = {
    {CALL(kivo_register_attr_change_notification(w.db, kStart, 1, g_handle)), "",
     "ok: 250(start-time,4) 404(ATTR_DB,1,12,p)", "", "invalid"},
    {CALL(kivo_register_attr_change_notification(w.db, kUser, 4, g_handle)), "",
     "ok: 250(user-name,0) 403(ATTR_DB,4,1,p)"},
    {CALL(kivo_register_attr_change_notification(nullptr, kUser, 1, g_handle)), "", "invalid: 400"},
    {CALL(kivo_register_attr_change_notification(w.db, 0, 1, g_handle)), "",
     "invalid: 401(ATTR_DB)"},
    {CALL(kivo_register_attr_change_notification(w.db, kEthernet, 1, g_handle)), "",
     "invalid: 250(interface-name,-1) 251(nil,9) 402(ATTR_DB,9)"},
    {CALL(kivo_register_attr_change_notification(w.db, kStart, 1, nullptr)), "",
     "invalid: 250(start-time,4)"},
    {CALL(kivo_register_attr_change_notification(w.db, kStart, 1, g_handle)), "named_zalloc",
     "invalid: 250(start-time,4) 404(ATTR_DB,1,12,p) 401(ATTR_DB)"},
    {CALL(kivo_deregister_attr_change_notification(w.db, kUser, 3, g_handle)), "", "failed:"},
    {CALL(kivo_set_notify_old_attr_value(kUser, 255, kLong.data())), "", "ok:", "old=1,255*v"},
    {CALL(kivo_set_notify_old_attr_value(kUser, 256, kLong.data())), "", "16: 405(256,256)"},
    {CALL((kivo_init_notify_old_attr(), 0)), "", "ok:", "old=0,", nullptr,
     [](World &w) { w.say("", kivo_set_notify_old_attr_value(kUser, 2, "ab")); }},

    {CALL(w.update(w.db, kSession, kUser, "bob")), "",
     "ok: 501(ATTR_DB,1) 301 250(user-name,0) 408(1,3,p)", "1=bob heard:1/1", "dead"},
    {CALL(kivo_add_or_update_attr(w.db, 0, w.record, kUser, "bob", 3)), "",
     "ok: 501(ATTR_DB,1) 250(user-name,0) 408(1,3,p)", "1=bob heard:1/1"},
    {CALL(w.update(w.db, kSession, kUser, "ann")), "", "ok: 501(ATTR_DB,1) 301 250(user-name,0)"},
    {CALL(kivo_add_or_update_attr(w.db, kSession, nullptr, kUser, nullptr, 3)), "", "invalid: 500"},
    {CALL(w.update(w.db, kSession, kUser, "")), "", "invalid: 500"},
    {CALL(w.update(w.db, kSession, 0, "bob")), "", "invalid: 500"},
    {CALL(w.update(w.db, 0, kUser, "bob")), "", "invalid: 500"},
    {CALL(w.update(nullptr, kSession, kUser, "bob")), "", "invalid: 500"},
    {CALL(w.update(w.db, kSession, kUser, "bob")), "attrdb_get_record",
     "dead: 501(ATTR_DB,1) 301 303(dead) 502(dead)"},
    {CALL(w.update(w.db, kNobody, kUser, "bob")), "", "ok: 501(ATTR_DB,1) 301 503(ATTR_DB,1)"},
    {CALL(w.update(w.db, kSession, kUser, "bob")), "auth_mgr_idc_add_or_update_attr",
     "dead: 501(ATTR_DB,1) 301 504(dead)"},
    {CALL(w.update(w.db, kSession, kUser, kLong)), "",
     "invalid: 501(ATTR_DB,1) 301 406(256,p,p) 505(invalid)", "1=256*v"},
    {CALL(w.update(w.db, kSession, kEthernet, "eth")), "",
     "ok: 501(ATTR_DB,9) 301 250(interface-name,-1) 251(nil,9) 407(ATTR_DB,9)", "9=eth"},
};

// ---- The two list writes, which fail alike in their own words

using ListWrite = decltype(&kivo_add_or_update_attr_list);

std::vector<Row> list_rows(ListWrite op, int base, const char *fetch_failed, const char *unheard,
                           bool ends) {
  const auto number = [=](int i) { return std::to_string(base + i); };
  const std::string begin = number(1) + "(ATTR_DB) 301";
  const std::string user = " 900(user-name,not an) 250(user-name,0) 408(1,3,p)";
  const std::string id = " 900(session-id,not an)", heard_id = " 250(session-id,2) 408(11,3,p)";
  const std::string away = " 900(ipv4-address,not an) 250(ipv4-address,1) 408(8,4,p)";
  const std::string device = " 900(external-device,an)", wrote = " 904(external-device,3,7)";
  static std::vector<std::string> kept;  // what rows point to
  const auto keep = [](const std::string &text) { return kept.emplace_back(text).c_str(); };
  kept.reserve(100);
  const auto all = [op](World &w) { return op(w.db, kSession, nullptr, w.list.handle()); };
  const auto ids = [op](World &w) { return op(w.db, kSession, nullptr, w.ids.handle()); };
  const auto row = [&](const char *name, auto call, const char *faults, const std::string &outcome,
                       const std::string &changes = {}, const char *may = nullptr) {
    return Row{keep(number(0) + name), call, faults, keep(outcome), changes, may};
  };
  const std::string first = "1=bob heard:1/1", rest = "8=c0000202 ";
  return {
      row("all", all, "", "ok: " + begin + user + id + heard_id + away,
          "1=bob " + rest + "11=s-2 heard:1/1,11/1,8/1", "dead nocursor"),
      row("identities", ids, "",
          "ok: " + begin + user + device + wrote + " 902(external-device,6)" +
              " 908(external-device,6) 250(external-device,3) 408(1126,3,p)" + away,
          "1=bob " + rest + "id=6y heard:1/1,1126/1,8/1", "dead nocursor nomem 16"),
      row(
          "no db", [op](World &w) { return op(nullptr, kSession, nullptr, w.list.handle()); }, "",
          "invalid: " + number(0)),
      row(
          "no list", [op](World &w) { return op(w.db, kSession, nullptr, 0); }, "",
          "invalid: " + number(0)),
      row("fetch", all, "attrdb_get_record",
          "dead: " + begin + " 303(dead) " + fetch_failed + "(dead)"),
      row(
          "nobody", [op](World &w) { return op(w.db, kNobody, nullptr, w.list.handle()); },
          "!aaa_cursor_alloc", "ok: " + begin + " " + number(base == 560 ? 3 : 2) + "(ATTR_DB)"),
      row("cursor", all, "aaa_cursor_alloc", "nocursor: " + begin),
      row("move", all, "aaa_cursor_get_next", "dead: " + begin),
      row("second move", all, "aaa_cursor_get_next#2", "dead: " + begin + user, first),
      row("second value", all, "aaa_cursor_get_value#2",
          "dead: " + begin + user + " " + number(base == 560 ? 4 : 3) + "(dead)", first),
      row("unsupported", all, "auth_mgr_idc_add_or_update_attr#2=2",
          "ok: " + begin + user + id + " " + number(base == 560 ? 5 : 4) + "(11)" + away,
          "1=bob " + rest + "heard:1/1,8/1"),
      row("second write", all, "auth_mgr_idc_add_or_update_attr#2",
          "dead: " + begin + user + id + " " + number(base == 560 ? 6 : 5) + "(dead)", first),
      row("no shadow", ids, "auth_mgr_idc_get_shadow_record_in_ctxt",
          "16: " + begin + user + device + " 903(external-device) " + number(base == 560 ? 6 : 5) +
              "(invalid value)",
          first),
      row("no entry", ids, "named_alloc",
          "nomem: " + begin + user + device + wrote + " 905(external-device) " +
              number(base == 560 ? 6 : 5) + "(nomem)",
          first),
      row(
          "unheard",
          [op](World &w) {
            AttrList list;
            list.add(kUser, "bob").add(kId, "", 0).add(kAddress, kAway.data(), 4);
            return op(w.db, kSession, nullptr, list.handle());
          },
          "",
          (ends ? "invalid: " : "ok: ") + begin + user + id + " 406(0,p,p) " + unheard +
              "(invalid)" + (ends ? "" : away),
          ends ? "1=bob 11= heard:1/1" : "1=bob " + rest + "11= heard:1/1,8/1"),
  };
}

// ---- Adding

constexpr auto add_user = [](World &w) {
  return kivo_add_attr(w.db, kSession, nullptr, kUser, "bob", 3);
};
constexpr auto add_list = [](World &w) {
  return kivo_add_attr_list(w.db, kSession, nullptr, w.list.handle());
};

const Row kAddRows[] = {
    {CALL(kivo_add_attr_to_record(w.db, w.record, kUser, "bob", 3)), "",
     "ok: 250(user-name,0) 408(1,3,p)", "1=bob heard:1/1", "dead"},
    {CALL(kivo_add_attr_to_record(w.db, nullptr, kUser, "bob", 3)), "", "invalid: 520"},
    {CALL(kivo_add_attr_to_record(w.db, w.record, 0, "bob", 3)), "", "invalid: 520"},
    {CALL(kivo_add_attr_to_record(w.db, w.record, kUser, nullptr, 3)), "", "invalid: 520"},
    {CALL(kivo_add_attr_to_record(w.db, w.record, kUser, "bob", 0)), "", "invalid: 520"},
    {CALL(kivo_add_attr_to_record(w.db, w.record, kUser, "bob", 3)),
     "auth_mgr_idc_add_or_update_attr", "dead: 521(dead)"},
    {CALL(kivo_add_attr_to_record(nullptr, w.record, kUser, "bob", 3)), "",
     "ok: 406(3,p,nil) 522(invalid)", "1=bob"},

    {CALL(add_user(w)), "", "ok: 525(ATTR_DB) 301 250(user-name,0) 408(1,3,p)", "1=bob heard:1/1",
     "dead"},
    {CALL(kivo_add_attr(w.db, 0, w.record, kUser, "bob", 3)), "",
     "ok: 525(ATTR_DB) 250(user-name,0) 408(1,3,p)", "1=bob heard:1/1"},
    {CALL(kivo_add_attr(w.db, kSession, nullptr, 0, "bob", 3)), "", "invalid: 523"},
    {CALL(kivo_add_attr(w.db, kSession, nullptr, kUser, nullptr, 3)), "", "invalid: 523"},
    {CALL(kivo_add_attr(w.db, kSession, nullptr, kUser, "bob", 0)), "", "invalid: 523"},
    {CALL(kivo_add_attr(nullptr, kSession, nullptr, kUser, "bob", 3)), "", "invalid: 524"},
    {CALL(add_user(w)), "attrdb_get_record", "dead: 525(ATTR_DB) 301 303(dead) 526(dead)"},
    {CALL(kivo_add_attr(w.db, kNobody, nullptr, kUser, "bob", 3)), "",
     "ok: 525(ATTR_DB) 301 527(ATTR_DB)"},
    {CALL(add_user(w)), "auth_mgr_idc_add_or_update_attr",
     "dead: 525(ATTR_DB) 301 521(dead) 528(dead)"},

    {CALL(add_list(w)), "",
     "ok: 532(ATTR_DB) 301 250(user-name,0) 408(1,3,p) 250(user-name,0) 408(1,3,p)"
     " 250(session-id,2) 408(11,3,p) 250(session-id,2) 408(11,3,p)"
     " 250(ipv4-address,1) 408(8,4,p) 250(ipv4-address,1) 408(8,4,p)",
     "1=bob 8=c0000202 11=s-2 heard:1/1,1/1,11/1,11/1,8/1,8/1", "dead nocursor"},
    {CALL(kivo_add_attr_list(w.db, kSession, nullptr, 0)), "", "invalid: 530"},
    {CALL(kivo_add_attr_list(nullptr, kSession, nullptr, w.list.handle())), "", "invalid: 531"},
    {CALL(add_list(w)), "attrdb_get_record", "dead: 532(ATTR_DB) 301 303(dead) 526(dead)"},
    {CALL(kivo_add_attr_list(w.db, kNobody, nullptr, w.list.handle())), "!aaa_cursor_alloc",
     "ok: 532(ATTR_DB) 301 533(ATTR_DB)"},
    {CALL(add_list(w)), "aaa_cursor_alloc", "nocursor: 532(ATTR_DB) 301"},
    {CALL(add_list(w)), "aaa_cursor_get_next", "dead: 532(ATTR_DB) 301"},
    {CALL(add_list(w)), "aaa_cursor_get_value#2",
     "dead: 532(ATTR_DB) 301 250(user-name,0) 408(1,3,p) 250(user-name,0) 408(1,3,p) 534(dead)",
     "1=bob heard:1/1,1/1"},
    {CALL(add_list(w)), "auth_mgr_idc_add_or_update_attr#2=2",
     "2: 532(ATTR_DB) 301 250(user-name,0) 408(1,3,p) 250(user-name,0) 408(1,3,p)"
     " 521(attribute type not supported) 535(attribute type not supported)",
     "1=bob heard:1/1,1/1"},
    {CALL(kivo_add_attr_list(w.db, kSession, nullptr, w.none.handle())), "",
     "ok: 532(ATTR_DB) 301 406(256,p,p) 522(invalid) 406(256,p,p) 536(invalid)", "1=256*v", nullptr,
     [](World &w) { w.none.add(kUser, kLong.data(), 256); }},

    {CALL(kivo_add_or_update_attr_to_record(w.db, w.record, kUser, "bob", 3)), "",
     "ok: 250(user-name,0) 408(1,3,p)", "1=bob heard:1/1", "dead"},
    {CALL(kivo_add_or_update_attr_to_record(w.db, nullptr, kUser, "bob", 3)), "", "invalid: 540"},
    {CALL(kivo_add_or_update_attr_to_record(w.db, w.record, 0, "bob", 3)), "", "invalid: 540"},
    {CALL(kivo_add_or_update_attr_to_record(w.db, w.record, kUser, nullptr, 3)), "",
     "invalid: 540"},
    {CALL(kivo_add_or_update_attr_to_record(w.db, w.record, kUser, "bob", 0)), "", "invalid: 540"},
    {CALL(kivo_add_or_update_attr_to_record(w.db, w.record, kUser, "bob", 3)),
     "auth_mgr_idc_add_or_update_attr", "dead: 541(dead) 250(user-name,0) 408(1,3,p)", "heard:1/0",
     nullptr,
     [](World &w) { w.say("", kivo_register_attr_change_notification(w.db, 1, 4, g_handle)); }},
    {CALL(kivo_add_or_update_attr_to_record(nullptr, w.record, kUser, "bob", 3)), "",
     "ok: 406(3,p,nil) 542(invalid)", "1=bob"},
};

// ---- Removing

constexpr auto remove_id = [](World &w) {
  return kivo_remove_attr_from_record_by_type(w.db, w.record, kId);
};
uint32_t remove_types(kivo_db *db, uint32_t label, std::initializer_list<uint32_t> types) {
  return kivo_remove_attrs_by_type(db, label, nullptr, types.begin(),
                                   static_cast<uint32_t>(types.size()));
}
uint32_t remove_value(World &w, uint32_t type, const char *value, uint32_t length) {
  return kivo_remove_attr_from_record_by_type_and_value(w.db, w.record, type, length, value);
}
std::string addresses(char n) {
  std::string run;
  for (char c = 'a'; c < 'a' + n; ++c) run += std::string(16, c);
  return run;
}
const Row kRemovalRows[] = {
    {CALL(remove_id(w)), "", "ok: 571 250(session-id,2) 408(11,3,p)", "11=no heard:11/2", "dead"},
    {CALL(kivo_remove_attr_from_record_by_type(w.db, nullptr, kId)), "", "invalid: 570"},
    {CALL(kivo_remove_attr_from_record_by_type(w.db, w.record, 0)), "", "invalid: 570"},
    {CALL(kivo_remove_attr_from_record_by_type(w.db, w.record, kStart)), "", "ok: 571"},
    {CALL(kivo_remove_attr_from_record_by_type(w.db, w.record, kStart)), "", "ok: 571", "", nullptr,
     [](World &w) { w.put(kStart, ""); }},
    {CALL(kivo_remove_attr_from_record_by_type(w.db, w.record, kDevice)), "", "ok: 571"},
    {CALL(remove_id(w)), "auth_mgr_idc_get_attr", "dead: 571 572(dead)"},
    {CALL(remove_id(w)), "auth_mgr_idc_remove_attr_by_type",
     "dead: 571 250(session-id,2) 408(11,3,p) 574(dead)", "heard:11/2"},
    {CALL(kivo_remove_attr_from_record_by_type(nullptr, w.record, kId)), "",
     "ok: 571 406(3,p,nil) 573(invalid)", "11=no"},
    {CALL(kivo_remove_attr_from_record_by_type(nullptr, w.record, kAddresses)), "",
     "ok: 571 406(16,p,nil) 573(invalid) 406(16,p,nil) 573(invalid)", "10=no", nullptr,
     [](World &w) { w.put(kAddresses, addresses(2)); }},
    {CALL(kivo_remove_attr_from_record_by_type(nullptr, w.record, kAddresses)), "",
     "ok: 571 406(16,p,nil) 573(invalid) 406(16,p,nil) 573(invalid) 406(16,p,nil) 573(invalid)"
     " 406(16,p,nil) 573(invalid) 406(16,p,nil) 573(invalid) 406(16,p,nil) 573(invalid)",
     "10=no", nullptr, [](World &w) { w.put(kAddresses, addresses(8)); }},

    {CALL(remove_types(w.db, kSession, {kId, kUser})), "",
     "ok: 575(ATTR_DB) 301 571 250(session-id,2) 408(11,3,p) 571 250(user-name,0) 408(1,3,p)",
     "1=no 11=no heard:11/2,1/2", "dead"},
    {CALL(remove_types(nullptr, kSession, {kId})), "", "invalid: 570"},
    {CALL(remove_types(w.db, kSession, {})), "", "invalid: 570"},
    {CALL(kivo_remove_attrs_by_type(w.db, kSession, nullptr, nullptr, 1)), "", "invalid: 570"},
    {CALL(remove_types(w.db, kNobody, {kId})), "", "ok: 575(ATTR_DB) 301 576(ATTR_DB)"},
    {CALL(remove_types(w.db, kSession, {kId})), "attrdb_get_record",
     "dead: 575(ATTR_DB) 301 303(dead) 502(dead)"},
    {CALL(remove_types(w.db, kSession, {kId, kUser, kAddress})),
     "auth_mgr_idc_remove_attr_by_type auth_mgr_idc_remove_attr_by_type#3=beef",
     "beef: 575(ATTR_DB) 301 571 250(session-id,2) 408(11,3,p) 574(dead) 577(dead)"
     " 571 250(user-name,0) 408(1,3,p) 571 250(ipv4-address,1) 408(8,4,p) 574(beef) 577(beef)",
     "1=no heard:11/2,1/2,8/2"},

    {CALL(remove_value(w, kId, "s-1", 3)), "",
     "ok: 575(ATTR_DB) 900(session-id,not an)"
     " 250(session-id,2) 408(11,3,p)",
     "11=no heard:11/2", "dead"},
    {CALL(kivo_remove_attr_from_record_by_type_and_value(w.db, nullptr, kId, 3, "s-1")), "",
     "invalid: 578"},
    {CALL(kivo_remove_attr_from_record_by_type_and_value(nullptr, w.record, kId, 3, "s-1")), "",
     "invalid: 570"},
    {CALL(remove_value(w, 0, "s-1", 3)), "", "invalid: 570"},
    {CALL(remove_value(w, kId, "s-1", 3)), "auth_mgr_idc_remove_attr_by_type_and_value",
     "dead: 575(ATTR_DB) 900(session-id,not an) 579(dead)"},
    {CALL(remove_value(w, kId, nullptr, 3)), "",
     "aaainvalid: 575(ATTR_DB) 900(session-id,not an) 579(aaainvalid)"},
    {CALL(remove_value(w, kId, kLong.data(), 256)), "",
     "ok: 575(ATTR_DB) 900(session-id,not an) 406(256,p,p) 580(invalid)", "11=no", nullptr,
     [](World &w) { w.put(kId, kLong); }},
    {CALL(remove_value(w, kDevice, kFive.data(), 3)), "",
     "ok: 575(ATTR_DB) 900(external-device,an) 902(external-device,5) 912(external-device,5)"
     " 250(external-device,3) 408(1126,3,p)",
     "-id=5x heard:1126/2", "invalid"},
    {CALL(remove_value(w, kDevice, kNine.data(), 1)), "",
     "ok: 575(ATTR_DB) 900(external-device,an) 902(external-device,9) 911(external-device,9)"
     " 250(external-device,3) 408(1126,1,p)",
     "heard:1126/2"},
    {CALL(remove_value(w, kDevice, kFive.data(), 0)), "",
     "ok: 575(ATTR_DB) 900(external-device,an) 902(external-device,5) 912(external-device,5)"
     " 406(0,p,p) 580(invalid)",
     "-id=5x"},
    {CALL(remove_value(w, kDevice, nullptr, 3)), "",
     "ok: 575(ATTR_DB) 900(external-device,an) 901(external-device) 902(external-device,1)"
     " 911(external-device,1) 406(3,nil,p) 580(invalid)"},
    {CALL(remove_value(w, kDevice, kFive.data(), 3)), "auth_mgr_idc_get_shadow_record_in_ctxt",
     "invalid: 575(ATTR_DB) 900(external-device,an) 910 579(invalid)"},
};

TEST(Changes, AreWrittenAndHeardOf) { run_rows(kNotifyRows); }
TEST(Changes, AreWrittenByList) {
  run_rows(list_rows(kivo_add_or_update_attr_list, 550, "502", "505", false));
  run_rows(list_rows(kivo_clean_and_add_attr_list, 560, "562", "567", true));
}
TEST(Changes, AreAdded) { run_rows(kAddRows); }
TEST(Changes, AreRemovals) { run_rows(kRemovalRows); }
TEST(Databases, AreMadeAndLookedUp) { run_rows(kDatabaseRows); }
TEST(Records, AreMadeFoundAndRead) { run_rows(kRecordRows); }

}  // namespace
}  // namespace kivo_test
