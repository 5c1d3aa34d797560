// Index of one attribute type: from a value's bytes to the labels of the sessions that hold it.
// Under RecordIndexes. A value that one session holds costs a table entry of twelve bytes with the
// session's slot and its label; its bytes are compared where the session stores them, and a chain
// of look-ups, each by what the last one found, need not wait for that. A value that several share
// has a posting: its own copy of the bytes and the labels in ascending order. Invariants: (1) a
// posting has two labels or more; (2) neither add() nor remove() reads the bytes of the session
// that it is about, so it does not matter whether the value is written into the session before or
// after; (3) remove() cannot fail and allocates nothing. Threads: none; the process serialises all
// calls.
#pragma once

#include <cstdint>

#include "label_set.h"
#include "ref_table.h"
#include "stored_attributes.h"

namespace kivo_platform {

class ValueIndex {
 public:
  // With `numeric` the values of four bytes are also kept in the order of their numbers.
  ValueIndex(std::uint32_t type, bool numeric) noexcept : type_(type), numeric_(numeric) {}
  ~ValueIndex();
  ValueIndex(const ValueIndex &) = delete;
  ValueIndex &operator=(const ValueIndex &) = delete;

  // A value and its hash, for what is done in steps.
  struct Key {
    explicit Key(Bytes bytes) noexcept;
    Key() noexcept = default;

    Bytes value;
    std::uint32_t hash = 0;
  };

  // Enters a session under a value that it does not hold yet. The label is passed because a session
  // in the making has none in the directory. False without memory, and nothing has changed.
  [[nodiscard]] bool add(std::uint32_t slot, std::uint32_t label, const Key &key) noexcept;

  // Removes a session from a value that it was entered under.
  void remove(std::uint32_t slot, std::uint32_t label, const Key &key) noexcept;

  // Has memory fetched that an addition or a removal will read: first the table's, and, some time
  // later, that of the label among those of a shared value.
  void prefetch(const Key &key) const noexcept { table_.prefetch(key.hash); }
  void prefetch_label(const Key &key, std::uint32_t label) noexcept;
  // Whether most values have several sessions, so that there is a label to prefetch.
  bool mostly_shared() const noexcept { return postings_live_ > table_.size() / 2; }

  // The sessions of a value: shared is set when there are several, else label is the one or 0.
  struct Found {
    std::uint32_t label = 0;
    const LabelSet *shared = nullptr;

    std::uint32_t count() const noexcept {
      return shared != nullptr ? shared->size() : label != 0 ? 1 : 0;
    }
    std::uint32_t lowest_label() const noexcept {
      return shared != nullptr ? shared->lowest() : label;
    }
  };
  Found find(Bytes value) noexcept;

  // The lowest number above one, 0 when there is none. Of a numeric index.
  std::uint32_t next_number(std::uint32_t above) const noexcept;

 private:
  // A short key lies in the posting itself.
  struct Posting {
    static constexpr std::uint32_t kShortKey = 8;

    LabelSet labels;
    union {
      char short_key[kShortKey];
      char *long_key = nullptr;
    };
    std::uint32_t key_size = 0;
    std::uint32_t next_free = 0;  // number of the next free posting, plus 1

    ~Posting() { drop_key(); }
    [[nodiscard]] bool take_key(Bytes value) noexcept;
    void drop_key() noexcept;
    Bytes key() const noexcept { return {key_size <= kShortKey ? short_key : long_key, key_size}; }
  };
  static_assert(sizeof(Posting) == 64);

  // Marks the table's references to postings; the others are slots.
  static constexpr std::uint32_t kShared = UINT32_C(1) << 31;
  static constexpr std::uint32_t kNoSlot = ~kShared;

  struct Entry {
    std::uint32_t ref;
    std::uint32_t label;  // of the slot's session; 0 beside a posting
  };

  Posting &posting_of(std::uint32_t ref) noexcept { return postings_[ref & ~kShared]; }
  bool posting_is_for(std::uint32_t ref, Bytes value) noexcept;
  Entry *find_entry(const Key &key, std::uint32_t except_slot) noexcept;
  Entry *find_shared(const Key &key) noexcept;
  std::uint32_t take_posting(Bytes value) noexcept;
  void give_posting(std::uint32_t ref) noexcept;

  void number_came(Bytes value) noexcept;
  void number_went(Bytes value) noexcept;

  std::uint32_t type_;
  bool numeric_;
  LabelSet numbers_;
  RefTable<Entry, 128> table_;
  ChunkedArray<Posting, 64> postings_;
  std::uint32_t postings_used_ = 0;
  std::uint32_t postings_live_ = 0;
  std::uint32_t free_posting_ = 0;  // plus 1
};

}  // namespace kivo_platform
