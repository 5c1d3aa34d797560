// The platform's services that stand alone: memory, tables, queues, subsystems, names and texts. A
// program without the library: what needs it says so.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/attrdb.h"
#include "platform/chunk.h"
#include "platform/error_text.h"
#include "platform/hash_table.h"
#include "platform/named_alloc.h"
#include "platform/queue.h"
#include "platform/subsys.h"
#include "support/memory_faults.h"

namespace {

using namespace std::string_literals;

using Random = std::linear_congruential_engine<uint32_t, 48271, 0, 2147483647>;

uintptr_t address_of(const void *block) { return reinterpret_cast<uintptr_t>(block); }

// ---- Chunk pools

TEST(Chunk, BlocksLieApartComeBackLastFirstAndKeepTheirFirstEightBytes) {
  // size, blocks to grow by, flags, alignment, blocks taken
  const uint32_t rows[][5] = {
      {1, 1, 1, 16, 2000},      {32, 16384, 1, 16, 2000}, {40, 100, 17, 64, 2000},
      {48, 300, 1, 16, 2000},   {64, 255, 1, 64, 2000},   {192, 7, 1, 64, 2000},
      {65536, 65535, 1, 64, 9}, {48, 1, 0, 16, 1},        {48, 20000, 0, 16, 20000}};
  for (const auto &[size, by, flags, align, n] : rows) {
    chunk_pool *pool = chunk_create(nullptr, size, by, flags, 0, 0);
    std::vector<char *> blocks(n);
    for (uint32_t i = 0; i < n; ++i) {
      blocks[i] = static_cast<char *>(chunk_malloc(pool));
      ASSERT_NE(nullptr, blocks[i]);
      std::memset(blocks[i], static_cast<int>(i), size);
      ASSERT_EQ(0u, address_of(blocks[i]) % align);
      // 255 lines and a header of one fill 16 KiB.
      ASSERT_TRUE(by != 255 || address_of(blocks[i]) % 16384 == (i % 255 + 1) * 64);
    }
    EXPECT_EQ(n, chunk_live_blocks(pool));
    EXPECT_TRUE(flags != 0 || chunk_malloc(pool) == nullptr);
    const auto holds = [&](uint32_t i, uint32_t bytes) {
      return std::string(blocks[i], bytes) == std::string(bytes, static_cast<char>(i));
    };
    for (uint32_t i = 0; i < n; ++i) ASSERT_TRUE(holds(i, size));
    for (char *block : blocks) chunk_free(pool, block);
    EXPECT_EQ(0u, chunk_live_blocks(pool));
    for (uint32_t i = n; i-- > 0;) {
      ASSERT_TRUE(holds(i, std::min(size, 8u)) && blocks[i] == chunk_malloc(pool));
    }
  }
}

constexpr variable_chunk_class kClasses[] = {{32, 100, 1, "a small", {}},
                                             {64, 100, 1, "b middle", {}},
                                             {256, 10, 0, "c large", {}},
                                             {0, 0, 0, "d general", {}}};
variable_chunk_pool *make_pool(uint32_t n_classes = 4) {
  return variable_chunk_create_ext(kClasses, n_classes, 0,
                                   [](const char *name) { return uint32_t(*name); });
}

TEST(Chunk, RefusesWhatItCannotMake) {
  const uint32_t sizes[][2] = {{0, 255}, {65537, 255}, {64, 0}, {64, 65536}};
  for (const auto &[size, n] : sizes) EXPECT_EQ(nullptr, chunk_create("", size, n, 1, 0, 0));
  // Two classes with their counts: descending, equal, general memory first, no elements, too large.
  const uint32_t bad[][4] = {
      {64, 9, 32, 9}, {32, 9, 32, 9}, {0, 0, 32, 9}, {32, 9, 64, 0}, {32, 9, 65537, 9}};
  for (const auto &[size, n, larger, m] : bad) {
    const variable_chunk_class classes[] = {{size, n, 1, "", {}}, {larger, m, 1, "", {}}};
    EXPECT_EQ(nullptr, variable_chunk_create_ext(classes, 2, 0, nullptr));
  }
  EXPECT_TRUE(!make_pool(0) && !variable_chunk_create_ext(nullptr, 1, 0, nullptr));
  std::vector<variable_chunk_class> many;
  for (uint32_t i = 1; i < 18; ++i) many.push_back({i, 1, 1, "", {}});
  EXPECT_EQ(nullptr, variable_chunk_create_ext(many.data(), 17, 0, nullptr));
  EXPECT_NE(nullptr, variable_chunk_create_ext(many.data(), 16, 0, nullptr));
  EXPECT_TRUE(!chunk_malloc(nullptr) && !variable_chunk_malloc(nullptr, 1));
  EXPECT_EQ(0u, chunk_live_blocks(nullptr) + variable_chunk_live_blocks(nullptr));
  chunk_pool *pool = chunk_create("", 64, 255, 1, 0, 0);
  variable_chunk_pool *single = make_pool(1);
  chunk_free(pool, nullptr);
  variable_chunk_free(single, nullptr);
  // Without memory: for the pool, for a slab, and for the place where the slab is noted.
  memory_faults::arm(1, true);
  void *made[] = {chunk_create("", 64, 255, 1, 0, 0), chunk_malloc(pool),
                  variable_chunk_malloc(single, 8), nullptr};
  memory_faults::arm(2);
  made[3] = variable_chunk_malloc(single, 8);
  EXPECT_TRUE(memory_faults::disarm());
  for (const void *one : made) EXPECT_EQ(nullptr, one);
  EXPECT_EQ(0u, chunk_live_blocks(pool) + variable_chunk_live_blocks(single));
  EXPECT_TRUE(chunk_malloc(pool) != nullptr && variable_chunk_malloc(single, 8) != nullptr);
  const int64_t before = memory_faults::live_blocks;
  for (uint64_t nth = 1; nth < 20; ++nth) {
    memory_faults::arm(nth);
    variable_chunk_pool *whole = make_pool();
    ASSERT_EQ(memory_faults::disarm(), whole == nullptr);
    if (whole != nullptr) break;
    EXPECT_EQ(before, memory_faults::live_blocks);
  }
}

// Blocks and bytes counted under a name, and its tag.
using Counts = std::array<uint64_t, 3>;
Counts counts_of(const std::string &name) {
  std::pair<std::string, Counts> sum(name, Counts{});
  named_walk_sites(
      [](const named_site *site, void *arg) {
        auto &[wanted, counts] = *static_cast<decltype(sum) *>(arg);
        if (site->name != wanted) return;
        counts = {counts[0] + site->live_blocks, counts[1] + site->live_bytes, site->tag};
      },
      &sum);
  return sum.second;
}

TEST(VariableChunk, ServesEachSizeFromTheSmallestClassThatHasRoom) {
  variable_chunk_pool *const pool = make_pool();
  variable_chunk_pool *const fixed = make_pool(3);
  const uint32_t rows[][3] = {{0, 0, 32},    {32, 0, 32},   {33, 1, 64},    {64, 1, 64},
                              {256, 2, 256}, {257, 3, 257}, {9999, 3, 9999}};  // size, class, bytes
  const auto serves = [&](uint32_t size, uint32_t row, uint32_t bytes) {
    const char *name = kClasses[row].name;
    const Counts before = counts_of(name);
    void *block = variable_chunk_malloc(pool, size);
    EXPECT_EQ(0u, address_of(block) % 16);
    EXPECT_EQ((Counts{before[0] + 1, before[1] + bytes, uint64_t(*name)}), counts_of(name));
    return block;
  };
  for (const auto &[size, row, bytes] : rows) {
    const Counts before = counts_of(kClasses[row].name);
    variable_chunk_free(pool, serves(size, row, bytes));
    const Counts after = counts_of(kClasses[row].name);
    EXPECT_EQ(before[0] + before[1], after[0] + after[1]);
  }
  for (int i = 0; i < 10; ++i) serves(200, 2, 256), variable_chunk_malloc(fixed, 200);
  variable_chunk_free(pool, serves(200, 3, 200));
  EXPECT_TRUE(!variable_chunk_malloc(fixed, 200) && !variable_chunk_malloc(fixed, 257));
  variable_chunk_pool *const fresh = make_pool();
  memory_faults::arm(1);
  EXPECT_NE(nullptr, variable_chunk_malloc(fresh, 8));  // no memory for a slab of its class
  EXPECT_TRUE(memory_faults::disarm());
}

TEST(VariableChunk, KeepsContentsApartAndKnowsTheBlocksOfAllSlabs) {
  variable_chunk_pool *pool = make_pool();
  Random random(3);
  std::vector<std::pair<char *, std::string>> blocks;
  for (int step = 0; step < 120000; ++step) {
    if (random() % 8 < (step < 100000 ? 6u : 1u)) {
      const size_t size = random() % 5 != 0 ? 60 : random() % 400;
      auto *block = static_cast<char *>(variable_chunk_malloc(pool, size));
      blocks.emplace_back(block, std::string(size, static_cast<char>(step)));
      blocks.back().second.copy(block, size);
    } else if (!blocks.empty()) {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      const auto &[block, content] = blocks.back();
      ASSERT_EQ(content, std::string(block, content.size()));
      variable_chunk_free(pool, block);
      blocks.pop_back();
    }
    ASSERT_EQ(blocks.size(), variable_chunk_live_blocks(pool));
  }
  for (const auto &[block, content] : blocks) variable_chunk_free(pool, block);
  EXPECT_EQ(0u, variable_chunk_live_blocks(pool));
}

// ---- Named allocator

TEST(NamedAlloc, CountsBlocksAndBytesUnderTheirCallSite) {
  static named_site site = NAMED_SITE("7", '7');
  const uint64_t bytes_before = named_live_bytes();
  memory_faults::arm(1, true);
  EXPECT_TRUE(!named_alloc(&site, 8) && !named_zalloc(&site, 8));
  memory_faults::disarm();
  EXPECT_TRUE(!named_alloc(&site, SIZE_MAX) && !named_zalloc(&site, SIZE_MAX - 15));
  EXPECT_EQ(0u, site.total_blocks + site.enrolled);
  uint64_t bytes = 0;
  std::vector<char *> blocks;
  for (const size_t size : {0u, 1u, 15u, 16u, 17u, 4096u}) {
    void *dirty = named_alloc(&site, size);  // the likely next one
    std::memset(dirty, 0xff, size);
    named_free(dirty);
    blocks.push_back(static_cast<char *>(named_zalloc(&site, size)));
    EXPECT_EQ(0u, address_of(blocks.back()) % 16);
    EXPECT_EQ(std::string(size, '\0'), std::string(blocks.back(), size));
    bytes += size;
    EXPECT_EQ((Counts{blocks.size(), bytes, '7'}), counts_of("7"));
    EXPECT_EQ(bytes_before + bytes, named_live_bytes());
  }
  const uint64_t n = named_live_blocks();
  blocks.insert(blocks.end(), {static_cast<char *>(named_alloc(nullptr, 8)), nullptr});
  EXPECT_EQ(n + 1, named_live_blocks());
  for (char *block : blocks) named_free(block);
  EXPECT_EQ((Counts{0, 0, '7'}), counts_of("7"));
  EXPECT_EQ((Counts{12, n - 6, bytes_before}),
            (Counts{site.total_blocks, named_live_blocks(), named_live_bytes()}));
}

TEST(MemoryDeathTest, StopsOnABlockThatIsNotOut) {
  chunk_pool *pools[] = {chunk_create("", 64, 255, 1, 0, 0), chunk_create("", 64, 255, 1, 0, 0)};
  variable_chunk_pool *variable[] = {make_pool(), make_pool(), nullptr};
  char *blocks[3];
  for (char *&block : blocks) block = static_cast<char *>(chunk_malloc(pools[0]));
  chunk_free(pools[0], blocks[1]);
  // Released, inside a block, inside the slab's header, never out.
  for (char *bad : {blocks[1], blocks[0] + 8, blocks[0] - 32, blocks[2] + 64}) {
    EXPECT_DEATH(chunk_free(pools[0], bad), "fatal: .*does not hold at .*chunk.cpp");
  }
  EXPECT_DEATH(chunk_free(pools[1], blocks[0]), "fatal: .*of this pool");
  EXPECT_DEATH(chunk_free(nullptr, blocks[0]), "fatal: .*there is a pool");
  for (const size_t size : {8u, 1000u}) {
    void *taken = variable_chunk_malloc(variable[0], size);
    for (auto *pool : {variable[1], variable[2]}) {
      EXPECT_DEATH(variable_chunk_free(pool, taken), "fatal: .*of this pool") << size;
    }
    variable_chunk_free(variable[0], taken);
    EXPECT_DEATH(variable_chunk_free(variable[0], taken), "fatal: |AddressSanitizer") << size;
  }
  auto *named = static_cast<char *>(NAMED_ALLOC(1, "dead", 8));
  EXPECT_DEATH(named_free(static_cast<char *>(std::memset(named - 8, 0, 8)) + 8), "fatal: .*live");
  named_free(named);
  EXPECT_DEATH(named_free(named), "fatal: .*live|AddressSanitizer");
}

// ---- Hash table

using Table = std::unique_ptr<hash_table, decltype(&htDestroyHashTable)>;
Table make_table(uint32_t size, hash_table_hash hash) {
  const auto differ = [](const void *a, const void *b) { return std::memcmp(a, b, 4); };
  return {htMakeHashTable(size, hash, differ), htDestroyHashTable};
}
uint32_t plain(const void *key) { return *static_cast<const uint32_t *>(key); }
uint32_t high_bits(const void *key) { return plain(key) << 20; }
uint32_t constant(const void *) { return 7; }

// Growth and decline in turn, equal keys among them, and memory that cannot be had at first.
TEST(HashTable, AgreesWithAModel) {
  const std::pair<uint32_t, hash_table_hash> rows[] = {
      {4000, plain}, {10, plain}, {1000, high_bits}, {50, constant}};
  for (const auto &[n_keys, hash] : rows) {
    Random random(n_keys);
    const Table table = make_table(1, hash);
    std::vector<uint32_t> keys(n_keys);
    for (uint32_t i = 0; i < n_keys; ++i) keys[i] = i + 1;
    std::map<uint32_t, std::vector<void *>> model;
    uint32_t n_items = 0;
    for (uint32_t step = 0; step < 30000; ++step) {
      const uint32_t *key = &keys[random() % n_keys];
      const auto newest = [&](uint32_t of) {
        return model[of].empty() ? nullptr : model[of].back();
      };
      void *const data = reinterpret_cast<void *>(uintptr_t{step} + 1);
      std::vector<void *> &held = model[*key];
      memory_faults::arm(1);
      if (random() % 8 < (step / 5000 % 2 == 0 ? 6u : 1u)) {
        const int refused = htAdd(table.get(), key, data);
        ASSERT_EQ(memory_faults::disarm() ? 1 : 0, refused);
        ASSERT_EQ(refused == 0 ? data : newest(*key), htFind(table.get(), key));
        ASSERT_TRUE(refused == 0 || htAdd(table.get(), key, data) == 0);
        held.push_back(data);
        ++n_items;
      } else {
        ASSERT_EQ(held.empty() ? 0 : 1, htRemove(table.get(), key));
        memory_faults::disarm();
        if (!held.empty()) held.pop_back(), --n_items;
      }
      const uint32_t *probe = &keys[random() % n_keys];
      ASSERT_EQ(n_items, htItems(table.get()));
      ASSERT_EQ(newest(*probe), htFind(table.get(), probe));
    }
  }
}

// A table that is quadratic in equal keys would not end here.
TEST(HashTable, GivesMemoryBackAfterABurst) {
  for (const uint32_t distinct : {1u, 0u}) {
    std::vector<uint32_t> keys(300000);
    for (uint32_t i = 0; i < keys.size(); ++i) keys[i] = i * distinct;
    Table table = make_table(1024, plain);
    const size_t before = memory_faults::live_bytes;
    for (const uint32_t &key : keys) ASSERT_EQ(0, htAdd(table.get(), &key, table.get()));
    EXPECT_LT(before + 300000 * 20, memory_faults::live_bytes);
    for (size_t i = 0; i < keys.size(); ++i) {
      if (i < 200000) memory_faults::arm(1, true);  // what cannot be had stays as it is
      ASSERT_EQ(1, htRemove(table.get(), &keys[i]));
      memory_faults::disarm();
    }
    EXPECT_GT(before + 2048 * 1024, memory_faults::live_bytes);
  }
}

TEST(HashTable, RefusesBadArguments) {
  uint32_t key = 1;
  for (const uint64_t nth : {1u, 2u}) {
    memory_faults::arm(nth);
    EXPECT_EQ(nullptr, make_table(16, plain));
  }
  memory_faults::disarm();
  for (const uint32_t size : {0u, (1u << 24) + 1}) EXPECT_EQ(nullptr, make_table(size, plain));
  EXPECT_TRUE(!make_table(16, nullptr) && !htMakeHashTable(16, plain, nullptr));
  const Table table = make_table(16, plain);
  EXPECT_EQ((std::vector{1, 1, 1, 0, 0}),
            (std::vector{htAdd(table.get(), nullptr, &key), htAdd(table.get(), &key, nullptr),
                         htAdd(nullptr, &key, &key), htRemove(nullptr, &key),
                         htRemove(table.get(), nullptr)}));
  EXPECT_TRUE(htFind(nullptr, &key) == nullptr && htItems(nullptr) + htItems(table.get()) == 0);
  htDestroyHashTable(nullptr);
}

// ---- Queues

TEST(Queue, KeepsTheOrderOfEnqueuing) {
  platform_queue_link x{};
  platform_queue_link a{&x};
  platform_queue_link b{&x};
  platform_queue_link c{&x};
  platform_queue queue{&x, &x};
  platform_queue other{};
  queue_init(&queue);
  EXPECT_EQ(nullptr, queue_get_next(&queue, nullptr));
  for (auto *one : {&b, &a, &a, &c}) queue_enqueue(&queue, one);  // a stays where it is
  std::vector<void *> found;
  for (void *at = nullptr; found.size() < 9 && (at = queue_get_next(&queue, at)) != nullptr;) {
    found.push_back(at);
  }
  EXPECT_EQ((std::vector<void *>{&b, &a, &c}), found);
  for (auto *one : {&x, &a, &b, &c}) EXPECT_EQ(one != &x, queue_entry_in_queue(&queue, one));
  EXPECT_EQ(0, queue_entry_in_queue(&queue, nullptr) + queue_entry_in_queue(nullptr, &a));
  queue_enqueue(&other, &a);  // the old queue ends there
  EXPECT_TRUE(queue_get_next(&other, nullptr) == &a && queue_get_next(&queue, &b) == &a);
  EXPECT_TRUE(!queue_get_next(&queue, &a) && !queue_get_next(nullptr, nullptr));
}

// ---- Subsystems: the registry is one for the process

std::string g_order;
template <char kLetter>
void note() {
  g_order += kLetter;
}
constexpr subsys_record record_of(void (*start)(), uint64_t phase, uint64_t priority,
                                  uint64_t enabled = 1) {
  return {SUBSYS_RECORD_VERSION, "test", phase, enabled, start, priority, {}};
}
constinit subsys_record g_late = record_of(note<'g'>, 1, 5);
void enqueue_another() {
  g_order += 'f';
  subsys_enqueue(&g_late);
  EXPECT_EQ(0u, subsys_start());  // the outer call does it
}
constinit subsys_record g_records[] = {record_of(note<'e'>, 2, 1),      record_of(note<'b'>, 1, 20),
                                       record_of(note<'a'>, 1, 5),      record_of(note<'c'>, 1, 20),
                                       record_of(note<'x'>, 1, 1, 0),   record_of(note<'h'>, 3, 1),
                                       record_of(enqueue_another, 2, 2)};
uint16_t g_early_id = 0;
__attribute__((constructor(101))) void register_early() {  // as libraries do, before main
  for (const subsys_record &one : g_records) subsys_enqueue(&one);
  g_early_id = zel_debug_modules[1924];
}

TEST(Subsys, RunsByPhaseThenPriorityThenRegistrationAndOnce) {
  static subsys_record bad[] = {record_of(note<'v'>, 1, 1), record_of(nullptr, 1, 1)};
  bad[0].version = SUBSYS_RECORD_VERSION + 1;
  for (const subsys_record *one : {&bad[0], &bad[1], static_cast<subsys_record *>(nullptr)}) {
    EXPECT_EQ(AAA_ERR_INVALID_ARG, subsys_enqueue(one));
  }
  EXPECT_EQ(PLATFORM_OK, subsys_enqueue(&g_records[0]));  // registered already
  const uint32_t others = subsys_start() - 7;             // the library's, where it is linked
  g_records[4].enabled = 1;
  EXPECT_EQ(1u, subsys_start());
  EXPECT_EQ("abcefghx", g_order);
  static std::vector<subsys_record> more(SUBSYS_MAX, g_late);
  for (uint32_t i = 0; i < SUBSYS_MAX; ++i) {
    EXPECT_EQ(i < SUBSYS_MAX - 8 - others ? PLATFORM_OK : AAA_ERR_NO_ROOM,
              subsys_enqueue(&more[i]));
  }
  EXPECT_EQ(SUBSYS_MAX - 8 - others, subsys_start());
  EXPECT_EQ(1924u, g_early_id);
}

// ---- Names and texts

// The rows are the header's; a few are written down by hand besides.
TEST(Dictionary, GivesEachTypeItsNameAndKindAndFindsItByItsName) {
  using Row = std::pair<std::string, uint32_t>;
#define ROW(constant, number, name, kind) {number, {name, kind}},
  std::map<uint32_t, Row> rows = {AAA_DICTIONARY(ROW)};
#undef ROW
  EXPECT_EQ((Row{"audit-session-id", AAA_KIND_SESN_GUID}), rows[819]);
  for (uint32_t type = 1; type <= 1490; ++type) {
    rows.try_emplace(type, "attribute-" + std::to_string(type), AAA_KIND_UNKNOWN);
    EXPECT_EQ(type, aaa_dict_get_attr_type(rows[type].first.c_str()));
  }
  for (const uint32_t type : {0u, 1491u, UINT32_MAX}) rows[type] = {"attribute-unknown", 9};
  for (const auto &[type, row] : rows) {
    EXPECT_EQ(row, (Row{aaa_dict_get_attr_name(type), aaa_dict_get_attr_kind(type)}));
    EXPECT_EQ(row.first + row.first,
              get_attr_name_from_type(type) + std::string(attrdb_get_attr_name_from_type(type)));
  }
  for (const char *name : {"", "user-nam", "user-names", "attribute-", "attribute-0",
                           "attribute-42", "attribute-043", "attribute-1491", "attribute-43x",
                           "attribute--43", "attribute-4294967339", "attribute-unknown", "43"}) {
    EXPECT_EQ(0u, aaa_dict_get_attr_type(name)) << name;
  }
  EXPECT_EQ(0u, aaa_dict_get_attr_type(nullptr));
}

TEST(ErrorText, IsShortAndOfOneStatusAlone) {
  std::set<std::string> texts;
  uint32_t n_unknown = 0;
  for (uint32_t i = 0; i < 5 * 14 + 3; ++i) {
    const uint32_t kind = 0xa0000200 + ((i / 14 + 1) << 16) + (i % 14 << 9);
    const uint32_t others[] = {0, AAA_ERR_UNSUPPORTED_ATTR, KIVO_ERR_INVALID_VALUE};
    const std::string text = error_text(i < 70 ? kind : others[i - 70]);
    EXPECT_TRUE(texts.insert(text).second && text.size() < 64) << text;
    n_unknown += text.starts_with("unknown status 0xa00") ? 1 : 0;
  }
  EXPECT_EQ(73u - 31u, n_unknown);  // statuses with a text, status.h
  EXPECT_EQ("success/record store: label in use",
            error_text(0) + "/"s + error_text(ATTRDB_ERR_LABEL_IN_USE));
  const char *first = error_text(1);
  for (uint32_t i = 0; i < 7; ++i) error_text(UINT32_MAX - i);
  EXPECT_STREQ("unknown status 0x00000001", first);
}

// Prints from memory of exactly the value's size: the address sanitizer sees a read past it.
std::string printed(const std::string &value, uint32_t code) {
  const std::unique_ptr<char[]> exact(new char[value.size()]);
  value.copy(exact.get(), value.size());
  char text[ATTRDB_PRINT_TEXT_MAX];
  const auto size = static_cast<uint32_t>(value.size());
  if (code == 99) return auth_mgr_safe_printable_mac(exact.get(), size);
  EXPECT_EQ(text, attrdb_print_data_with_kivo_type(exact.get(), size, text, code));
  return text;
}

TEST(PrintedValues, FollowTheTypeCodeAddressesTheirSize) {
  const auto many = [](size_t n, const char *end = "") { return std::string(n, 'A') + end; };
  const struct {
    std::string value;
    uint32_t code;
    std::string text;
  } rows[] = {{"\x2a\0\0\0"s, AAA_KIND_INT32, "0x2a"},
              {"\0\0\0\0\1\0\0\0"s, AAA_KIND_INT64, "0x100000000"},
              {"\x0a\0\0\xff"s, AAA_KIND_IPV4, "10.0.0.255"},
              {"\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\1"s, AAA_KIND_IPV6, "2001:db8::1"},
              {"2001:db8::/32", AAA_KIND_IPV6, "2001:db8::/32"},
              {"2001:db8:12::/48", AAA_KIND_IPV6, "2001:db8:12::/48"},
              {"\x00\x11\x22\x33\x44\x5f"s, AAA_KIND_MAC, "0011.2233.445f"},
              {"ABCDEFGHIJKLMNOPQRSTUVWX", AAA_KIND_SESN_GUID, "ABCDEFGHIJKLMNOPQRSTUVWX"},
              {"\xff\0\0\0\0\0\0\0"s, AAA_KIND_POINTER, "0xff"},
              {"\x00\x41"s, AAA_KIND_VAR_BIN, "0041"},
              {"al\x1b\xff \"\\~"s, AAA_KIND_VAR_STR, "al\\x1b\\xff \"\\~"},
              {"", AAA_KIND_VAR_STR, ""},
              {"A", ATTRDB_TYPE_UNKNOWN, "41"},
              {"A", 77, "41"},
              {many(508), AAA_KIND_VAR_STR, many(508)},
              {many(509), AAA_KIND_VAR_STR, many(508, "...")},
              {many(507, "\n"), AAA_KIND_VAR_STR, many(507, "...")},  // no half of an escape
              {std::string(65535, '\xaa'), AAA_KIND_VAR_BIN, std::string(508, 'a') + "..."},
              {"\xc0\0\2\1"s, 99, "192.0.2.1"},
              {"\x00\x11\x22\x33\x44\x55"s, 99, "0011.2233.4455"},
              {"\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\1"s, 99, "fe80::1"},
              {"\1\2\3\4\5"s, 99, "0102030405"},
              {std::string(64, '\x11'), 99, std::string(128, '1')},
              {std::string(65, '\x11'), 99, std::string(128, '1') + "..."}};
  for (const auto &row : rows) EXPECT_EQ(row.text, printed(row.value, row.code)) << row.text;
  for (uint32_t code = 0; code < AAA_KIND_VAR_BIN; ++code) {
    EXPECT_EQ("313233", printed("123", code)) << code;  // the size does not fit
    EXPECT_EQ("", printed("", code)) << code;
  }
  char text[ATTRDB_PRINT_TEXT_MAX] = "before";
  EXPECT_EQ(text, attrdb_print_data_with_kivo_type(nullptr, 4, text, AAA_KIND_INT32));
  const char *first = auth_mgr_safe_printable_mac("\1", 1);
  for (int i = 0; i < 7; ++i) auth_mgr_safe_printable_mac("\2", 1);
  EXPECT_EQ("01", first + std::string(text) + auth_mgr_safe_printable_mac(nullptr, 6) +
                      attrdb_print_data_with_kivo_type("x", 1, nullptr, AAA_KIND_VAR_STR));
  for (const uint32_t kind : {0u, 1u, 8u, 9u, 10u, UINT32_MAX}) {
    EXPECT_EQ(std::min(kind, 9u), attrdb_kivo_type_to_attrdb_type(kind));
  }
}

// ---- Without the library

extern "C" __attribute__((weak)) uint32_t kivo_index_list_add_many(kivo_index_list **,
                                                                   const uint32_t *, uint32_t);

TEST(WithoutTheLibrary, LabelSetsAreRefusedAndSessionsHaveNoShadow) {
  if (kivo_index_list_add_many != nullptr) GTEST_SKIP() << "linked with the library";
  attrdb_init();
  attrdb_create_and_insert_primary_record(nullptr, 1);
  attrdb_record *record = nullptr;
  attrdb_get_record(1, &record);
  kivo_index_list *list = nullptr;
  uint32_t count = 0;
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_get_labels_by_attr(1, "x", 1, &list, &count));
  EXPECT_EQ(ATTRDB_ERR_NOT_READY, attrdb_add_session_to_list(record, &list));
  attrdb_walk_all_records(attrdb_add_session_to_list, &list);
  EXPECT_EQ(nullptr, auth_mgr_idc_get_shadow_record_in_ctxt(record->ctxt));
  EXPECT_EQ(PLATFORM_OK, attrdb_delete_record(1));
}

}  // namespace
