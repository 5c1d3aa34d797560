// Records, the attributes in them, the indexes over these, and attribute lists: what the random
// sequences over the library do not reach. For most operations memory runs out at each request.
#include <gtest/gtest.h>
#include <sys/random.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "platform/attrdb.h"
#include "support/memory_faults.h"

namespace {

using namespace std::string_literals;
using Number = std::uint32_t;
using Labels = std::vector<Number>;
using Entry = std::pair<Number, std::string>;
using Values = std::vector<Entry>;  // by type, in the order of adding
int shadows = 0;
bool no_random_numbers = false;

}  // namespace

// What the platform refers to of the library: label sets, here vectors, and shadow records.
struct kivo_index_list {
  Labels labels;
  std::size_t limit;  // additions beyond it fail for want of memory
};
struct shadowdb_rec {
  Number label;
};
extern "C" Number kivo_index_list_add_many(kivo_index_list **list, const Number *labels, Number n) {
  if (*list == nullptr) return 2;
  if ((*list)->labels.size() + n > (*list)->limit) return 1;
  (*list)->labels.insert((*list)->labels.end(), labels, labels + n);
  return 0;
}
extern "C" shadowdb_rec *shadowdb_alloc_record(Number label) {
  static shadowdb_rec only;
  only.label = label;
  return ++shadows == 1 ? &only : nullptr;
}
extern "C" Number shadowdb_destroy_record(shadowdb_rec *) { return static_cast<Number>(shadows--); }
extern "C" int getentropy(void *buffer, size_t size) {  // in place of the C library's
  if (no_random_numbers) return -1;
  return getrandom(buffer, size, 0) == static_cast<ssize_t>(size) ? 0 : -1;
}

namespace {

using Random = std::linear_congruential_engine<Number, 48271, 0, 2147483647>;

Number size_of(const std::string &value) { return static_cast<Number>(value.size()); }
Number put(auth_ctxt *ctxt, Number type, const std::string &value) {
  return auth_mgr_idc_add_or_update_attr(ctxt, type, value.data(), size_of(value), nullptr);
}
Number take(auth_ctxt *ctxt, Number type, const std::string &value) {
  return auth_mgr_idc_remove_attr_by_type_and_value(ctxt, type, value.data(), size_of(value));
}
Number create(Number label, auth_ctxt *ctxt = nullptr) {
  return attrdb_create_and_insert_primary_record(ctxt, label);
}
auth_ctxt *ctxt_of(Number label) {
  attrdb_record *record = nullptr;
  attrdb_get_record(label, &record);
  return record != nullptr && record->label == label ? record->ctxt : nullptr;
}
auth_ctxt *new_ctxt() {
  auth_ctxt *ctxt = nullptr;
  auth_mgr_idc_create_ctxt(&ctxt);
  return ctxt;
}
std::string bytes_of(Number number) {
  return {reinterpret_cast<const char *>(&number), sizeof number};
}
std::string address(Number number) { return "2001:db8:ab:" + bytes_of(number); }

// The labels of a value, when all look-ups agree about them.
Labels labels_with(Number type, const std::string &value) {
  kivo_index_list found{{}, SIZE_MAX};
  kivo_index_list *list = &found;
  Number counts[] = {7, 7, 7};
  attrdb_record *record = nullptr;
  const Number size = size_of(value);
  attrdb_get_labels_by_attr(type, value.data(), size, &list, &counts[0]);
  attrdb_count_labels_by_attr(type, value.data(), size, &counts[1]);
  attrdb_get_label_by_attr(type, value.data(), size, &counts[2]);
  attrdb_get_record_by_attr(type, value.data(), size, &record);
  const Labels &labels = found.labels;
  EXPECT_TRUE(labels.size() == counts[0] && labels.size() == counts[1]);
  EXPECT_EQ(labels.empty() ? 0 : labels[0], counts[2]);
  EXPECT_EQ(counts[2], record != nullptr ? record->label : 0);
  return labels;
}

Labels walk_order(std::size_t limit = SIZE_MAX) {
  kivo_index_list found{{}, limit};
  kivo_index_list *list = &found;
  attrdb_walk_all_records(attrdb_add_session_to_list, &list);
  return found.labels;
}
void delete_all() {
  for (const Number label : walk_order()) EXPECT_EQ(PLATFORM_OK, attrdb_delete_record(label));
  EXPECT_EQ(0u, attrdb_get_total_sessions() + auth_mgr_idc_live_ctxts() + aaa_live_lists());
  EXPECT_EQ(0, shadows);
}

Number new_list() {
  Number list = 0;
  EXPECT_EQ(PLATFORM_OK, aaa_list_alloc(&list));
  return list;
}
Number add(Number list, Number type, const std::string &value) {
  return aaa_attr_add(list, type, value.data(), size_of(value), 0, 0);
}
aaa_cursor *cursor_over(Number list) {
  aaa_cursor *cursor = nullptr;
  EXPECT_EQ(PLATFORM_OK, aaa_cursor_alloc(&cursor, list));
  return cursor;
}
Values rest_of(aaa_cursor *cursor) {
  Values found;
  Number type = 0;
  while (aaa_cursor_get_next(cursor, &type) == PLATFORM_OK && type != 0) {
    Number size = 0;
    const void *value = nullptr;
    EXPECT_EQ(PLATFORM_OK, aaa_cursor_get_value(cursor, &size, &value));
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(value) % 8);
    found.emplace_back(type, std::string(static_cast<const char *>(value), size));
  }
  aaa_cursor_free(cursor);
  return found;
}
// What a context holds, by way of a list, which lacks the types that it held before.
Values contents(const auth_ctxt *ctxt, Number held_before = 0) {
  const Number list = new_list();
  if (held_before != 0) add(list, held_before, "");
  EXPECT_EQ(PLATFORM_OK, auth_mgr_idc_merge_rec_to_list_without_replace(ctxt, list));
  const Values found = rest_of(cursor_over(list));
  aaa_list_free(list);
  return found;
}

