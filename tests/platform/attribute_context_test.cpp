// Attributes of one session: writing, reading, removing, merging into a list. The contexts here
// belong to no record; what a write does to the indexes is in value_index_test.cpp.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "collected_labels.h"
#include "support/memory_faults.h"

namespace {

class Context : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(PLATFORM_OK, auth_mgr_idc_create_ctxt(&ctxt)); }
  void TearDown() override {
    auth_mgr_idc_destroy_ctxt(ctxt);
    EXPECT_EQ(0u, auth_mgr_idc_live_ctxts());
  }
  const void *stored(std::uint32_t type) const {
    const void *value = nullptr;
    std::uint32_t size = 0;
    std::uint32_t count = 0;
    auth_mgr_idc_get_attr(ctxt, type, &value, &size, &count);
    return value;
  }

  auth_ctxt *ctxt = nullptr;
};

TEST_F(Context, TellsAChangeOnlyWhenBytesChange) {
  const struct {
    const char *what;
    std::string value;
    std::uint32_t changed;
  } steps[] = {
      {"new", "alice", 1}, {"same", "alice", 0},   {"same size", "alicf", 1}, {"shorter", "al", 1},
      {"empty", "", 1},    {"empty again", "", 0}, {"longer", "alice@x", 1},
  };
  for (const auto &step : steps) {
    std::uint32_t changed = 0;
    EXPECT_EQ(PLATFORM_OK, write(ctxt, AAA_ATTR_USER_NAME, step.value, &changed)) << step.what;
    EXPECT_EQ(step.changed, changed) << step.what;
    EXPECT_EQ(step.value, read(ctxt, AAA_ATTR_USER_NAME)) << step.what;
  }
}

TEST_F(Context, ReadsAnAbsentTypeAsNothing) {
  const void *value = this;
  std::uint32_t size = 7;
  std::uint32_t count = 7;
  EXPECT_EQ(PLATFORM_OK, auth_mgr_idc_get_attr(ctxt, 1490, &value, &size, &count));
  EXPECT_EQ(nullptr, value);
  EXPECT_EQ(0u, size);
  EXPECT_EQ(0u, count);
  write(ctxt, 1490, "");
  EXPECT_EQ(PLATFORM_OK, auth_mgr_idc_get_attr(ctxt, 1490, &value, &size, &count));
  EXPECT_NE(nullptr, value);
  EXPECT_EQ(1u, count);
}

TEST_F(Context, RefusesBadArgumentsAndStaysAsItWas) {
  const struct {
    const char *what;
    bool null_ctxt;
    std::uint32_t type;
    const void *value;
    std::uint32_t size;
    std::uint32_t status;
  } rows[] = {
      {"null context", true, 1, "x", 1, AAA_ERR_INVALID_ARG},
      {"null value", false, 1, nullptr, 1, AAA_ERR_INVALID_ARG},
      {"type 0", false, 0, "x", 1, AAA_ERR_UNSUPPORTED_ATTR},
      {"type above", false, 1491, "x", 1, AAA_ERR_UNSUPPORTED_ATTR},
      {"too long", false, 1, "x", 65536, AAA_ERR_NO_ROOM},
      {"half an address", false, 10, "12345678", 8, AAA_ERR_INVALID_ARG},
  };
  write(ctxt, 1, "kept");
  for (const auto &row : rows) {
    std::uint32_t changed = 7;
    EXPECT_EQ(row.status, auth_mgr_idc_add_or_update_attr(row.null_ctxt ? nullptr : ctxt, row.type,
                                                          row.value, row.size, &changed))
        << row.what;
    EXPECT_EQ(7u, changed) << row.what;
  }
  EXPECT_EQ("kept", read(ctxt, 1));
  EXPECT_EQ("(absent)", read(ctxt, 10));

  const void *value = this;
  std::uint32_t size = 7;
  EXPECT_EQ(AAA_ERR_INVALID_ARG, auth_mgr_idc_get_attr(ctxt, 1, &value, &size, nullptr));
  EXPECT_EQ(nullptr, value);
  EXPECT_EQ(AAA_ERR_UNSUPPORTED_ATTR, auth_mgr_idc_remove_attr_by_type(ctxt, 0));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, auth_mgr_idc_remove_attr_by_type(nullptr, 1));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, auth_mgr_idc_remove_attr_by_type_and_value(ctxt, 1, nullptr, 0));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, auth_mgr_idc_create_ctxt(nullptr));
}

