// LabelSet: the tree. A node that gets full is divided; one that gets emptier than a quarter is put
// together with a neighbour, or takes over half of what the two have.
// Threads: none; the process serialises all calls.
#include "label_set.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "chunked_array.h"
#include "prefetch.h"

namespace kivo_platform {
namespace {

constexpr std::uint32_t kNodeWords = 64;
constexpr std::uint32_t kLeafLabels = kNodeWords - 1;
constexpr std::uint32_t kChildren = 32;
constexpr std::uint32_t kUnused = UINT32_MAX;

constexpr std::uint32_t kFewLabels = 15;

// Places of labels and bounds that are not in use are kUnused, so that a search may look at all of
// them: none is below a label.
struct alignas(kChunkAlignment) Few {
  std::uint32_t count;  // not in use
  std::uint32_t labels[kFewLabels];
};
static_assert(sizeof(Few) == kChunkAlignment);

struct alignas(kChunkAlignment) Leaf {
  std::uint32_t count;
  std::uint32_t labels[kLeafLabels];
};

// low[i] is a bound between children i and i + 1: the labels below it are in front.
struct alignas(kChunkAlignment) Inner {
  std::uint32_t count;
  std::uint32_t child[kChildren];
  std::uint32_t low[kChildren - 1];
};
static_assert(sizeof(Leaf) == kNodeWords * sizeof(std::uint32_t) && sizeof(Inner) == sizeof(Leaf));

// Nodes of one kind, by number. In a free one the next free one stands in place of the count.
template <typename Node>
class NodePool {
 public:
  bool has(std::uint32_t n) const noexcept { return nodes_.capacity() + free_count_ >= fresh_ + n; }
  [[nodiscard]] bool reserve(std::uint32_t n) noexcept {
    while (!has(n)) {
      if (!nodes_.grow()) return false;
    }
    return true;
  }
  std::uint32_t take() noexcept {
    if (free_count_ == 0) return fresh_++;
    const std::uint32_t node = free_;
    free_ = nodes_[node].count;
    --free_count_;
    return node;
  }
  void give(std::uint32_t node) noexcept {
    nodes_[node].count = free_;
    free_ = node;
    ++free_count_;
  }
  Node &operator[](std::uint32_t node) noexcept { return nodes_[node]; }