// Does it with the first request for memory failing, then the second, and so on, every other time
// with all behind it, until it gets by. What fails for want of memory changes nothing.
template <typename Do, typename State>
Number insist(Do &&act, State &&state) {
  const auto before = state();
  for (std::uint64_t nth = 1;; ++nth) {
    memory_faults::arm(nth, nth % 2 == 0);
    const Number status = act();
    const bool failed = memory_faults::disarm();
    if (!failed || (status & 0xffff) != 0x0400) return status;
    EXPECT_EQ(before, state()) << nth;
  }
}

// ---- The store's start: before any test, since a process has one store

Labels look() {
  attrdb_record *record = nullptr;
  Number out[] = {7, 7};
  return {create(0),
          attrdb_get_record(1, &record),
          attrdb_delete_record(1),
          attrdb_declare_index(0),
          attrdb_get_label_by_attr(0, "", 0, &out[0]),
          attrdb_get_next_if_id(0, &out[1]),
          out[0] + out[1],
          attrdb_get_total_sessions() + attrdb_get_total_mac_tree_sessions()};
}
std::vector<Labels> started() {
  std::vector<Labels> seen = {look()};
  // 0: without random numbers; 99: with all it needs.
  for (const std::uint64_t nth : {1u, 2u, 0u, 99u}) {
    memory_faults::arm(nth);
    no_random_numbers = nth == 0;
    attrdb_init();
    memory_faults::disarm();
    seen.push_back(look());
  }
  return seen;
}
const std::vector<Labels> kStarted = started();

TEST(RecordStore, IsNotReadyBeforeItsStartNorAfterOneThatFailed) {
  constexpr Number kNot = ATTRDB_ERR_NOT_READY;
  constexpr Number kType = AAA_ERR_UNSUPPORTED_ATTR;
  std::vector<Labels> wanted(4, {kNot, kNot, kNot, kNot, kNot, kNot, 0, 0});
  wanted.push_back({ATTRDB_ERR_INVALID_ARG, 0, ATTRDB_ERR_NOT_FOUND, kType, kType, 0, 0, 0});
  EXPECT_EQ(wanted, kStarted);
  create(1);
  attrdb_init();
  EXPECT_EQ(Labels{1}, walk_order());
  delete_all();
}

