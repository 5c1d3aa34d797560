// What rows cannot show: the gate of traces, the fields of a handle, damaged and long label sets,
// external identities among each other, values that lie in the record, and what callbacks do.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "platform/named_alloc.h"
#include "support/faults.h"
#include "support/trace_words.h"
#include "world.h"

namespace kivo_test {
namespace {

// ---- The gate

TEST(Gate, FollowsTheFlagsThroughTheirTable) {
  World w;
  const struct {
    int32_t all, error, event;
    uint32_t level;  // of the facility
    const char *open, *honouring, *traces, *messages;
  } rows[] = {
      {0, 0, 0, 8, "000000", "000000", "", ""},
      {0x10000, 0, 0, 8, "111111", "111111", "301 302", "100([KIVO:KIVO:EVENT:7] x%d)"},
      {0, -1, 0, 8, "001000", "111111", "301 302", "100([KIVO:KIVO:EVENT:7] x%d)"},
      {0, 0, 0x10000, 8, "000100", "000100", "301", "100([KIVO:KIVO:EVENT:7] x%d)"},
      {1, 0, 0, 6, "111111", "111111", "301 302", "100([KIVO:KIVO:EVENT:7] x%d)"},
      {1, 0, 0, 5, "111111", "111111", "302", ""},
      {1, 0, 0, 2, "111111", "111111", "", ""},
  };
  for (const auto &row : rows) {
    TraceWords log;
    trace_set_level(kivo_trace_id, row.level);
    kivo_debug_level_all = row.all;
    kivo_debug_level_error = row.error;
    kivo_debug_level_event = row.event;
    std::string open, honouring;
    for (uint32_t kind : {0u, 1u, 2u, 3u, 4u, UINT32_MAX}) {
      open += std::to_string(kivo_debugging_event_active(kind, 0));
      honouring += std::to_string(kivo_debugging_event_active(kind, 0x100));
    }
    EXPECT_EQ(row.open, open);
    EXPECT_EQ(row.honouring, honouring);
    EXPECT_EQ(row.all != 0 ? 1u : 0u, kivo_debugging_all_on());
    w.fetch(w.db, 0);
    EXPECT_EQ(row.traces, log.take());
    kivo_buginf(3, 7, "%s", "x%d");
    EXPECT_EQ(row.messages, log.take());
  }
  kivo_debug_level_all = kivo_debug_level_error = kivo_debug_level_event = 0;
  EXPECT_EQ(nullptr, kivo_debug_level[0]);
  for (uint32_t level = 1; level <= 3; ++level) {
    int32_t elsewhere = 1;
    int32_t *const flag = std::exchange(kivo_debug_level[level], &elsewhere);
    EXPECT_EQ(1u, kivo_debugging_event_active(level, 0));
    EXPECT_EQ(0u, kivo_debugging_all_on());
    elsewhere = 0;
    *flag = 1;
    EXPECT_EQ(0u, kivo_debugging_event_active(level, 1));
    EXPECT_EQ(level == 1 ? 1u : 0u, kivo_debugging_all_on());
    *flag = 0;
    kivo_debug_level[level] = flag;
  }
}

TEST(DebugMessages, HaveAPrefixAndAreCut) {
  World w;
  kivo_debug_level_all = 1;
  TraceWords log;
  const std::string long_text(2000, 'x');
  const struct {
    uint32_t kind;
    uint64_t line;
    std::string text, whole;
  } rows[] = {
      {2, 42, "y", "[KIVO:KIVO:ERROR:42] y"},
      {1, 1, "y", "[KIVO:KIVO:ALL:1] y"},
      {0, 0, "y", "[KIVO:] y"},
      {7, 7, "y", "[KIVO::7] y"},
      {4, 0, long_text, "[KIVO:] " + long_text.substr(0, 503)},
  };
  for (const auto &row : rows) {
    kivo_buginf(row.kind, row.line, "%s", row.text.c_str());
    EXPECT_EQ("100(" + row.whole + ")", log.take());
  }
}

// ---- Handles

TEST(Handles, HaveTheirFieldsAndAreNoBodysToPassTheMap) {
  World w;
  kivo_client_params params = {0xffffffff, 1, [](auto...) {}, nullptr};
  // A value of size s at offset o moves the end to o + s + 48, rounded up to a multiple of 8.
  const kivo_attr_config rows[] = {{11, 0, 0}, {21, 6, 1}, {12, 7, 3}, {13, 0, 5},
                                   {22, 6, 7}, {14, 0, 4}, {23, 6, 0}};
  kivo_db *db = nullptr;
  ASSERT_EQ(0u, kivo_create_database("D", nullptr, &params, rows, 7, &db));
  ASSERT_EQ(w.db, db);
  EXPECT_EQ(0u, db->reserved64 | db->reserved32);
  EXPECT_EQ(params.notify_cb, db->client.notify_cb);
  EXPECT_EQ("0 1 4 3", std::to_string(db->slot_index) + " " + std::to_string(db->client_id) + " " +
                           std::to_string(db->indexed_count) + " " +
                           std::to_string(db->unindexed_count));
  EXPECT_EQ(0, std::memcmp(rows, db->attr_cfg, sizeof rows));
  std::string entries;
  for (uint32_t i = 0; i < 7; ++i) {
    const kivo_accel_entry &entry = db->accel_tbl[i];
    entries += std::to_string(entry.aaa_type) + ":" + std::to_string(entry.data_type) + "/" +
               std::to_string(entry.indexed) + "@" + std::to_string(entry.layout_offset) + " ";
  }
  EXPECT_EQ("11:0/1@16 21:1/0@16 12:3/1@72 13:5/1@136 22:7/0@0 14:4/1@208 23:0/0@72 ", entries);
  EXPECT_EQ("264 128 208 72", std::to_string(db->indexed_area_size) + " " +
                                  std::to_string(db->unindexed_area_size) + " " +
                                  std::to_string(db->indexed_last_offset) + " " +
                                  std::to_string(db->unindexed_last_offset));
  EXPECT_EQ(2u, kivo_get_index_from_aaa_type(db, 12));
  for (const uint32_t type : {0u, 1u, 1490u, 1491u, UINT32_MAX}) {
    EXPECT_EQ(KIVO_SLOT_NONE, kivo_get_index_from_aaa_type(db, type));
    EXPECT_EQ(9u, kivo_get_kivo_type_from_aaa_type(db, type));
  }
  EXPECT_EQ(KIVO_SLOT_NONE, kivo_get_index_from_aaa_type(nullptr, 12));
  EXPECT_EQ(9u, kivo_get_kivo_type_from_aaa_type(nullptr, 12));
  EXPECT_EQ(attrdb_kivo_type_to_attrdb_type(3), kivo_get_kivo_type_from_aaa_type(db, 12));
  // Rows that would pass the map or the sizes change nothing.
  kivo_debug_level_error = 1;
  TraceWords log;
  for (const kivo_attr_config &bad : {kivo_attr_config{1491, 0, 0}, kivo_attr_config{1, 0, 9}}) {
    EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_create_database("E", "o", &params, &bad, 1, &db));
    EXPECT_STREQ("D", w.db->db_name);
  }
  EXPECT_EQ("200 200", log.take());
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, kivo_create_database("E", "o", &params, rows, 7, nullptr));
  // Without rows of the caller's: so many rows of zeros.
  ASSERT_EQ(0u, kivo_create_database("E", "o", &params, nullptr, 3, &db));
  EXPECT_EQ(3u, db->indexed_count);
  EXPECT_EQ(0u, kivo_get_index_from_aaa_type(db, 0));
  const std::vector<uint32_t> sizes(std::begin(KIVO_ATTR_SIZES_NEW), std::end(KIVO_ATTR_SIZES_NEW));
  EXPECT_EQ((std::vector<uint32_t>{4, 8, 4, 16, 6, 24, 8, 0, 0}), sizes);
  std::string names;
  for (const char *name : kivo_record_config_name_info) names += std::string(name) + ";";
  EXPECT_EQ("kivo small chunk;kivo medium chunk;kivo large chunk;kivo malloc mem;", names);
}

