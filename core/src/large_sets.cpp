// See large_sets.h.
#include "large_sets.h"

#include <bit>

#include "alloc_tags.h"
#include "label_reader.h"
#include "merge_labels.h"
#include "platform/attrdb.h"
#include "platform/named_alloc.h"
#include "platform/status.h"

// A host's own platform need not have them.
extern "C" {
__attribute__((weak)) uint32_t attrdb_count_labels_by_attr(uint32_t type, const void *value,
                                                           uint32_t size, uint32_t *count) noexcept;
__attribute__((weak)) uint32_t attrdb_keep_labels_by_attr(uint32_t type, const void *value,
                                                          uint32_t size, const uint32_t *labels,
                                                          uint32_t n_labels, uint32_t *kept,
                                                          uint32_t *n_kept) noexcept;
}

namespace kivo {
namespace {

bool ascends(const kivo_index_list *list) noexcept {
  LabelReader reader(list);
  AscentCheck check;
  for (auto piece = reader.next(); !piece.empty(); piece = reader.next()) {
    if (!check.ascends(piece)) return false;
  }
  return true;
}

// ---- Two ascending sets: merged

// One side of a merge.
struct Side {
  explicit Side(const kivo_index_list *list) noexcept : reader(list) { refill(); }

  void refill() noexcept {
    const auto piece = reader.next();
    at = piece.data();
    end = at + piece.size();
  }

  LabelReader reader;
  const uint32_t *at = nullptr;
  const uint32_t *end = nullptr;
};

bool merge(const kivo_index_list *list_a, const kivo_index_list *list_b,
           kivo_index_list *result) noexcept {
  Side a(list_a);
  Side b(list_b);
  uint32_t common[LabelReader::kPiece];
  while (a.at != a.end && b.at != b.end) {
    const uint32_t *end = kivo_common::merge_labels(a.at, a.end, b.at, b.end, common);
    const auto n = static_cast<uint32_t>(end - common);
    if (n != 0 && append_labels(result, common, n) != KIVO_INDEX_LIST_OK) return false;
    if (a.at == a.end) a.refill();
    if (b.at == b.end) b.refill();
  }
  return true;
}

// ---- Sets in any order: one of them in a table of its own

// Labels by open addressing, half full at most; no label is given back singly.
class LabelTable {
 public:
  explicit LabelTable(uint32_t n_labels) noexcept
      : bits_(static_cast<uint32_t>(std::bit_width(2 * uint64_t{n_labels} - 1))),
        mask_((uint64_t{1} << bits_) - 1),
        cells_(static_cast<uint32_t *>(
            NAMED_ZALLOC(kTagLabelTable, "kivo label table", (mask_ + 1) * sizeof(uint32_t)))) {}
  ~LabelTable() { named_free(cells_); }
  LabelTable(const LabelTable &) = delete;
  LabelTable &operator=(const LabelTable &) = delete;

  bool made() const noexcept { return cells_ != nullptr; }

  void add(std::span<const uint32_t> labels) noexcept {
    prefetch(labels);
    for (const uint32_t label : labels) {
      if (label == 0) {
        holds_zero_ = true;
      } else {
        cells_[find_cell(label)] = label;
      }
    }
  }

  // Copies those that it holds to `out`; returns the end of what was copied.
  uint32_t *copy_held(std::span<const uint32_t> labels, uint32_t *out) const noexcept {
    prefetch(labels);
    for (const uint32_t label : labels) {
      *out = label;
      const bool held = label == 0 ? holds_zero_ : cells_[find_cell(label)] == label;
      out += held ? 1 : 0;
    }
    return out;
  }

 private:
  static constexpr uint64_t kOddFraction = 0x9e3779b97f4a7c15;  // of the golden ratio

  uint64_t home_of(uint32_t label) const noexcept {
    uint64_t mixed = label * kOddFraction;
    mixed ^= mixed >> 32;
    return mixed * kOddFraction >> (64 - bits_);
  }
  void prefetch(std::span<const uint32_t> labels) const noexcept {
    for (const uint32_t label : labels) __builtin_prefetch(&cells_[home_of(label)]);
  }
  // The label's cell, or the free one where it belongs.
  uint64_t find_cell(uint32_t label) const noexcept {
    uint64_t cell = home_of(label);
    while (cells_[cell] != 0 && cells_[cell] != label) cell = (cell + 1) & mask_;
    return cell;
  }

  uint32_t bits_;
  uint64_t mask_;
  uint32_t *cells_;
  bool holds_zero_ = false;
};

// The labels that can be read of a set: its head counts more when it is damaged.
uint32_t count_readable(const kivo_index_list *list) noexcept {
  LabelReader reader(list);
  size_t n_labels = 0;
  for (auto piece = reader.next(); !piece.empty(); piece = reader.next()) n_labels += piece.size();
  return static_cast<uint32_t>(n_labels);
}

bool intersect_by_table(const kivo_index_list *a, const kivo_index_list *b,
                        kivo_index_list *result) noexcept {
  LabelTable table(count_readable(a));
  if (!table.made()) return false;
  LabelReader in_a(a);
  for (auto piece = in_a.next(); !piece.empty(); piece = in_a.next()) table.add(piece);
  LabelReader in_b(b);
  uint32_t common[LabelReader::kPiece + 1];
  for (auto piece = in_b.next(); !piece.empty(); piece = in_b.next()) {
    const auto n = static_cast<uint32_t>(table.copy_held(piece, common) - common);
    if (n != 0 && append_labels(result, common, n) != KIVO_INDEX_LIST_OK) return false;
  }
  return true;
}

// ---- Candidates against the store

struct Value {
  uint32_t type;
  const void *bytes;
  uint32_t length;
};

bool keep_all(const kivo_index_list *candidates, const Value &value,
              kivo_index_list *narrowed) noexcept {
  LabelReader reader(candidates);
  AscentCheck check;
  uint32_t kept[LabelReader::kPiece];
  for (auto piece = reader.next(); !piece.empty(); piece = reader.next()) {
    uint32_t n = 0;
    if (!check.ascends(piece) ||
        attrdb_keep_labels_by_attr(value.type, value.bytes, value.length, piece.data(),
                                   static_cast<uint32_t>(piece.size()), kept, &n) != PLATFORM_OK ||
        (n != 0 && append_labels(narrowed, kept, n) != KIVO_INDEX_LIST_OK)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool intersect_large(const kivo_index_list *a, const kivo_index_list *b,
                     kivo_index_list *result) noexcept {
  if (a->count < kLargeSet && b->count < kLargeSet) return false;
  const bool done =
      ascends(a) && ascends(b) ? merge(a, b, result) : intersect_by_table(a, b, result);
  if (!done) kivo_index_list_empty(result);
  return done;
}

IndexListPtr narrow_in_store(const kivo_index_list *candidates, uint32_t type, const void *value,
                             uint32_t length) noexcept {
  if (attrdb_count_labels_by_attr == nullptr || attrdb_keep_labels_by_attr == nullptr)
    return nullptr;
  uint32_t count = 0;
  if (!is_list(candidates) || candidates->count == 0 ||
      attrdb_count_labels_by_attr(type, value, length, &count) != PLATFORM_OK || count == 0 ||
      (candidates->count < kLargeSet && count < kLargeSet)) {
    return nullptr;
  }
  IndexListPtr narrowed(make_list());
  if (narrowed != nullptr && !keep_all(candidates, {type, value, length}, narrowed.get())) {
    narrowed.reset();
  }
  return narrowed;
}

}  // namespace kivo
