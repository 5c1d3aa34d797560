// The model: records as ordered maps of plain values, every search linear, notifications as a table
// of action bits. It is written from the contract in the public headers and shares no code with the
// library. Changes are counted, which tells an operation that did something from one that did not.
#pragma once

#include <map>
#include <optional>

#include "model/sessions.h"

namespace kivo_model {

struct Identity {
  uint16_t subtype;
  Bytes value;
};

struct Record {
  std::map<uint32_t, Bytes> attrs;                         // type 10: its addresses back to back
  std::map<uint32_t, std::vector<Identity>> identities{};  // by type, newest first
  bool has_identities = false;
};

class PlainSessions final : public Sessions {
 public:
  KIVO_MODEL_OPERATIONS(KIVO_MODEL_OVERRIDE)

  [[nodiscard]] const std::map<uint32_t, Record> &records() const { return records_; }
  // Labels in the order of the store's walk, 0 where a record went.
  [[nodiscard]] const Labels &slots() const { return slots_; }
  [[nodiscard]] uint64_t changes() const { return changes_; }
  [[nodiscard]] const Labels &list(uint32_t number) const { return lists_[number]; }
  [[nodiscard]] bool query_holds_list(uint32_t query) const {
    return queries_[query].candidates.has_value();
  }

 private:
  struct Query {
    uint32_t db = 0;
    std::optional<Labels> candidates{};
    Attrs stored{};
    bool may_match = false;
    void reset();
    [[nodiscard]] Answer state(uint32_t status, uint32_t flag) const;
  };

  void free_list_in_hand() override {}
  Record *at(uint32_t label);
  uint32_t resolve(Target target, Record *&record);
  uint32_t store(Record &record, uint32_t type, const Bytes &value, bool &changed);
  uint32_t store_addresses(Record &record, const Bytes &value, bool &changed);
  uint32_t store_identity(Record &record, uint32_t type, const Bytes &value, bool &changed);
  uint32_t notify(uint32_t db, uint32_t type, const Bytes *value, uint32_t label, uint32_t action);
  uint32_t add_to_record(uint32_t db, uint32_t label, uint32_t type, const Bytes &value);
  uint32_t write_listed(ListWrite op, uint32_t db, uint32_t told, uint32_t label, const Attr &attr);
  void notify_removal(uint32_t db, uint32_t type, const Bytes *value, uint32_t label);
  uint32_t remove_stored(Record &record, uint32_t type, const Bytes *value);
  uint32_t remove_identity(Record &record, uint32_t type, const Bytes *value);
  [[nodiscard]] Labels search(uint32_t type, const Bytes &value) const;
  uint32_t check_candidates(const Query &query, const Attr &condition, bool &found) const;
  uint32_t narrow(Query &query, const Attr &condition);
  uint32_t check_or_store(Query &query, const Attr &condition);

  std::map<uint32_t, Record> records_;
  Labels slots_;
  std::vector<size_t> freed_slots_;
  uint64_t changes_ = 0;
  kivo_attr_value old_value_ = {};
  Query queries_[kQueries];
  Labels lists_[kLists];
};

}  // namespace kivo_model