// ---- Label sets

using Labels = std::vector<uint32_t>;
Labels counted(uint32_t first, uint32_t n) {
  Labels labels(n);
  std::iota(labels.begin(), labels.end(), first);
  return labels;
}
kivo_index_list *make_set(const Labels &labels) {
  kivo_index_list *list = nullptr;
  kivo_index_list_create(&list);
  for (const uint32_t label : labels) EXPECT_EQ(0u, kivo_index_list_add(&list, label));
  return list;
}
Labels walked(const kivo_index_list *list) {
  Labels labels;
  uint32_t cursor = 0;
  while (const uint32_t label = kivo_index_list_next(list, &cursor)) labels.push_back(label);
  return labels;
}
// What is read at a position: the label, or the status of the failure.
std::string got(const kivo_index_list *list, uint32_t position) {
  uint32_t label = 0;
  const uint32_t status = kivo_index_list_get(list, position, &label);
  return status == 0 ? std::to_string(label) : "!" + std::to_string(status);
}
kivo_index_list *block_of(kivo_index_list *list, uint32_t number) {
  while (number-- != 0) list = list->next;
  return list;
}

TEST(LabelSets, AreWalkedUpToDamage) {
  World w;
  const struct {
    uint32_t size, block, added;  // what adding gives
    std::vector<std::pair<uint32_t, const char *>> reads;
  } rows[] = {
      {30, 1, 2, {{11, "12"}, {12, "!2"}, {24, "!2"}}},
      // Above 768 labels only what passes the damage reports it.
      {900, 3, 0, {{35, "36"}, {36, "!2"}, {48, "!2"}, {900, "4711"}}},
      {900, 74, 2, {{887, "888"}, {888, "!2"}}},
  };
  for (const auto &row : rows) {
    const uint64_t live = chunk_live_blocks(label_block_pool);
    kivo_index_list *list = make_set(counted(1, row.size));
    kivo_index_list *damaged = block_of(list, row.block);
    damaged->magic = 0;
    EXPECT_EQ(row.added, kivo_index_list_add(&list, 4711));
    for (const auto &[position, text] : row.reads) EXPECT_EQ(text, got(list, position));
    kivo_index_list_free(list);
    EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_empty(list));
    damaged->magic = KIVO_INDEX_LIST_MAGIC;
    kivo_index_list_free(damaged);
    EXPECT_EQ(live, chunk_live_blocks(label_block_pool));
  }
  kivo_index_list *broken = make_set(counted(1, 30));
  kivo_index_list *last = std::exchange(block_of(broken, 1)->next, nullptr);
  EXPECT_EQ("24 !2", got(broken, 23) + " " + got(broken, 24));
  EXPECT_EQ(KIVO_INDEX_LIST_INVALID, kivo_index_list_add(&broken, 31));
  EXPECT_EQ(30u, broken->count);
  kivo_index_list_free(last);
  kivo_index_list_free(broken);
}

