// Arguments and outcomes in words, for the report of a failure.
#include <cstdio>

#include "model/operation.h"

namespace kivo_model {
namespace {

std::string in_words(const char *what, const Labels &labels) {
  std::string words = std::string(" ") + what + "[" + std::to_string(labels.size()) + "]";
  for (size_t i = 0; i < labels.size() && i < 40; ++i) words += " " + std::to_string(labels[i]);
  return words + (labels.size() > 40 ? " ..." : "");
}

std::string in_words(const Attrs &attrs) {
  std::string words;
  for (const auto &[type, value] : attrs) {
    words += " {" + std::to_string(type) + " " + kivo_model::in_words(value, 40) + "}";
  }
  return words;
}

}  // namespace

std::string in_words(const Bytes &bytes, size_t most) {
  std::string words;
  for (const char c : bytes.substr(0, most)) {
    if (c >= ' ' && c < '\x7f') {
      words += c;
    } else {
      words += "\\" + std::to_string(static_cast<unsigned char>(c));
    }
  }
  return words + (bytes.size() > most ? "..." : "") + "(" + std::to_string(bytes.size()) + ")";
}

std::string in_words(const Args &a) {
  constexpr const char *kWays[] = {"", " by its record", " by its record alone"};
  constexpr const char *kHandlesOf[] = {"", " of handle 0", " of a stale handle"};
  std::string words = "\n  database " + std::to_string(a.db) + " label " + std::to_string(a.label) +
                      kWays[static_cast<size_t>(a.named)] + " type " + std::to_string(a.type) +
                      " value " + in_words(a.value, 40) + (a.null_value ? " null" : "") +
                      (a.null_out ? " no output" : "");
  if (a.stored != 0) {
    words += " stored in " + std::to_string(a.stored) + " from " + std::to_string(a.offset);
  }
  return words + "\n  query " + std::to_string(a.query) + " lists " + std::to_string(a.list) + " " +
         std::to_string(a.other) + " number " + std::to_string(a.number) +
         in_words("labels", a.labels) + "\n  attributes" +
         kHandlesOf[static_cast<size_t>(a.handle)] + in_words(a.attrs);
}

std::string in_words(const Outcome &o) {
  char status[16];
  std::snprintf(status, sizeof status, " 0x%x", o.status);
  return std::string(" status") + status + " number " + std::to_string(o.number) + " length " +
         std::to_string(o.length) + " found " + std::to_string(o.found) +
         (o.has_list ? " list" : "") + in_words("labels", o.labels) + in_words(o.attrs);
}

}  // namespace kivo_model
