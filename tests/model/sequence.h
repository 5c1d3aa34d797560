// One random sequence: both sides, what they announce, and the comparison of the two after every
// step. In a change callback an operation may follow, whatever it is: the library's side draws it,
// the model's side repeats it in the same callback. In some steps a platform call fails, or memory
// runs out; callbacks do nothing then, and the model takes over what the library was left with, if
// that is one of the states that it may be in.
#pragma once

#include <map>

#include "model/chance.h"
#include "model/library.h"

namespace kivo_model {

// What a sequence is made of.
struct Setting {
  uint32_t seed;
  uint32_t n_steps;
  uint32_t n_labels;    // that records may have
  size_t fewest, most;  // records, up and down between these bounds
  bool shares_values;   // every record of the beginning has a domain, a method and an interface
};

class Sequence {
 public:
  explicit Sequence(const Setting &setting);

  // Goes on until the end, or the first disagreement, which it returns in words.
  std::string run();

  struct Count {
    uint32_t succeeded = 0, failed = 0, nested = 0, faults = 0;
  };
  [[nodiscard]] const std::map<std::string, Count> &counts() const { return counts_; }

 private:
  enum Side { kLibrary, kModel };
  struct Reaction {
    const Operation *operation = nullptr;  // null for none
    Args args = {};
  };

  std::string prepare();
  std::string step();
  std::string perform(const Operation &operation, const Args &args);
  std::string take_over(const Operation &operation, const Args &args, const Outcome &got);
  std::string compare_everything();
  std::string finish();
  std::string compare(const Outcome &got, const Outcome &expected) const;
  Outcome perform_plain(const Operation &operation, const Args &args);
  Reaction draw(bool nested);
  void announced(Side side, const Bytes &event);
  void react(Side side, const Reaction &reaction);

  const Setting setting_;
  Plain plain_;
  Library library_;
  Chance chance_;
  std::vector<Operation> operations_;
  std::vector<Bytes> events_[2];
  std::vector<Reaction> reactions_;
  size_t next_reaction_ = 0;
  uint32_t depth_ = 0;
  bool reacts_ = true;
  std::map<std::string, Count> counts_;
};

}  // namespace kivo_model
