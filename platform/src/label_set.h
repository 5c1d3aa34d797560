// An ordered set of labels, or of other numbers: the sessions behind a value that several share. Up
// to fifteen labels lie in one piece of 64 bytes; more lie in a B+ tree of 256-byte nodes, so that
// a set is read in runs of some fifty labels and two sets are merged run by run. The object itself
// is small: those of thousands of values stay in the caches, and the way to a set that is no larger
// than a leaf misses them once. The nodes of all sets lie in common pools.
// Invariants: (1) labels ascend; (2) after a successful reserve() the next insert() of any one set
// cannot fail; nothing else allocates.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>
#include <span>

namespace kivo_platform {

class LabelSet {
  // A node has a quarter of its 32 children or more: beyond 2^32 labels.
  static constexpr std::uint32_t kMaxHeight = 8;

 public:
  using Run = std::span<const std::uint32_t>;

  LabelSet() noexcept = default;
  ~LabelSet() { clear(); }
  LabelSet(const LabelSet &) = delete;
  LabelSet &operator=(const LabelSet &) = delete;

  [[nodiscard]] static bool reserve() noexcept;

  // Adds a label; one that is there already stays as it is.
  void insert(std::uint32_t label) noexcept;
  // Removes a label if it is there.
  void erase(std::uint32_t label) noexcept;
  void clear() noexcept;

  std::uint32_t size() const noexcept { return size_; }
  std::uint32_t lowest() const noexcept { return Runs(*this).run().front(); }  // of one not empty
  // Has the leaf fetched where a label lies or would lie.
  void prefetch(std::uint32_t label) const noexcept;

  // Copies those of the labels that the set holds to `out`; returns the end. For a few labels of a
  // large set: their leaves are fetched together. `out` may be `labels`.
  std::uint32_t *copy_held(Run labels, std::uint32_t *out) const noexcept;

  // The labels in ascending runs. The set must not change meanwhile.
  class Runs {
   public:
    // Begins with the run where `from` would lie.
    explicit Runs(const LabelSet &set, std::uint32_t from = 0) noexcept;

    Run run() const noexcept { return run_; }  // empty at the end
    void next() noexcept;

   private:
    // A node above the leaves, and which of its children the way leads through.
    struct Step {
      std::uint32_t node;
      std::uint32_t child;
    };
    void enter_leaf() noexcept;

    Run run_;
    std::uint32_t steps_ = 0;
    Step path_[kMaxHeight];
  };

 private:
  bool few() const noexcept { return height_ == 0; }
  Run few_labels() const noexcept;
  bool insert_into_few(std::uint32_t label) noexcept;
  void erase_from_few(std::uint32_t label) noexcept;
  void grow_tree() noexcept;
  void shrink_tree() noexcept;

  std::uint32_t size_ = 0;
  std::uint32_t height_ = 0;  // levels of the tree; 0 without one
  std::uint32_t root_ = 0;    // the tree's, or the piece of the few; none of an empty set
};

}  // namespace kivo_platform