// ---- Contexts

// Random writes against a plain model, some of pieces of what the context itself holds.
TEST(Contexts, HoldWhatIsWrittenWheneverMemoryRunsOut) {
  Random random(20240501);
  auth_ctxt *ctxt = new_ctxt();
  Values values;
  for (int step = 0; step < 12000; ++step) {
    const Number type = 1 + random() % 16;
    const auto same_type = [&](const auto &entry) { return entry.first == type; };
    const auto old = std::ranges::find_if(values, same_type);
    const Number size = random() % 60 == 0  ? random() % 65536
                        : random() % 9 == 0 ? random() % 700
                                            : random() % 40;
    std::string value = type == 10 ? address(random() % 9) : std::string(size, "abc"[step % 3]);
    const Number action = random() % 8;
    if (action == 0) {
      ASSERT_EQ(PLATFORM_OK, auth_mgr_idc_remove_attr_by_type(ctxt, type));
      std::erase_if(values, same_type);
    } else if (action == 1) {
      if (type != 10 && step % 2 == 0 && old != values.end()) value = old->second;
      const auto n = std::erase(values, Entry{type, value});
      ASSERT_EQ(n != 0 ? PLATFORM_OK : AAA_ERR_NOT_FOUND, take(ctxt, type, value));
    } else {
      const void *from = value.data();
      const auto *source = values.empty() ? nullptr : &values[random() % 16 % values.size()];
      if (action > 4 && type != 10 && source != nullptr && source->first != 10) {
        Number sizes[2];
        auth_mgr_idc_get_attr(ctxt, source->first, &from, &sizes[0], &sizes[1]);
        const Number skip = std::min(sizes[0], action % 2 * 2);
        from = static_cast<const char *>(from) + skip;
        value = source->second.substr(skip);
      }
      Number changed = 7;
      const auto write = [&] {
        return auth_mgr_idc_add_or_update_attr(ctxt, type, from, size_of(value), &changed);
      };
      ASSERT_EQ(PLATFORM_OK, insist(write, [&] { return contents(ctxt); }));
      const bool same = std::ranges::count(values, Entry{type, value}) != 0;
      ASSERT_EQ(same ? 7u : 1u, changed);
      if (type != 10 && old != values.end()) {
        old->second = value;
      } else if (!same) {
        auto end = old;  // of the addresses there are
        while (end != values.end() && end->first == type) ++end;
        values.emplace(end, type, value);
      }
    }
    ASSERT_EQ(values, contents(ctxt)) << step;
  }
  auth_mgr_idc_destroy_ctxt(ctxt);
}

// ---- Large sets

