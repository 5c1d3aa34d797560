// What an operation of the random sequence is: a name, how often it comes, and its two meanings, as
// a call of the library and in terms of the plain model. Both take the same arguments and leave
// their outputs in the same places; a meaning returns the status.
#pragma once

#include <span>

#include "model/types.h"

namespace kivo_model {

class Plain;
class Library;
class Chance;
struct Call;

constexpr uint32_t kUntouched = 7;  // what outputs hold before
constexpr uint32_t kQueries = 4;
constexpr uint32_t kLists = 3;
constexpr uint32_t kBadList = 3;   // stands for a block without the marker
constexpr uint32_t kNullList = 4;  // for a null pointer

enum class Named { kByLabel, kByRecord, kByRecordAlone };
enum class Handle { kGood, kZero, kStale };

// The arguments of any operation; each looks at those that it has.
struct Args {
  uint32_t db = 0, label = 0, type = 0;
  Named named = Named::kByLabel;
  Bytes value = {};
  bool null_value = false, null_out = false;
  uint32_t stored = 0, offset = 0;  // the value lies in the record itself, in that of this type
  Attrs attrs = {};                 // an attribute list
  Handle handle = Handle::kGood;
  Labels labels = {};
  uint32_t query = 0, list = 0, other = 0, number = 0;
};

struct Outcome {
  uint32_t status = 0;
  uint32_t number = kUntouched, length = kUntouched;
  uint32_t found = kUntouched;  // the label of a record, 0 for null
  bool has_list = false;
  Labels labels = {};
  Attrs attrs = {};
  bool operator==(const Outcome &) const = default;
};

// Words for the report of a failure, and for comparing.
std::string in_words(const Args &args);
std::string in_words(const Outcome &outcome);
std::string in_words(const Bytes &bytes, size_t most);

enum Flags : uint32_t {
  kAdopts = 1,       // takes a context with the attributes
  kShowsAttrs = 2,   // writes to the attribute list
  kNoFaults = 4,     // goes on after a failure, so that what is left is no prefix
  kHidesFaults = 8,  // may tell less, with status 0, when a platform call fails
  kDeletes = 16,     // not what is being written
};

struct Operation {
  const char *name;
  uint32_t weight;  // its share of the sequence, against the sum of all weights
  uint32_t (*library)(Call &call);
  uint32_t (*plain)(Plain &plain, const Args &args, Outcome &outcome);
  void (*draw)(Chance &chance, Args &args) = nullptr;  // after the arguments were drawn as for all
  uint32_t flags = 0;
  // What the model makes of it when the library failed for a fault and gave this outcome; without
  // it, that some of its changes happened, in their order.
  void (*failed)(Plain &plain, const Args &args, Outcome &outcome) = nullptr;
};

std::span<const Operation> record_operations();
std::span<const Operation> write_operations();
std::span<const Operation> set_operations();

}  // namespace kivo_model