TEST_F(Context, AppendsAddressesThatItLacks) {
  std::uint32_t changed = 0;
  EXPECT_EQ(PLATFORM_OK, write(ctxt, 10, "", &changed));
  EXPECT_EQ("(absent)", read(ctxt, 10));
  EXPECT_EQ(PLATFORM_OK, write(ctxt, 10, address(1) + address(2) + address(1), &changed));
  EXPECT_EQ(1u, changed);
  EXPECT_EQ(address(1) + address(2), read(ctxt, 10));
  changed = 0;
  EXPECT_EQ(PLATFORM_OK, write(ctxt, 10, address(2) + address(1), &changed));
  EXPECT_EQ(0u, changed);
  EXPECT_EQ(PLATFORM_OK, write(ctxt, 10, address(2) + address(3), &changed));
  EXPECT_EQ(1u, changed);
  const void *value = nullptr;
  std::uint32_t size = 0;
  std::uint32_t count = 0;
  auth_mgr_idc_get_attr(ctxt, 10, &value, &size, &count);
  EXPECT_EQ(48u, size);
  EXPECT_EQ(3u, count);
}

TEST_F(Context, HoldsAtMost4095Addresses) {
  for (unsigned i = 0; i < 4094; ++i) ASSERT_EQ(PLATFORM_OK, write(ctxt, 10, address(i)));
  EXPECT_EQ(AAA_ERR_NO_ROOM, write(ctxt, 10, address(5000) + address(5001)));
  EXPECT_EQ(65504u, read(ctxt, 10).size());
  EXPECT_EQ(PLATFORM_OK, write(ctxt, 10, address(5000)));
  EXPECT_EQ(AAA_ERR_NO_ROOM, write(ctxt, 10, address(5001)));
  EXPECT_EQ(PLATFORM_OK, write(ctxt, 10, address(17)));
}

TEST_F(Context, RemovesByValueOnlyWhatIsThere) {
  const auto remove = [&](std::uint32_t type, const std::string &value) {
    return auth_mgr_idc_remove_attr_by_type_and_value(ctxt, type, value.data(),
                                                      static_cast<std::uint32_t>(value.size()));
  };
  write(ctxt, 1, "alice");
  write(ctxt, 10, address(1) + address(2) + address(3));
  write(ctxt, 2, "behind");
  EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(1, "alic"));
  EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(3, "alice"));
  EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(10, address(4)));
  EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(10, address(1) + address(2)));
  EXPECT_EQ(PLATFORM_OK, remove(10, address(2)));
  EXPECT_EQ(address(1) + address(3), read(ctxt, 10));
  EXPECT_EQ(PLATFORM_OK, remove(10, address(1)));
  EXPECT_EQ(PLATFORM_OK, remove(10, address(3)));
  EXPECT_EQ("(absent)", read(ctxt, 10));
  EXPECT_EQ(AAA_ERR_NOT_FOUND, remove(10, address(3)));
  EXPECT_EQ(PLATFORM_OK, remove(1, "alice"));
  EXPECT_EQ("(absent)", read(ctxt, 1));
  EXPECT_EQ(PLATFORM_OK, auth_mgr_idc_remove_attr_by_type(ctxt, 1));
  EXPECT_EQ("behind", read(ctxt, 2));
}