// Sets of thousands, as they come and go in order, against it and at random, with small ones beside
// them; and which of ascending labels, many or few, near or far, a set holds.
TEST(Indexes, KeepLargeSetsWhateverTheOrderOfTheirChanges) {
  Random random(5);
  Labels up;
  for (Number i = 1; i <= 9000; ++i) up.push_back(i * 400000 + random() % 400000);
  up.back() = UINT32_MAX;
  const Labels down(up.rbegin(), up.rend());
  Labels mixed = up;
  std::ranges::shuffle(mixed, random);
  const Labels *orders[] = {&up, &down, &mixed};
  const std::string everybody = "everybody";
  const std::string few = "every 400th";
  std::set<Number> held[2];
  std::set<Number> records;  // each with two addresses that one or two others have
  Number label = 0;
  for (const Number type : {2u, 3u, 10u}) attrdb_declare_index(type);
  const auto check = [&] {
    for (Number k = 1; k < 4500; k += 17) {
      const Labels wanted(records.lower_bound(k * 800000), records.lower_bound((k + 1) * 800000));
      ASSERT_EQ(wanted, labels_with(10, address(k)));
      ASSERT_EQ(wanted, labels_with(10, address(k + 10000)));
    }
    for (const Number type : {2u, 3u}) {
      const std::set<Number> &set = held[type - 2];
      const std::string &value = type == 2 ? everybody : few;
      ASSERT_EQ(Labels(set.begin(), set.end()), labels_with(type, value));
      for (const std::size_t step : {1u, 7u, 37u, 71u, 900u}) {
        Labels asked;  // of those that may be there every step-th, and now and then its neighbour
        for (std::size_t at = step / 2; at < up.size(); at += step) {
          if (at % 5 == 0) asked.push_back(up[at] - 1);
          asked.push_back(up[at]);
        }
        Labels wanted;
        std::ranges::set_intersection(asked, set, std::back_inserter(wanted));
        Labels kept(asked.size());
        Number n = 7;
        const auto size = static_cast<Number>(asked.size());
        ASSERT_EQ(PLATFORM_OK, attrdb_keep_labels_by_attr(type, value.data(), size_of(value),
                                                          asked.data(), size, kept.data(), &n));
        kept.resize(n);
        ASSERT_EQ(wanted, kept) << step;
      }
    }
  };
  const auto state = [&] {
    Number count = 7;
    attrdb_count_labels_by_attr(2, everybody.data(), 9, &count);
    return std::tuple(count, attrdb_get_total_sessions(), attrdb_get_total_domain_tree_sessions(),
                      labels_with(10, address(label / 800000)));
  };
  for (int round = 0; round < 9; ++round) {
    const auto fill = [&](auth_ctxt *ctxt) {
      put(ctxt, 10, address(label / 800000) + address(label / 800000 + 10000));
      if (records.size() % 400 == 0 && held[1].insert(label).second) put(ctxt, 3, few);
      return put(ctxt, 2, everybody);
    };
    for (const Number coming : *orders[round / 3]) {
      label = coming;
      auth_ctxt *ctxt = label % 2 == 0 ? new_ctxt() : nullptr;
      if (ctxt != nullptr) fill(ctxt);
      ASSERT_EQ(PLATFORM_OK, insist([&] { return create(label, ctxt); }, state));
      if (ctxt == nullptr) fill(ctxt_of(label));
      records.insert(label);
      held[0].insert(label);
      if (records.size() % 1999 == 5) check();
    }
    const Labels &go = *orders[round % 3];
    for (int i = 0; i < 10000; ++i) {
      label = go[random() % (i % 2 == 0 ? 30 : 9000)];
      const auto come = [&] { return put(ctxt_of(label), 2, everybody); };
      const bool there = held[0].erase(label) != 0;
      ASSERT_EQ(PLATFORM_OK, there ? take(ctxt_of(label), 2, everybody) : insist(come, state));
      if (!there) held[0].insert(label);
    }
    for (const Number going : go) {
      if (records.size() % 1999 == 5 || records.size() < 18) check();
      ASSERT_EQ(PLATFORM_OK, attrdb_delete_record(going));
      for (auto *set : {&held[0], &held[1], &records}) set->erase(going);
    }
  }
  delete_all();
}

// So many values of a size that some would meet in 32 bits, if they were told apart by no more. The
// label's bytes lie anywhere between filling ones.
TEST(Indexes, TellValuesOfEachSizeApart) {
  const auto value = [](Number label, Number size) {
    std::string bytes(size - sizeof label, '\xff');
    return bytes.insert(label % (bytes.size() + 1), bytes_of(label * 70000));
  };
  for (const bool look : {false, true}) {
    for (Number label = 1; label <= 180001; label += 3) {
      if (!look) create(label);
      for (const Number size : {4u, 6u, 7u, 8u, 9u, 16u, 17u, 24u, 25u, 32u, 40u}) {
        if (label == 1) attrdb_declare_index(100 + size);
        if (!look) put(ctxt_of(label), 100 + size, value(label, size));
        Number found = look ? 7 : label;
        if (look) attrdb_get_label_by_attr(100 + size, value(label, size).data(), size, &found);
        ASSERT_EQ(label, found) << size;
      }
    }
  }
  const std::string values[] = {"", "\0"s, "\0\0"s, "a", "ab"};
  for (const std::string &one : values) {
    put(ctxt_of(1), 300, one);
    for (const std::string &other : values) {
      EXPECT_EQ(one == other ? Labels{1} : Labels{}, labels_with(300, other));
    }
  }
  delete_all();
}

