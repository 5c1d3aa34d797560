// Records by the value of an attribute: one, several, none, in order, and while values change.
// Every test creates its own records and deletes them; an index, once made, stays.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <set>

#include "collected_labels.h"
#include "support/memory_faults.h"

namespace {

using Labels = std::vector<std::uint32_t>;

class ValueIndex : public ::testing::Test {
 protected:
  void SetUp() override { attrdb_init(); }
  void TearDown() override {
    for (const std::uint32_t label : created) attrdb_delete_record(label);
    EXPECT_EQ(0u, attrdb_get_total_sessions());
  }
  auth_ctxt *create(std::uint32_t label) {
    EXPECT_EQ(PLATFORM_OK, attrdb_create_and_insert_primary_record(nullptr, label));
    created.push_back(label);
    return record_of(label)->ctxt;
  }
  static std::uint32_t label_with(std::uint32_t type, const std::string &value) {
    std::uint32_t label = 7;
    EXPECT_EQ(PLATFORM_OK,
              attrdb_get_label_by_attr(type, value.data(), static_cast<std::uint32_t>(value.size()),
                                       &label));
    return label;
  }

  Labels created;
};

TEST_F(ValueIndex, FollowsAValueFromOneSessionToSeveralAndBack) {
  attrdb_declare_index(3);
  for (const std::uint32_t label : {30u, 10u, 20u}) write(create(label), 3, "dot1x");
  EXPECT_EQ((Labels{10, 20, 30}), labels_with(3, "dot1x"));
  EXPECT_EQ(10u, label_with(3, "dot1x"));
  write(record_of(10)->ctxt, 3, "mab");
  EXPECT_EQ((Labels{20, 30}), labels_with(3, "dot1x"));
  EXPECT_EQ(Labels{10}, labels_with(3, "mab"));
  attrdb_delete_record(20);
  EXPECT_EQ(Labels{30}, labels_with(3, "dot1x"));
  EXPECT_EQ(30u, label_with(3, "dot1x"));
  write(record_of(10)->ctxt, 3, "dot1x");
  EXPECT_EQ((Labels{10, 30}), labels_with(3, "dot1x"));
  auth_mgr_idc_remove_attr_by_type(record_of(10)->ctxt, 3);
  auth_mgr_idc_remove_attr_by_type_and_value(record_of(30)->ctxt, 3, "dot1x", 5);
  EXPECT_EQ(Labels{}, labels_with(3, "dot1x"));
  EXPECT_EQ(0u, label_with(3, "dot1x"));
}

TEST_F(ValueIndex, ComparesBytesAndSizesAndKeepsTypesApart) {
  const std::string values[] = {"",  std::string(1, '\0'),    std::string(2, '\0'),   "a", "ab",
                                "b", std::string(65535, 'a'), std::string(65534, 'a')};
  std::uint32_t label = 1;
  for (const std::string &value : values) {
    write(create(label), 100, value);
    write(record_of(label)->ctxt, 101, values[0]);
    ++label;
  }
  label = 1;
  for (const std::string &value : values) EXPECT_EQ(Labels{label++}, labels_with(100, value));
  EXPECT_EQ((Labels{1, 2, 3, 4, 5, 6, 7, 8}), labels_with(101, ""));
  EXPECT_EQ(Labels{}, labels_with(101, "a"));
}

// So many values of a size that some would meet in 32 bits, if they were told apart by no more.
TEST_F(ValueIndex, TellsValuesOfEachSizeApart) {
  constexpr std::uint32_t kSessions = 200000;
  const std::size_t sizes[] = {4, 6, 7, 16, 24, 32, 40};
  // The label's bytes lie anywhere between filling ones; the last is 0 and tells where.
  const auto value_of = [](std::uint32_t label, std::size_t size) {
    std::string value(size - sizeof label, '\xff');
    value.insert(label % (value.size() + 1), reinterpret_cast<const char *>(&label), sizeof label);
    return value;
  };
  for (const std::size_t size : sizes) attrdb_declare_index(100 + static_cast<std::uint32_t>(size));
  for (std::uint32_t label = 1; label <= kSessions; ++label) {
    auth_ctxt *ctxt = create(label);
    for (const std::size_t size : sizes) {
      write(ctxt, 100 + static_cast<std::uint32_t>(size), value_of(label, size));
    }
  }
  for (std::uint32_t label = 1; label <= kSessions; ++label) {
    for (const std::size_t size : sizes) {
      std::uint32_t count = 0;
      const std::string value = value_of(label, size);
      const auto type = 100 + static_cast<std::uint32_t>(size);
      ASSERT_EQ(label, label_with(type, value)) << size;
      ASSERT_EQ(PLATFORM_OK, attrdb_count_labels_by_attr(type, value.data(),
                                                         static_cast<std::uint32_t>(size), &count));
      ASSERT_EQ(1u, count) << size;
    }
  }
}

TEST_F(ValueIndex, GivesTheRecordOfTheLowestLabel) {
  write(create(9), 11, "id");
  write(create(4), 11, "id");
  attrdb_record *record = nullptr;
  EXPECT_EQ(PLATFORM_OK, attrdb_get_record_by_attr(11, "id", 2, &record));
  EXPECT_EQ(record_of(4), record);
  EXPECT_EQ(PLATFORM_OK, attrdb_get_record_by_attr(11, "other", 5, &record));
  EXPECT_EQ(nullptr, record);
}

TEST_F(ValueIndex, IsBuiltByTheFirstLookUp) {
  for (std::uint32_t label = 1; label <= 100; ++label) {
    write(create(label), 10, address(label % 10) + address(1000 + label));
  }
  attrdb_delete_record(13);
  EXPECT_EQ((Labels{3, 23, 33, 43, 53, 63, 73, 83, 93}), labels_with(10, address(3)));
  EXPECT_EQ(Labels{77}, labels_with(10, address(1077)));
  EXPECT_EQ(Labels{}, labels_with(10, address(1013)));
}

TEST_F(ValueIndex, EntersType10AddressByAddress) {
  attrdb_declare_index(10);
  auth_ctxt *first = create(1);
  auth_ctxt *second = create(2);
  write(first, 10, address(1) + address(2));
  write(second, 10, address(2) + address(3));
  write(first, 10, address(3) + address(4));
  EXPECT_EQ(Labels{1}, labels_with(10, address(1)));
  EXPECT_EQ((Labels{1, 2}), labels_with(10, address(2)));
  EXPECT_EQ((Labels{1, 2}), labels_with(10, address(3)));
  EXPECT_EQ(Labels{}, labels_with(10, address(1) + address(2)));
  auth_mgr_idc_remove_attr_by_type_and_value(first, 10, address(2).data(), 16);
  EXPECT_EQ(Labels{2}, labels_with(10, address(2)));
  EXPECT_EQ(Labels{1}, labels_with(10, address(4)));
  auth_mgr_idc_remove_attr_by_type(first, 10);
  for (const unsigned gone : {1u, 4u}) EXPECT_EQ(Labels{}, labels_with(10, address(gone)));
  EXPECT_EQ(Labels{2}, labels_with(10, address(3)));
}

TEST_F(ValueIndex, RefusesBadArguments) {
  kivo_index_list found;
  kivo_index_list *list = &found;
  kivo_index_list *none = nullptr;
  std::uint32_t out = 7;
  write(create(1), 1, "x");
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, attrdb_get_labels_by_attr(0, "x", 1, &list, &out));
  EXPECT_EQ(0u, out);
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, attrdb_get_label_by_attr(1491, "x", 1, &out));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_label_by_attr(1, nullptr, 1, &out));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_labels_by_attr(1, "x", 1, nullptr, &out));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_labels_by_attr(1, "x", 1, &list, nullptr));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_labels_by_attr(1, "x", 1, &none, &out));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_label_by_attr(1, "x", 1, nullptr));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_record_by_attr(1, "x", 1, nullptr));
  EXPECT_EQ(ATTRDB_ERR_INVALID_ARG, attrdb_get_next_if_id(1, nullptr));
  EXPECT_EQ(PLATFORM_OK, attrdb_get_label_by_attr(1, nullptr, 0, &out));
  EXPECT_EQ(0u, out);
}