// The value lies in the context that is written: in front of the target, behind it, inside it, and
// with the memory full, so that it grows, or roomy, so that its values shift.
TEST_F(Context, TakesAValueThatLiesInTheSameContext) {
  for (const std::size_t filler : {0u, 1u, 17u, 40u, 300u, 5000u}) {
    for (const std::uint32_t source : {1u, 3u, 5u}) {
      for (const std::uint32_t target : {1u, 3u, 5u, 7u}) {
        for (const std::uint32_t skip : {0u, 2u}) {
          const std::string values[] = {"first value", "the middle, which is the longest of them",
                                        "last value of three"};
          for (std::uint32_t i = 0; i < 3; ++i) write(ctxt, 1 + 2 * i, values[i]);
          write(ctxt, 9, std::string(filler, 'f'));
          auth_mgr_idc_remove_attr_by_type(ctxt, 7);
          const std::string expected = values[source / 2].substr(skip);
          const char *inside = static_cast<const char *>(stored(source)) + skip;
          ASSERT_EQ(PLATFORM_OK, auth_mgr_idc_add_or_update_attr(
                                     ctxt, target, inside,
                                     static_cast<std::uint32_t>(expected.size()), nullptr));
          EXPECT_EQ(expected, read(ctxt, target)) << source << " to " << target << ' ' << filler;
          for (std::uint32_t i = 0; i < 3; ++i) {
            const std::uint32_t other = 1 + 2 * i;
            EXPECT_EQ(other == target ? expected : values[i], read(ctxt, other));
          }
        }
      }
    }
  }
  write(ctxt, 10, address(1) + address(2));
  const char *second = static_cast<const char *>(stored(10)) + 16;
  EXPECT_EQ(PLATFORM_OK, auth_mgr_idc_remove_attr_by_type_and_value(ctxt, 10, second, 16));
  EXPECT_EQ(address(1), read(ctxt, 10));
}

TEST_F(Context, AgreesWithAMapUnderRandomWrites) {
  const auto random = random_numbers(20240501);
  std::map<std::uint32_t, std::string> model;
  for (int step = 0; step < 20000; ++step) {
    const std::uint32_t type = 1 + random() % 40;
    if (type == 10) continue;
    if (random() % 4 == 0) {
      auth_mgr_idc_remove_attr_by_type(ctxt, type);
      model.erase(type);
    } else {
      const std::size_t size = random() % 50 == 0 ? random() % 65536 : random() % 40;
      const std::string value(size, static_cast<char>('a' + random() % 26));
      std::uint32_t changed = 0;
      ASSERT_EQ(PLATFORM_OK, write(ctxt, type, value, &changed));
      const auto found = model.find(type);
      ASSERT_EQ(found == model.end() || found->second != value, changed == 1);
      model[type] = value;
    }
    if (step % 16 != 0) continue;
    for (std::uint32_t t = 1; t <= 40; ++t) {
      const auto found = model.find(t);
      ASSERT_EQ(found != model.end() ? found->second : "(absent)", read(ctxt, t)) << step;
    }
  }
}

