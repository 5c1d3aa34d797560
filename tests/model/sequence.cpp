#include "model/sequence.h"

#include <algorithm>
#include <cstring>

namespace kivo_model {
namespace {

constexpr uint32_t kMaxDepth = 3;       // callbacks inside callbacks
constexpr uint32_t kMaxReactions = 12;  // in one step
constexpr uint32_t kStepsBetweenComparisons = 2000;

// What an operation may say when a platform call failed: its own statuses, and the call's.
constexpr uint32_t kFailures[] = {
    KIVO_ERR_FAILED,        KIVO_ERR_NO_MEMORY,          KIVO_ERR_INVALID_ARG,
    KIVO_ERR_NO_CURSOR,     KIVO_ERR_INVALID_VALUE,      ATTRDB_ERR_NO_MEMORY,
    AAA_ERR_NO_MEMORY,      KIVO_INDEX_LIST_NO_MEMORY,   KIVO_INDEX_LIST_INVALID,
    ATTRDB_ERR_INVALID_ARG, KIVO_INDEX_LIST_HASH_FAILED, 0xdead};

Bytes event_words(uint32_t db, uint32_t label, uint32_t type, uint32_t action, const Bytes &value,
                  const Labels &handles, const kivo_attr_value &old_value) {
  Bytes words = "  announced: database " + std::to_string(db) + " label " + std::to_string(label) +
                " type " + std::to_string(type) + " action " + std::to_string(action) + " handles";
  for (const uint32_t handle : handles) words += " " + std::to_string(handle);
  return words + " value " + value + " old " +
         Bytes(reinterpret_cast<const char *>(&old_value), sizeof old_value);
}

uint32_t total_weight(const std::vector<Operation> &operations) {
  uint32_t total = 0;
  for (const Operation &operation : operations) total += operation.weight;
  return total;
}

}  // namespace

Sequence::Sequence(const Setting &setting)
    : setting_(setting),
      plain_([this](uint32_t db, uint32_t label, uint32_t type, uint32_t action, const Bytes &value,
                    const Labels &handles) {
        announced(kModel, event_words(db, label, type, action, value, handles, plain_.old_value));
      }),
      library_([this](uint32_t db, uint32_t label, uint32_t type, uint32_t action,
                      const Bytes &value, const Labels &handles) {
        announced(kLibrary,
                  event_words(db, label, type, action, value, handles, kivo_notify_old_value));
      }),
      chance_(setting.seed, plain_, setting.n_labels, setting.fewest) {
  for (const auto &some : {record_operations(), write_operations(), set_operations()}) {
    operations_.insert(operations_.end(), some.begin(), some.end());
  }
}

// ---- The sequence

std::string Sequence::run() {
  std::string report = prepare();
  for (uint32_t i = 1; report.empty() && i <= setting_.n_steps; ++i) {
    const size_t half = setting_.n_steps / 4;  // twice up and down
    const size_t at = i % (2 * half);
    chance_.set_wanted(setting_.fewest +
                       (setting_.most - setting_.fewest) * (at < half ? at : 2 * half - at) / half);
    report = step();
    if (report.empty() && i % kStepsBetweenComparisons == 0) report = compare_everything();
    if (!report.empty()) report = "step " + std::to_string(i) + ": " + report;
  }
  return report.empty() ? finish() : report;
}

std::string Sequence::prepare() {
  const auto named = [&](const char *name) -> const Operation & {
    return *std::ranges::find_if(operations_, [&](const Operation &operation) {
      return std::strcmp(operation.name, name) == 0;
    });
  };
  std::string report;
  const Operation &create = named("create a filled record");
  while (report.empty() && plain_.records.size() < setting_.fewest) {
    Args args{.label = chance_.pool_label(), .attrs = chance_.attrs()};
    if (setting_.shares_values) {
      for (const uint32_t type : {AAA_ATTR_DOMAIN, AAA_ATTR_METHOD, AAA_ATTR_INTERFACE_ID}) {
        Chance::add(args.attrs, {type, chance_.value(type)});
      }
    }
    report = perform(create, args);
  }
  const Operation &listen = named("register for changes");
  for (const TypeRow &row : kTypes) {
    for (uint32_t db = 0; report.empty() && db < kDatabases; ++db) {
      report = perform(listen, {.db = db, .type = row.type, .number = chance_.below(8)});
    }
  }
  return report;
}

Sequence::Reaction Sequence::draw(bool nested) {
  static const uint32_t total = total_weight(operations_);
  uint32_t at = chance_.below(total);
  const Operation *operation = operations_.data();
  while (at >= operation->weight) at -= (operation++)->weight;
  Reaction drawn{operation, chance_.args(nested)};
  if (operation->draw != nullptr) operation->draw(chance_, drawn.args);
  if ((operation->flags & kDeletes) != 0 && library_.is_in_hand(drawn.args.label)) {
    drawn.args.label = 0;
  }
  return drawn;
}

std::string Sequence::step() {
  const Reaction drawn = draw(false);
  return perform(*drawn.operation, drawn.args);
}

// On both sides.
std::string Sequence::perform(const Operation &operation, const Args &args) {
  Count &count = counts_[operation.name];
  for (auto &events : events_) events.clear();
  reactions_.clear();
  next_reaction_ = 0;
  reacts_ = (operation.flags & kNoFaults) != 0 || !chance_.percent(15);
  const uint32_t number = reacts_ ? 0 : 1 + chance_.below(1u << chance_.below(9));
  const bool fails_memory = chance_.percent(30);
  const Outcome got = library_.perform(operation, args, fails_memory ? 0 : number,
                                       fails_memory ? (number + 7) / 8 : 0);
  const bool failed = number != 0 && library_.failed();
  std::string report;
  if (failed && got.status != 0) {
    report = take_over(operation, args, got);
  } else {
    const Outcome expected = perform_plain(operation, args);
    const bool may_differ = failed && (operation.flags & kHidesFaults) != 0;
    report = compare(may_differ ? expected : got, expected);
  }
  count.faults += failed ? 1 : 0;
  ++(got.status == 0 ? count.succeeded : count.failed);
  const bool counts = plain_.records.size() < 2000 || chance_.percent(5);  // takes a while
  if (report.empty() && failed && counts &&
      Library::live_counts() != Library::live_counts(plain_)) {
    report =
        "\n  out      " + Library::live_counts() + "\n  expected " + Library::live_counts(plain_);
  }
  if (report.empty()) return report;
  return std::string(operation.name) + in_words(args) +
         (failed ? "\n  with a fault, call " + std::to_string(number) +
                       (fails_memory ? " for memory" : "")
                 : "") +
         report;
}

Outcome Sequence::perform_plain(const Operation &operation, const Args &args) {
  Outcome outcome;
  outcome.status = operation.plain(plain_, args, outcome);
  return outcome;
}

// The library failed. What it was left with must be what the model has when it stops somewhere.
std::string Sequence::take_over(const Operation &operation, const Args &args, const Outcome &got) {
  if (std::ranges::find(kFailures, got.status) == std::end(kFailures)) {
    return "\n  a status that nobody named:" + in_words(got);
  }
  if (operation.failed != nullptr) {
    Outcome expected = got;
    operation.failed(plain_, args, expected);
    expected.status = got.status;
    return compare(got, expected);
  }
  const Record left = Library::read_record(args.label);
  const kivo_attr_value old_value = plain_.old_value;
  for (uint32_t n_changes = 0;; ++n_changes) {
    std::optional<Record> before;
    if (plain_.at(args.label) != nullptr) before = *plain_.at(args.label);
    events_[kModel].clear();
    plain_.old_value = old_value;
    plain_.changes_left = n_changes;
    bool was_cut = false;
    try {
      perform_plain(operation, args);
    } catch (const Cut &) {
      was_cut = true;
    }
    plain_.changes_left = UINT32_MAX;
    Record *record = plain_.at(args.label);
    if (record != nullptr) record->has_shadow = left.has_shadow;
    const bool exists = kivo_test::find_record(args.label) != nullptr;
    if (events_[kLibrary] == events_[kModel] && exists == (record != nullptr) &&
        left == (record == nullptr ? Record() : *record)) {
      plain_.old_value = kivo_notify_old_value;
      return "";
    }
    if (!was_cut) return "\n  neither before nor after nor in between" + compare(got, got);
    plain_.restore(args.label, before);
  }
}

// ---- Callbacks

void Sequence::announced(Side side, const Bytes &event) {
  events_[side].push_back(event);
  if (!reacts_ || depth_ == kMaxDepth) return;
  if (side == kLibrary) {
    const bool does = reactions_.size() < kMaxReactions && chance_.percent(40);
    reactions_.push_back(does ? draw(true) : Reaction());
    react(side, Reaction(reactions_.back()));
  } else if (next_reaction_ < reactions_.size()) {
    react(side, reactions_[next_reaction_++]);
  }
}

void Sequence::react(Side side, const Reaction &reaction) {
  if (reaction.operation == nullptr) return;
  ++depth_;
  const Outcome outcome = side == kLibrary ? library_.perform(*reaction.operation, reaction.args)
                                           : perform_plain(*reaction.operation, reaction.args);
  --depth_;
  events_[side].push_back("  in the callback: " + std::string(reaction.operation->name) +
                          in_words(reaction.args) + in_words(outcome));
  ++counts_[reaction.operation->name].nested;
}

// ---- Comparing

std::string Sequence::compare(const Outcome &got, const Outcome &expected) const {
  std::string words;
  if (got != expected) words = "\n  got     " + in_words(got) + "\n  expected" + in_words(expected);
  const auto [mine, others] = std::ranges::mismatch(events_[kLibrary], events_[kModel]);
  if (mine == events_[kLibrary].end() && others == events_[kModel].end()) return words;
  const auto event = [&](Side side, auto at) {
    return at == events_[side].end() ? "nothing" : in_words(*at, 1500);
  };
  return words + "\n  event " + std::to_string(mine - events_[kLibrary].begin()) + " got     " +
         event(kLibrary, mine) + "\n  expected " + event(kModel, others);
}

std::string Sequence::compare_everything() {
  for (const auto &[label, record] : plain_.records) {
    const Record stored = Library::read_record(label);
    if (stored == record) continue;
    std::string words = "after it: record " + std::to_string(label) + " differs";
    for (const TypeRow &row : kTypes) {
      const auto value = [&](const Record &one) {
        const auto found = one.attrs.find(row.type);
        return found == one.attrs.end() ? "none" : in_words(found->second, 60);
      };
      if (value(stored) == value(record)) continue;
      words += "\n  type " + std::to_string(row.type) + " got " + value(stored) + " expected " +
               value(record);
    }
    return words;
  }
  for (const auto &[attr, labels] : plain_.index) {
    if (attr.second.empty()) continue;
    kivo_index_list *list = nullptr;
    uint32_t count = 0;
    kivo_index_list_create(&list);
    kivo_match_labels_by_attr(library_.dbs[0], attr.first, attr.second.data(),
                              static_cast<uint32_t>(attr.second.size()), &list, &count);
    uint32_t position = 0;
    const bool equal = count == labels.size() && std::ranges::all_of(labels, [&](uint32_t label) {
                         return kivo_index_list_next(list, &position) == label;
                       });
    kivo_index_list_free(list);
    if (!equal) {
      return "after it: the labels of type " + std::to_string(attr.first) + " value " +
             in_words(attr.second, 60) + " differ: " + std::to_string(count) + " instead of " +
             std::to_string(labels.size());
    }
  }
  const std::string out = Library::live_counts(), expected = Library::live_counts(plain_);
  return out == expected ? "" : "after it:\n  out      " + out + "\n  expected " + expected;
}

// Ends the queries and the records; what is out then is the label lists and the registrations.
std::string Sequence::finish() {
  std::string report = compare_everything();
  for (uint32_t i = 0; i < kQueries; ++i) {
    kivo_index_list *list = nullptr;
    uint32_t count = 0;
    kivo_get_matches_for_query(&library_.queries[i], &list, &count);
    kivo_index_list_free(list);
    plain_.queries[i].reset();
  }
  while (report.empty() && !plain_.records.empty()) {
    const uint32_t label = chance_.live_label();
    const uint32_t status = kivo_delete_record(nullptr, label);
    if (status != plain_.destroy(label)) report = "a record cannot be deleted";
  }
  return report.empty() ? compare_everything() : report;
}

}  // namespace kivo_model