TEST_F(ValueIndex, GivesInterfaceIdsInNumericOrder) {
  const std::uint32_t ids[] = {300, 2, 0xfffffffe, 2, 70000};
  std::uint32_t label = 1;
  for (const std::uint32_t id : ids) write(create(label++), AAA_ATTR_INTERFACE_ID, number(id));
  write(create(label), AAA_ATTR_INTERFACE_ID, "odd");  // not a number: in no order
  const auto all = [] {
    Labels found;
    std::uint32_t id = 0;
    while (attrdb_get_next_if_id(id, &id) == PLATFORM_OK && id != 0) found.push_back(id);
    return found;
  };
  EXPECT_EQ((Labels{2, 300, 70000, 0xfffffffe}), all());
  attrdb_delete_record(2);
  EXPECT_EQ((Labels{2, 300, 70000, 0xfffffffe}), all());
  write(record_of(4)->ctxt, AAA_ATTR_INTERFACE_ID, number(9));
  auth_mgr_idc_remove_attr_by_type(record_of(3)->ctxt, AAA_ATTR_INTERFACE_ID);
  EXPECT_EQ((Labels{9, 300, 70000}), all());
}

TEST_F(ValueIndex, HandsManyLabelsOverAscendingInBatches) {
  attrdb_declare_index(2);
  const auto random = random_numbers(3);
  std::set<std::uint32_t> expected;
  while (expected.size() < 20000) {
    const std::uint32_t label = random() | 1;
    if (expected.insert(label).second) write(create(label), 2, "domain");
  }
  EXPECT_EQ(Labels(expected.begin(), expected.end()), labels_with(2, "domain"));
  kivo_index_list small{{}, 5000, {}};
  kivo_index_list *list = &small;
  std::uint32_t count = 0;
  EXPECT_EQ(ATTRDB_ERR_NO_MEMORY, attrdb_get_labels_by_attr(2, "domain", 6, &list, &count));
  EXPECT_EQ(small.labels.size(), count);
  std::shuffle(created.begin(), created.end(), std::mt19937(3));
  for (std::size_t i = 0; i < 19000; ++i) {
    attrdb_delete_record(created[i]);
    expected.erase(created[i]);
  }
  EXPECT_EQ(Labels(expected.begin(), expected.end()), labels_with(2, "domain"));
}