// A first look-up builds the index, whole or not at all.
TEST(Indexes, AreBuiltFromTheRecordsThereAre) {
  for (Number label = 1; label <= 800; ++label) {
    create(label);
    put(ctxt_of(label), 10, address(label % 200) + address(1000 + label));
  }
  const std::int64_t before = memory_faults::live_blocks;
  // What stays of a try is the reserve that every later operation shares.
  const auto state = [&] { return memory_faults::live_blocks > before + 16; };
  EXPECT_EQ(PLATFORM_OK, insist([] { return attrdb_declare_index(10); }, state));
  for (Number i = 1; i < 200; ++i) {
    EXPECT_EQ((Labels{i, i + 200, i + 400, i + 600}), labels_with(10, address(i)));
    EXPECT_EQ(Labels{i}, labels_with(10, address(1000 + i)));
  }
  delete_all();
}

// Between one holder and two, three hundred thousand times.
TEST(Indexes, TakeNoMemoryForAValueThatGoesBackAndForth) {
  create(1);
  create(2);
  attrdb_declare_index(2);
  put(ctxt_of(1), 2, "x");
  std::int64_t before = 0;
  for (int i = 0; i < 300000; ++i) {
    if (i == 10) before = memory_faults::live_blocks;
    put(ctxt_of(2), 2, i % 2 == 0 ? "x" : "y");
  }
  EXPECT_EQ(before, memory_faults::live_blocks);
  EXPECT_EQ(Labels{1}, labels_with(2, "x"));
  Number next[] = {7, 7};  // interface ids are numbers of four bytes
  put(ctxt_of(1), AAA_ATTR_INTERFACE_ID, bytes_of(UINT32_MAX));
  put(ctxt_of(2), AAA_ATTR_INTERFACE_ID, "a text");
  attrdb_get_next_if_id(UINT32_MAX - 1, &next[0]);
  attrdb_get_next_if_id(UINT32_MAX, &next[1]);
  EXPECT_EQ((std::pair{UINT32_MAX, 0u}), (std::pair{next[0], next[1]}));
  attrdb_get_next_if_id(0, &next[0]);
  EXPECT_EQ(UINT32_MAX, next[0]);
  delete_all();
}

// ---- Records

TEST(RecordStore, WalksInSlotOrderAndSurvivesDeletionAndCreation) {
  for (const Number label : {1u, 2u, 3u, 4u, 5u}) create(label);
  for (const Number label : {2u, 5u}) attrdb_delete_record(label);
  EXPECT_EQ((Labels{1, 3, 4}), walk_order());
  for (const Number label : {70u, 80u, 90u}) create(label);
  EXPECT_EQ((Labels{1, 80, 3, 4, 70, 90}), walk_order());  // the slot freed last comes first
  delete_all();
  for (Number label = 1; label <= 5000; ++label) create(label);
  const Labels all = walk_order();
  EXPECT_EQ(5000u, all.size());
  EXPECT_EQ(Labels(all.begin(), all.begin() + 1024), walk_order(1500));
  Labels visited;
  const auto visit = [](attrdb_record *record, void *arg) -> Number {
    Labels &seen = *static_cast<Labels *>(arg);
    const Number label = record->label;
    seen.push_back(label);
    if (label <= 5000) attrdb_delete_record(label);
    if (label < 5000) attrdb_delete_record(label + 1);      // in front of the walk
    for (Number i = 0; i < 3 && seen.size() < 9000; ++i) {  // it must end all the same
      create(10000 + static_cast<Number>(seen.size()) * 3 + i);
    }
    return 0;
  };
  attrdb_walk_all_records(visit, &visited);
  EXPECT_GE(5000u, visited.size());
  std::erase_if(visited, [](Number label) { return label > 5000; });
  Labels odd;
  for (Number label = 1; label <= 5000; label += 2) odd.push_back(label);
  EXPECT_EQ(odd, visited);
  delete_all();
}

