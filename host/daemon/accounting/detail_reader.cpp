// The splitter of `detail` logs: lines from pieces, records from lines. Its rules on damage stand
// in the header. State is kBetween until a header line, kOpen while a record is whole, kDamaged
// from its first fault to its end; a fault is reported on entering kDamaged and nowhere else.
// Threads: none; the caller serialises.
#include "detail_reader.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kivod {
namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";
constexpr std::string_view kDateShape = "Aaa Aaa _9 99:99:99 9999";
constexpr std::string_view kSeparator = " = ";
// What is kept of a line that is too long: a date that may end it, and a CR.
constexpr size_t kTailSize = kDateShape.size() + 1;

constexpr const char *kFaultTexts[] = {
    "an indented line that is not \"Name = value\"",
    "a value without its closing quote",
    "a line inside a record that is neither indented nor a date",
    "an attribute without a header line before it",
    "a header line without attributes",
    "a NUL byte",
    "a line that is too long",
    "a record with too many attributes",
    "a record that is too long",
    "a line cut short, with the next record behind it",
    "the file ends inside a line",
};
static_assert(std::size(kFaultTexts) == static_cast<size_t>(DetailFaultKind::kEndsInsideALine) + 1);

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_upper(char c) { return c >= 'A' && c <= 'Z'; }
bool is_lower(char c) { return c >= 'a' && c <= 'z'; }

bool fits(char c, char shape) {
  switch (shape) {
    case 'A':
      return is_upper(c);
    case 'a':
      return is_lower(c);
    case '9':
      return is_digit(c);
    case '_':
      return is_digit(c) || c == ' ';
    default:
      return c == shape;
  }
}

bool ends_in_date(std::string_view line) {
  if (line.size() < kDateShape.size()) return false;
  const std::string_view tail = line.substr(line.size() - kDateShape.size());
  return std::equal(tail.begin(), tail.end(), kDateShape.begin(), fits);
}

bool is_blank(std::string_view line) {
  return line.find_first_not_of(kBlanks) == std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// True for bare text, and for quoted text whose only plain quote is its last character.
bool quote_is_closed(std::string_view value) {
  if (value.front() != '"') return true;
  size_t at = 1;
  while (at < value.size() && value[at] != '"') at += value[at] == '\\' ? 2 : 1;
  return at == value.size() - 1;
}

}  // namespace

const char *describe(DetailFaultKind kind) noexcept {
  return kFaultTexts[static_cast<size_t>(kind)];
}

DetailReader::DetailReader(std::string file, DetailSink &sink)
    : file_(std::move(file)), sink_(sink) {
  text_.reserve(kDetailRecordMax);
}

void DetailReader::feed(std::string_view piece) {
  while (!piece.empty()) {
    const size_t end = piece.find('\n');
    if (end == std::string_view::npos) return carry(piece);
    const std::string_view line = piece.substr(0, end);
    if (carried_.empty() && line.size() <= kDetailLineMax) {
      take_line(line);
    } else {
      carry(line);
      end_carried_line();
    }
    piece.remove_prefix(end + 1);
  }
}

void DetailReader::finish() {
  if (!carried_.empty()) {
    ++line_;
    damage(DetailFaultKind::kEndsInsideALine);
  }
  close_record();
  carried_.clear();
  too_long_ = false;
  line_ = 0;
}

void DetailReader::carry(std::string_view piece) {
  if (!too_long_ && carried_.size() + piece.size() <= kDetailLineMax) {
    carried_.append(piece);
    return;
  }
  too_long_ = true;
  if (piece.size() > kTailSize) piece.remove_prefix(piece.size() - kTailSize);
  carried_.append(piece);
  if (carried_.size() > kTailSize) carried_.erase(0, carried_.size() - kTailSize);
}

void DetailReader::end_carried_line() {
  take_line(carried_);
  carried_.clear();
  too_long_ = false;
}

void DetailReader::take_line(std::string_view line) {
  ++line_;
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (!too_long_ && is_blank(line)) return close_record();
  const bool indented = line.empty() || line.front() == ' ' || line.front() == '\t';
  if (ends_in_date(line)) return take_line_with_date(line, indented);
  if (too_long_) return damage(DetailFaultKind::kLineTooLong);
  if (line.find('\0') != std::string_view::npos) return damage(DetailFaultKind::kNulByte);
  if (indented) return take_pair(line);
  if (state_ == State::kBetween) return open_record(line);
  damage(DetailFaultKind::kNotIndented);
}

void DetailReader::take_line_with_date(std::string_view line, bool indented) {
  const std::string_view date = line.substr(line.size() - kDateShape.size());
  const bool nul = line.find('\0') != std::string_view::npos;
  const bool date_alone = !too_long_ && line.size() == date.size();
  const bool other_header = !too_long_ && !nul && !indented && state_ == State::kBetween;
  if (date_alone || other_header) {
    close_record();
    return open_record(line);
  }
  damage(too_long_ ? DetailFaultKind::kLineTooLong
         : nul     ? DetailFaultKind::kNulByte
                   : DetailFaultKind::kRunsIntoNext);
  close_record();
  open_record(date);
}

void DetailReader::take_pair(std::string_view line) {
  if (state_ == State::kBetween) return damage(DetailFaultKind::kNoHeader);
  if (state_ == State::kDamaged) return;
  const size_t separator = line.find(kSeparator);
  if (separator == std::string_view::npos) return damage(DetailFaultKind::kNotAPair);
  const std::string_view name = trimmed(line.substr(0, separator));
  const std::string_view value = trimmed(line.substr(separator + kSeparator.size()));
  if (name.empty() || value.empty() || name.find_first_of(kBlanks) != std::string_view::npos) {
    return damage(DetailFaultKind::kNotAPair);
  }
  if (!quote_is_closed(value)) return damage(DetailFaultKind::kUnclosedQuote);
  if (pairs_.size() == kDetailPairsMax) return damage(DetailFaultKind::kTooManyPairs);
  if (text_.size() + name.size() + value.size() > kDetailRecordMax) {
    return damage(DetailFaultKind::kRecordTooLong);
  }
  const std::string_view stored_name = store(name);
  pairs_.push_back({stored_name, store(value), line_});
}

// The caller has checked that the reserve holds it.
std::string_view DetailReader::store(std::string_view text) {
  const size_t at = text_.size();
  text_.append(text);
  return std::string_view(text_).substr(at);
}

void DetailReader::open_record(std::string_view header) {
  state_ = State::kOpen;
  record_line_ = line_;
  text_.clear();
  pairs_.clear();
  header_ = store(header);
}

void DetailReader::close_record() {
  if (state_ == State::kOpen && pairs_.empty()) damage(DetailFaultKind::kNoPairs, record_line_);
  const bool whole = state_ == State::kOpen;
  state_ = State::kBetween;
  if (!whole) return;
  ++records_;
  sink_.on_record({file_, record_line_, header_, pairs_});
}

void DetailReader::damage(DetailFaultKind kind) { damage(kind, line_); }

void DetailReader::damage(DetailFaultKind kind, uint64_t line) {
  if (state_ == State::kDamaged) return;
  if (state_ == State::kBetween) record_line_ = line_;
  state_ = State::kDamaged;
  ++faults_;
  sink_.on_fault({file_, line, record_line_, kind});
}

}  // namespace kivod
