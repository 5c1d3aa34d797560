// Attribute lists and label sets of the platform and the library, given back at the end of a scope.
#pragma once

#include <cstdint>
#include <string_view>

#include "kivo/index_list.h"
#include "platform/aaa.h"

namespace kivod {

// Remembers the first failure, so that a list is filled without a look at every step.
class AttrList {
 public:
  AttrList() noexcept : status_(aaa_list_alloc(&handle_)) {}
  ~AttrList() {
    if (handle_ != 0) aaa_list_free(handle_);
  }
  AttrList(const AttrList &) = delete;
  AttrList &operator=(const AttrList &) = delete;

  explicit operator bool() const noexcept { return status_ == PLATFORM_OK; }
  [[nodiscard]] uint32_t status() const noexcept { return status_; }
  [[nodiscard]] uint32_t handle() const noexcept { return handle_; }

  void add(uint32_t type, std::string_view bytes) noexcept {
    if (status_ == PLATFORM_OK) {
      status_ =
          aaa_attr_add(handle_, type, bytes.data(), static_cast<uint32_t>(bytes.size()), 0, 0);
    }
  }

  template <typename Word>
  void add_word(uint32_t type, Word word) noexcept {
    add(type, {reinterpret_cast<const char *>(&word), sizeof(word)});
  }

 private:
  uint32_t handle_ = 0;
  uint32_t status_;
};

class LabelSet {
 public:
  LabelSet() noexcept {
    if (kivo_index_list_create(&list_) != KIVO_INDEX_LIST_OK) list_ = nullptr;
  }
  ~LabelSet() { kivo_index_list_free(list_); }
  LabelSet(const LabelSet &) = delete;
  LabelSet &operator=(const LabelSet &) = delete;

  explicit operator bool() const noexcept { return list_ != nullptr; }
  [[nodiscard]] const kivo_index_list *get() const noexcept { return list_; }
  // For operations that append to the set.
  [[nodiscard]] kivo_index_list **address() noexcept { return &list_; }
  // For operations that hand out a set: this one takes its place.
  [[nodiscard]] kivo_index_list **receive() noexcept {
    kivo_index_list_free(list_);
    list_ = nullptr;
    return &list_;
  }

 private:
  kivo_index_list *list_ = nullptr;
};

}  // namespace kivod