TEST_F(Context, MergesIntoAListWhatTheListLacked) {
  std::uint32_t list = 0;
  aaa_list_alloc(&list);
  aaa_attr_add(list, 2, "kept", 4, 0, 0);
  write(ctxt, 3, "dot1x");
  write(ctxt, 2, "not copied");
  write(ctxt, 10, address(1) + address(2));
  write(ctxt, 1, "");
  EXPECT_EQ(PLATFORM_OK, auth_mgr_idc_merge_rec_to_list_without_replace(ctxt, list));
  const std::pair<std::uint32_t, std::string> expected[] = {
      {2, "kept"}, {3, "dot1x"}, {10, address(1)}, {10, address(2)}, {1, ""}};
  aaa_cursor *cursor = nullptr;
  ASSERT_EQ(PLATFORM_OK, aaa_cursor_alloc(&cursor, list));
  std::uint32_t type = 0;
  for (const auto &[want_type, want_value] : expected) {
    std::uint32_t size = 0;
    const void *value = nullptr;
    aaa_cursor_get_next(cursor, &type);
    EXPECT_EQ(want_type, type);
    aaa_cursor_get_value(cursor, &size, &value);
    EXPECT_EQ(want_value, std::string(static_cast<const char *>(value), size));
  }
  aaa_cursor_get_next(cursor, &type);
  EXPECT_EQ(0u, type);
  aaa_cursor_free(cursor);
  aaa_list_free(list);
  EXPECT_EQ(AAA_ERR_STALE_LIST, auth_mgr_idc_merge_rec_to_list_without_replace(ctxt, list));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, auth_mgr_idc_merge_rec_to_list_without_replace(nullptr, list));
  EXPECT_EQ("not copied", read(ctxt, 2));
}

TEST_F(Context, StaysAsItWasWhenMemoryRunsOut) {
  write(ctxt, 1, "alice");
  write(ctxt, 10, address(1));
  const std::string large(6000, 'x');
  std::string many;
  for (unsigned i = 0; i < 400; ++i) many += address(i);
  for (std::uint64_t nth = 1;; ++nth) {
    ASSERT_LT(nth, 20u);
    std::uint32_t changed = 0;
    memory_faults::arm(nth);
    const std::uint32_t first = write(ctxt, 1, large, &changed);
    const std::uint32_t second = write(ctxt, 10, many);
    const bool failed = memory_faults::disarm();
    EXPECT_EQ(first == PLATFORM_OK ? large : "alice", read(ctxt, 1));
    EXPECT_EQ(first == PLATFORM_OK ? 1u : 0u, changed);
    EXPECT_EQ(second == PLATFORM_OK ? address(1).size() * 400 : 16, read(ctxt, 10).size());
    EXPECT_EQ(failed, first == AAA_ERR_NO_MEMORY || second == AAA_ERR_NO_MEMORY);
    if (!failed) break;
    auth_mgr_idc_remove_attr_by_type(ctxt, 10);
    write(ctxt, 1, "alice");
    write(ctxt, 10, address(1));
  }
}

TEST_F(Context, GivesBackTheMemoryOfAnOversizedValue) {
  write(ctxt, 1, "alice");
  const std::int64_t before = memory_faults::live_blocks;
  const struct {
    const char *what;
    std::uint32_t type;
    bool replaced;
  } rows[] = {{"replaced", 2, true}, {"removed", 3, false}};
  for (const auto &row : rows) {
    write(ctxt, row.type, std::string(60000, 'x'));
    EXPECT_EQ(before + 1, memory_faults::live_blocks) << row.what;
    if (row.replaced) {
      write(ctxt, row.type, "small");
    } else {
      auth_mgr_idc_remove_attr_by_type(ctxt, row.type);
    }
    EXPECT_EQ(before, memory_faults::live_blocks) << row.what;
    EXPECT_EQ("alice", read(ctxt, 1));
  }
}

TEST_F(Context, MakesOneShadowRecordAndDestroysItWithItself) {
  EXPECT_EQ(nullptr, auth_mgr_idc_get_shadow_record_in_ctxt(nullptr));
  shadowdb_rec *shadow = auth_mgr_idc_get_shadow_record_in_ctxt(ctxt);
  ASSERT_NE(nullptr, shadow);
  EXPECT_EQ(shadow, auth_mgr_idc_get_shadow_record_in_ctxt(ctxt));
  EXPECT_EQ(1, shadows_alive);
  auth_mgr_idc_destroy_ctxt(ctxt);
  EXPECT_EQ(0, shadows_alive);
  auth_mgr_idc_destroy_ctxt(nullptr);
  ASSERT_EQ(PLATFORM_OK, auth_mgr_idc_create_ctxt(&ctxt));
}

}  // namespace
