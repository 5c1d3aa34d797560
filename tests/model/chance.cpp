#include "model/chance.h"

#include <algorithm>
#include <numeric>

namespace kivo_model {

// An odd factor maps the numbers one to one, all over 32 bits, and never to 0.
uint32_t Chance::pool_label() { return (below(n_labels_) + 1) * 2654435761u; }

uint32_t Chance::live_label() {
  if (plain_.records.empty()) return pool_label();
  for (;;) {
    const uint32_t label = plain_.slots[below(plain_.slots.size())];
    if (label != 0) return label;
  }
}

Bytes Chance::addresses(uint32_t vocabulary) {
  Bytes value;
  for (uint32_t n = percent(70) ? 1 : 1 + below(9); n > 0; --n) {
    value += Bytes(kAddressSize - 1, '\x20') + static_cast<char>(below(vocabulary));
  }
  if (percent(3)) value.resize(value.size() - below(kAddressSize));
  return value;
}

Bytes Chance::value(uint32_t type) {
  constexpr size_t kEdges[] = {0, 1, 2, 254, 255, 256, 257};
  const TypeRow *row = row_of(type);
  const uint32_t vocabulary = row == nullptr ? 3 : row->vocabulary;
  const Shape shape = row == nullptr ? Shape::kText : row->shape;
  const uint32_t number = below(vocabulary) + 1;
  if (shape == Shape::kAddresses) {
    if (below(3000) == 0) return Bytes(65536 - kAddressSize * below(3), 'a');  // one, many times
    return addresses(vocabulary);
  }
  if (percent(3)) return Bytes(kEdges[below(std::size(kEdges))], static_cast<char>('a' + below(3)));
  if (below(2000) == 0) return Bytes(AAA_VALUE_SIZE_MAX + below(2), 'x');
  if (shape == Shape::kNumber) return {reinterpret_cast<const char *>(&number), sizeof number};
  if (shape == Shape::kText) return aaa_dict_get_attr_name(type) + ("-" + std::to_string(number));
  const auto subtype = static_cast<uint16_t>(number % 4);
  return Bytes(reinterpret_cast<const char *>(&subtype), sizeof subtype) +
         Bytes(number, static_cast<char>('a' + number % 20));
}

Attr Chance::attr() {
  const uint32_t type = percent(2) ? 0 : kTypes[below(kTypeCount)].type;
  return {type, value(type)};
}

Attr Chance::attr_of(uint32_t label, uint32_t preferred_type) {
  const auto record = plain_.records.find(label);
  if (record == plain_.records.end() || record->second.attrs.empty()) return attr();
  const auto &attrs = record->second.attrs;
  auto at = attrs.find(preferred_type);
  if (at == attrs.end()) at = std::next(attrs.begin(), below(attrs.size()));
  const std::vector<Bytes> parts = parts_of(at->first, at->second);
  return {at->first, parts[below(parts.size())]};
}

void Chance::add(Attrs &attrs, const Attr &attr) {
  if (attr.first != 0 && attr.second.size() <= AAA_VALUE_SIZE_MAX) attrs.push_back(attr);
}

Attrs Chance::attrs() {
  Attrs attrs;
  for (uint32_t n = below(7); n > 0; --n) {
    const uint32_t type = percent(4) ? kUnsupported : kTypes[below(kTypeCount - 1)].type;
    add(attrs, {type, value(type)});
  }
  return attrs;
}

Attrs Chance::attrs_of(uint32_t label) {
  Attrs attrs;
  for (uint32_t n = 1 + below(3); n > 0; --n) add(attrs, attr_of(label));
  return attrs;
}

Labels Chance::labels() {
  constexpr uint32_t kSizes[] = {1, 1, 1, 12, 40, 300, 800};
  uint32_t n = kSizes[below(std::size(kSizes))];
  if (n > 1) n = below(n + 1);
  if (percent(10)) n = 4090 + below(12) * (percent(50) ? 1 : 300);
  Labels labels(n);
  const uint32_t first = percent(50) ? UINT32_MAX - n : below(50);
  if (percent(50)) {
    std::iota(labels.begin(), labels.end(), first);  // also 0, and the last one
    if (percent(30)) std::shuffle(labels.begin(), labels.end(), random_);
  } else {
    for (uint32_t &label : labels) label = pool_label();
    if (percent(50)) std::ranges::sort(labels);
  }
  return labels;
}

// The value is one that the record stores, or its end, where it lies.
void Chance::point_into_record(Args &args) {
  const auto record = plain_.records.find(args.label);
  if (record == plain_.records.end() || record->second.attrs.empty()) return;
  const auto &attrs = record->second.attrs;
  const auto &[type, value] = *std::next(attrs.begin(), below(attrs.size()));
  const bool by_address = args.type == AAA_ATTR_IPV6_ADDRESSES;
  if (value.size() < (by_address ? kAddressSize : 2)) return;
  args.stored = type;
  args.offset = percent(50) ? 0 : below(value.size() - 1);
  if (by_address) args.offset = static_cast<uint32_t>(args.offset / kAddressSize * kAddressSize);
  args.value = value.substr(args.offset, by_address ? kAddressSize : Bytes::npos);
  args.null_value = false;
}

Args Chance::args(bool nested) {
  constexpr Named kWays[] = {Named::kByLabel, Named::kByLabel, Named::kByRecord,
                             Named::kByRecordAlone};
  Args args;
  args.db = percent(2) ? kNoDatabase : percent(85) ? 0 : 1;
  args.label = percent(1) ? 0 : percent(80) ? live_label() : pool_label();
  args.named = kWays[below(4)];
  std::tie(args.type, args.value) = percent(35) ? attr_of(args.label) : attr();
  args.null_value = percent(1);
  args.null_out = percent(1);
  if (!nested && percent(5)) point_into_record(args);
  args.attrs = percent(10) ? attrs_of(args.label) : attrs();
  if (percent(2)) args.handle = percent(50) ? Handle::kZero : Handle::kStale;
  for (uint32_t n = below(4); n > 0; --n) args.labels.push_back(attr().first);  // types, mostly
  args.query = below(kQueries);
  args.list = percent(8) ? below(kNullList + 1) : below(kLists);
  args.other = percent(8) ? below(kNullList + 1) : below(kLists);
  args.number = percent(3) ? below(UINT32_MAX) : below(300);
  return args;
}

}  // namespace kivo_model
