// The kinds of operations. See operations.h.
#include "model/operations.h"

namespace kivo_model {
namespace {

constexpr uint32_t kLongListFrom = 1500;  // labels from which a label list is rather emptied

bool create(Sequence &run, const Attrs *adopted) {
  const uint32_t db = run.database();
  const uint32_t in_use_percent = run.is_below_target() ? 8 : 70;
  uint32_t label = run.chance(in_use_percent) ? run.live_label() : run.pool_label();
  if (run.chance(1)) label = 0;
  return run.both([&](Sessions &s) { return s.create(db, label, adopted); }).status == 0;
}

bool create_empty(Sequence &run) { return create(run, nullptr); }

bool create_filled(Sequence &run) {
  const Attrs attrs = run.list(true).attrs;
  return create(run, &attrs);
}

bool destroy(Sequence &run) {
  const uint32_t db = run.database();
  const uint32_t label =
      run.chance(run.is_below_target() ? 75 : 15) ? run.pool_label() : run.live_label();
  return run.both([&](Sessions &s) { return s.destroy(db, label); }).status == 0;
}

bool find(Sequence &run) {
  const uint32_t db = run.database();
  const uint32_t label = run.label();
  return !run.both([&](Sessions &s) { return s.find(db, label); }).labels.empty();
}

template <Write kOp>
bool write(Sequence &run) {
  const uint32_t db = run.database();
  const Target to = run.target();
  Attr attr = run.chance(15) ? run.attr_of(to.label) : run.attr();  // what is stored: no change
  if (run.below(1000) == 0 && attr.first != kUnsupported) {
    attr.second.assign(AAA_VALUE_SIZE_MAX + run.below(2), 'x');  // as long as can be, or longer
  }
  run.both([&](Sessions &s) { return s.write(kOp, db, to, attr.first, attr.second); });
  return run.changed();
}

template <ListWrite kOp>
bool write_list(Sequence &run) {
  const uint32_t db = run.database();
  const Target to = run.target();
  const ListArg list = run.chance(10) ? run.list_of(to.label) : run.list(true);
  run.both([&](Sessions &s) { return s.write_list(kOp, db, to, list); });
  return run.changed();
}

bool copy(Sequence &run) {
  const uint32_t db = run.database();
  const uint32_t label = run.live_label();
  const uint32_t from = run.chance(80) ? run.attr_of(label).first : run.stored_type();
  const uint32_t to = run.stored_type();
  run.both([&](Sessions &s) { return s.copy(db, label, from, to); });
  return run.changed();
}

bool remove_type(Sequence &run) {
  const uint32_t db = run.database();
  const uint32_t label = run.label();
  const uint32_t type = run.chance(70) ? run.attr_of(label).first : run.type();
  run.both([&](Sessions &s) { return s.remove_type(db, label, type); });
  return run.changed();
}

bool remove_types(Sequence &run) {
  const uint32_t db = run.database();
  const Target from = run.target();
  std::vector<uint32_t> types;
  for (uint32_t n = run.below(4); n > 0; --n) types.push_back(run.type());
  run.both([&](Sessions &s) { return s.remove_types(db, from, types); });
  return run.changed();
}

bool remove_value(Sequence &run) {
  const uint32_t db = run.database();
  const uint32_t label = run.label();
  const Attr attr = run.chance(50) ? run.attr_of(label) : run.attr();
  Given given = Given::kBytes;
  if (attr.first != kUnsupported && run.chance(20)) {
    given = run.chance(20) ? Given::kNull : Given::kStored;
  }
  if (attr.first == 0) given = Given::kBytes;
  run.both([&](Sessions &s) { return s.remove_value(db, label, attr.first, given, attr.second); });
  return run.changed();
}

bool set_old_value(Sequence &run) {
  const Bytes value(run.below(400), 'o');
  const uint32_t type = run.stored_type();
  return run.both([&](Sessions &s) { return s.set_old_value(type, value); }).status == 0;
}

// What a look-up asks for: mostly the value of some record.
Attr wanted(Sequence &run) { return run.chance(60) ? run.attr_of(run.live_label()) : run.attr(); }

template <auto kOp>
bool look_up(Sequence &run) {
  const uint32_t db = run.database();
  const Attr attr = wanted(run);
  const auto answer = run.both([&](Sessions &s) { return (s.*kOp)(db, attr.first, attr.second); });
  return answer.status == 0 && (answer.number != 0 || !answer.labels.empty());
}

bool next_interface(Sequence &run) {
  const uint32_t after = run.below(300);
  return run.both([&](Sessions &s) { return s.next_interface(after); }).number != 0;
}

bool read(Sequence &run) {
  const uint32_t db = run.database();
  const uint32_t label = run.label();
  const uint32_t type = run.chance(60) ? run.attr_of(label).first : run.type();
  return !run.both([&](Sessions &s) { return s.read(db, label, type); }).attrs.empty();
}

bool read_record(Sequence &run) {
  const uint32_t label = run.label();
  const uint32_t type = run.chance(60) ? run.attr_of(label).first : run.type();
  return !run.both([&](Sessions &s) { return s.read_record(label, type); }).attrs.empty();
}

bool merge(Sequence &run) {
  const uint32_t label = run.label();
  const ListArg list = run.list(true);
  const auto answer = run.both([&](Sessions &s) { return s.merge(label, list); });
  return answer.attrs.size() > list.attrs.size();
}

bool take_matches(Sequence &run, uint32_t query) {
  const auto answer = run.both([&](Sessions &s) { return s.take_matches(query); });
  return answer.number != 0;
}

// A query that holds a list must be taken before it is started anew.
bool start_query(Sequence &run) {
  const uint32_t query = run.below(kQueries);
  const uint32_t db = run.chance(15) ? kNoDatabase : run.database();
  if (run.plain().query_holds_list(query) && db != kNoDatabase) take_matches(run, query);
  return run.both([&](Sessions &s) { return s.start_query(query, db); }).status == 0;
}

// The conditions of one query come mostly from one record; it may go before the result is taken.
bool add_to_query(Sequence &run) {
  const uint32_t query = run.below(kQueries);
  uint32_t &basis = run.query_basis(query);
  if (!run.plain().records().contains(basis) || run.chance(10)) basis = run.live_label();
  // First a value that many have, which gives enough candidates for a check at once; later on often
  // an address, of which not all are compared.
  uint32_t wanted = run.chance(50) ? AAA_ATTR_METHOD : AAA_ATTR_DOMAIN;
  if (run.plain().query_holds_list(query)) wanted = run.chance(40) ? AAA_ATTR_IPV6_ADDRESSES : 0;
  Attr attr = run.chance(85) ? run.attr_of(basis, wanted) : run.attr();
  if (run.chance(10) && attr.second.size() > 1) attr.second.pop_back();  // a beginning
  const auto answer =
      run.both([&](Sessions &s) { return s.add_to_query(query, attr.first, attr.second); });
  return answer.number == 1;
}

// What has come to nothing is started again.
bool take_query(Sequence &run) {
  uint32_t query = run.below(kQueries);
  if (!run.plain().query_holds_list(query)) query = run.below(kQueries);
  const bool found = take_matches(run, query);
  if (!found && run.chance(80)) {
    const uint32_t db = run.below(kDatabases);
    run.both([&](Sessions &s) { return s.start_query(query, db); });
  }
  return found;
}

bool match_list(Sequence &run) {
  const uint32_t db = run.database();
  const ListArg list = run.chance(60) ? run.list_of(run.live_label()) : run.list(false);
  return run.both([&](Sessions &s) { return s.match_list(db, list); }).number != 0;
}

bool all_sessions(Sequence &run) {
  const uint32_t db = run.chance(20) ? kNoDatabase : run.database();
  return run.both([&](Sessions &s) { return s.all_sessions(db); }).number != 0;
}

uint32_t any_list(Sequence &run) { return run.chance(15) ? kBadList : run.below(kLists); }

bool append(Sequence &run) {
  const uint32_t list = any_list(run);
  Labels labels(run.chance(60) ? 1 : run.below(run.chance(10) ? 700 : 40));
  for (uint32_t &label : labels) label = run.pool_label();
  return run.both([&](Sessions &s) { return s.append(list, labels); }).status == 0;
}

bool get(Sequence &run) {
  const uint32_t list = any_list(run);
  const size_t size = list == kBadList ? 0 : run.plain().list(list).size();
  const uint32_t position = run.below(static_cast<uint32_t>(size + size / 4 + 2));
  return run.both([&](Sessions &s) { return s.get(list, position); }).status == 0;
}

bool clear(Sequence &run) {
  uint32_t list = any_list(run);
  for (uint32_t i = 0; i < kLists; ++i) {
    if (run.plain().list(i).size() > kLongListFrom) list = i;
  }
  return run.both([&](Sessions &s) { return s.clear(list); }).status == 0;
}

bool intersect(Sequence &run) {
  const uint32_t a = any_list(run);
  const uint32_t b = any_list(run);
  return !run.both([&](Sessions &s) { return s.intersect(a, b); }).labels.empty();
}

constexpr Operation kOperations[] = {
    {"create an empty record", 30, create_empty},
    {"create a filled record", 40, create_filled},
    {"delete a record", 50, destroy},
    {"find a record", 20, find},
    {"add or update an attribute", 70, write<Write::kUpdate>},
    {"add an attribute", 40, write<Write::kAdd>},
    {"add an attribute to a record", 40, write<Write::kAddToRecord>},
    {"add or update an attribute in a record", 40, write<Write::kUpdateInRecord>},
    {"write a value that the record stores", 20, copy},
    {"add or update a list", 60, write_list<ListWrite::kUpdate>},
    {"clean and add a list", 40, write_list<ListWrite::kCleanAndAdd>},
    {"add a list", 40, write_list<ListWrite::kAdd>},
    {"remove a type", 60, remove_type},
    {"remove several types", 30, remove_types},
    {"remove a value", 60, remove_value},
    {"set the old value", 15, set_old_value},
    {"find labels by value", 30, look_up<&Sessions::labels_of>},
    {"find a label by value", 30, look_up<&Sessions::label_of>},
    {"find a record by value", 30, look_up<&Sessions::record_of>},
    {"next interface id", 15, next_interface},
    {"read an attribute", 25, read},
    {"read an attribute of a record", 25, read_record},
    {"merge a record into a list", 20, merge},
    {"start a query", 15, start_query},
    {"add a condition", 60, add_to_query},
    {"take a result", 25, take_query},
    {"match a list", 30, match_list},
    {"list all sessions", 12, all_sessions},
    {"append labels", 30, append},
    {"read a label", 20, get},
    {"empty a label list", 15, clear},
    {"intersect label lists", 25, intersect},
};

}  // namespace

std::span<const Operation> operations() { return kOperations; }

}  // namespace kivo_model
