// A long random sequence of every operation on records, attributes, queries and label lists,
// against plain containers. Change callbacks that write are registered throughout. The seed is
// fixed, or taken from KIVO_MODEL_SEED, and printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>

#include "model/operations.h"
#include "platform/named_alloc.h"
#include "support/process.h"

namespace kivo_model {
namespace {

constexpr uint32_t kSteps = 120000;
constexpr uint32_t kStepsBetweenComparisons = 1000;
constexpr uint32_t kMany = 100;
constexpr size_t kFewestRecords = 100;
constexpr size_t kMostRecords = 5000;

uint32_t seed() {
  const char *given = std::getenv("KIVO_MODEL_SEED");
  return given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 0)) : 20240229;
}

struct Count {
  uint32_t hits = 0, misses = 0;
};

// The number of records to make for: up and down between these bounds.
size_t target_at(uint32_t step) {
  constexpr uint32_t kHalf = 20000, kLow = 250, kHigh = 1150;
  const uint32_t at = step % (2 * kHalf);
  return kLow + (kHigh - kLow) * (at < kHalf ? at : 2 * kHalf - at) / kHalf;
}

const Operation &choose(Sequence &run) {
  uint32_t total = 0;
  for (const Operation &operation : operations()) total += operation.weight;
  uint32_t at = run.below(total);
  for (const Operation &operation : operations()) {
    if (at < operation.weight) return operation;
    at -= operation.weight;
  }
  std::abort();
}

size_t holders(const PlainSessions &plain, uint32_t type) {
  return static_cast<size_t>(std::ranges::count_if(
      plain.records(), [&](const auto &record) { return record.second.attrs.contains(type); }));
}

void compare_totals(const PlainSessions &plain) {
  const struct {
    uint32_t total, type;
  } rows[] = {{attrdb_get_total_mac_tree_sessions(), AAA_ATTR_MAC_ADDRESS},
              {attrdb_get_total_swidb_tree_sessions(), AAA_ATTR_INTERFACE},
              {attrdb_get_total_iif_id_tree_sessions(), AAA_ATTR_INTERFACE_ID},
              {attrdb_get_total_domain_tree_sessions(), AAA_ATTR_DOMAIN},
              {attrdb_get_total_method_tree_sessions(), AAA_ATTR_METHOD},
              {attrdb_get_total_audit_sess_id_tree_sessions(), AAA_ATTR_AUDIT_SESSION_ID},
              {attrdb_get_total_session_id_tree_sessions(), AAA_ATTR_SESSION_ID}};
  for (const auto &row : rows) EXPECT_EQ(holders(plain, row.type), row.total) << row.type;
  EXPECT_EQ(plain.records().size(), attrdb_get_total_sessions());
}

using Identities = std::vector<std::pair<uint16_t, Bytes>>;

void compare_identities(uint32_t label, const Record &record) {
  const shadowdb_rec *shadow =
      auth_mgr_idc_get_shadow_record_in_ctxt(kivo_test::find_record(label)->ctxt);
  ASSERT_NE(nullptr, shadow);
  EXPECT_EQ(record.has_identities ? 1u : 0u, shadow->has_identities) << label;
  for (const TypeRow &row : kTypes) {
    uint32_t index = 0;
    if (kivo_check_is_shadow_attrib(row.type, &index) == 0) continue;
    Identities expected;
    if (const auto list = record.identities.find(row.type); list != record.identities.end()) {
      for (const Identity &one : list->second) expected.emplace_back(one.subtype, one.value);
    }
    Identities stored;
    for (const auto *entry = shadow->attr_lists[index]; entry != nullptr; entry = entry->next) {
      stored.emplace_back(entry->subtype,
                          Bytes(reinterpret_cast<const char *>(entry->value), entry->length));
    }
    EXPECT_EQ(expected, stored) << label << " type " << row.type;
  }
}

// Every value that some record has, and one that none has, of every type.
void compare_indexes(Sequence &run) {
  std::map<Attr, Labels> index;
  for (const auto &[label, record] : run.plain().records()) {
    for (const auto &[type, value] : record.attrs) {
      const size_t step = type == AAA_ATTR_IPV6_ADDRESSES ? 16 : value.size() + 1;
      for (size_t i = 0; i < value.size(); i += step) {
        index[{type, value.substr(i, step)}].push_back(label);
      }
    }
  }
  for (uint32_t i = 0; i + 1 < kTypeCount; ++i) index[{kTypes[i].type, "nobody has this"}] = {};
  for (const auto &[attr, labels] : index) {
    const Answer answer = run.library().labels_of(0, attr.first, attr.second);
    EXPECT_EQ(0u, answer.status);
    EXPECT_EQ(labels, answer.labels) << "type " << attr.first;
  }
}

