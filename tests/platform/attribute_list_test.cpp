// Attribute lists, their handles and their cursors: what a list keeps, what a stale handle does,
// what a cursor still sees when its list is extended or freed.
#include "platform/aaa.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/memory_faults.h"

namespace {

using Attributes = std::vector<std::pair<std::uint32_t, std::string>>;

std::uint32_t new_list() {
  std::uint32_t list = 0;
  EXPECT_EQ(PLATFORM_OK, aaa_list_alloc(&list));
  return list;
}

std::uint32_t add(std::uint32_t list, std::uint32_t type, const std::string &value) {
  return aaa_attr_add(list, type, value.data(), static_cast<std::uint32_t>(value.size()), 0, 0);
}

Attributes rest_of(aaa_cursor *cursor) {
  Attributes found;
  std::uint32_t type = 0;
  while (aaa_cursor_get_next(cursor, &type) == PLATFORM_OK && type != 0) {
    std::uint32_t size = 0;
    const void *value = nullptr;
    EXPECT_EQ(PLATFORM_OK, aaa_cursor_get_value(cursor, &size, &value));
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(value) % 8);
    found.emplace_back(type, std::string(static_cast<const char *>(value), size));
  }
  return found;
}

aaa_cursor *cursor_over(std::uint32_t list) {
  aaa_cursor *cursor = nullptr;
  EXPECT_EQ(PLATFORM_OK, aaa_cursor_alloc(&cursor, list));
  return cursor;
}

Attributes contents(std::uint32_t list) {
  aaa_cursor *cursor = cursor_over(list);
  Attributes found = rest_of(cursor);
  aaa_cursor_free(cursor);
  return found;
}

TEST(AttributeList, KeepsValuesInTheOrderOfAddingWithRepeatedTypes) {
  const std::uint32_t list = new_list();
  const Attributes given = {{42, "first"}, {1, ""}, {42, "second"}, {4000000, "any type"}};
  for (const auto &[type, value] : given) EXPECT_EQ(PLATFORM_OK, add(list, type, value));
  EXPECT_EQ(given, contents(list));
  EXPECT_EQ(PLATFORM_OK, aaa_list_free(list));
}

TEST(AttributeList, TakesValuesOfEverySizeAndNeverMovesThem) {
  const std::uint32_t list = new_list();
  Attributes given;
  for (std::size_t size = 0; size <= 65535; size += 1 + size / 3) {
    given.emplace_back(7, std::string(size, static_cast<char>('a' + size % 26)));
    ASSERT_EQ(PLATFORM_OK, add(list, 7, given.back().second));
  }
  aaa_cursor *cursor = cursor_over(list);
  std::uint32_t type = 0;
  std::uint32_t size = 0;
  const void *first = nullptr;
  aaa_cursor_get_next(cursor, &type);
  aaa_cursor_get_value(cursor, &size, &first);
  for (int i = 0; i < 5000; ++i) {
    given.emplace_back(8, std::to_string(i));
    ASSERT_EQ(PLATFORM_OK, add(list, 8, given.back().second));
  }
  EXPECT_EQ(given, contents(list));
  aaa_cursor *again = cursor_over(list);
  const void *first_now = nullptr;
  aaa_cursor_get_next(again, &type);
  aaa_cursor_get_value(again, &size, &first_now);
  EXPECT_EQ(first, first_now);
  aaa_cursor_free(again);
  aaa_cursor_free(cursor);
  aaa_list_free(list);
}

TEST(AttributeList, RefusesBadArgumentsAndStaysAsItWas) {
  const std::uint32_t list = new_list();
  EXPECT_EQ(AAA_ERR_INVALID_ARG, aaa_attr_add(list, 0, "x", 1, 0, 0));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, aaa_attr_add(list, 1, nullptr, 1, 0, 0));
  EXPECT_EQ(AAA_ERR_NO_ROOM, add(list, 1, std::string(65536, 'x')));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, aaa_list_alloc(nullptr));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, aaa_cursor_alloc(nullptr, list));
  EXPECT_EQ(PLATFORM_OK, aaa_attr_add(list, 1, nullptr, 0, 0, 0));
  EXPECT_EQ((Attributes{{1, ""}}), contents(list));
  aaa_list_free(list);
}

TEST(AttributeList, FindsOutStaleHandles) {
  const std::uint32_t before = aaa_live_lists();
  std::vector<std::uint32_t> stale = {0, 1, UINT32_MAX, UINT32_C(1) << 18};
  for (int i = 0; i < 5000; ++i) {
    stale.push_back(new_list());
    EXPECT_EQ(PLATFORM_OK, aaa_list_free(stale.back()));
  }
  const std::uint32_t alive = new_list();
  for (const std::uint32_t handle : stale) {
    ASSERT_NE(alive, handle);
    ASSERT_EQ(AAA_ERR_STALE_LIST, aaa_list_free(handle)) << handle;
    ASSERT_EQ(AAA_ERR_STALE_LIST, add(handle, 1, "x"));
    aaa_cursor *cursor = reinterpret_cast<aaa_cursor *>(&stale);
    ASSERT_EQ(AAA_ERR_STALE_LIST, aaa_cursor_alloc(&cursor, handle));
    ASSERT_EQ(nullptr, cursor);
  }
  EXPECT_EQ(before + 1, aaa_live_lists());
  aaa_list_free(alive);
}

