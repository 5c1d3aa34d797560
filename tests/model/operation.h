// What an operation of the random sequence is: a name, how often it comes, and its two meanings, as
// a call of the library and in terms of the plain model. Both take the same arguments and leave
// their outputs in the same places; a meaning gives the status.
#pragma once

#include <span>
#include <sstream>

#include "model/types.h"

namespace kivo_model {

class Plain;
class Chance;
struct Call;

constexpr uint32_t kUntouched = 7;  // what outputs hold before
constexpr uint32_t kHandles = 3;    // that a client has for each of its types
constexpr uint32_t kQueries = 4;
constexpr uint32_t kLists = 3;
constexpr uint32_t kBadList = 3;   // stands for a block without the marker
constexpr uint32_t kNullList = 4;  // for a null pointer, also to a query

enum class Named { kByLabel, kByRecord, kByRecordAlone };
enum class Handle { kGood, kZero, kStale };
enum class Given { kNothing, kNull, kList };

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
  Given list = Given::kNothing;
  Labels labels = {};
  Attrs attrs = {};
  bool operator==(const Outcome &) const = default;
};

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
  uint32_t (*library)(Call &c);
  uint32_t (*plain)(Plain &p, const Args &a, Outcome &o);
  void (*draw)(Chance &chance, Args &a) = nullptr;  // after the arguments were drawn as for all
  uint32_t flags = 0;
  // What the model makes of it when the library failed for a fault and gave this outcome; without
  // it, that some of its changes happened, in their order.
  void (*failed)(Plain &p, const Args &a, Outcome &o) = nullptr;
};
#define LIBRARY(...) [](Call &c) -> uint32_t { return __VA_ARGS__; }
#define PLAIN(...)                                              \
  []([[maybe_unused]] Plain &p, [[maybe_unused]] const Args &a, \
     [[maybe_unused]] Outcome &o) -> uint32_t { return __VA_ARGS__; }

std::span<const Operation> record_operations();
std::span<const Operation> write_operations();
std::span<const Operation> set_operations();

// ---- Words, for comparing what callbacks saw and for the report of a failure

inline std::ostream &operator<<(std::ostream &out, const Labels &labels) {
  out << "[" << labels.size() << "]";
  for (size_t i = 0; i < labels.size() && i < 40; ++i) out << " " << labels[i];
  return out << (labels.size() > 40 ? " ..." : "");
}
inline std::ostream &operator<<(std::ostream &out, const Attr &attr) {
  return out << " {" << attr.first << " " << attr.second.substr(0, 40) << " of "
             << attr.second.size() << "}";
}
inline std::ostream &operator<<(std::ostream &out, const Args &a) {
  out << "\n  database " << a.db << " label " << a.label << " named " << int(a.named) << " value"
      << Attr(a.type, a.value) << (a.null_value ? " null" : "") << (a.null_out ? " no output" : "")
      << " stored in " << a.stored << " from " << a.offset << " query " << a.query << " lists "
      << a.list << " " << a.other << " number " << a.number << " labels " << a.labels << "\n  list "
      << int(a.handle);
  for (const Attr &attr : a.attrs) out << attr;
  return out;
}
inline std::ostream &operator<<(std::ostream &out, const Outcome &o) {
  out << " status 0x" << std::hex << o.status << std::dec << " number " << o.number << " length "
      << o.length << " found " << o.found << " list " << int(o.list) << " " << o.labels;
  for (const Attr &attr : o.attrs) out << attr;
  return out;
}
template <typename... Things>
std::string in_words(const Things &...things) {
  std::ostringstream out;
  (out << ... << things);
  return out.str();
}

// An announcement, as a callback sees it.
inline std::string in_words(uint32_t db, uint32_t label, uint32_t action, const Attr &attr,
                            const Labels &handles, const kivo_attr_value &old) {
  return in_words("  announced: database ", db, " label ", label, " action ", action, " handles ",
                  handles, attr, " old value of ", old.aaa_type, " ", old.size, " ") +
         Bytes(reinterpret_cast<const char *>(old.data), sizeof old.data);
}

}  // namespace kivo_model