void compare_everything(Sequence &run) {
  const PlainSessions &plain = run.plain();
  run.both([](Sessions &s) { return s.all_sessions(0); });
  for (const auto &[label, record] : plain.records()) {
    run.both([at = label](Sessions &s) { return s.merge(at, {}); });
    compare_identities(label, record);
  }
  for (uint32_t list = 0; list < kLists; ++list) {
    const auto size = static_cast<uint32_t>(plain.list(list).size());
    for (uint32_t i = 0; i <= size; ++i) run.both([&](Sessions &s) { return s.get(list, i); });
  }
  compare_totals(plain);
  compare_indexes(run);
  EXPECT_EQ(0u, aaa_live_lists());
  EXPECT_EQ(0u, aaa_live_cursors());
  EXPECT_EQ(plain.records().size(), auth_mgr_idc_live_ctxts());
}

uint64_t blocks_of(size_t n_labels) { return n_labels == 0 ? 1 : (n_labels + 11) / 12; }

// Ends the queries and the records; what is alive then is the label lists.
void expect_nothing_left(Sequence &run, uint64_t named_blocks) {
  for (uint32_t query = 0; query < kQueries; ++query) {
    run.both([&](Sessions &s) { return s.take_matches(query); });
  }
  while (!run.plain().records().empty()) {
    const uint32_t label = run.plain().records().begin()->first;
    run.both([&](Sessions &s) { return s.destroy(0, label); });
  }
  uint64_t list_blocks = 0;
  for (uint32_t list = 0; list < kLists; ++list)
    list_blocks += blocks_of(run.plain().list(list).size());
  EXPECT_EQ(list_blocks, LibrarySessions::live_list_blocks());
  EXPECT_EQ(0u, variable_chunk_live_blocks(shadow_attr_chunk));
  EXPECT_EQ(named_blocks, named_live_blocks());
  EXPECT_EQ(0u, auth_mgr_idc_live_ctxts());
}

void expect_broad_coverage(const std::vector<Count> &counts, const Sequence &run) {
  for (size_t i = 0; i < counts.size(); ++i) {
    SCOPED_TRACE(operations()[i].name);
    std::cout << counts[i].hits << " hits, " << counts[i].misses
              << " misses: " << operations()[i].name << "\n";
    EXPECT_LE(kSteps / 100, counts[i].hits + counts[i].misses);
    EXPECT_LE(kMany, counts[i].hits);
    EXPECT_LE(kMany, counts[i].misses);
  }
  for (const char *what :
       {"announced", "looks up the domain", "writes to another record", "sets the old value",
        "frees the list", "writes another type", "removes another type",
        "writes the announced type", "removes what is being removed",
        "adds an address under a removal", "removes the identity written", "creates a record",
        "deletes a record"}) {
    const auto found = run.events().find(what);
    const uint32_t times = found == run.events().end() ? 0 : found->second;
    std::cout << times << " times: " << what << "\n";
    EXPECT_LE(kMany, times) << what;
  }
}

void prepare(Sequence &run) {
  for (uint32_t query = 0; query < kQueries; ++query) {
    run.both([&](Sessions &s) { return s.start_query(query, 0); });
  }
  while (run.plain().records().size() < target_at(0)) {
    const uint32_t label = run.pool_label();
    const Attrs attrs = run.list(false).attrs;
    run.both([&](Sessions &s) { return s.create(0, label, &attrs); });
  }
}

TEST(RandomOperations, AgreeWithAPlainModelAtEveryStep) {
  const uint32_t chosen_seed = seed();
  std::cout << "KIVO_MODEL_SEED=" << chosen_seed << std::endl;
  kivo_test::reset_process();
  Sequence run(chosen_seed);
  const uint64_t named_blocks = named_live_blocks();
  std::vector<Count> counts(operations().size());
  prepare(run);
  size_t fewest = run.plain().records().size(), most = fewest;
  for (uint32_t step = 1; step <= kSteps; ++step) {
    run.set_target(target_at(step));
    const Operation &operation = choose(run);
    Count &count = counts[static_cast<size_t>(&operation - operations().data())];
    ++(operation.step(run) ? count.hits : count.misses);
    ASSERT_EQ("", run.failure()) << "step " << step << ": " << operation.name;
    fewest = std::min(fewest, run.plain().records().size());
    most = std::max(most, run.plain().records().size());
    if (step % kStepsBetweenComparisons != 0) continue;
    compare_everything(run);
    ASSERT_EQ("", run.failure()) << "after step " << step;
    ASSERT_FALSE(HasFailure()) << "after step " << step;
  }
  std::cout << fewest << " to " << most << " records\n";
  EXPECT_LE(kFewestRecords, fewest);
  EXPECT_GE(kMostRecords, most);
  expect_broad_coverage(counts, run);
  expect_nothing_left(run, named_blocks);
  ASSERT_EQ("", run.failure());
}

}  // namespace
}  // namespace kivo_model
