// The shadow record store: classification, writes, removals, and what its pool and traces show.
#include "kivo/shadow_db.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/named_alloc.h"
#include "support/process.h"
#include "support/trace_log.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Values = std::vector<Bytes>;

constexpr uint32_t kType = 1126;  // "external-device", slot 2
constexpr uint32_t kSlot = 2;

// A value: the subtype in host order, then text.
Bytes identity(uint16_t subtype, const std::string &rest = "") {
  Bytes value(2 + rest.size());
  std::memcpy(value.data(), &subtype, 2);
  std::copy(rest.begin(), rest.end(), value.begin() + 2);
  return value;
}

class ShadowDb : public testing::Test {
 protected:
  void SetUp() override {
    kivo_test::start_process();
    blocks_at_start_ = named_live_blocks();
    values_at_start_ = variable_chunk_live_blocks(shadow_attr_chunk);
    record_ = shadowdb_alloc_record(42);
    ASSERT_NE(nullptr, record_);
  }
  void TearDown() override {
    EXPECT_EQ(1u, shadowdb_destroy_record(record_));
    EXPECT_EQ(blocks_at_start_, named_live_blocks());
    EXPECT_EQ(values_at_start_, variable_chunk_live_blocks(shadow_attr_chunk));
  }

  void write(const Bytes &value, uint32_t type = kType, uint32_t slot = kSlot) {
    uint32_t changed = 0;
    ASSERT_EQ(0u, shadowdb_add_or_update_attr(record_, slot, type, value.data(),
                                              static_cast<uint32_t>(value.size()), &changed));
    EXPECT_EQ(1u, changed);
  }
  uint32_t remove(const Bytes &value, uint32_t type = kType, uint32_t slot = kSlot) {
    return shadowdb_remove_attr(record_, slot, type, static_cast<uint32_t>(value.size()),
                                value.data());
  }
  Values stored(uint32_t slot = kSlot) const {
    Values values;
    for (const auto *entry = record_->attr_lists[slot]; entry != nullptr; entry = entry->next) {
      values.emplace_back(entry->value, entry->value + entry->length);
    }
    return values;
  }
  // The host module's traces since the last call, level and text.
  void expect_traces(const std::vector<std::pair<uint32_t, std::string>> &expected) {
    std::vector<std::pair<uint32_t, std::string>> lines;
    for (const kivo_test::TraceLine &line : log_.take()) {
      if (line.module == TRACE_MODULE_HOST_APP) lines.emplace_back(line.level, line.text);
    }
    EXPECT_EQ(expected, lines);
  }

  kivo_test::TraceLog log_;
  shadowdb_rec *record_ = nullptr;
  uint64_t blocks_at_start_ = 0;
  uint64_t values_at_start_ = 0;
};

TEST_F(ShadowDb, SevenTypesAreExternalIdentities) {
  const std::map<uint32_t, uint32_t> slots = {{1124, 0}, {1125, 1}, {1126, 2}, {1127, 3},
                                              {1128, 4}, {1129, 5}, {1248, 6}};
  for (uint32_t type = 0; type < 1600; ++type) {
    uint32_t slot = 99;
    const auto found = slots.find(type);
    ASSERT_EQ(found != slots.end() ? 1u : 0u, kivo_check_is_shadow_attrib(type, &slot)) << type;
    ASSERT_EQ(found != slots.end() ? found->second : 99u, slot) << type;
  }
  uint32_t slot = 0;
  log_.take();
  kivo_check_is_shadow_attrib(1248, &slot);
  kivo_check_is_shadow_attrib(1130, &slot);
  expect_traces({{8, "external-location is an external identity"},
                 {8, "attribute-1130 is not an external identity"}});
}

TEST_F(ShadowDb, NewRecordIsEmpty) {
  expect_traces({{7, "42: Allocating new SHDB record entry"}});
  EXPECT_EQ(42u, record_->label);
  EXPECT_EQ(0u, record_->has_identities);
  for (const shadowdb_attr_entry *head : record_->attr_lists) EXPECT_EQ(nullptr, head);
}

