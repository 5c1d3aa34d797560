// The source of chance: what the arguments of operations are made of, so that labels, types and
// values are likely to be there, or not to be.
#pragma once

#include <random>

#include "model/plain.h"

namespace kivo_model {

class Chance {
 public:
  Chance(uint32_t seed, const Plain &plain, uint32_t n_labels, size_t n_records)
      : random_(seed), plain_(plain), n_labels_(n_labels), n_records_(n_records) {}

  uint32_t below(size_t n) { return static_cast<uint32_t>(random_() % n); }
  bool percent(uint32_t n) { return below(100) < n; }
  uint32_t pool_label();  // whether or not there is such a record
  uint32_t live_label();  // of a record
  Bytes value(uint32_t type);
  Attr attr();  // any, now and then of type 0 or unsupported
  // One that the record has, if it has any: of the preferred type, if it has that.
  Attr attr_of(uint32_t label, uint32_t preferred_type = 0);
  Attrs attrs();                                    // of an attribute list
  static void add(Attrs &attrs, const Attr &attr);  // if a list can hold it
  Attrs attrs_of(uint32_t label);                   // the same, of those that a record has
  // Labels for a label list: few or thousands, in any order, some of them twice.
  Labels labels();
  // The arguments of any operation. `nested` inside a callback.
  Args args(bool nested);
  // Whether there are fewer records than there should be by now.
  [[nodiscard]] bool wants_more() const { return plain_.records.size() < n_records_; }
  void set_wanted(size_t n_records) { n_records_ = n_records; }
  [[nodiscard]] const Plain &plain() const { return plain_; }
  // The record that most conditions of a query are taken from; it may have gone.
  uint32_t &query_basis(uint32_t query) { return query_bases_[query]; }

 private:
  Bytes addresses(uint32_t vocabulary);
  void point_into_record(Args &args);

  std::mt19937 random_;
  const Plain &plain_;
  uint32_t n_labels_;
  size_t n_records_;
  uint32_t query_bases_[kQueries] = {};
};

}  // namespace kivo_model