TEST(Contexts, GiveLargeMemoryBackAndHoldAtMost4095Addresses) {
  auth_ctxt *ctxt = new_ctxt();
  put(ctxt, 1, "alice");
  const std::int64_t before = memory_faults::live_blocks;
  for (const Number type : {1u, 2u}) {
    put(ctxt, type, std::string(60000, 'x'));
    EXPECT_EQ(before + 1, memory_faults::live_blocks);
    type == 1 ? put(ctxt, 1, "alice") : auth_mgr_idc_remove_attr_by_type(ctxt, 2);
    EXPECT_EQ(before, memory_faults::live_blocks);
  }
  std::string all;
  for (Number i = 0; i < 4094; ++i) all += address(i);
  EXPECT_EQ(PLATFORM_OK, put(ctxt, 10, all + address(17)));
  EXPECT_EQ(AAA_ERR_NO_ROOM, put(ctxt, 10, address(5000) + address(5001)));
  EXPECT_EQ(PLATFORM_OK, put(ctxt, 10, address(5000)));
  EXPECT_EQ(AAA_ERR_NO_ROOM, put(ctxt, 10, address(5001)));
  const void *first = nullptr;
  Number sizes[2];
  auth_mgr_idc_get_attr(ctxt, 10, &first, &sizes[0], &sizes[1]);
  EXPECT_EQ((std::pair{65520u, 4095u}), (std::pair{sizes[0], sizes[1]}));
  auth_mgr_idc_remove_attr_by_type_and_value(ctxt, 10, first, 16);  // the stored bytes themselves
  EXPECT_EQ((Entry{10, address(1)}), contents(ctxt)[1]);
  EXPECT_EQ((Values{{10, ""}, {1, "alice"}}), contents(ctxt, 10));  // the list has type 10 already
  auth_mgr_idc_destroy_ctxt(ctxt);
}

// ---- Attribute lists

// The slot that is freed first is not the first slot; then so many wait that they come back.
TEST(AttributeLists, HaveHandlesThatNobodyElseHas) {
  const Number before = aaa_live_lists();
  std::set<Number> alive;
  Labels stale = {0, 1, UINT32_MAX, (1 << 18) + 200000};
  const auto make = [&] { ASSERT_TRUE(alive.insert(new_list()).second); };
  const auto free_one = [&](std::set<Number>::iterator at) {
    EXPECT_EQ(PLATFORM_OK, aaa_list_free(*at));
    stale.push_back(*at);
    alive.erase(at);
  };
  for (int i = 0; i < 3; ++i) make();
  free_one(std::next(alive.begin()));
  for (int i = 0; i < 5000; ++i) {
    make();
    if (i % 3 != 0) free_one(std::prev(alive.end()));
  }
  EXPECT_EQ(before + alive.size(), aaa_live_lists());
  for (const Number handle : alive) ASSERT_EQ(PLATFORM_OK, add(handle, 1, bytes_of(handle)));
  for (const Number handle : stale) {
    ASSERT_FALSE(alive.contains(handle));
    ASSERT_EQ(AAA_ERR_STALE_LIST, add(handle, 1, "x"));
    ASSERT_EQ(AAA_ERR_STALE_LIST, aaa_list_free(handle));
  }
  for (const Number handle : alive) {
    ASSERT_EQ((Values{{1, bytes_of(handle)}}), rest_of(cursor_over(handle)));
    ASSERT_EQ(PLATFORM_OK, aaa_list_free(handle));
  }
}