TEST(LabelSets, RememberNothingWrong) {
  World w;
  constexpr uint32_t kSets = 1500;
  std::vector<kivo_index_list *> sets;
  for (uint32_t s = 0; s < kSets; ++s) sets.push_back(make_set(counted(s + 1, 775)));
  for (uint32_t i = 775; i < 785; ++i) {
    for (uint32_t s = 0; s < kSets; ++s) {
      ASSERT_EQ(0u, kivo_index_list_add(&sets[s], s + 1 + i));
      ASSERT_EQ(std::to_string(s + 1 + i - 700), got(sets[s], i - 700));
    }
  }
  for (uint32_t s = 0; s < kSets; ++s) {
    ASSERT_EQ(counted(s + 1, 785), walked(sets[s]));
    kivo_index_list_free(sets[s]);
  }
  // A block that was remembered for a set that is freed, or emptied, is part of another one now.
  kivo_index_list *old = make_set(counted(1, 2000));
  walked(old);
  kivo_index_list_free(old);
  sets.clear();
  while (sets.empty() || sets.back() != old) {
    ASSERT_LT(sets.size(), 5000u) << "the address does not come back";
    sets.push_back(make_set({9}));
  }
  for (const bool emptied : {false, true}) {
    if (emptied) {
      walked(old);
      EXPECT_EQ(0u, kivo_index_list_empty(old));
      EXPECT_EQ(nullptr, old->next);
      EXPECT_EQ(0u, kivo_index_list_add(&old, 9));
    }
    Labels labels = counted(70000, 1500);
    EXPECT_EQ(0u, kivo_index_list_add_many(&old, labels.data(), 1500));
    EXPECT_EQ("71299", got(old, 1300));
    labels.insert(labels.begin(), 9);
    EXPECT_EQ(labels, walked(old));
  }
  for (kivo_index_list *set : sets) kivo_index_list_free(set);
}

TEST(Hash, GivesThePublishedValues) {
  constexpr uint32_t kBasis = 0x811c9dc5;
  EXPECT_EQ(0x050c5d7eu, fnv_32_hash("a", 1, kBasis));
  EXPECT_EQ(0x31f0b262u, fnv_32_hash("foobar", 6, kBasis));
  EXPECT_EQ(77u, fnv_32_hash("foobar", 0, 77));
  EXPECT_EQ(77u, fnv_32_hash("foobar", -1, 77));
  start_process();
  uint32_t label = 0;
  std::memcpy(&label, "foob", 4);
  EXPECT_EQ(0xb4b1178bu, label_hash(&label));
  const uint32_t greater = 1, less = 0x100;  // by their bytes reversed
  EXPECT_EQ(1, label_compare(&greater, &less));
  EXPECT_EQ(-1, label_compare(&less, &greater));
  EXPECT_EQ(0, label_compare(&less, &less));
  EXPECT_EQ(1, label_compare(nullptr, &less) * label_compare(&less, nullptr));
}

