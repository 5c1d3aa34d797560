// Chunk pools, fixed and variable: placement, reuse, limits, broken use, memory running out.
#include "platform/chunk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/named_alloc.h"
#include "support/failing_new.h"

namespace {

constexpr uint32_t kMayGrow = 1;
constexpr uint32_t kLineAligned = 16;

uintptr_t address_of(const void *block) { return reinterpret_cast<uintptr_t>(block); }

std::vector<void *> take(chunk_pool *pool, size_t n) {
  std::vector<void *> blocks(n);
  for (void *&block : blocks) block = chunk_malloc(pool);
  return blocks;
}

TEST(Chunk, RefusesBadSizesAndCounts) {
  for (const auto &[size, per_slab] :
       std::vector<std::pair<uint32_t, uint32_t>>{{0, 255}, {65'537, 255}, {64, 0}, {64, 65'536}}) {
    EXPECT_EQ(nullptr, chunk_create("bad", size, per_slab, kMayGrow, 0, 0));
  }
  EXPECT_EQ(nullptr, chunk_malloc(nullptr));
  EXPECT_EQ(0U, chunk_live_blocks(nullptr));
}

// The label blocks' geometry: 255 elements of 64 bytes and a header of 64 are 16 KiB.
TEST(Chunk, CacheLinesFillSlabsOf16KiBInAscendingOrder) {
  chunk_pool *pool = chunk_create("lines", 64, 255, kMayGrow | kLineAligned, 0, 0);
  const std::vector<void *> blocks = take(pool, 1000);
  for (size_t i = 0; i < blocks.size(); ++i) {
    ASSERT_EQ((i % 255 + 1) * 64, address_of(blocks[i]) % 16'384) << "block " << i;
    ASSERT_EQ(address_of(blocks[i - i % 255]) + i % 255 * 64, address_of(blocks[i]));
  }
  EXPECT_EQ(1000U, chunk_live_blocks(pool));
}

TEST(Chunk, BlocksOfAnySizeAreAlignedAndApart) {
  struct Case {
    uint32_t size, per_slab, flags, stride, align;
  };
  for (const Case &c : std::vector<Case>{{1, 1, kMayGrow, 16, 16},
                                         {32, 16'384, kMayGrow, 32, 16},
                                         {40, 100, kMayGrow | kLineAligned, 64, 64},
                                         {48, 300, kMayGrow, 48, 16},
                                         {192, 7, kMayGrow, 192, 64},
                                         {65'536, 3, kMayGrow, 65'536, 64}}) {
    chunk_pool *pool = chunk_create(nullptr, c.size, c.per_slab, c.flags, 0, 0);
    ASSERT_NE(nullptr, pool);
    std::set<uintptr_t> addresses;
    for (void *block : take(pool, 2000)) {
      ASSERT_NE(nullptr, block);
      ASSERT_EQ(0U, address_of(block) % c.align);
      std::memset(block, 0xa5, c.size);
      addresses.insert(address_of(block));
    }
    ASSERT_EQ(2000U, addresses.size());
    for (auto at = addresses.begin(), next = std::next(at); next != addresses.end(); ++at, ++next) {
      ASSERT_LE(c.stride, *next - *at) << "size " << c.size;
    }
  }
}

TEST(Chunk, ReleasedBlocksKeepTheirFirstEightBytesAndComeBackLastFirst) {
  chunk_pool *pool = chunk_create("reuse", 64, 255, kMayGrow, 0, 0);
  const std::vector<void *> blocks = take(pool, 600);
  for (void *block : blocks) std::memset(block, 0x5a, 64);
  for (void *block : blocks) chunk_free(pool, block);
  EXPECT_EQ(0U, chunk_live_blocks(pool));
  for (void *block : blocks) ASSERT_EQ(0, std::memcmp(block, "ZZZZZZZZ", 8));
  for (size_t i = blocks.size(); i-- > 0;) ASSERT_EQ(blocks[i], chunk_malloc(pool));
}

TEST(Chunk, PoolThatMayNotGrowHasExactlyItsElements) {
  for (const uint32_t per_slab : {1U, 100U, 20'000U}) {  // the last one needs several slabs
    chunk_pool *pool = chunk_create("fixed", 48, per_slab, 0, 0, 0);
    const std::vector<void *> blocks = take(pool, per_slab);
    EXPECT_EQ(0, std::count(blocks.begin(), blocks.end(), nullptr));
    EXPECT_EQ(nullptr, chunk_malloc(pool));
    chunk_free(pool, blocks[0]);
    EXPECT_EQ(blocks[0], chunk_malloc(pool));
  }
}

TEST(Chunk, FailureIsNullAndThePoolStillWorks) {
  failing_new::fail_nth(1);
  EXPECT_EQ(nullptr, chunk_create("none", 64, 255, kMayGrow, 0, 0));
  chunk_pool *pool = chunk_create("failing", 64, 255, kMayGrow, 0, 0);
  failing_new::fail_nth(1);
  EXPECT_EQ(nullptr, chunk_malloc(pool));
  EXPECT_EQ(0U, chunk_live_blocks(pool));
  EXPECT_NE(nullptr, chunk_malloc(pool));
  EXPECT_EQ(1U, chunk_live_blocks(pool));
  chunk_free(pool, nullptr);
}

TEST(ChunkDeathTest, StopsOnABlockThatIsNotOut) {
  chunk_pool *pool = chunk_create("mine", 64, 255, kMayGrow, 0, 0);
  chunk_pool *other = chunk_create("other", 64, 255, kMayGrow, 0, 0);
  auto *block = static_cast<char *>(chunk_malloc(pool));
  auto *released = static_cast<char *>(chunk_malloc(pool));
  void *foreign = chunk_malloc(other);
  chunk_free(pool, released);
  EXPECT_DEATH(chunk_free(pool, released), "fatal: .*does not hold at .*chunk.cpp");
  EXPECT_DEATH(chunk_free(pool, foreign), "fatal: .*of this pool");
  EXPECT_DEATH(chunk_free(pool, block + 8), "fatal: .*address");
  EXPECT_DEATH(chunk_free(pool, block - 32), "fatal: .*address");  // inside the slab's header
  EXPECT_DEATH(chunk_free(pool, released + 64), "fatal: ");        // never out
  EXPECT_DEATH(chunk_free(nullptr, block), "fatal: ");
}

// --- Variable pools ---

constexpr uint32_t kTagBase = 0x3b00000;

uint32_t tag_of(const char *name) { return kTagBase | static_cast<uint32_t>(name[0]); }

constexpr variable_chunk_class kClasses[] = {
    {32, 100, kMayGrow, "a small", {}},
    {64, 100, kMayGrow, "b middle", {}},
    {256, 10, 0, "c large", {}},
    {0, 0, 0, "d general", {}},
};

// The blocks and bytes that are counted under a class's name.
std::pair<uint64_t, uint64_t> counts_of(const std::string &name) {
  struct Sum {
    const std::string &name;
    uint64_t blocks, bytes;
  } sum{name, 0, 0};
  named_walk_sites(
      [](const named_site *site, void *arg) {
        auto *out = static_cast<Sum *>(arg);
        if (site->name != out->name) return;
        EXPECT_EQ(tag_of(site->name), site->tag);
        out->blocks += site->live_blocks;
        out->bytes += site->live_bytes;
      },
      &sum);
  return {sum.blocks, sum.bytes};
}

TEST(VariableChunk, RefusesBadClasses) {
  const variable_chunk_class general{0, 0, 0, "general", {}};
  const variable_chunk_class small{32, 10, kMayGrow, "small", {}};
  const variable_chunk_class large{64, 10, kMayGrow, "large", {}};
  const variable_chunk_class countless{64, 0, kMayGrow, "countless", {}};
  const variable_chunk_class huge{65'537, 1, kMayGrow, "huge", {}};
  const std::vector<std::vector<variable_chunk_class>> bad = {
      {},
      {large, small},
      {small, small},
      {general, small},
      {countless},
      {huge},
      std::vector<variable_chunk_class>(17, general)};
  for (const auto &classes : bad) {
    EXPECT_EQ(nullptr, variable_chunk_create_ext(
                           classes.data(), static_cast<uint32_t>(classes.size()), 0, nullptr));
  }
  EXPECT_EQ(nullptr, variable_chunk_create_ext(nullptr, 1, 0, nullptr));
  EXPECT_EQ(nullptr, variable_chunk_malloc(nullptr, 1));
  EXPECT_EQ(0U, variable_chunk_live_blocks(nullptr));
}

TEST(VariableChunk, ServesEachSizeFromTheSmallestClassThatHoldsIt) {
  variable_chunk_pool *pool = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
  ASSERT_NE(nullptr, pool);
  struct Case {
    size_t size;
    const char *name;
    uint64_t bytes;
  };
  for (const Case &c : std::vector<Case>{{0, "a small", 32},
                                         {32, "a small", 32},
                                         {33, "b middle", 64},
                                         {64, "b middle", 64},
                                         {256, "c large", 256},
                                         {257, "d general", 257},
                                         {65'535, "d general", 65'535}}) {
    const auto before = counts_of(c.name);
    void *block = variable_chunk_malloc(pool, c.size);
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(0U, address_of(block) % 16);
    std::memset(block, 0x77, c.size);
    EXPECT_EQ(before.first + 1, counts_of(c.name).first) << c.size;
    EXPECT_EQ(before.second + c.bytes, counts_of(c.name).second) << c.size;
    EXPECT_EQ(1U, variable_chunk_live_blocks(pool));
    variable_chunk_free(pool, block);
    EXPECT_EQ(before, counts_of(c.name)) << c.size;
    EXPECT_EQ(0U, variable_chunk_live_blocks(pool));
  }
}

TEST(VariableChunk, FullClassLeavesTheRequestToTheNextOne) {
  variable_chunk_pool *pool = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
  const auto general_before = counts_of("d general");
  for (int i = 0; i < 10; ++i) ASSERT_NE(nullptr, variable_chunk_malloc(pool, 200));
  EXPECT_EQ(general_before, counts_of("d general"));
  void *general = variable_chunk_malloc(pool, 200);
  ASSERT_NE(nullptr, general);
  EXPECT_EQ(general_before.second + 200, counts_of("d general").second);
  variable_chunk_free(pool, general);

  variable_chunk_pool *without_general = variable_chunk_create_ext(kClasses, 3, 0, nullptr);
  EXPECT_EQ(nullptr, variable_chunk_malloc(without_general, 257));
  for (int i = 0; i < 10; ++i) ASSERT_NE(nullptr, variable_chunk_malloc(without_general, 200));
  EXPECT_EQ(nullptr, variable_chunk_malloc(without_general, 200));
}

TEST(VariableChunk, RandomTakingAndGivingBackKeepsContentsApart) {
  variable_chunk_pool *pool = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
  struct Block {
    unsigned char *bytes;
    size_t size;
    unsigned char mark;
  };
  std::vector<Block> blocks;
  std::mt19937 random(3);
  for (int step = 0; step < 60'000; ++step) {
    if (random() % 8 < (step < 40'000 ? 6U : 1U)) {
      const Block made{nullptr, random() % 400, static_cast<unsigned char>(step)};
      blocks.push_back(made);
      blocks.back().bytes = static_cast<unsigned char *>(variable_chunk_malloc(pool, made.size));
      ASSERT_NE(nullptr, blocks.back().bytes);
      std::memset(blocks.back().bytes, made.mark, made.size);
    } else if (!blocks.empty()) {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      const Block &gone = blocks.back();
      ASSERT_EQ(static_cast<long>(gone.size),
                std::count(gone.bytes, gone.bytes + gone.size, gone.mark));
      variable_chunk_free(pool, gone.bytes);
      blocks.pop_back();
    }
    ASSERT_EQ(blocks.size(), variable_chunk_live_blocks(pool));
  }
  for (const Block &block : blocks) variable_chunk_free(pool, block.bytes);
  EXPECT_EQ(0U, variable_chunk_live_blocks(pool));
}

TEST(VariableChunk, KnowsTheBlocksOfAllItsSlabs) {
  variable_chunk_pool *pool = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
  std::vector<void *> blocks(200'000);
  for (void *&block : blocks) block = variable_chunk_malloc(pool, 64);
  EXPECT_EQ(200'000U, variable_chunk_live_blocks(pool));
  for (void *block : blocks) variable_chunk_free(pool, block);
  EXPECT_EQ(0U, variable_chunk_live_blocks(pool));
}

TEST(VariableChunk, PoolIsMadeWholeOrNotAtAll) {
  const int n_requests = failing_new::sweep([](int nth) {
    const size_t before = failing_new::live_bytes();
    variable_chunk_pool *pool = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
    ASSERT_EQ(failing_new::pending(), pool != nullptr) << "request " << nth;
    if (pool != nullptr) return;
    EXPECT_EQ(before, failing_new::live_bytes()) << "request " << nth;
  });
  EXPECT_LE(4, n_requests);
}

TEST(VariableChunk, BlockIsTakenWhereMemoryIsLeft) {
  variable_chunk_pool *single = variable_chunk_create_ext(kClasses, 1, 0, nullptr);
  variable_chunk_pool *pool = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
  for (const int nth : {1, 2}) {  // the arena; the place where the slab is noted
    failing_new::fail_nth(nth);
    EXPECT_EQ(nullptr, variable_chunk_malloc(single, 8));
    EXPECT_FALSE(failing_new::pending());
  }
  EXPECT_EQ(0U, variable_chunk_live_blocks(single));
  EXPECT_NE(nullptr, variable_chunk_malloc(single, 8));
  failing_new::fail_nth(1);
  EXPECT_NE(nullptr, variable_chunk_malloc(pool, 8));
  EXPECT_FALSE(failing_new::pending());
}

TEST(VariableChunkDeathTest, StopsOnABlockThatIsNotOut) {
  variable_chunk_pool *pool = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
  variable_chunk_pool *other = variable_chunk_create_ext(kClasses, 4, 0, tag_of);
  for (const size_t size : {8U, 1000U}) {
    void *block = variable_chunk_malloc(pool, size);
    EXPECT_DEATH(variable_chunk_free(other, block), "fatal: .*of this pool") << size;
    EXPECT_DEATH(variable_chunk_free(nullptr, block), "fatal: ") << size;
    variable_chunk_free(pool, block);
    EXPECT_DEATH(variable_chunk_free(pool, block), "fatal: |AddressSanitizer") << size;
  }
  variable_chunk_free(pool, nullptr);
}

}  // namespace
