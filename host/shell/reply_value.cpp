// See reply_value.h.
#include "reply_value.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "platform/aaa_dictionary.h"
#include "text/printable.h"
#include "text/utc_time.h"

namespace kivosh {
namespace {

using State = ReadValue::State;

constexpr size_t kTextRoom = 25;
constexpr std::string_view kAbsent = "--- Data not found ---";

// Kept apart from the other attributes of a session, where replies do not look: these say of each
// that it is absent.
constexpr uint32_t kExternalIdentities[] = {
    AAA_ATTR_EXT_CLASS, AAA_ATTR_EXT_USER,        AAA_ATTR_EXT_DEVICE,   AAA_ATTR_EXT_GROUP,
    AAA_ATTR_EXT_TAG,   AAA_ATTR_EXT_CERTIFICATE, AAA_ATTR_EXT_LOCATION,
};
// Numbers that are seconds since 1970.
constexpr uint32_t kTimes[] = {AAA_ATTR_START_TIME, AAA_ATTR_UPDATE_TIME};

bool holds(const auto &types, uint32_t type) {
  return std::ranges::find(types, type) != std::end(types);
}

// How replies write values that are no text: as numbers behind 0x, or not at all.
constexpr int kNotWritten = 0;
constexpr int kAsText = 1;
constexpr struct {
  std::string_view kind;
  int base;
} kWritings[] = {
    {"INT 32", 16},           {"INT 64", 10}, {"POINTER", 10}, {"IPV6_ADDR", kNotWritten},
    {"VAR BIN", kNotWritten},
};

int base_of(const AttributeName *attribute) {
  for (const auto &[kind, base] : kWritings) {
    if (attribute != nullptr && attribute->kind == kind) return base;
  }
  return kAsText;
}

// "0x0000000f" in base 16, "0x              15" in base 10.
bool read_number(std::string_view text, int base, uint64_t &number) {
  if (!text.starts_with("0x")) return false;
  text.remove_prefix(2);
  if (base == 16 && text.size() != 8) return false;
  if (base == 10) text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const char *const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number, base);
  return read.ec == std::errc() && read.ptr == end;
}

// A number of which something may be missing is none.
void read_as_number(ReadValue &value, int base, uint32_t type) {
  if (value.may_be_cut || !read_number(value.text, base, value.number)) {
    value.state = State::kUnreadable;
    return;
  }
  value.state = State::kNumber;
  if (!holds(kTimes, type)) return;
  const std::string time = host_text::utc_time(value.number);
  if (time.empty()) return;
  value.state = State::kTime;
  value.text = time;
}

// Whether some more bytes would make a character of these.
bool begins_character(std::string_view bytes) {
  for (const char more : {'\x80', '\xbf'}) {  // the extremes of what can follow
    std::string text(bytes);
    while (text.size() < 4) {
      text.push_back(more);
      if (host_text::utf8_size(text) == text.size()) return true;
    }
  }
  return false;
}

void drop_incomplete_character(std::string &text) {
  const size_t size = host_text::utf8_size(text);
  if (begins_character(std::string_view(text).substr(size))) text.resize(size);
}

}  // namespace

ReadValue read_value(const std::string &text, const AttributeName *attribute) {
  const uint32_t type = attribute != nullptr ? attribute->type : 0;
  const int base = base_of(attribute);
  ReadValue value;
  if (holds(kExternalIdentities, type) || (base == kNotWritten && text.empty())) {
    value.state = State::kNotCarried;
    return value;
  }
  value.text = text;
  if (text == kAbsent) {
    value.state = State::kAbsent;
    return value;
  }
  value.may_be_cut = text.size() == kTextRoom;
  if (value.may_be_cut) drop_incomplete_character(value.text);
  if (base > kAsText) read_as_number(value, base, type);
  return value;
}

}  // namespace kivosh