// ---- External identities

TEST(Identities, AreOfSevenTypesAndFiledBySubtype) {
  World w;
  TraceWords log;
  std::string indexes;
  for (const uint32_t type : {1123u, 1124u, 1125u, 1126u, 1127u, 1128u, 1129u, 1130u, 1248u}) {
    uint32_t index = 9;
    indexes += std::to_string(kivo_check_is_shadow_attrib(type, &index));
    indexes += std::to_string(index);
  }
  EXPECT_EQ("091011121314150916", indexes);
  EXPECT_TRUE(log.take().starts_with("900(attribute-1123,not an) 900(external-class,an)"));
  EXPECT_EQ(0u, w.fresh->has_identities);
  // A value without a word has subtype 1, as one of a type that is none; one may lie in the entry
  // that it replaces.
  const auto write = [&](uint32_t type, const void *value, uint32_t length) {
    uint32_t changed = 0;
    EXPECT_EQ(0u, shadowdb_add_or_update_attr(w.fresh, 4, type, value, length, &changed));
    EXPECT_EQ(1u, changed);
  };
  const char odd[] = "?\5\0abc";
  write(1128, odd + 1, 5);
  write(1128, "x", 1);
  write(1, "\7\0z", 3);
  write(1128, nullptr, 0);
  write(1128, w.fresh->attr_lists[4]->next->value + 0, 4);
  std::string entries;
  for (const auto *e = w.fresh->attr_lists[4]; e != nullptr; e = e->next) {
    entries += std::to_string(e->attr_type) + "/" + std::to_string(e->subtype) + "/" +
               std::to_string(e->length) + " ";
  }
  EXPECT_EQ("1128/5/4 1128/1/0 ", entries);
  EXPECT_EQ(0, std::memcmp("\5\0ab", w.fresh->attr_lists[4]->value, 4));
  EXPECT_EQ(1u, w.fresh->has_identities);
  for (const uint32_t subtype : {5u, 1u}) {
    EXPECT_EQ(0u, shadowdb_remove_attr(w.fresh, 4, 1128, 0, &subtype));
  }
  EXPECT_EQ(1u, w.fresh->has_identities);
  log.take();
  EXPECT_EQ(KIVO_ERR_INVALID_ARG, shadowdb_get_session_attribute(w.fresh, w.none.handle(), 4));
  EXPECT_EQ(0u, shadowdb_get_session_attributes(w.fresh, w.none.handle()));
  EXPECT_EQ("922(4)", log.take());
}

TEST(Identities, TakeTheirValuesFromTheSmallestClassThatHoldsThem) {
  World w;
  std::string names, ids;
  for (const char *name : shadowdb_attr_chunk_config_name_info) names += std::string(name) + ";";
  for (const uint32_t id : shadowdb_attr_chunk_config_id_info) ids += std::to_string(id) + ";";
  EXPECT_EQ("Shadow 32;Shadow 64;Shadow 128;Shadow 256;Shadow malloc;", names);
  EXPECT_EQ("22;23;24;25;26;", ids);
}

// ---- Values that lie in the record, and callbacks

std::string g_seen;
std::function<void(kivo_db *)> g_react;
void see(kivo_db *db, uint32_t label, uint32_t n, const kivo_attr_value *value,
         const kivo_attr_value *old, uint32_t action, platform_queue *handles) {
  EXPECT_EQ(1u, n);
  EXPECT_EQ(&kivo_notify_old_value, old);
  EXPECT_NE(nullptr, queue_get_next(handles, nullptr));
  g_seen += std::to_string(label) + ":" + std::to_string(value->aaa_type) + "/" +
            std::to_string(action) + "=" + reinterpret_cast<const char *>(value->data) + " ";
  if (g_react) std::exchange(g_react, nullptr)(db);
}
void *g_handles[3][1];

kivo_db *seeing(std::initializer_list<kivo_attr_config> rows) {
  kivo_db *db = create_database(1, rows, see);
  uint32_t i = 0;
  for (const kivo_attr_config &row : rows) {
    kivo_register_attr_change_notification(db, row.aaa_type, 3, g_handles[i++]);
  }
  g_seen.clear();
  return db;
}