TEST_F(ShadowDb, EachSubtypeIsHeldOnceTheNewestFirst) {
  write(identity(5, "old"));
  write(identity(5, "newer"));
  EXPECT_EQ(Values{identity(5, "newer")}, stored());
  write(identity(7, "x"));
  EXPECT_EQ((Values{identity(7, "x"), identity(5, "newer")}), stored());
  write(identity(5, "newest"));
  EXPECT_EQ((Values{identity(5, "newest"), identity(7, "x")}), stored());
  EXPECT_EQ(1u, record_->has_identities);
  EXPECT_EQ(5u, record_->attr_lists[kSlot]->subtype);
  EXPECT_EQ(kType, record_->attr_lists[kSlot]->attr_type);
}

TEST_F(ShadowDb, WritesAreTraced) {
  log_.take();
  write(identity(5, "a"));
  write(identity(7));
  write(identity(5, "b"));
  expect_traces({{7, "Add/Update external-device attr of size: 3 for label 0x2a"},
                 {8, "Decoded subtype for external-device attribute is 5"},
                 {7, "Adding external-device subtype 5 in shadow db"},
                 {7, "Add/Update external-device attr of size: 2 for label 0x2a"},
                 {8, "Decoded subtype for external-device attribute is 7"},
                 {7, "Updating external-device subtype 7 in shadow db"},
                 {7, "Add/Update external-device attr of size: 3 for label 0x2a"},
                 {8, "Decoded subtype for external-device attribute is 5"},
                 {7, "Updating external-device subtype 5 in shadow db"},
                 {8, "external-device subtype 5 already present. updating value."}});
}

TEST_F(ShadowDb, ValueWithoutAWordHasSubtypeOne) {
  write(identity(1, "from a word"));
  write({0x77});
  EXPECT_EQ(Values{Bytes{0x77}}, stored());
  log_.take();
  write({});  // its address is null
  EXPECT_EQ(Values{Bytes{}}, stored());
  EXPECT_EQ(1u, record_->attr_lists[kSlot]->subtype);
  expect_traces({{7, "Add/Update external-device attr of size: 0 for label 0x2a"},
                 {3, "Failed to decode the external-device attribute."},
                 {8, "Decoded subtype for external-device attribute is 1"},
                 {7, "Updating external-device subtype 1 in shadow db"},
                 {8, "external-device subtype 1 already present. updating value."}});
}

TEST_F(ShadowDb, OtherTypesAreFiledWhereTheCallerSaysWithSubtypeOne) {
  write(identity(5, "word"), 99, 4);
  EXPECT_EQ(Values{identity(5, "word")}, stored(4));
  EXPECT_EQ(1u, record_->attr_lists[4]->subtype);
  EXPECT_EQ(99u, record_->attr_lists[4]->attr_type);
}

TEST_F(ShadowDb, WordMayLieAtAnOddAddress) {
  Bytes shifted = identity(0x1234, "x");
  shifted.insert(shifted.begin(), 0);
  uint32_t changed = 0;
  ASSERT_EQ(0u,
            shadowdb_add_or_update_attr(record_, kSlot, kType, shifted.data() + 1, 3, &changed));
  EXPECT_EQ(0x1234u, record_->attr_lists[kSlot]->subtype);
  EXPECT_EQ(0u, shadowdb_remove_attr(record_, kSlot, kType, 3, shifted.data() + 1));
  EXPECT_TRUE(stored().empty());
}

TEST_F(ShadowDb, ValueMayLieInTheEntryThatItReplaces) {
  write(identity(5, std::string(300, 'v')));
  const shadowdb_attr_entry *entry = record_->attr_lists[kSlot];
  uint32_t changed = 0;
  ASSERT_EQ(0u, shadowdb_add_or_update_attr(record_, kSlot, kType, entry->value, 100, &changed));
  EXPECT_EQ(Values{identity(5, std::string(98, 'v'))}, stored());
}

