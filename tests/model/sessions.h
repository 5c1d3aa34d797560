// What a random sequence does to sessions. Two sides offer it: the library (LibrarySessions) and
// plain containers with linear searches (PlainSessions). Both answer in the same terms, and both
// call the same reactions when a change is announced, so that callbacks write on either side.
// Invariant: a reaction depends on the announcement and on answers of its own side only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kivo/kivo.h"

namespace kivo_model {

using Bytes = std::string;
using Attr = std::pair<uint32_t, Bytes>;
using Attrs = std::vector<Attr>;
using Labels = std::vector<uint32_t>;

constexpr uint32_t kDatabases = 2;
constexpr uint32_t kNoDatabase = 2;  // stands for a null handle
constexpr uint32_t kLists = 3;
constexpr uint32_t kBadList = 3;  // stands for a block without the marker
constexpr uint32_t kQueries = 4;
constexpr uint32_t kCompanion = 0x80000000;  // this bit over a label: a record that callbacks make
constexpr uint32_t kUnsupported = 1491;      // a type outside the dictionary

enum class Accel { kNone, kUnindexed, kIndexed };
enum class Shape { kText, kNumber, kAddresses, kIdentity };

// A type that the sequence uses: how many values of it there are, and what each database has it as.
struct TypeRow {
  uint32_t type;
  Shape shape;
  uint32_t vocabulary;
  struct {
    Accel accel;
    uint32_t actions;  // of the registration; looked at for accel types only
  } in[kDatabases];
};
constexpr uint32_t kTypeCount = 20;
extern const TypeRow kTypes[kTypeCount];

// The row of a type, null for one that the sequence does not know.
const TypeRow *row_of(uint32_t type);

// How an operation is told its record.
enum class Named { kByLabel, kByRecord, kByRecordAlone };
struct Target {
  uint32_t label;
  Named named = Named::kByLabel;
};

enum class Write { kUpdate, kAdd, kAddToRecord, kUpdateInRecord };
enum class ListWrite { kUpdate, kCleanAndAdd, kAdd };
enum class Handle { kGood, kZero, kStale };
struct ListArg {
  Attrs attrs;
  Handle handle = Handle::kGood;
};

// The value of a removal: given bytes, none, or the bytes that the record stores.
enum class Given { kBytes, kNull, kStored };

// What an operation answers: its status, and its outputs in fixed places.
struct Answer {
  uint32_t status = 0;
  uint32_t number = 0;
  uint32_t state = 0;
  Labels labels = {};
  Attrs attrs = {};
  bool operator==(const Answer &) const = default;
};

// A call of a change callback, or the status of what a callback did.
struct Event {
  std::string_view what;
  uint32_t db = 0, label = 0, type = 0, action = 0, status = 0;
  Bytes value = {};
  Bytes old_value = {};     // all of the process's old value
  bool well_formed = true;  // padding, count and handles are as promised
  bool operator==(const Event &) const = default;
};

// The operations, one row each; both sides implement them.
// clang-format off
#define KIVO_MODEL_OPERATIONS(X) \
  X(create, uint32_t db, uint32_t label, const Attrs *adopted) \
  X(destroy, uint32_t db, uint32_t label) \
  X(find, uint32_t db, uint32_t label) \
  X(write, Write op, uint32_t db, Target to, uint32_t type, const Bytes &value) \
  X(write_list, ListWrite op, uint32_t db, Target to, const ListArg &list) \
  /* Writes the stored value of one type, in place, as the value of another. */ \
  X(copy, uint32_t db, uint32_t label, uint32_t from, uint32_t to) \
  X(remove_type, uint32_t db, uint32_t label, uint32_t type) \
  X(remove_types, uint32_t db, Target from, const std::vector<uint32_t> &types) \
  X(remove_value, uint32_t db, uint32_t label, uint32_t type, Given given, const Bytes &value) \
  X(set_old_value, uint32_t type, const Bytes &value) \
  X(labels_of, uint32_t db, uint32_t type, const Bytes &value) \
  X(label_of, uint32_t db, uint32_t type, const Bytes &value) \
  X(record_of, uint32_t db, uint32_t type, const Bytes &value) \
  X(next_interface, uint32_t after) \
  X(read, uint32_t db, uint32_t label, uint32_t type) \
  X(read_record, uint32_t label, uint32_t type) \
  X(merge, uint32_t label, const ListArg &list) \
  X(start_query, uint32_t query, uint32_t db) \
  X(add_to_query, uint32_t query, uint32_t type, const Bytes &value) \
  X(take_matches, uint32_t query) \
  X(match_list, uint32_t db, const ListArg &list) \
  X(all_sessions, uint32_t db) \
  X(append, uint32_t list, const Labels &labels) \
  X(get, uint32_t list, uint32_t position) \
  X(clear, uint32_t list) \
  X(intersect, uint32_t a, uint32_t b)
// clang-format on
#define KIVO_MODEL_OVERRIDE(name, ...) Answer name(__VA_ARGS__) override;

class Sessions {
 public:
  Sessions() = default;
  virtual ~Sessions() = default;
  Sessions(const Sessions &) = delete;
  Sessions &operator=(const Sessions &) = delete;

#define KIVO_MODEL_DECLARE(name, ...) virtual Answer name(__VA_ARGS__) = 0;
  KIVO_MODEL_OPERATIONS(KIVO_MODEL_DECLARE)
#undef KIVO_MODEL_DECLARE

  // The announcements and reactions since the last call, in order.
  std::vector<Event> take_events() { return std::exchange(events_, {}); }

 protected:
  // Notes an announcement and reacts to it, unless the reactions nest too deep already.
  void announced(Event event);
  // Frees the attribute list that is being written, if that side has one.
  virtual void free_list_in_hand() = 0;

 private:
  void react(const Event &event);
  void react_in_record(const Event &event);
  void toggle_companion(const Event &event);
  void reacted(std::string_view what, const Answer &answer);

  std::vector<Event> events_;
  uint32_t depth_ = 0;
};

}  // namespace kivo_model
