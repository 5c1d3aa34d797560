// Splits an accounting log in the `detail` text format into records: a header line that begins in
// column 0 (as a rule the date), indented lines "Name = value", a blank line. Sits under the replay
// and knows nothing of attributes: names and values are text. DetailFile (detail_file.h) feeds it.
// Invariants: (1) it holds at most one line and one record, within the bounds below, whatever it is
// fed; (2) a damaged record is reported once, dropped as a whole and costs no other record.
// Threads: none; the caller serialises.
#ifndef KIVO_HOST_DAEMON_ACCOUNTING_DETAIL_READER_H
#define KIVO_HOST_DAEMON_ACCOUNTING_DETAIL_READER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kivod {

// Bounds. A RADIUS packet has 4,096 bytes and so fewer than 2,048 attributes; fully escaped and
// with long names it stays well below these.
inline constexpr size_t kDetailLineMax = 16384;     // bytes of a line without its end
inline constexpr size_t kDetailPairsMax = 4096;     // pairs of a record
inline constexpr size_t kDetailRecordMax = 262144;  // bytes of all lines of a record

struct DetailPair {
  std::string_view name;   // never empty, no white space inside
  std::string_view value;  // never empty, as written: with quotes and escapes
  uint64_t line;           // counted from 1
};

struct DetailRecord {
  std::string_view file;
  uint64_t line;                      // of the header
  std::string_view header;            // usually "Tue Nov 14 22:13:20 2023"
  std::span<const DetailPair> pairs;  // at least one, in the order of the log
};

enum class DetailFaultKind : uint8_t {
  kNotAPair,         // an indented line that is not "Name = value"
  kUnclosedQuote,    // a value whose closing quote is missing or not at its end
  kNotIndented,      // inside a record, a line in column 0 that is no date
  kNoHeader,         // an indented line where a header line is due
  kNoPairs,          // a header line without pairs
  kNulByte,          // a NUL byte, as a file system leaves them after a power failure
  kLineTooLong,      // more than kDetailLineMax bytes
  kTooManyPairs,     // more than kDetailPairsMax
  kRecordTooLong,    // more than kDetailRecordMax bytes
  kRunsIntoNext,     // a line cut short, the next record's date behind it on the same line
  kEndsInsideALine,  // the last line of the file has no line end
};

// Static text for a person, one line.
const char *describe(DetailFaultKind kind) noexcept;

struct DetailFault {
  std::string_view file;
  uint64_t line;         // where the damage is
  uint64_t record_line;  // where its record begins
  DetailFaultKind kind;
};

// Receives what the reader finds, in the order of the log, during DetailReader::feed() and
// finish(). All texts live until the call returns. An implementation must not call the reader; an
// exception it throws passes through and leaves the reader fit only for destruction.
class DetailSink {
 public:
  virtual ~DetailSink() = default;
  virtual void on_record(const DetailRecord &record) = 0;
  virtual void on_fault(const DetailFault &fault) = 0;
};

// What counts as damage and what not:
// - LF and CRLF both end a line. Lines of white space alone count as blank; several are one.
// - Any line in column 0 opens a record after a blank line. Inside a record only a line that is a
//   date does ("Tue Nov 14 22:13:20 2023"): the blank line was lost, and both records are whole.
// - A date at the end of any other line opens a record too, for that is what a log looks like in
//   which a server died while writing and went on after its restart. What stands before the date
//   makes the record before it a damaged one.
// - The end of the file ends a record like a blank line does. But when the last line has no line
//   end, its record is damaged: a cut address or number is still one, only a wrong one, and a
//   record that lacks its last attributes would read as if the session had lost them.
// - All other damage drops the record up to the next blank line or date.
class DetailReader {
 public:
  // `file` is passed on in records and faults. Allocates kDetailRecordMax bytes, which get real
  // memory as records need them. Throws std::bad_alloc, as all that follows may.
  DetailReader(std::string file, DetailSink &sink);
  DetailReader(const DetailReader &) = delete;
  DetailReader &operator=(const DetailReader &) = delete;

  // The next piece of the file, cut anywhere, of any size. Cost: linear.
  void feed(std::string_view piece);

  // The end of the file. Afterwards feed() begins a new file at line 1 under the same name.
  void finish();

  uint64_t records() const { return records_; }  // delivered to the sink since construction
  uint64_t faults() const { return faults_; }    // damaged records since construction

 private:
  enum class State : uint8_t { kBetween, kOpen, kDamaged };

  void carry(std::string_view piece);
  void end_carried_line();
  void take_line(std::string_view line);
  void take_line_with_date(std::string_view line, bool indented);
  void take_pair(std::string_view line);
  std::string_view store(std::string_view text);
  void open_record(std::string_view header);
  void close_record();
  void damage(DetailFaultKind kind);
  void damage(DetailFaultKind kind, uint64_t line);

  std::string file_;
  DetailSink &sink_;
  std::string carried_;    // the beginning of a line whose end was not fed yet
  bool too_long_ = false;  // the line being carried; carried_ then has its last bytes only
  uint64_t line_ = 0;
  State state_ = State::kBetween;
  uint64_t record_line_ = 0;
  std::string text_;  // of the record in hand; never beyond its reserve, so that views stay good
  std::string_view header_;
  std::vector<DetailPair> pairs_;
  uint64_t records_ = 0;
  uint64_t faults_ = 0;
};

}  // namespace kivod

#endif