TEST_F(ShadowDb, BadWritesChangeNothing) {
  write(identity(5, "kept"));
  const Bytes value(65536, 5);
  const struct {
    const char *name;
    bool has_record;
    uint32_t slot;
    const uint8_t *value;
    uint32_t length;
    uint32_t status;
  } rows[] = {
      {"NullRecord", false, kSlot, value.data(), 4, 22},
      {"NullRecordBeforeAnythingElse", false, 7, nullptr, 65536, 22},
      {"NullValueWithLength", true, kSlot, nullptr, 1, 0xa0030600},
      {"SlotSeven", true, 7, value.data(), 4, 0xa0030600},
      {"GreatestSlot", true, 0xffffffff, value.data(), 4, 0xa0030600},
      {"LengthBeyondSixteenBits", true, kSlot, value.data(), 65536, 0xa0030600},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    log_.take();
    uint32_t changed = 77;
    EXPECT_EQ(row.status, shadowdb_add_or_update_attr(row.has_record ? record_ : nullptr, row.slot,
                                                      kType, row.value, row.length, &changed));
    EXPECT_EQ(77u, changed);
    expect_traces({{3, "Failed to store the external-device attribute "}});
    EXPECT_EQ(Values{identity(5, "kept")}, stored());
  }
}

// The blocks that a size class has out; none before it enrols at its first block.
uint64_t live_in_class(const std::string &name, uint32_t tag) {
  struct Search {
    std::string name;
    uint32_t tag;
    uint64_t live = 0;
    int found = 0;
  } search{name, tag};
  named_walk_sites(
      [](const named_site *site, void *arg) {
        auto &wanted = *static_cast<Search *>(arg);
        if (wanted.name != site->name || wanted.tag != site->tag) return;
        wanted.live = site->live_blocks;
        ++wanted.found;
      },
      &search);
  EXPECT_LE(search.found, 1) << name;
  return search.live;
}

TEST_F(ShadowDb, ValuesComeFromTheSmallestClassThatHoldsThem) {
  const struct {
    uint32_t length;
    const char *name;
    uint32_t tag;
  } rows[] = {
      {0, "Shadow 32", 0x3b00016},       {32, "Shadow 32", 0x3b00016},
      {33, "Shadow 64", 0x3b00017},      {64, "Shadow 64", 0x3b00017},
      {65, "Shadow 128", 0x3b00018},     {128, "Shadow 128", 0x3b00018},
      {129, "Shadow 256", 0x3b00019},    {256, "Shadow 256", 0x3b00019},
      {257, "Shadow malloc", 0x3b0001a}, {65535, "Shadow malloc", 0x3b0001a},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.length);
    const uint64_t before = live_in_class(row.name, row.tag);
    Bytes value(row.length);
    for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<uint8_t>(i * 7);
    write(value);
    EXPECT_EQ(Values{value}, stored());
    EXPECT_EQ(before + 1, live_in_class(row.name, row.tag));
    EXPECT_EQ(0u, remove(value));
    EXPECT_EQ(before, live_in_class(row.name, row.tag));
  }
}

TEST_F(ShadowDb, ClassesAreListedInOrderAndMadeOnce) {
  const char *const names[] = {"Shadow 32", "Shadow 64", "Shadow 128", "Shadow 256",
                               "Shadow malloc"};
  for (uint32_t i = 0; i < 5; ++i) {
    EXPECT_STREQ(names[i], shadowdb_attr_chunk_config_name_info[i]);
    EXPECT_EQ(22 + i, shadowdb_attr_chunk_config_id_info[i]);
  }
  const variable_chunk_pool *pool = shadow_attr_chunk;
  kivo_shadowdb_init();
  EXPECT_EQ(pool, shadow_attr_chunk);
}

TEST_F(ShadowDb, RemovalGoesBySubtypeAlone) {
  write(identity(5, "stored"));
  write(identity(6, "stored"));
  write(identity(7, "stored"));
  EXPECT_EQ(0u, remove(identity(6, "another text")));
  EXPECT_EQ((Values{identity(7, "stored"), identity(5, "stored")}), stored());
  log_.take();
  EXPECT_EQ(0u, remove(identity(9)));
  expect_traces({{8, "Decoded subtype for external-device attribute is 9"},
                 {3, "Unable to remove attr. external-device subtype 9 is not present."}});
  EXPECT_EQ(0u, remove(identity(7)));
  expect_traces({{8, "Decoded subtype for external-device attribute is 7"},
                 {7, "external-device Subtype 7 is present. Removing attr"}});
  EXPECT_EQ(0u, remove(identity(5)));
  EXPECT_TRUE(stored().empty());
  EXPECT_EQ(1u, record_->has_identities);
  EXPECT_EQ(0u, remove(identity(5)));
}