// Sets of thousands, as they grow and as they go: in order, against it, and at random.
TEST_F(ValueIndex, KeepsALargeSetWhateverTheOrderOfItsChanges) {
  attrdb_declare_index(2);
  const auto random = random_numbers(5);
  Labels up;
  for (std::uint32_t i = 1; i <= 9000; ++i) up.push_back(i * 400000 + random() % 400000);
  up.back() = UINT32_MAX;
  Labels down(up.rbegin(), up.rend());
  Labels mixed = up;
  std::shuffle(mixed.begin(), mixed.end(), std::mt19937(5));
  const Labels *orders[] = {&up, &down, &mixed};
  for (const Labels *come : orders) {
    for (const Labels *go : orders) {
      std::set<std::uint32_t> expected;
      for (const std::uint32_t label : *come) {
        write(create(label), 2, "domain");
        expected.insert(label);
        if (expected.size() % 1999 == 5) {
          ASSERT_EQ(Labels(expected.begin(), expected.end()), labels_with(2, "domain"));
        }
      }
      created.clear();
      for (const std::uint32_t label : *go) {
        ASSERT_EQ(PLATFORM_OK, attrdb_delete_record(label));
        expected.erase(label);
        if (expected.size() % 1999 == 5 || expected.size() < 20) {
          ASSERT_EQ(Labels(expected.begin(), expected.end()), labels_with(2, "domain"));
        }
      }
    }
  }
}

// Labels all over the range and bunched, many of them and few, beside a set that is large or small.
TEST_F(ValueIndex, KeepsThoseOfAscendingLabelsThatHaveAValue) {
  attrdb_declare_index(2);
  attrdb_declare_index(3);
  const auto random = random_numbers(9);
  std::set<std::uint32_t> large;
  std::set<std::uint32_t> small;
  while (large.size() < 12000) {
    const std::uint32_t label = random() | 1;
    if (!large.insert(label).second) continue;
    write(create(label), 2, "domain");
    if (large.size() % 400 != 0) continue;
    write(record_of(label)->ctxt, 3, "method");
    small.insert(label);
  }
  const Labels all(large.begin(), large.end());
  for (const std::size_t step : {1u, 2u, 37u, 900u, 11999u}) {
    for (const std::size_t n : {1u, 15u, 16u, 17u, 150u, 12000u}) {
      Labels asked;  // every step-th of those there, each with a neighbour that is not
      for (std::size_t i = 0; i < all.size() && asked.size() < 2 * n; i += step) {
        asked.push_back(all[i] - 1);
        asked.push_back(all[i]);
      }
      const struct {
        std::uint32_t type;
        const char *value;
        const std::set<std::uint32_t> &held;
      } rows[] = {{2, "domain", large}, {3, "method", small}};
      for (const auto &row : rows) {
        Labels expected;
        std::ranges::set_intersection(asked, row.held, std::back_inserter(expected));
        Labels kept(asked.size());
        std::uint32_t n_kept = 0;
        ASSERT_EQ(PLATFORM_OK, attrdb_keep_labels_by_attr(row.type, row.value, 6, asked.data(),
                                                          static_cast<std::uint32_t>(asked.size()),
                                                          kept.data(), &n_kept));
        kept.resize(n_kept);
        EXPECT_EQ(expected, kept) << row.value << ' ' << step << ' ' << n;
      }
    }
  }
}

