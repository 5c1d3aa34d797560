// Label sets, queries, session matches and the shadow store: what each operation answers, traces
// and leaves, when it goes well, when it is asked wrongly, and when the platform fails under it.
// Beside the platform's operations two of the library's own are replaced, whose failures nothing
// else brings about, and a third, so that a list that is given back twice is seen.
#include <algorithm>
#include <vector>

#include "support/faults/replacement.h"
#include "world.h"

static uint32_t g_given_back_twice = 0;

extern "C" uint32_t kivo_index_list_size(const kivo_index_list *list, uint32_t *count) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(kivo_index_list_size, kivo_test::fault_status(), list, count);
}

extern "C" uint32_t kivo_get_accel_from_type(uint32_t type, kivo_db *db,
                                             kivo_accel_entry **out) noexcept {
  KIVO_TEST_FAIL_OR_FORWARD(kivo_get_accel_from_type, kivo_test::fault_status(), type, db, out);
}

// A list that was given back before has lost its marker; the pool keeps that until the next use.
extern "C" void kivo_index_list_free(kivo_index_list *list) noexcept {
  KIVO_TEST_REAL(kivo_index_list_free);
  if (list != nullptr && list->magic != KIVO_INDEX_LIST_MAGIC) ++g_given_back_twice;
  real(list);
}