TEST_F(ShadowDb, RemovalReadsTheWordWhateverTheLengthSays) {
  const Bytes five = identity(5);
  const struct {
    const char *name;
    const uint8_t *value;
    uint32_t length;
    uint32_t left;  // subtype that stays
  } rows[] = {
      {"WholeWord", five.data(), 2, 1},
      {"LengthNotGiven", five.data(), 0, 1},
      {"OneByte", five.data(), 1, 1},
      {"NoValue", nullptr, 2, 5},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    write(identity(1));
    write(identity(5));
    EXPECT_EQ(0u, shadowdb_remove_attr(record_, kSlot, kType, row.length, row.value));
    ASSERT_EQ(1u, stored().size());
    EXPECT_EQ(row.left, record_->attr_lists[kSlot]->subtype);
  }
}

TEST_F(ShadowDb, BadRemovalsChangeNothing) {
  write(identity(5));
  log_.take();
  EXPECT_EQ(0xa0030600u, shadowdb_remove_attr(nullptr, 7, kType, 2, identity(5).data()));
  expect_traces({{3, "Invalid shadow record."}});
  EXPECT_EQ(0xa0030600u, remove(identity(5), kType, 7));
  EXPECT_EQ(0xa0030600u, remove(identity(5), kType, 0xffffffff));
  EXPECT_EQ(Values{identity(5)}, stored());
}

TEST_F(ShadowDb, DestructionIsTracedAndTakesNull) {
  write(identity(5), 1124, 0);
  write(identity(5), 1248, 6);
  write(identity(6), 1248, 6);
  log_.take();
  EXPECT_EQ(1u, shadowdb_destroy_record(record_));
  expect_traces({{8, "42: Free'd the shadow record"}});
  EXPECT_EQ(blocks_at_start_, named_live_blocks());
  EXPECT_EQ(values_at_start_, variable_chunk_live_blocks(shadow_attr_chunk));
  EXPECT_EQ(1u, shadowdb_destroy_record(nullptr));
  expect_traces({{3, "Invalid entry to cleanup"}, {3, "Invalid argument for cleanup."}});
  record_ = shadowdb_alloc_record(43);
}

TEST_F(ShadowDb, TracesDoNotAskTheDebugFlags) {
  kivo_debug_level_all = kivo_debug_level_error = kivo_debug_level_event = 0;
  trace_set_level(TRACE_MODULE_HOST_APP, 7);
  log_.take();
  write(identity(5));
  expect_traces({{7, "Add/Update external-device attr of size: 2 for label 0x2a"},
                 {7, "Adding external-device subtype 5 in shadow db"}});
}

TEST_F(ShadowDb, RandomWritesAndRemovalsAgreeWithAPlainModel) {
  constexpr std::array<uint32_t, 7> kTypes = {1124, 1125, 1126, 1127, 1128, 1129, 1248};
  std::array<std::list<Bytes>, 7> model;
  std::mt19937 random(7);
  for (int step = 0; step < 5000; ++step) {
    const auto slot = static_cast<uint32_t>(random() % 7);
    const Bytes value =
        identity(static_cast<uint16_t>(random() % 6), std::string(random() % 300, 'm'));
    model[slot].remove_if(
        [&value](const Bytes &held) { return held[0] == value[0] && held[1] == value[1]; });
    if (random() % 3 != 0) {
      write(value, kTypes[slot], slot);
      model[slot].push_front(value);
    } else {
      ASSERT_EQ(0u, remove(value, kTypes[slot], slot));
    }
    ASSERT_EQ(Values(model[slot].begin(), model[slot].end()), stored(slot)) << step;
  }
}

}  // namespace
