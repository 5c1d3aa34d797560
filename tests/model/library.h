// The library's side: databases, handles, queries and label lists of one sequence, and calls in the
// making. One object at a time: change callbacks find it through a pointer of the process.
#pragma once

#include <functional>

#include "model/plain.h"
#include "support/process.h"

namespace kivo_model {

class Library {
 public:
  // Creates both databases.
  explicit Library(std::function<void(const Bytes &words)> announce);
  ~Library();
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

  // Performs an operation. The platform call, or the request for memory, with this number fails,
  // when it is reached; 0 for none.
  Outcome perform(const Operation &operation, const Args &args, uint32_t failing_call = 0,
                  uint32_t failing_new = 0);
  uint32_t create_database(uint32_t db);
  // Whether a record is being written, further out.
  [[nodiscard]] bool is_in_hand(uint32_t label) const;
  // Frees the attribute list that is walked further out, or appends to it.
  uint32_t meddle_with_list(bool frees);
  platform_queue_link *handles_of(uint32_t db, uint32_t type) {
    return handles_[db][&row_of(type) == &kNoRow ? 0 : &row_of(type) - kTypes];
  }

  static Record read_record(uint32_t label);
  // What is out of the platform's pools and counters, and what must be for a model.
  static Bytes live_counts();
  static Bytes live_counts(const Plain &plain);

  kivo_db *dbs[kDatabases + 1] = {};  // the last is null
  kivo_maqi queries[kQueries] = {};
  kivo_index_list *lists[kLists + 2] = {};  // then a bad one and null
  bool failed = false;                      // whether the last fault was reached

 private:
  static void on_change(kivo_db *db, uint32_t label, uint32_t n_values,
                        const kivo_attr_value *new_values, const kivo_attr_value *old_values,
                        uint32_t action, platform_queue *handles);

  std::function<void(const Bytes &words)> announce_;
  platform_queue_link handles_[kDatabases + 1][kTypeCount][kHandles] = {};
  kivo_index_list bad_list_ = {};
  std::vector<const Call *> in_hand_;
};

// A call: the arguments as the library takes them, and room for its outputs.
struct Call {
  Call(Library &its_library, const Args &args, uint32_t its_flags);
  ~Call();
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

  // The address of an output, or null where that is asked for.
  template <typename Output>
  Output *out(Output &output) const {
    return in.null_out ? nullptr : &output;
  }
  Outcome outcome(uint32_t status) const;
  // The query of the arguments, to be shown; null where that is asked for.
  kivo_maqi *shown_query() {
    kivo_maqi *its_query = in.other == kNullList ? nullptr : &library.queries[in.query];
    query = its_query;
    return its_query;
  }

  Library &library;
  const Args &in;
  const uint32_t flags;
  kivo_db *db;
  uint32_t label;               // 0 where the record is named alone
  attrdb_record *held;          // the record, whatever way it is named
  attrdb_record *record;        // null where it is named by its label
  const void *value = nullptr;  // of size bytes
  uint32_t size;
  uint32_t attrs = 0;         // the handle of the attribute list
  auth_ctxt *ctxt = nullptr;  // to be adopted

  uint32_t number = kUntouched, length = kUntouched;
  attrdb_record *found;
  const void *bytes;
  kivo_index_list *labels;
  Labels numbers = {};
  const kivo_maqi *query = nullptr;  // to be shown

 private:
  const Bytes padded_;
  kivo_test::AttrList list_;
};

}  // namespace kivo_model
