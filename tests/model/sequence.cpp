// See sequence.h.
#include "model/sequence.h"

#include <sstream>

namespace kivo_model {
namespace {

constexpr uint32_t kPoolLabels = 1600;
constexpr uint32_t kAddressSize = 16;

std::ostream &print(std::ostream &out, const Bytes &bytes) {
  for (const char c : bytes.substr(0, 40)) {
    if (c > ' ' && c < '\x7f') {
      out << c;
    } else {
      out << "\\" << static_cast<unsigned>(static_cast<unsigned char>(c));
    }
  }
  return out << (bytes.size() > 40 ? "..." : "") << " (" << bytes.size() << ")";
}

std::ostream &operator<<(std::ostream &out, const Answer &answer) {
  out << std::hex << "status 0x" << answer.status << std::dec << " number " << answer.number
      << " state " << answer.state << "\n    " << answer.labels.size() << " labels:";
  for (const uint32_t label : answer.labels) out << " " << label;
  for (const auto &[type, value] : answer.attrs) print(out << "\n    " << type << " = ", value);
  return out;
}

std::ostream &operator<<(std::ostream &out, const Event &event) {
  out << event.what << " label " << event.label << " type " << event.type << " action "
      << event.action << " db " << event.db << std::hex << " status 0x" << event.status << std::dec
      << (event.well_formed ? "" : " ILL-FORMED");
  return print(print(out << " value ", event.value) << " old ", event.old_value);
}

}  // namespace

void Sequence::compare(const Answer &got, const Answer &expected) {
  const std::vector<Event> got_events = library_.take_events();
  const std::vector<Event> expected_events = plain_.take_events();
  for (const Event &event : expected_events) ++events_[event.what];
  if ((got == expected && got_events == expected_events) || !failure_.empty()) return;
  std::ostringstream out;
  out << "\n  got      " << got << "\n  expected " << expected;
  for (const Event &event : got_events) out << "\n  got      " << event;
  for (const Event &event : expected_events) out << "\n  expected " << event;
  failure_ = out.str();
}

uint32_t Sequence::database() {
  if (chance(2)) return kNoDatabase;
  return chance(85) ? 0 : 1;
}

// An odd factor maps the numbers one to one; without the companions' bit, and never to 0.
uint32_t Sequence::pool_label() { return ((below(kPoolLabels) + 1) * 2654435761u) % kCompanion; }

uint32_t Sequence::live_label() {
  const Labels &slots = plain_.slots();
  if (plain_.records().empty()) return pool_label();
  for (;;) {
    const uint32_t label = slots[below(static_cast<uint32_t>(slots.size()))];
    if (label != 0) return label;
  }
}

uint32_t Sequence::label() {
  if (chance(1)) return 0;
  return chance(75) ? live_label() : pool_label();
}

Target Sequence::target() {
  constexpr Named kWays[] = {Named::kByLabel, Named::kByLabel, Named::kByRecord,
                             Named::kByRecordAlone};
  return {label(), kWays[below(4)]};
}

uint32_t Sequence::type() { return chance(2) ? 0 : kTypes[below(kTypeCount)].type; }

uint32_t Sequence::stored_type() { return kTypes[below(kTypeCount - 1)].type; }

Bytes Sequence::addresses(uint32_t vocabulary) {
  Bytes value;
  const uint32_t n = chance(70) ? 1 : 1 + below(9);
  for (uint32_t i = 0; i < n; ++i) {
    value += Bytes(kAddressSize - 1, '\x20') + static_cast<char>(below(vocabulary));
  }
  if (chance(3)) value.resize(value.size() - below(kAddressSize));
  return value;
}

Bytes Sequence::value(uint32_t type) {
  constexpr size_t kEdges[] = {0, 1, 254, 255, 256, 300};
  const TypeRow *row = row_of(type);
  const uint32_t vocabulary = row == nullptr ? 3 : row->vocabulary;
  const Shape shape = row == nullptr ? Shape::kText : row->shape;
  const uint32_t number = below(vocabulary) + 1;
  if (shape == Shape::kAddresses) return addresses(vocabulary);
  if (chance(3)) return Bytes(kEdges[below(std::size(kEdges))], static_cast<char>('a' + below(3)));
  if (shape == Shape::kNumber) return {reinterpret_cast<const char *>(&number), sizeof(number)};
  if (shape == Shape::kText) return aaa_dict_get_attr_name(type) + ("-" + std::to_string(number));
  const auto subtype = static_cast<uint16_t>(number % 4);
  return Bytes(reinterpret_cast<const char *>(&subtype), sizeof(subtype)) +
         Bytes(number, static_cast<char>('a' + number % 20));
}

Attr Sequence::attr() {
  const uint32_t chosen = type();
  return {chosen, value(chosen)};
}

Attr Sequence::attr_of(uint32_t label, uint32_t preferred_type) {
  const auto record = plain_.records().find(label);
  if (record == plain_.records().end() || record->second.attrs.empty()) return attr();
  const auto &attrs = record->second.attrs;
  auto at = attrs.find(preferred_type);
  if (at == attrs.end()) {
    at = std::next(attrs.begin(), below(static_cast<uint32_t>(attrs.size())));
  }
  if (at->first != AAA_ATTR_IPV6_ADDRESSES) return *at;
  const size_t address = below(static_cast<uint32_t>(at->second.size() / kAddressSize));
  return {at->first, at->second.substr(address * kAddressSize, kAddressSize)};
}

ListArg Sequence::list(bool may_be_empty) {
  ListArg list;
  if (chance(2)) list.handle = chance(50) ? Handle::kZero : Handle::kStale;
  const uint32_t n = below(6) + (may_be_empty ? 0 : 1);
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t type = chance(4) ? kUnsupported : stored_type();
    list.attrs.emplace_back(type, value(type));
  }
  return list;
}

ListArg Sequence::list_of(uint32_t label) {
  ListArg list;
  const uint32_t n = 1 + below(3);
  for (uint32_t i = 0; i < n; ++i) {
    Attr attr = attr_of(label);
    if (attr.first != 0) list.attrs.push_back(std::move(attr));
  }
  return list;
}

}  // namespace kivo_model