// And a cursor holds what its list held when it was opened, also when the list is gone.
TEST(AttributeLists, LoseNothingWhenMemoryRunsOut) {
  std::int64_t before = 0;
  const std::string large(2000, 'x');
  const auto state = [] { return std::pair(aaa_live_lists(), aaa_live_cursors()); };
  for (int round = 0; round < 2; ++round) {
    before = memory_faults::live_blocks;
    Labels made(1100);  // more than the freed storages that are kept, and than a piece of slots
    std::vector<aaa_cursor *> cursors;
    for (Number &list : made) {
      aaa_cursor *cursor = nullptr;
      EXPECT_EQ(PLATFORM_OK, insist([&] { return aaa_list_alloc(&list); }, state));
      EXPECT_EQ(PLATFORM_OK, insist([&] { return add(list, 1, large); }, state));
      EXPECT_EQ(PLATFORM_OK, insist([&] { return aaa_cursor_alloc(&cursor, list); }, state));
      EXPECT_EQ(PLATFORM_OK, add(list, 4000000, ""));  // not seen by the cursor
      cursors.push_back(cursor);
    }
    EXPECT_EQ((Values{{1, large}, {4000000, ""}}), rest_of(cursor_over(made[9])));
    for (const Number list : made) EXPECT_EQ(PLATFORM_OK, aaa_list_free(list));
    for (aaa_cursor *cursor : cursors) EXPECT_EQ((Values{{1, large}}), rest_of(cursor));
  }
  EXPECT_EQ(before, memory_faults::live_blocks);
}

// ---- Statuses