namespace kivo_test {
namespace {

const std::string kSix = identity(6, "y"), kFive = identity(5, "y"), kNine = identity(9, "y");
const std::string kTooLong(65536, '\0');
constexpr uint32_t kUnknown = AAA_ATTR_TYPE_MAX + 1;
const std::string kThirteen = "7,101,102,103,104,105,106,107,108,109,110,111,112";
const std::string kNine9 = "7,101,102,103,104,105,106,107,108";

// ---- Label sets

kivo_index_list unmarked = {};
kivo_index_list *g_unmarked = &unmarked, *g_null = nullptr;

uint32_t get(World &w, const kivo_index_list *list, uint32_t position) {
  uint32_t label = 99, cursor = position;
  const uint32_t status = kivo_index_list_get(list, position, &label);
  const uint32_t next = kivo_index_list_next(list, &cursor);
  return w.say(std::to_string(label) + ";" + std::to_string(next) + "@" + std::to_string(cursor),
               status);
}

std::string sets(const std::string &changed) {
  return "sets=;" + (changed.empty() ? "" : changed) + "1,2,3,4,5,6,7,8,9,10,11,12,13";
}

const Row kSetRows[] = {
    {CALL(kivo_index_list_create(&g_null)), "chunk_malloc", "1:"},
    {CALL(kivo_index_list_add(&w.twelve, 13)), "", "ok:", sets("1,2,3,4,5,6,7,8,9,10,11,12,13;"),
     "1"},
    {CALL(kivo_index_list_add(&w.twelve, 13)), "chunk_malloc", "1:"},
    {CALL(kivo_index_list_add(nullptr, 13)), "", "2:"},
    {CALL(kivo_index_list_add(&g_null, 13)), "", "2:"},
    {CALL(kivo_index_list_add(&g_unmarked, 13)), "", "2:"},
    {CALL(kivo_index_list_add_many(&w.twelve, nullptr, 1)), "", "2:"},
    {CALL(kivo_index_list_size(nullptr, &w.db->walks)), "", "2:"},
    {CALL(kivo_index_list_size(g_unmarked, &w.db->walks)), "", "2:"},
    {CALL(kivo_index_list_empty(w.twelve)), "", "ok:", sets(";")},
    {CALL(kivo_index_list_empty(nullptr)), "", "2:"},
    {CALL(kivo_index_list_empty(g_unmarked)), "", "2:"},
    {CALL(get(w, w.thirteen, 0)), "", "ok:", "1;1@1"},
    {CALL(get(w, w.thirteen, 11)), "", "ok:", "12;12@12"},
    {CALL(get(w, w.thirteen, 12)), "", "ok:", "13;13@13"},
    {CALL(get(w, w.thirteen, 13)), "", "4:", "99;0@13"},
    {CALL(get(w, w.nothing, 0)), "", "4:", "99;0@0"},
    {CALL(get(w, nullptr, 0)), "", "2:", "99;0@0"},
    {CALL(get(w, g_unmarked, 0)), "", "2:", "99;0@0"},
    {CALL(kivo_index_list_union(w.twelve, w.thirteen, &g_null)), "", "2:"},
    {CALL(kivo_index_list_unique(w.twelve)), "", "2:"},

    {CALL(w.intersect(w.thirteen, w.twelve)), "", "ok:", "1,2,3,4,5,6,7,8,9,10,11,12;12", "2 3"},
    {CALL(w.intersect(w.twelve, w.thirteen)), "", "ok:", "1,2,3,4,5,6,7,8,9,10,11,12;12"},
    {CALL(kivo_index_list_intersection(w.twelve, w.thirteen, nullptr)), "", "2:"},
    {CALL(w.intersect(w.twelve, nullptr)), "", "2:", "null;0"},
    {CALL(w.intersect(nullptr, w.twelve)), "", "2:", "null;0"},
    {CALL(w.intersect(w.twelve, g_unmarked)), "", "2:", "null;0"},
    {CALL(w.intersect(w.nothing, w.twelve)), "", "2:", "null;0"},
    {CALL(w.intersect(w.twelve, w.nothing)), "", "2:", "null;0"},
    {CALL(w.intersect(w.thirteen, w.thirteen)), "chunk_malloc", "2:", "null;0"},
    {CALL(w.intersect(w.thirteen, w.thirteen)), "chunk_malloc#2", "2: 602(0)", "null;0"},
    {CALL(w.intersect(w.thirteen, w.twelve)), "htAdd", "3: 601(1) 602(0)", "null;0"},
    {CALL(w.intersect(w.thirteen, w.twelve)), "htAdd#13", "3: 601(13) 602(0)", "null;0"},
};

// ---- Queries: 1 and 8 are indexed, 11 is not

// The conditions before the last are taken well and not told of; 0 takes the result.
uint32_t ask(World &w, std::initializer_list<uint32_t> conditions) {
  const uint32_t last = *(conditions.end() - 1);
  return last == 0 ? w.take() : w.add(last);
}
std::function<void(World &)> after(std::initializer_list<uint32_t> types) {
  const std::vector<uint32_t> conditions = types;
  return [=](World &w) {
    w.start(w.db);
    for (const uint32_t type : conditions) w.add(type);
  };
}

uint32_t add_bytes(World &w, const void *value, uint32_t length, bool flagged) {
  uint32_t flag = 99;
  const uint32_t status =
      kivo_add_attr_to_query(&w.query, kUser, value, length, flagged ? &flag : nullptr);
  return w.say("flag" + std::to_string(flag), status);
}

std::vector<Row> query_rows() {
  const char *const user = "622 250(user-name,0)", *const id = "622 250(session-id,2)";
  static std::vector<std::string> kept;
  kept.reserve(100);
  const auto keep = [](const std::string &text) { return kept.emplace_back(text).c_str(); };
  const auto row = [&](std::initializer_list<uint32_t> before, uint32_t last, const char *faults,
                       const std::string &outcome, const std::string &changes) {
    std::string name = "query";
    for (const uint32_t type : before) name += " " + std::to_string(type);
    return Row{keep(name + " then " + std::to_string(last)),
               [=](World &w) { return ask(w, {last}); },
               faults,
               keep(outcome),
               changes,
               nullptr,
               after(before)};
  };
  const std::string away = "held=0 flag0", kept_user = " 250(user-name,0)";
  const auto failed = [&](int number, const char *which = "8,1") {
    return " 250(ipv4-address,1) " + std::to_string(number) + "(" + which + ")";
  };
  return {
      row({}, kUser, "", std::string("ok: ") + user, "held=14 flag1"),
      row({kUser}, kAddress, "", "ok: 622 250(ipv4-address,1)", "held=10 flag1"),
      row({kUser, kAddress}, 0, "", "ok: 641", "held=0 " + kNine9 + ";9"),
      row({kUser}, 0, "", "ok: 641 643(13)", "held=0 " + kThirteen + ";13"),
      row({}, 0, "", "ok: 641 642", "null;0"),
      row({kAddress}, kId, "", std::string("ok: ") + id + " 638(11,0)", "held=11 flag1"),
      row({kAddress, kId}, 0, "", "ok: 641", "held=0 " + kNine9 + ";9"),
      row({kUser}, kId, "", std::string("ok: ") + id, "flag1"),
      row({kUser}, kStart, "", "ok: 622 250(start-time,4) 637(12,0)", away),
      row({kAddress, kStart}, 0, "", "ok: 641", "held=0 null;0"),
      row({kUser}, kEthernet, "", "ok: 622 250(interface-name,-1) 251(nil,9) 629(9) 637(9,0)",
          away),
      row({kId, kId, kId}, kId, "", std::string("ok: ") + id + " 638(11,0)", "held=4 flag1"),
      row({kId, kId, kId, kId}, kId, "", std::string("ok: ") + id + " 639", away),
      row({kUser, kStart}, kUser, "", "ok: 622 625", "flag0"),
      row({kUser}, 0x10000, "",
          "invalid: 622 250(attribute-unknown,-1) 251(nil,65536) 629(65536) 636", away),

      row({}, kUser, "kivo_get_accel_from_type=a0030600", "invalid: 622 628(1,invalid) 627(1,0)",
          "flag0"),
      row({kAddress, kId}, kUser, "kivo_get_accel_from_type", "invalid: 622 628(1,dead) 627(1,0)",
          away),
      row({}, kUser, "chunk_malloc", std::string("nomem: ") + user + " 630(1,1)", "flag0"),
      row({kUser, kId}, kAddress, "chunk_malloc", "nomem: 622" + failed(630), away),
      row({}, kUser, "chunk_malloc#2", std::string("invalid: ") + user + " 631(1,1)", "flag0"),
      row({kUser}, kAddress, "attrdb_get_labels_by_attr", "invalid: 622" + failed(631), away),
      row({kUser}, kAddress, "chunk_malloc#2", "invalid: 622" + failed(633), away),
      row({kUser}, kAddress, "htAdd", "invalid: 622 250(ipv4-address,1) 601(7) 602(0) 633(8,1)",
          away),
      row({kUser}, kAddress, "htAdd#13",
          "invalid: 622 250(ipv4-address,1) 601(112) 602(0) 633(8,1)", away),
      row({kUser}, kAddress, "kivo_index_list_size=2", "invalid: 622" + failed(635), away),
      row({kUser}, kId, "kivo_index_list_size=2", std::string("invalid: ") + id + " 636", away),
      // The first candidate matches; the last one's failure counts.
      row({kUser}, kId, "attrdb_get_record#13", std::string("invalid: ") + id + " 636", away),
      row({kUser}, kId, "auth_mgr_idc_get_attr#13", std::string("invalid: ") + id + " 636", away),
      row({kAddress, kId}, 0, "kivo_index_list_size=2", "invalid: 641", "held=0 null;0"),
      row({kAddress, kId}, 0, "attrdb_get_record#9", "invalid: 641", "held=0 null;0"),
      row({kAddress, kId, kId}, 0, "auth_mgr_idc_get_attr#10", "invalid: 641", "held=0 null;0"),
      row({kAddress, kUnknown}, 0, "", "invalid: 641", "held=0 null;0"),
  };
}

const Row kQueryRows[] = {
    {CALL(w.start(w.db)), "", "ok: 620"},
    {CALL(w.start(nullptr)), "", "invalid: 620 621"},
    {CALL(kivo_start_multi_attr_query(w.db, nullptr)), "", "invalid: 620 621"},
    {CALL(kivo_add_attr_to_query(nullptr, kUser, "ann", 3, &w.db->walks)), "", "invalid: 622 623"},
    {CALL(w.add(kUser)), "", "invalid: 622 624", "flag99"},  // never started: no database
    {CALL(add_bytes(w, nullptr, 3, true)), "", "invalid: 622 624", "held=0 flag99", nullptr,
     after({kUser})},
    {CALL(add_bytes(w, "ann", 0, true)), "", "invalid: 622 624", "held=0 flag99", nullptr,
     after({kUser})},
    {CALL(add_bytes(w, "ann", 3, false)), "", "invalid: 622 624", "held=0 flag99", nullptr,
     after({kUser})},
    {CALL(kivo_add_attr_to_query(&w.query, 0, "ann", 3, &w.db->walks)), "",
     "invalid: 622 626 627(0,0)", "held=0", nullptr, after({kUser})},
    {CALL(kivo_get_matches_for_query(nullptr, &w.nothing, &w.db->walks)), "", "invalid: 641"},
    {CALL(kivo_get_matches_for_query(&w.query, nullptr, &w.db->walks)), "", "invalid: 641", "",
     nullptr, after({kUser})},
    {CALL(kivo_get_matches_for_query(&w.query, &w.nothing, nullptr)), "", "invalid: 641", "",
     nullptr, after({kUser})},
    {CALL((w.start(w.db), w.add(kUser), w.add(kAddress), w.add(kId), w.take())), "",
     "ok: 620 622 250(user-name,0) 622 250(ipv4-address,1) 622 250(session-id,2) 638(11,0) 641",
     "flag1 flag1 flag1 " + kNine9 + ";9", "invalid nomem ok"},
    {CALL((w.start(w.db), w.add(kId), w.add(kUser), w.take())), "",
     "ok: 620 622 250(session-id,2) 638(11,0) 622 250(user-name,0) 641 643(13)",
     "flag1 flag1 " + kThirteen + ";13", "invalid nomem ok"},

    {CALL(w.match(w.db, w.ids.handle())), "", "ok: 651(ATTR_DB) 250(user-name,0) 656(1) 660(p)",
     "null;0"},
    {CALL(w.match(w.db, w.none.handle())), "",
     "ok: 651(ATTR_DB) 250(user-name,0) 250(interface-name,-1) 251(nil,9) 654(9)"
     " 250(ipv4-address,1)",
     kNine9 + ";9", "dead storemem nocursor 1 2 3",
     [](World &w) { w.none.add(kUser, "ann").add(kEthernet, "e").add(kAddress, kHome.data(), 4); }},
    {CALL(w.match(w.db, w.none.handle())), "", "ok: 651(ATTR_DB) 660(p)", "null;0"},
    {CALL(w.match(w.db, w.none.handle())), "",
     "ok: 651(ATTR_DB) 250(user-name,0) 250(session-id,2) 658(success) 660(p)", "null;0", nullptr,
     [](World &w) {
       w.none.add(kUser, "eve").add(kId, "s-1");
       w.put(kUser, "eve", 112);
     }},
    {CALL(w.match(nullptr, w.none.handle())), "", "invalid: 650", "-;99"},
    {CALL(w.match(w.db, 0)), "", "invalid: 650", "-;99"},
    {CALL(kivo_match_sessions_from_list(w.db, 1, nullptr, &w.db->walks)), "", "invalid: 650"},
    {CALL(kivo_match_sessions_from_list(w.db, 1, &w.nothing, nullptr)), "", "invalid: 650"},
    {CALL(w.all(w.db)), "", "ok: 671", kThirteen + ";13", "nomem"},
    {CALL(w.all(nullptr)), "", "invalid: 670", "-;99"},
    {CALL(kivo_get_session_list(w.db, nullptr, &w.db->walks)), "", "invalid: 670"},
    {CALL(kivo_get_session_list(w.db, &w.nothing, nullptr)), "", "invalid: 670"},
    {CALL(w.all(w.db)), "chunk_malloc", "nomem: 671 672", "-;0"},
};

std::vector<Row> match_rows() {
  static const std::string begin = "651(ATTR_DB)", user = begin + " 250(user-name,0)",
                           none = user + " 250(interface-name,-1) 251(nil,9) 654(9)",
                           address = none + " 250(ipv4-address,1)";
  const struct {
    const char *faults;
    std::string outcome;
  } table[] = {
      {"aaa_cursor_alloc", "nocursor: " + begin},
      {"aaa_cursor_get_next", "dead: " + begin},
      {"aaa_cursor_get_next#2", "dead: " + user},
      {"aaa_cursor_get_value#2", "dead: " + user + " 652(dead)"},
      {"kivo_get_accel_from_type#2", "dead: " + user + " 653(dead)"},
      {"chunk_malloc", "1: " + user},
      {"chunk_malloc#3", "1: " + address},
      {"attrdb_get_labels_by_attr", "dead: " + user + " 655(dead)"},
      {"attrdb_get_labels_by_attr#2", "dead: " + address + " 655(dead)"},
      {"chunk_malloc#4", "2: " + address + " 657(attribute type not supported)"},
      {"htAdd#2", "3: " + address + " 601(101) 602(0) 657(0003)"},
      {"kivo_index_list_size=2", "2: " + address + " 659(attribute type not supported)"},
  };
  static std::vector<std::string> outcomes;
  std::vector<Row> rows;
  outcomes.reserve(std::size(table));
  for (const auto &row : table) {
    outcomes.push_back(row.outcome);
    rows.push_back({"match", [](World &w) { return w.match(w.db, w.none.handle()); }, row.faults,
                    outcomes.back().c_str(), "null;0", nullptr,
                    [](World &w) {
                      w.none.add(kUser, "ann").add(kEthernet, "e").add(kAddress, kHome.data(), 4);
                    }});
  }
  return rows;
}

// ---- The shadow store

std::string listed(uint32_t handle) {
  std::string values;
  aaa_cursor *cursor = nullptr;
  aaa_cursor_alloc(&cursor, handle);
  for (uint32_t type = 0; aaa_cursor_get_next(cursor, &type) == 0 && type != 0;) {
    const void *value = nullptr;
    uint32_t size = 0;
    aaa_cursor_get_value(cursor, &size, &value);
    values += std::to_string(type) + ":" + static_cast<const char *>(value)[0] +
              std::string(static_cast<const char *>(value) + 2, size - 2) + ",";
  }
  aaa_cursor_free(cursor);
  std::replace(values.begin(), values.end(), '\5', '5');
  std::replace(values.begin(), values.end(), '\6', '6');
  return values;
}

uint32_t copied(World &w, uint32_t status) { return w.say(listed(w.none.handle()), status); }

const Row kShadowRows[] = {
    {CALL(w.identity_write(w.shadow, 2, &kSix)), "",
     "ok: 904(external-device,3,7) 902(external-device,6) 908(external-device,6)", "id=6y changed1",
     "nomem"},
    {CALL(w.identity_write(w.shadow, 2, &kFive)), "",
     "ok: 904(external-device,3,7) 902(external-device,5) 908(external-device,5)"
     " 909(external-device,5)",
     "id=5y -id=5x changed1", "nomem"},
    {CALL(w.identity_write(w.fresh, 2, &kFive)), "",
     "ok: 904(external-device,3,9) 902(external-device,5) 907(external-device,5)", "changed1"},
    {CALL(w.identity_write(nullptr, 2, &kSix)), "", "16: 903(external-device)", "changed99"},
    {CALL(w.identity_write(w.shadow, 7, &kSix)), "", "invalid: 903(external-device)", "changed99"},
    {CALL(w.identity_write(w.shadow, 2, nullptr)), "", "invalid: 903(external-device)",
     "changed99"},
    {CALL(w.identity_write(w.shadow, 2, &kTooLong)), "", "invalid: 903(external-device)",
     "changed99"},
    {CALL(w.identity_write(w.shadow, 2, &kFive)), "named_alloc",
     "nomem: 904(external-device,3,7) 905(external-device)", "changed99"},
    {CALL(w.identity_write(w.shadow, 2, &kFive)), "variable_chunk_malloc",
     "nomem: 904(external-device,3,7) 902(external-device,5) 906(external-device,5,3)",
     "changed99"},
    {CALL(shadowdb_remove_attr(w.shadow, 2, kDevice, 3, kFive.data())), "",
     "ok: 902(external-device,5) 912(external-device,5)", "-id=5x"},
    {CALL(shadowdb_remove_attr(w.shadow, 2, kDevice, 3, kNine.data())), "",
     "ok: 902(external-device,9) 911(external-device,9)"},
    {CALL(shadowdb_remove_attr(nullptr, 2, kDevice, 3, kFive.data())), "", "invalid: 910"},
    {CALL(shadowdb_remove_attr(w.shadow, 7, kDevice, 3, kFive.data())), "", "invalid: 918(7)"},
    {CALL((shadowdb_destroy_record(shadowdb_alloc_record(4)))), "", "1: 914(4) 917(4)"},
    {CALL(shadowdb_alloc_record(4) == nullptr ? 0 : 9), "named_alloc", "ok: 913(4)"},
    {CALL(shadowdb_destroy_record(nullptr)), "", "1: 915 916"},

    {CALL(copied(w, shadowdb_get_session_attribute(w.shadow, w.none.handle(), 2))), "",
     "ok: 924(7,external-device) 924(7,external-device)", "1126:6y,1126:5x,", nullptr,
     [](World &w) { w.put_identity(6, "y"); }},
    {CALL(copied(w, shadowdb_get_session_attributes(w.shadow, w.none.handle()))), "",
     "ok: 924(7,external-device)", "1126:5x,"},
    {CALL(shadowdb_get_session_attribute(nullptr, w.none.handle(), 7)), "", "invalid: 918(7)"},
    {CALL(shadowdb_get_session_attribute(nullptr, w.none.handle(), 2)), "", "invalid: 919"},
    {CALL(shadowdb_get_session_attributes(nullptr, w.none.handle())), "", "invalid: 919"},
    {CALL(shadowdb_get_session_attribute(w.fresh, 0, 2)), "", "ok: 920"},
    {CALL(shadowdb_get_session_attributes(w.fresh, 0)), "", "ok: 920"},
    {CALL(shadowdb_get_session_attribute(w.shadow, 0, 2)), "", "invalid: 921(7)"},
    {CALL(shadowdb_get_session_attributes(w.shadow, 0)), "", "invalid: 921(7)"},
    {CALL(shadowdb_get_session_attribute(w.shadow, w.none.handle(), 0)), "", "invalid: 922(0)"},
    {CALL(copied(w, shadowdb_get_session_attribute(w.shadow, w.none.handle(), 2))), "aaa_attr_add",
     "ok: 923(external-device) 924(7,external-device)", "1126:5x,", nullptr,
     [](World &w) { w.put_identity(6, "y"); }},
    {CALL(copied(w, shadowdb_get_session_attributes(w.shadow, w.none.handle()))), "aaa_attr_add#2",
     "ok: 924(7,external-device) 923(external-device)", "1126:6y,", nullptr,
     [](World &w) { w.put_identity(6, "y"); }},

    {CALL(shadowdb_show_rec(w.db, kSession)), "", "ok: 301",
     "console:\nexternal-device                : 05 00 78 \n", "dead notfound"},
    {CALL(shadowdb_show_rec(nullptr, kSession)), "", "invalid: 925"},
    {CALL(shadowdb_show_rec(w.db, kSession)), "attrdb_get_record", "dead: 301 303(dead) 926"},
    {CALL(shadowdb_show_rec(w.db, kNobody)), "", "notfound: 301 927"},
    {CALL(shadowdb_show_rec(w.db, kSession)), "auth_mgr_idc_get_shadow_record_in_ctxt",
     "notfound: 301 927"},
    {CALL(shadowdb_show_rec(w.db, 101)), "!named_alloc", "ok: 301"},
    {CALL((w.put_identity(5, std::string(15, 'b')), shadowdb_show_rec(w.db, kSession))), "",
     "ok: 904(external-device,17,7) 902(external-device,5) 908(external-device,5)"
     " 909(external-device,5) 301",
     "id=5bbbbbbbbbbbbbbb -id=5x console:\nexternal-device                : 05 00 62 62 62 62 62"
     " 62 62 62 62 62 62 62 62 62 \n                                 62 \n"},
};

class Rows : public testing::Test {
 protected:
  ~Rows() override { EXPECT_EQ(0u, g_given_back_twice); }
};

TEST_F(Rows, OfLabelSets) { run_rows(kSetRows); }
TEST_F(Rows, OfQueries) { run_rows(kQueryRows); }
TEST_F(Rows, OfQueriesStepByStep) { run_rows(query_rows()); }
TEST_F(Rows, OfSessionMatches) { run_rows(match_rows()); }
TEST_F(Rows, OfTheShadowStore) { run_rows(kShadowRows); }

}  // namespace
}  // namespace kivo_test