TEST(Cursor, WalksWhatTheListHeldWhenItWasOpened) {
  const std::uint32_t list = new_list();
  add(list, 1, "one");
  add(list, 2, "two");
  aaa_cursor *cursor = cursor_over(list);
  for (int i = 0; i < 200; ++i) add(list, 3, "later");
  EXPECT_EQ((Attributes{{1, "one"}, {2, "two"}}), rest_of(cursor));
  aaa_cursor_free(cursor);
  aaa_list_free(list);
}

TEST(Cursor, KeepsTheValuesOfAListThatIsFreed) {
  const std::uint32_t list = new_list();
  Attributes given;
  for (int i = 0; i < 300; ++i) {
    given.emplace_back(5, std::string(40, static_cast<char>('a' + i % 26)));
    add(list, 5, given.back().second);
  }
  aaa_cursor *cursor = cursor_over(list);
  EXPECT_EQ(PLATFORM_OK, aaa_list_free(list));
  const std::uint32_t other = new_list();
  for (int i = 0; i < 300; ++i) add(other, 6, std::string(40, 'z'));
  EXPECT_EQ(given, rest_of(cursor));
  aaa_cursor_free(cursor);
  aaa_list_free(other);
}

TEST(Cursor, HasNoValueInFrontOfTheFirstAttributeAndBehindTheLast) {
  const std::uint32_t list = new_list();
  add(list, 1, "one");
  aaa_cursor *cursor = cursor_over(list);
  std::uint32_t type = 9;
  std::uint32_t size = 9;
  const void *value = &type;
  EXPECT_EQ(AAA_ERR_NOT_FOUND, aaa_cursor_get_value(cursor, &size, &value));
  EXPECT_EQ(nullptr, value);
  EXPECT_EQ(0u, size);
  aaa_cursor_get_next(cursor, &type);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(PLATFORM_OK, aaa_cursor_get_next(cursor, &type));
    EXPECT_EQ(0u, type);
    EXPECT_EQ(AAA_ERR_NOT_FOUND, aaa_cursor_get_value(cursor, &size, &value));
  }
  EXPECT_EQ(AAA_ERR_INVALID_ARG, aaa_cursor_get_next(cursor, nullptr));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, aaa_cursor_get_next(nullptr, &type));
  EXPECT_EQ(AAA_ERR_INVALID_ARG, aaa_cursor_get_value(cursor, nullptr, &value));
  EXPECT_EQ(1u, aaa_live_cursors());
  aaa_cursor_free(cursor);
  aaa_cursor_free(nullptr);
  EXPECT_EQ(0u, aaa_live_cursors());
  aaa_list_free(list);
}

TEST(AttributeList, LosesNothingWhicheverAllocationFails) {
  for (std::uint64_t nth = 1;; ++nth) {
    ASSERT_LT(nth, 100u);
    const std::uint32_t lists_before = aaa_live_lists();
    std::vector<std::uint32_t> statuses;
    std::uint32_t list = 0;
    aaa_cursor *cursor = nullptr;
    const std::string large(5000, 'x');
    std::vector<std::uint32_t> others(40);  // more than the freed storages that are kept
    statuses.reserve(100);
    memory_faults::arm(nth);
    for (std::uint32_t &other : others) statuses.push_back(aaa_list_alloc(&other));
    statuses.push_back(aaa_list_alloc(&list));
    const bool have_list = statuses.back() == PLATFORM_OK;
    bool added = false;
    if (have_list) {
      statuses.push_back(add(list, 1, large));
      added = statuses.back() == PLATFORM_OK;
      statuses.push_back(aaa_cursor_alloc(&cursor, list));
    }
    const bool failed = memory_faults::disarm();
    EXPECT_EQ(have_list, list != 0);
    int refused = 0;
    for (const std::uint32_t status : statuses) {
      if (status == PLATFORM_OK) continue;
      EXPECT_EQ(AAA_ERR_NO_MEMORY, status);
      ++refused;
    }
    EXPECT_EQ(failed ? 1 : 0, refused) << nth;
    if (have_list) {
      EXPECT_EQ(added ? Attributes({{1, large}}) : Attributes{}, contents(list));
    }
    aaa_cursor_free(cursor);
    for (const std::uint32_t other : others) aaa_list_free(other);
    aaa_list_free(list);
    EXPECT_EQ(lists_before, aaa_live_lists());
    EXPECT_EQ(0u, aaa_live_cursors());
    if (!failed) break;
  }
}

}  // namespace
