// Numbers of interfaces: shared by the sessions of one port, never by two ports, gone with the last
// session, unharmed when memory runs out, and no slower for names that a peer chose.
#include "sessions/interface_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "support/memory_faults.h"

namespace {

using kivod::InterfaceTable;

TEST(InterfaceTable, GivesOnePortOneNumberAndTwoPortsTwo) {
  InterfaceTable table;
  std::set<uint32_t> numbers;
  for (int port = 0; port < 1000; ++port) numbers.insert(table.enter(std::to_string(port)));
  EXPECT_EQ(1000u, numbers.size());
  EXPECT_FALSE(numbers.contains(0));
  EXPECT_TRUE(numbers.contains(table.enter("7")));
  EXPECT_EQ(1000u, table.size());
}

TEST(InterfaceTable, ForgetsAPortWithItsLastSession) {
  InterfaceTable table;
  const uint32_t number = table.enter("a port");
  for (const uint32_t nobodys : {0u, number + 1}) table.leave(nobodys);
  EXPECT_EQ(number, table.enter("a port"));
  const uint32_t other = table.enter("another port");
  table.leave(number);
  EXPECT_EQ(number, table.enter("a port"));
  table.leave(number);
  table.leave(number);
  EXPECT_EQ(1u, table.size());
  EXPECT_NE(other, table.enter("a port"));
  EXPECT_EQ(other, table.enter("another port"));
}

// Processor time of the quickest of three rounds of entering every name twice.
clock_t cost_of(const std::vector<std::string> &names) {
  clock_t least = 0;
  for (int round = 0; round < 3; ++round) {
    InterfaceTable table;
    const clock_t before = clock();
    for (int time = 0; time < 2; ++time) {
      for (const std::string &name : names) table.enter(name);
    }
    const clock_t cost = clock() - before;
    least = round == 0 ? cost : std::min(least, cost);
  }
  return least;
}

// Names that all lie in one bucket of a table as large as they need, by the hash that everybody
// has.
TEST(InterfaceTable, IsNoSlowerForPortsThatWereChosenAgainstIt) {
  constexpr size_t kNames = 5000;
  const size_t n_buckets = std::unordered_set<std::string>(kNames).bucket_count();
  std::vector<std::string> chosen;
  std::vector<std::string> plain;
  for (size_t i = 0; chosen.size() < kNames; ++i) {
    const std::string name = std::to_string(i);
    if (plain.size() < kNames) plain.push_back(name);
    if (std::hash<std::string>()(name) % n_buckets == 0) chosen.push_back(name);
  }
  EXPECT_LT(cost_of(chosen), 10 * cost_of(plain));
}

TEST(InterfaceTable, IsUnchangedByAPortThatFoundNoMemory) {
  const std::string known(100, 'k');
  const std::string fresh(100, 'f');
  InterfaceTable table;
  const uint32_t number = table.enter(known);
  int failures = 0;
  for (;;) {
    memory_faults::arm(static_cast<uint64_t>(failures) + 1);
    try {
      table.enter(fresh);
      break;
    } catch (const std::bad_alloc &) {
      memory_faults::disarm();
      ++failures;
      EXPECT_EQ(1u, table.size());
      EXPECT_EQ(number, table.enter(known));
    }
  }
  memory_faults::disarm();
  EXPECT_GE(failures, 3);  // the key's node, its text and the number's node at the least
  EXPECT_EQ(2u, table.size());
}

}  // namespace