TEST(Values, ThatLieInTheRecordAreAnnouncedAsTheyWere) {
  World w;
  kivo_db *db = seeing({{kUser, 0, 8}, {kId, 6, 8}});
  const void *value = nullptr;
  uint32_t size = 0;
  const auto in_record = [&](uint32_t type) {
    EXPECT_EQ(0u, kivo_get_attr_from_record(nullptr, w.record, type, &value, &size));
  };
  in_record(kUser);
  EXPECT_EQ(0u, kivo_add_or_update_attr(db, 7, w.record, kId, value, size));
  w.put(kUser, "annabella of the long name, which moves what lies behind it");
  in_record(kId);
  EXPECT_EQ(0u, kivo_add_attr_to_record(db, w.record, kUser, value, size));
  in_record(kUser);
  EXPECT_EQ(0u, kivo_add_or_update_attr_to_record(db, w.record, kUser,
                                                  static_cast<const char *>(value) + 1, size - 1));
  in_record(kUser);
  EXPECT_EQ(0u, kivo_remove_attr_from_record_by_type_and_value(db, w.record, kUser, size, value));
  EXPECT_EQ("7:11/1=ann 7:1/1=ann 7:1/1=nn 7:1/2=nn ", g_seen);
}

// What an announcement walks stays until the outermost one ends; what follows is the new table's.
TEST(Callbacks, MayCreateTheDatabaseAnewAndWriteOn) {
  World w;
  kivo_db *db = seeing({{kUser, 0, 8}, {kId, 6, 8}});
  const uint64_t live = named_live_blocks();
  static uint64_t during;
  g_react = [](kivo_db *of) {
    create_database(1, {{kId, 0, 8}}, see);
    kivo_register_attr_change_notification(of, kId, 1, g_handles[2]);
    during = named_live_blocks();
    EXPECT_EQ(0u, kivo_add_or_update_attr(of, 101, nullptr, kId, "new", 3));
  };
  EXPECT_EQ(0u, kivo_add_or_update_attr_list(db, 7, nullptr, w.list.handle()));
  EXPECT_EQ("7:1/1=bob 101:11/1=new 7:11/1=s-2 ", g_seen);
  EXPECT_EQ(live + 3, during);
  EXPECT_EQ(live - 1, named_live_blocks());
  // The addresses of a removal are told as they were, whatever is written meanwhile.
  db = seeing({{kAddresses, 0, 3}});
  w.put(kAddresses, std::string("aaaaaaaaaaaaaaa\0bbbbbbbbbbbbbbb\0", 32));
  g_react = [&w](kivo_db *) { w.put(kAddresses, std::string(16, 'c')); };
  EXPECT_EQ(0u, kivo_remove_attr_from_record_by_type(db, w.record, kAddresses));
  EXPECT_EQ("7:10/2=aaaaaaaaaaaaaaa 7:10/2=bbbbbbbbbbbbbbb ", g_seen);
}

// The service may report the length of one address: their number counts.
TEST(Addresses, AreCountedByTheirNumber) {
  World w;
  for (const char c : {'a', 'b', 'c'}) w.put(kAddresses, std::string(16, c));
  reports_one_address = true;
  uint32_t flag = 0, count = 0;
  kivo_index_list *found = nullptr;
  w.start(w.db);
  w.add(kUser);
  kivo_add_attr_to_query(&w.query, kAddresses, std::string(16, 'c').data(), 16, &flag);
  EXPECT_EQ(0u, kivo_get_matches_for_query(&w.query, &found, &count));
  EXPECT_EQ(13u, count);
  kivo_index_list_free(found);
  const std::string last = "6363:6363:6363:6363:6363:6363:6363:6363";
  kivo_db *db = seeing({{kAddresses, 0, 3}});
  w.begin_anew();
  kivo_show_all_records(1);
  EXPECT_NE(std::string::npos, w.changes().find("\nipv6-addresses                : " + last));
  w.show(KIVO_SHOW_BY_AUDIT_SESSION, kAuditId);
  EXPECT_NE(std::string::npos, w.changes().find(", " + last));
  EXPECT_EQ(0u, kivo_remove_attr_from_record_by_type(db, w.record, kAddresses));
  EXPECT_EQ(3, std::count(g_seen.begin(), g_seen.end(), '='));
  reports_one_address = false;
}

}  // namespace
}  // namespace kivo_test
