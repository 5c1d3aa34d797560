// The source of chance: what the arguments of operations are made of, so that labels, types and
// values are likely to be there, or not to be.
#pragma once

#include <algorithm>
#include <numeric>
#include <random>

#include "model/plain.h"

namespace kivo_model {

class Chance {
 public:
  Chance(uint32_t seed, const Plain &model, uint32_t n_labels)
      : plain(model), random_(seed), n_labels_(n_labels) {}

  uint32_t below(size_t n) { return static_cast<uint32_t>(random_() % n); }
  bool percent(uint32_t n) { return below(100) < n; }

  // A label, whether or not there is such a record: an odd factor maps numbers one to one, all over
  // 32 bits, and never to 0.
  uint32_t pool_label() { return (below(n_labels_) + 1) * 2654435761u; }
  // Of a record.
  uint32_t live_label() {
    if (plain.records.empty()) return pool_label();
    uint32_t label = 0;
    while (label == 0) label = plain.slots[below(plain.slots.size())];
    return label;
  }

  Bytes value(uint32_t type) {
    constexpr size_t kEdges[] = {0, 1, 2, 254, 255, 256, 257};
    const TypeRow &row = row_of(type);
    const uint32_t number = below(row.vocabulary) + 1;
    if (row.shape == Shape::kAddresses) return addresses(row.vocabulary);
    if (percent(3)) return Bytes(kEdges[below(std::size(kEdges))], letter(3));
    if (below(2000) == 0) return Bytes(AAA_VALUE_SIZE_MAX + below(2), 'x');
    if (row.shape == Shape::kNumber) return {reinterpret_cast<const char *>(&number), 4};
    if (row.shape == Shape::kIdentity) return Bytes{letter(4), '\0'} + Bytes(number, letter(20));
    return aaa_dict_get_attr_name(type) + ("-" + std::to_string(number));
  }
  // Any, now and then of type 0 or unsupported.
  Attr attr() {
    const uint32_t type = percent(2) ? 0 : kTypes[below(kTypeCount)].type;
    return {type, value(type)};
  }
  // One that the record has, if it has any: of the preferred type, if it has that.
  Attr attr_of(uint32_t label, uint32_t preferred_type = 0) {
    const auto record = plain.records.find(label);
    if (record == plain.records.end() || record->second.attrs.empty()) return attr();
    const auto &attrs = record->second.attrs;
    auto at = attrs.find(preferred_type);
    if (at == attrs.end()) at = std::next(attrs.begin(), below(attrs.size()));
    const std::vector<Bytes> parts = parts_of(at->first, at->second);
    return {at->first, parts[below(parts.size())]};
  }
  // An attribute list; of those that a record has, when a label is given.
  Attrs attrs(uint32_t label = 0) {
    Attrs attrs;
    for (uint32_t n = label == 0 ? below(7) : 1 + below(3); n > 0; --n) {
      const Attr one = label == 0 ? attr() : attr_of(label);
      if (one.first != 0 && one.second.size() <= AAA_VALUE_SIZE_MAX) attrs.push_back(one);
    }
    return attrs;
  }
  // Labels for a label list: few or thousands, in any order, some of them twice, 0 and the last.
  Labels labels() {
    constexpr uint32_t kSizes[] = {2, 2, 2, 13, 41, 301, 801};
    Labels labels(percent(90) ? below(kSizes[below(std::size(kSizes))])
                              : 4090 + below(12) * (percent(50) ? 1 : 300));
    std::iota(labels.begin(), labels.end(),
              percent(50) ? 0 - static_cast<uint32_t>(labels.size()) : below(50));
    for (uint32_t &label : labels) label = percent(50) ? label : label * 2654435761u;
    if (percent(40)) std::ranges::sort(labels);
    if (percent(40)) std::shuffle(labels.begin(), labels.end(), random_);
    return labels;
  }

  // The arguments of any operation.
  Args args(bool in_callback) {
    constexpr Named kWays[] = {Named::kByLabel, Named::kByLabel, Named::kByRecord,
                               Named::kByRecordAlone};
    Args args;
    args.db = percent(2) ? kNoDatabase : percent(85) ? 0 : 1;
    args.label = percent(1) ? 0 : percent(80) ? live_label() : pool_label();
    args.named = kWays[below(4)];
    std::tie(args.type, args.value) = percent(35) ? attr_of(args.label) : attr();
    args.null_value = percent(1);
    args.null_out = percent(1);
    if (!in_callback && percent(5)) point_into_record(args);
    args.attrs = attrs(percent(10) ? args.label : 0);
    if (percent(2)) args.handle = percent(50) ? Handle::kZero : Handle::kStale;
    for (uint32_t n = below(4); n > 0; --n) args.labels.push_back(attr().first);  // types, mostly
    args.query = below(kQueries);
    args.list = percent(8) ? below(kNullList + 1) : below(kLists);
    args.other = percent(8) ? below(kNullList + 1) : below(kLists);
    args.number = percent(3) ? below(UINT32_MAX) : below(300);
    return args;
  }

  const Plain &plain;
  size_t wanted_records = 0;            // by now
  uint32_t query_bases[kQueries] = {};  // the records that conditions are taken from

 private:
  char letter(uint32_t n) { return static_cast<char>('a' + below(n)); }
  Bytes addresses(uint32_t vocabulary) {
    if (below(3000) == 0) return Bytes(65536 - kAddressSize * below(3), 'a');  // one, many times
    Bytes value;
    for (uint32_t n = percent(70) ? 1 : 1 + below(9); n > 0; --n) {
      value += Bytes(kAddressSize - 1, ' ') + static_cast<char>(below(vocabulary));
    }
    if (percent(3)) value.resize(value.size() - below(kAddressSize));
    return value;
  }
  // The value is one that the record stores, or its end, where it lies.
  void point_into_record(Args &args) {
    const auto record = plain.records.find(args.label);
    if (record == plain.records.end() || record->second.attrs.empty()) return;
    const auto &attrs = record->second.attrs;
    const auto &[type, value] = *std::next(attrs.begin(), below(attrs.size()));
    const bool by_address = args.type == AAA_ATTR_IPV6_ADDRESSES;
    if (value.size() < (by_address ? kAddressSize : 2)) return;
    args.stored = type;
    args.offset = percent(50) ? 0 : below(value.size() - 1);
    if (by_address) args.offset -= static_cast<uint32_t>(args.offset % kAddressSize);
    args.value = value.substr(args.offset, by_address ? kAddressSize : Bytes::npos);
    args.null_value = false;
  }

  std::mt19937 random_;
  uint32_t n_labels_;
};

}  // namespace kivo_model