TEST(Statuses, TellWhatIsWrongAndNothingChanges) {
  create(5);
  auth_ctxt *const ctxt = ctxt_of(5);
  auth_ctxt *const other = new_ctxt();
  put(ctxt, 1, "kept");
  const Number list = new_list();
  add(list, 1, "kept");
  aaa_cursor *const cursor = cursor_over(list);
  kivo_index_list found{{}, 0};
  kivo_index_list *sets[] = {&found, nullptr};
  aaa_cursor *made = cursor;
  const void *value = ctxt;
  Number n = 7;
  Number m = 7;
  const auto labels = attrdb_get_labels_by_attr;
  const auto label = attrdb_get_label_by_attr;
  const auto keep = attrdb_keep_labels_by_attr;
  const auto read = auth_mgr_idc_get_attr;
  const auto write = auth_mgr_idc_add_or_update_attr;
  const auto remove = auth_mgr_idc_remove_attr_by_type_and_value;
  const auto merge = auth_mgr_idc_merge_rec_to_list_without_replace;
  const std::string large(65536, 'x');
  const std::pair<Number, Labels> rows[] = {
      {ATTRDB_ERR_LABEL_IN_USE, {create(5), create(5, other)}},
      {ATTRDB_ERR_ADOPTED, {create(6, ctxt)}},
      {ATTRDB_ERR_NOT_FOUND, {attrdb_delete_record(6)}},
      {ATTRDB_ERR_NO_MEMORY, {labels(1, "kept", 4, &sets[0], &n)}},
      {PLATFORM_OK, {n, attrdb_declare_index(1490), label(1, nullptr, 0, &n), n}},
      {ATTRDB_ERR_INVALID_ARG,
       {create(0), attrdb_get_record(5, nullptr), label(1, nullptr, 1, &n),
        label(1, "x", 1, nullptr), labels(1, "x", 1, nullptr, &n),
        labels(1, "x", 1, &sets[0], nullptr), labels(1, "kept", 4, &sets[1], &n),
        attrdb_get_record_by_attr(1, "x", 1, nullptr), keep(1, "x", 1, &m, 1, &n, nullptr),
        keep(1, "x", 1, nullptr, 1, &n, &m), keep(1, "x", 1, &m, 1, nullptr, &m),
        attrdb_count_labels_by_attr(1, "x", 1, nullptr), attrdb_get_next_if_id(1, nullptr),
        attrdb_add_session_to_list(nullptr, sets), attrdb_add_session_to_list(nullptr, nullptr)}},
      {AAA_ERR_UNSUPPORTED_ATTR,
       {attrdb_declare_index(0), attrdb_declare_index(1491), labels(0, "x", 1, &sets[0], &n),
        label(1491, "x", 1, &n), write(ctxt, 0, "x", 1, &m), write(ctxt, 1491, "x", 1, &m),
        read(ctxt, 1491, &value, &n, &m), auth_mgr_idc_remove_attr_by_type(ctxt, 0),
        remove(ctxt, 1491, "x", 1)}},
      {PLATFORM_OK,
       {write(other, 1, large.data(), 65535, &n), n - 1, read(ctxt, 1490, &value, &n, &m),
        value != nullptr, n, m, write(ctxt, 10, nullptr, 0, &m)}},
      {AAA_ERR_INVALID_ARG,
       {auth_mgr_idc_create_ctxt(nullptr), write(nullptr, 1, "x", 1, &m),
        write(ctxt, 1, nullptr, 1, &m), write(ctxt, 10, "12345678", 8, &m),
        read(ctxt, 1, &value, &n, nullptr), read(nullptr, 1, &value, &n, &m),
        auth_mgr_idc_remove_attr_by_type(nullptr, 1), remove(ctxt, 1, nullptr, 0),
        remove(nullptr, 1, "x", 1), merge(nullptr, list), aaa_list_alloc(nullptr),
        aaa_attr_add(list, 0, "x", 1, 0, 0), aaa_attr_add(list, 1, nullptr, 1, 0, 0),
        aaa_cursor_alloc(nullptr, list), aaa_cursor_get_next(nullptr, &m),
        aaa_cursor_get_next(cursor, nullptr), aaa_cursor_get_value(nullptr, &n, &value),
        aaa_cursor_get_value(cursor, nullptr, &value), aaa_cursor_get_value(cursor, &n, nullptr)}},
      {AAA_ERR_NO_ROOM, {write(ctxt, 1, large.data(), 65536, &m), add(list, 1, large)}},
      {AAA_ERR_STALE_LIST, {merge(ctxt, 0), aaa_cursor_alloc(&made, 0)}},
      {AAA_ERR_NOT_FOUND, {aaa_cursor_get_value(cursor, &n, &value)}},  // in front of the first
      {PLATFORM_OK,
       {aaa_attr_add(list, 2, nullptr, 0, 0, 0), aaa_cursor_get_next(cursor, &m), m - 1,
        aaa_cursor_get_next(cursor, &m), m, aaa_cursor_get_next(cursor, &m)}},
      {AAA_ERR_NOT_FOUND, {aaa_cursor_get_value(cursor, &n, &value)}},  // behind the last
      {PLATFORM_OK, {value != nullptr, made != nullptr, n, m}}};
  for (const auto &[status, all] : rows) EXPECT_EQ(Labels(all.size(), status), all);
  EXPECT_EQ((Values{{1, "kept"}}), contents(ctxt));
  EXPECT_EQ((Values{{1, "kept"}, {2, ""}}), rest_of(cursor_over(list)));
  auth_mgr_idc_destroy_ctxt(ctxt);  // the record's: left alone
  EXPECT_EQ(ctxt, ctxt_of(5));
  shadowdb_rec *const shadow = auth_mgr_idc_get_shadow_record_in_ctxt(ctxt);
  EXPECT_EQ(5u, shadow->label);
  EXPECT_EQ(shadow, auth_mgr_idc_get_shadow_record_in_ctxt(ctxt));
  EXPECT_EQ(nullptr, auth_mgr_idc_get_shadow_record_in_ctxt(nullptr));
  aaa_cursor_free(cursor);
  aaa_cursor_free(nullptr);
  aaa_list_free(list);
  auth_mgr_idc_destroy_ctxt(other);
  auth_mgr_idc_destroy_ctxt(nullptr);
  delete_all();
}

}  // namespace