 private:
  ChunkedArray<Node, 64> nodes_;
  std::uint32_t free_ = 0;
  std::uint32_t free_count_ = 0;
  std::uint32_t fresh_ = 0;
};

// Apart from one another: inner nodes are few, and lie so densely that they stay in the caches,
// those of the address translation included.
constinit NodePool<Few> fews;
constinit NodePool<Leaf> leaves;
constinit NodePool<Inner> inners;

// Number of labels of a node below one. Looking at all takes fewer steps than it seems, four at a
// time, and none of them is a guess.
template <std::size_t kPlaces>
std::uint32_t count_below(const std::uint32_t (&labels)[kPlaces], std::uint32_t label) noexcept {
  std::uint32_t below = 0;
  for (const std::uint32_t held : labels) below += held < label ? 1 : 0;
  return below;
}

template <typename Node>
bool holds(const Node &node, std::uint32_t count, std::uint32_t label) noexcept {
  const std::uint32_t at = count_below(node.labels, label);
  return at < count && node.labels[at] == label;
}

template <typename Node>
void forget_labels(Node &node, std::uint32_t from) noexcept {
  std::fill(node.labels + from, std::end(node.labels), kUnused);
}

std::uint32_t child_for(const Inner &inner, std::uint32_t label) noexcept {
  std::uint32_t index = 0;
  for (const std::uint32_t low : inner.low) index += low <= label ? 1 : 0;
  return std::min(index, inner.count - 1);
}

void insert_word(std::uint32_t *words, std::uint32_t n, std::uint32_t at,
                 std::uint32_t word) noexcept {
  std::memmove(words + at + 1, words + at, (n - at) * sizeof *words);
  words[at] = word;
}

void erase_word(std::uint32_t *words, std::uint32_t n, std::uint32_t at) noexcept {
  std::memmove(words + at, words + at + 1, (n - at - 1) * sizeof *words);
}

void copy_words(std::uint32_t *to, const std::uint32_t *from, std::uint32_t n) noexcept {
  std::memmove(to, from, n * sizeof *to);
}

void insert_child(Inner &inner, std::uint32_t at, std::uint32_t low, std::uint32_t child) noexcept {
  insert_word(inner.low, inner.count - 1, at - 1, low);
  insert_word(inner.child, inner.count, at, child);
  ++inner.count;
}

void erase_child(Inner &inner, std::uint32_t at) noexcept {
  erase_word(inner.low, inner.count - 1, at - 1);
  erase_word(inner.child, inner.count, at);
  --inner.count;
  inner.low[inner.count - 1] = kUnused;
}

// ---- Two neighbours: children i and i + 1 of a node

// Makes the left leaf hold n_left of the labels of both.
void balance(Leaf &left, Leaf &right, std::uint32_t n_left) noexcept {
  if (n_left > left.count) {
    const std::uint32_t n = n_left - left.count;
    copy_words(left.labels + left.count, right.labels, n);
    copy_words(right.labels, right.labels + n, right.count - n);
    right.count -= n;
  } else {
    const std::uint32_t n = left.count - n_left;
    copy_words(right.labels + n, right.labels, right.count);
    copy_words(right.labels, left.labels + n_left, n);
    right.count += n;
  }
  left.count = n_left;
  forget_labels(left, left.count);
  forget_labels(right, right.count);
}

// The same with children. `low` is the bound between the two nodes; returns the new one.
std::uint32_t balance(Inner &left, Inner &right, std::uint32_t low, std::uint32_t n_left) noexcept {
  std::array<std::uint32_t, 2 * kChildren> children;
  std::array<std::uint32_t, 2 * kChildren> lows;  // in front of child i; the first is not used
  const std::uint32_t n = left.count + right.count;
  copy_words(children.data(), left.child, left.count);
  copy_words(children.data() + left.count, right.child, right.count);
  if (left.count != 0) copy_words(lows.data() + 1, left.low, left.count - 1);
  lows[left.count] = low;
  if (right.count != 0) copy_words(lows.data() + left.count + 1, right.low, right.count - 1);

  const auto fill = [&](Inner &inner, std::uint32_t from, std::uint32_t count) {
    inner.count = count;
    std::ranges::fill(inner.low, kUnused);
    copy_words(inner.child, children.data() + from, count);
    if (count != 0) copy_words(inner.low, lows.data() + from + 1, count - 1);
  };
  fill(left, 0, n_left);
  fill(right, n_left, n - n_left);
  return n_left < n ? lows[n_left] : kUnused;
}

// Divides the full child i of a node that is not full.
void divide(Inner &parent, std::uint32_t i, bool leaves_below) noexcept {
  const std::uint32_t left = parent.child[i];
  const std::uint32_t right = leaves_below ? leaves.take() : inners.take();
  std::uint32_t low = 0;
  if (leaves_below) {
    Leaf &from = leaves[left];
    Leaf &to = leaves[right];
    to.count = 0;
    // At the end of a node labels are probably added in order: the left one stays nearly full.
    const bool last = i + 1 == parent.count;
    balance(from, to, last ? kLeafLabels - kLeafLabels / 8 : kLeafLabels / 2);
    low = to.labels[0];
  } else {
    inners[right].count = 0;
    low = balance(inners[left], inners[right], 0, kChildren / 2);
  }
  insert_child(parent, i + 1, low, right);
}

// Puts children i and i + 1 of a node together, or gives each half of what they have.
void merge(Inner &parent, std::uint32_t i, bool leaves_below) noexcept {
  const std::uint32_t left = parent.child[i];
  const std::uint32_t right = parent.child[i + 1];
  std::uint32_t &low = parent.low[i];
  bool whole = false;
  if (leaves_below) {
    Leaf &to = leaves[left];
    Leaf &from = leaves[right];
    const std::uint32_t n = to.count + from.count;
    whole = n <= kLeafLabels * 3 / 4;
    balance(to, from, whole ? n : n / 2);
    if (!whole) low = from.labels[0];
  } else {
    Inner &to = inners[left];
    Inner &from = inners[right];
    const std::uint32_t n = to.count + from.count;
    whole = n <= kChildren * 3 / 4;
    low = balance(to, from, low, whole ? n : n / 2);
  }
  if (!whole) return;
  erase_child(parent, i + 1);
  leaves_below ? leaves.give(right) : inners.give(right);
}

// The leaf where a label would lie.
std::uint32_t leaf_for(std::uint32_t node, std::uint32_t height, std::uint32_t label) noexcept {
  for (std::uint32_t level = height; level > 1; --level) {
    const Inner &inner = inners[node];
    node = inner.child[child_for(inner, label)];
  }
  fetch_ahead(&leaves[node]);
  return node;
}

LabelSet::Run run_of(std::uint32_t leaf) noexcept {
  return {leaves[leaf].labels, leaves[leaf].count};
}

void give_tree(std::uint32_t node, std::uint32_t height) noexcept {
  if (height > 1) {
    const Inner &inner = inners[node];
    for (std::uint32_t i = 0; i < inner.count; ++i) give_tree(inner.child[i], height - 1);
    inners.give(node);
  } else {
    leaves.give(node);
  }
}

}  // namespace

// An insertion takes a piece for few labels, or divides a leaf and every inner node above it and
// puts one on top, at most.
bool LabelSet::reserve() noexcept {
  return fews.reserve(1) && leaves.reserve(1) && inners.reserve(kMaxHeight);
}

// ---- Few labels

LabelSet::Run LabelSet::few_labels() const noexcept {
  return size_ != 0 ? Run{fews[root_].labels, size_} : Run{};
}

// False when there is no room.
bool LabelSet::insert_into_few(std::uint32_t label) noexcept {
  if (size_ == 0) {
    root_ = fews.take();
    forget_labels(fews[root_], 0);
  }
  Few &few = fews[root_];
  const std::uint32_t at = count_below(few.labels, label);
  if (at < size_ && few.labels[at] == label) return true;
  if (size_ == kFewLabels) return false;
  insert_word(few.labels, size_++, at, label);
  return true;
}

void LabelSet::erase_from_few(std::uint32_t label) noexcept {
  if (size_ == 0) return;
  Few &few = fews[root_];
  const std::uint32_t at = count_below(few.labels, label);
  if (at == size_ || few.labels[at] != label) return;
  erase_word(few.labels, size_--, at);
  few.labels[size_] = kUnused;
  if (size_ == 0) fews.give(root_);
}

// To a tree of one leaf.
void LabelSet::grow_tree() noexcept {
  const std::uint32_t node = leaves.take();
  Leaf &leaf = leaves[node];
  leaf.count = size_;
  copy_words(leaf.labels, fews[root_].labels, size_);
  forget_labels(leaf, size_);
  fews.give(root_);
  root_ = node;
  height_ = 1;
}

// From a tree of one leaf, with half as many labels as would make a tree again, unless there is no
// piece at hand.
void LabelSet::shrink_tree() noexcept {
  const std::uint32_t leaf = root_;
  if (size_ == 0) {
    height_ = 0;
  } else if (fews.has(1)) {
    root_ = fews.take();
    copy_words(fews[root_].labels, leaves[leaf].labels, size_);
    forget_labels(fews[root_], size_);
    height_ = 0;
  }
  if (height_ == 0) leaves.give(leaf);
}

// ---- The tree

// Every full node on the way down is divided, so the one below it can be.
void LabelSet::insert(std::uint32_t label) noexcept {
  if (few()) {
    if (insert_into_few(label)) return;
    grow_tree();
  }
  const auto is_full = [](std::uint32_t node, bool leaf) {
    return leaf ? leaves[node].count == kLeafLabels : inners[node].count == kChildren;
  };
  if (is_full(root_, height_ == 1)) {
    const std::uint32_t root = inners.take();
    Inner &inner = inners[root];
    inner.count = 1;
    inner.child[0] = root_;
    std::ranges::fill(inner.low, kUnused);
    divide(inner, 0, height_ == 1);
    root_ = root;
    ++height_;
  }
  std::uint32_t node = root_;
  for (std::uint32_t level = height_; level > 1; --level) {
    Inner &inner = inners[node];
    std::uint32_t i = child_for(inner, label);
    if (level == 2) fetch_ahead(&leaves[inner.child[i]]);
    if (is_full(inner.child[i], level == 2)) {
      divide(inner, i, level == 2);
      i = child_for(inner, label);
    }
    node = inner.child[i];
  }
  Leaf &leaf = leaves[node];
  const std::uint32_t at = count_below(leaf.labels, label);
  if (at < leaf.count && leaf.labels[at] == label) return;
  insert_word(leaf.labels, leaf.count++, at, label);
  ++size_;
}

// Every node on the way down that is nearly empty is merged first, so the one below it can be.
void LabelSet::erase(std::uint32_t label) noexcept {
  if (few()) return erase_from_few(label);
  std::uint32_t node = root_;
  for (std::uint32_t level = height_; level > 1; --level) {
    Inner &inner = inners[node];
    std::uint32_t i = child_for(inner, label);
    const std::uint32_t child = inner.child[i];
    const bool empty =
        level == 2 ? leaves[child].count <= kLeafLabels / 4 : inners[child].count <= kChildren / 4;
    if (empty) {
      merge(inner, std::min(i, inner.count - 2), level == 2);
      i = child_for(inner, label);
    }
    const std::uint32_t below = inner.child[i];
    if (node == root_ && inner.count == 1) {
      inners.give(node);
      root_ = below;
      --height_;
    }
    node = below;
  }
  Leaf &leaf = leaves[node];
  const std::uint32_t at = count_below(leaf.labels, label);
  if (at == leaf.count || leaf.labels[at] != label) return;
  erase_word(leaf.labels, leaf.count--, at);
  leaf.labels[leaf.count] = kUnused;
  --size_;
  if (height_ == 1 && size_ <= kFewLabels / 2) shrink_tree();
}

void LabelSet::clear() noexcept {
  if (!few()) {
    give_tree(root_, height_);
  } else if (size_ != 0) {
    fews.give(root_);
  }
  size_ = 0;
  height_ = 0;
}

// ---- Reading

void LabelSet::prefetch(std::uint32_t label) const noexcept {
  if (!few()) {
    leaf_for(root_, height_, label);
  } else if (size_ != 0) {
    fetch_ahead(&fews[root_]);
  }
}

std::uint32_t *LabelSet::copy_held(Run labels, std::uint32_t *out) const noexcept {
  if (size_ == 0) return out;
  constexpr std::size_t kTogether = 16;
  std::array<std::uint32_t, kTogether> leaf;
  for (std::size_t at = 0; at < labels.size(); at += kTogether) {
    const Run some = labels.subspan(at, std::min(kTogether, labels.size() - at));
    if (!few()) {
      for (std::size_t i = 0; i < some.size(); ++i) leaf[i] = leaf_for(root_, height_, some[i]);
    }
    for (std::size_t i = 0; i < some.size(); ++i) {
      const std::uint32_t label = some[i];
      const bool held = few() ? holds(fews[root_], size_, label)
                              : holds(leaves[leaf[i]], leaves[leaf[i]].count, label);
      if (held) *out++ = label;
    }
  }
  return out;
}

LabelSet::Runs::Runs(const LabelSet &set, std::uint32_t from) noexcept {
  if (set.height_ < 2) {
    run_ = set.few() ? set.few_labels() : run_of(set.root_);
    return;
  }
  std::uint32_t node = set.root_;
  for (steps_ = 0; steps_ < set.height_ - 1u; ++steps_) {
    const Inner &inner = inners[node];
    path_[steps_] = {node, child_for(inner, from)};
    node = inner.child[path_[steps_].child];
  }
  enter_leaf();
}

// Leaves lie anywhere in memory: the next ones are on their way while this one is read.
void LabelSet::Runs::enter_leaf() noexcept {
  constexpr std::uint32_t kAhead = 4;
  const Step &step = path_[steps_ - 1];
  const Inner &inner = inners[step.node];
  const bool first = step.child == 0 || run_.empty();
  const std::uint32_t end = std::min(inner.count, step.child + kAhead + 1);
  for (std::uint32_t i = first ? step.child : end - 1; i < end; ++i) {
    fetch_ahead(&leaves[inner.child[i]]);
  }
  run_ = run_of(inner.child[step.child]);
}

void LabelSet::Runs::next() noexcept {
  std::uint32_t at = steps_;
  while (at != 0 && path_[at - 1].child + 1 == inners[path_[at - 1].node].count) --at;
  if (at == 0) {
    run_ = {};
    return;
  }
  ++path_[at - 1].child;
  for (; at < steps_; ++at) {
    path_[at] = {inners[path_[at - 1].node].child[path_[at - 1].child], 0};
  }
  enter_leaf();
}

}  // namespace kivo_platform