// Random writes over few labels and few values, with indexed types, one of them declared half-way,
// and memory that runs out now and then, against an ordered map.
TEST_F(ValueIndex, AgreesWithAModelUnderRandomOperations) {
  const std::uint32_t types[] = {1, 2, 42, 10, AAA_ATTR_INTERFACE_ID};
  for (const std::uint32_t type : {1u, 2u, 10u}) attrdb_declare_index(type);
  const auto random = random_numbers(11);
  std::map<std::uint32_t, std::map<std::uint32_t, std::set<std::string>>> model;
  const auto random_value = [&](std::uint32_t type) {
    if (type == 10) return address(random() % 6);
    if (type == AAA_ATTR_INTERFACE_ID) return number(1 + random() % 6);
    return std::string(random() % 6 == 0 ? 40 : 3, static_cast<char>('a' + random() % 6));
  };
  for (int step = 0; step < 30000; ++step) {
    const std::uint32_t label = 1 + random() % 40;
    const std::uint32_t type = types[random() % 5];
    const std::string value = random_value(type);
    const bool exists = model.contains(label);
    if (step == 15000) attrdb_declare_index(42);
    if (random() % 4 == 0) memory_faults::arm(1 + random() % 3, random() % 2 == 0);
    std::uint32_t status = PLATFORM_OK;
    const std::uint32_t action = random() % 16;
    if (!exists) {
      status = attrdb_create_and_insert_primary_record(nullptr, label);
    } else if (action == 0) {
      status = attrdb_delete_record(label);
    } else if (action == 1) {
      status = auth_mgr_idc_remove_attr_by_type(record_of(label)->ctxt, type);
    } else {
      status = write(record_of(label)->ctxt, type, value);
    }
    const bool failed = memory_faults::disarm();
    ASSERT_TRUE(status == PLATFORM_OK || (failed && (status & 0xffff) == 0x0400)) << status;
    if (status == PLATFORM_OK) {
      if (!exists) {
        model[label];
      } else if (action == 0) {
        model.erase(label);
      } else if (action == 1) {
        model[label].erase(type);
      } else {
        if (type != 10) model[label][type].clear();
        model[label][type].insert(value);
      }
    }
    const std::uint32_t checked = types[random() % (step < 15000 ? 2 : 5)];
    const std::string wanted = random_value(checked);
    Labels expected;
    for (const auto &[one, attributes] : model) {
      const auto found = attributes.find(checked);
      if (found != attributes.end() && found->second.contains(wanted)) expected.push_back(one);
    }
    ASSERT_EQ(expected, labels_with(checked, wanted)) << step;
  }
  for (const auto &[label, attributes] : model) created.push_back(label);
}

TEST_F(ValueIndex, IsWholeOrAbsentWhenMemoryRunsOutWhileItIsBuilt) {
  for (std::uint32_t label = 1; label <= 400; ++label) {
    write(create(label), 500, "group " + std::to_string(label % 100));
  }
  const std::int64_t before = memory_faults::live_blocks;
  for (std::uint64_t nth = 1;; ++nth) {
    ASSERT_LT(nth, 2000u);
    std::uint32_t label = 7;
    memory_faults::arm(nth, true);
    const std::uint32_t status = attrdb_get_label_by_attr(500, "group 5", 7, &label);
    if (!memory_faults::disarm()) {
      EXPECT_EQ(PLATFORM_OK, status);
      EXPECT_EQ(5u, label);
      break;
    }
    ASSERT_EQ(ATTRDB_ERR_NO_MEMORY, status) << nth;
    ASSERT_EQ(0u, label);
    // What stays is the reserve that every later operation shares.
    ASSERT_LE(memory_faults::live_blocks, before + 16) << nth;
  }
  for (std::uint32_t group = 0; group < 100; ++group) {
    EXPECT_EQ(4u, labels_with(500, "group " + std::to_string(group)).size());
  }
}

}  // namespace
