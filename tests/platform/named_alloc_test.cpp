// Named allocator: blocks, counts by call site, broken use.
#include "platform/named_alloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "support/failing_new.h"

namespace {

bool is_enrolled(const named_site *site) {
  std::vector<const named_site *> sites;
  named_walk_sites(
      [](const named_site *at, void *arg) {
        static_cast<std::vector<const named_site *> *>(arg)->push_back(at);
      },
      &sites);
  return std::count(sites.begin(), sites.end(), site) == 1;
}

TEST(NamedAlloc, CountsBlocksAndBytesUnderTheirCallSite) {
  static named_site site = NAMED_SITE("counted", 0x3b00007);
  const uint64_t blocks_before = named_live_blocks();
  const uint64_t bytes_before = named_live_bytes();
  void *small = named_alloc(&site, 10);
  void *large = named_zalloc(&site, 1000);
  ASSERT_TRUE(small != nullptr && large != nullptr);
  EXPECT_EQ(2U, site.live_blocks);
  EXPECT_EQ(1010U, site.live_bytes);
  EXPECT_EQ(blocks_before + 2, named_live_blocks());
  EXPECT_EQ(bytes_before + 1010, named_live_bytes());
  EXPECT_TRUE(is_enrolled(&site));
  named_free(small);
  EXPECT_EQ(1U, site.live_blocks);
  EXPECT_EQ(1000U, site.live_bytes);
  named_free(large);
  EXPECT_EQ(2U, site.total_blocks);
  EXPECT_EQ(bytes_before, named_live_bytes());
}

TEST(NamedAlloc, BlocksAreAlignedAndZallocFillsWithZero) {
  static named_site site = NAMED_SITE("aligned", 1);
  for (const size_t size : {0U, 1U, 15U, 16U, 17U, 4096U}) {
    // A released block with other contents is the likely next one.
    void *dirty = named_alloc(&site, size);
    ASSERT_NE(nullptr, dirty);
    std::memset(dirty, 0xff, size);
    named_free(dirty);
    auto *block = static_cast<unsigned char *>(named_zalloc(&site, size));
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(0U, reinterpret_cast<uintptr_t>(block) % 16);
    EXPECT_EQ(static_cast<long>(size), std::count(block, block + size, 0));
    named_free(block);
  }
}

TEST(NamedAlloc, EachMacroCallIsACallSiteOfItsOwn) {
  for (int i = 0; i < 3; ++i) named_free(NAMED_ALLOC(5, "macro", 8));
  named_free(NAMED_ZALLOC(6, "macro", 8));
  std::vector<std::pair<uint32_t, uint64_t>> tags_and_totals;
  named_walk_sites(
      [](const named_site *site, void *arg) {
        if (std::strcmp(site->name, "macro") != 0) return;
        static_cast<decltype(tags_and_totals) *>(arg)->push_back({site->tag, site->total_blocks});
      },
      &tags_and_totals);
  EXPECT_EQ((decltype(tags_and_totals){{5, 3}, {6, 1}}), tags_and_totals);
}

TEST(NamedAlloc, FailureIsNullAndCountsNothing) {
  static named_site site = NAMED_SITE("failing", 1);
  const uint64_t blocks_before = named_live_blocks();
  failing_new::fail_nth(1);
  EXPECT_EQ(nullptr, named_alloc(&site, 8));
  failing_new::fail_nth(1);
  EXPECT_EQ(nullptr, named_zalloc(&site, 8));
  EXPECT_FALSE(failing_new::pending());
  EXPECT_EQ(nullptr, named_alloc(&site, SIZE_MAX));
  EXPECT_EQ(nullptr, named_zalloc(&site, SIZE_MAX - 15));
  EXPECT_EQ(0U, site.total_blocks);
  EXPECT_EQ(blocks_before, named_live_blocks());
  EXPECT_FALSE(is_enrolled(&site));
}

TEST(NamedAlloc, NullIsFreedAndANullSiteIsServed) {
  named_free(nullptr);
  void *block = named_alloc(nullptr, 8);
  EXPECT_NE(nullptr, block);
  named_free(block);
}

TEST(NamedAllocDeathTest, StopsOnADamagedHeader) {
  static named_site site = NAMED_SITE("damaged", 1);
  auto *block = static_cast<char *>(named_alloc(&site, 8));
  EXPECT_DEATH(
      {
        std::memset(block - 8, 0, 8);
        named_free(block);
      },
      "fatal: .*live.*does not hold at .*named_alloc.cpp");
  named_free(block);
}

TEST(NamedAllocDeathTest, StopsWhenABlockIsGivenBackTwice) {
  // A sanitizer may be the one who stops it.
  EXPECT_DEATH(
      {
        void *block = NAMED_ALLOC(1, "twice", 8);
        named_free(block);
        named_free(block);
      },
      "fatal: .*live.*does not hold|AddressSanitizer");
}

}  // namespace
