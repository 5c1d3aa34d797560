// The model: records as ordered maps of plain values, an index that is a map, notifications as a
// table of action bits. It is written from the contract in the public headers and shares no code
// with the library. Every change and announcement is counted: a run can be cut short in front of
// the n-th, which is how a failure in the middle is compared.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>

#include "model/operation.h"

namespace kivo_model {

struct Record {
  std::map<uint32_t, Bytes> attrs;  // type 10: its addresses back to back
  std::map<uint32_t, std::vector<std::pair<uint16_t, Bytes>>> identities;  // newest first
  bool has_shadow = false, had_identities = false;
  bool operator==(const Record &) const = default;
};

struct Registration {
  uint32_t actions = 0;
  std::vector<uint32_t> handles = {};
};

struct Query {
  uint32_t db = kNoDatabase;
  std::optional<Labels> candidates = {};
  Attrs stored = {};
  bool may_match = false;
  void reset() { candidates.reset(), stored.clear(); }
};

// Thrown in front of the change at which a run is to be cut.
struct Cut {};

class Plain {
 public:
  using Announce = std::function<void(uint32_t db, uint32_t label, uint32_t type, uint32_t action,
                                      const Bytes &value, const Labels &handles)>;
  explicit Plain(Announce announce) : announce_(std::move(announce)) {}

  // ---- Records
  Record *at(uint32_t label);
  uint32_t create(uint32_t label, const Attrs &attrs);
  uint32_t destroy(uint32_t label);
  // The record of the arguments, null when there is none; a status for one that names nothing.
  uint32_t resolve(const Args &args, Record *&record);
  // The labels of those that have a value, ascending.
  [[nodiscard]] Labels holders(uint32_t type, const Bytes &value) const;
  [[nodiscard]] uint32_t count_holders(uint32_t type) const;
  // Puts a record back as it was before a run that was cut.
  void restore(uint32_t label, const std::optional<Record> &record);

  // ---- Writes
  uint32_t store(uint32_t label, uint32_t type, const Bytes &value, bool &changed);
  uint32_t store_identity(uint32_t label, uint32_t type, const Bytes &value);
  uint32_t add_to_record(const Args &args, uint32_t type, const Bytes &value);
  uint32_t remove_type(uint32_t db, uint32_t label, uint32_t type);
  uint32_t remove_stored(uint32_t label, uint32_t type, const Bytes &value);
  void remove_identity(uint32_t label, uint32_t type, uint16_t subtype);
  uint32_t notify(uint32_t db, uint32_t type, const Bytes &value, uint32_t label, uint32_t action);
  void notify_removal(uint32_t db, uint32_t type, const Bytes &value, uint32_t label);

  // In front of every change.
  void happen();

  std::map<uint32_t, Record> records;
  std::map<Attr, std::set<uint32_t>> index;
  Labels slots;  // in the order of the store's walk, 0 where a record went
  std::vector<size_t> freed_slots;
  std::map<std::pair<uint32_t, uint32_t>, Registration> registrations;  // by database and type
  kivo_attr_value old_value = {};
  Query queries[kQueries];
  Labels lists[kLists];
  uint32_t changes_left = UINT32_MAX;

 private:
  void assign(uint32_t label, uint32_t type, const Bytes *value);
  void enter(uint32_t label, uint32_t type, bool comes);
  uint32_t store_addresses(uint32_t label, const Bytes &value, bool &changed);

  Announce announce_;
};

}  // namespace kivo_model
