// The splitter of `detail` logs: what it makes of whole, damaged and hostile logs, whatever pieces
// the log arrives in. Logs are written out here; no files except in the tests of DetailFile.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "detail_file.h"
#include "detail_reader.h"

namespace {

using kivod::DetailFaultKind;
using kivod::DetailFile;

// Writes down what it is told, one text a record or fault: "3 HEADER|Name=value@4|..." is a record
// that begins in line 3, "fault 2/1 KIND" a fault in line 2 of the record that begins in line 1.
class Notebook : public kivod::DetailSink {
 public:
  void on_record(const kivod::DetailRecord &record) override {
    std::string text = std::to_string(record.line);
    text.append(" ").append(record.header);
    for (const kivod::DetailPair &pair : record.pairs) {
      text.append("|").append(pair.name).append("=").append(pair.value);
      text.append("@").append(std::to_string(pair.line));
    }
    entries.push_back(text);
    files.emplace_back(record.file);
    pair_counts.push_back(record.pairs.size());
  }
  void on_fault(const kivod::DetailFault &fault) override {
    entries.push_back("fault " + std::to_string(fault.line) + "/" +
                      std::to_string(fault.record_line));
    kinds.push_back(fault.kind);
    files.emplace_back(fault.file);
  }

  std::vector<std::string> entries;
  std::vector<DetailFaultKind> kinds;
  std::vector<std::string> files;
  std::vector<size_t> pair_counts;
};

Notebook read_in_pieces(std::string_view log, size_t piece_size) {
  Notebook notebook;
  kivod::DetailReader reader("log", notebook);
  for (size_t at = 0; at < log.size(); at += piece_size) reader.feed(log.substr(at, piece_size));
  reader.finish();
  return notebook;
}

Notebook read_log(std::string_view log) { return read_in_pieces(log, log.size() + 1); }

const std::string kDate = "Tue Nov 14 22:13:20 2023";
const std::string kOtherDate = "Wed Nov  1 02:03:04 2023";

struct LogCase {
  const char *name;
  std::string log;
  std::vector<std::string> entries;
  std::vector<DetailFaultKind> kinds;
};

void PrintTo(const LogCase &log_case, std::ostream *out) { *out << log_case.name; }

std::string name_of(const testing::TestParamInfo<LogCase> &of) { return of.param.name; }

class DetailLog : public testing::TestWithParam<LogCase> {};

TEST_P(DetailLog, SplitsAlikeWhateverPiecesItArrivesIn) {
  const LogCase &log_case = GetParam();
  for (size_t piece_size : {log_case.log.size() + 1, size_t{1}, size_t{2}, size_t{7}}) {
    const Notebook notebook = read_in_pieces(log_case.log, piece_size);
    EXPECT_EQ(log_case.entries, notebook.entries) << "pieces of " << piece_size;
    EXPECT_EQ(log_case.kinds, notebook.kinds) << "pieces of " << piece_size;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Whole, DetailLog,
    testing::ValuesIn(std::vector<LogCase>{
        {"Empty", "", {}, {}},
        {"TwoRecords",
         kDate + "\n\tUser-Name = \"a\"\n\tNAS-Port = 1\n\n" + kOtherDate + "\n\tNAS-Port = 2\n\n",
         {"1 " + kDate + "|User-Name=\"a\"@2|NAS-Port=1@3", "5 " + kOtherDate + "|NAS-Port=2@6"},
         {}},
        {"CarriageReturns",
         kDate + "\r\n\tNAS-Port = 1\r\n\r\n" + kDate + "\r\n\tNAS-Port = 2\r\n",
         {"1 " + kDate + "|NAS-Port=1@2", "4 " + kDate + "|NAS-Port=2@5"},
         {}},
        {"NoLastBlankLine", kDate + "\n\tNAS-Port = 1\n", {"1 " + kDate + "|NAS-Port=1@2"}, {}},
        {"BlankLinesEverywhere",
         "\n \t\n" + kDate + "\n    NAS-Port = 1  \n\n\n\t\n" + kDate + "\n\tNAS-Port = 2\n\n\n",
         {"3 " + kDate + "|NAS-Port=1@4", "8 " + kDate + "|NAS-Port=2@9"},
         {}},
        {"NoBlankLineBetween",
         kDate + "\n\tNAS-Port = 1\n" + kOtherDate + "\n\tNAS-Port = 2\n\n",
         {"1 " + kDate + "|NAS-Port=1@2", "3 " + kOtherDate + "|NAS-Port=2@4"},
         {}},
        {"HeaderOfAnotherForm",
         "Packet 7 of " + kDate + "\n\tNAS-Port = 1\n\npacket 8\n\tNAS-Port = 2\n\n",
         {"1 Packet 7 of " + kDate + "|NAS-Port=1@2", "4 packet 8|NAS-Port=2@5"},
         {}},
        {"ValuesWithSeparatorsQuotesAndDates",
         kDate + "\n\tUser-Name = \"a = b\"\n\tClass = x = y\n\tReply-Message = \"q\\\" \\\\\"\n" +
             "\tFilter-Id = \"since " + kOtherDate + "\"\n\n",
         {"1 " + kDate + "|User-Name=\"a = b\"@2|Class=x = y@3|Reply-Message=\"q\\\" \\\\\"@4" +
          "|Filter-Id=\"since " + kOtherDate + "\"@5"},
         {}},
    }),
    name_of);

const std::string kWhole = kDate + "\n\tNAS-Port = 9\n\n";
std::string whole_at(int line) {
  return std::to_string(line) + " " + kDate + "|NAS-Port=9@" + std::to_string(line + 1);
}

// A whole record follows the damage and must come through, beginning in line `whole_line`.
LogCase damaged(const char *name, std::string damage, std::string fault, int whole_line,
                DetailFaultKind kind) {
  return {name, damage + kWhole, {"fault " + fault, whole_at(whole_line)}, {kind}};
}

// The file ends inside line `line` of a record that begins in line 4; a whole record is before it.
LogCase cut_short(const char *name, std::string rest, int line) {
  return {name,
          kWhole + rest,
          {whole_at(1), "fault " + std::to_string(line) + "/4"},
          {DetailFaultKind::kEndsInsideALine}};
}

using enum DetailFaultKind;
using namespace std::string_literals;

const std::vector<LogCase> kDamagedLogs = {
    damaged("NoSeparator", kDate + "\n\tNAS-Port = 1\n\tgarbled\n\tClass = 2\n\n", "3/1", 6,
            kNotAPair),
    damaged("NoName", kDate + "\n\t = 1\n\n", "2/1", 4, kNotAPair),
    damaged("NoValue", kDate + "\n\tClass = \n\n", "2/1", 4, kNotAPair),
    damaged("NameOfTwoWords", kDate + "\n\tNAS Port = 1\n\n", "2/1", 4, kNotAPair),
    damaged("OnlyTheFirstFaultOfARecordIsReported",
            kDate + "\n\tgarbled\n\tUser-Name = \"a\nstray\n\n", "2/1", 6, kNotAPair),
    damaged("QuoteNotClosed", kDate + "\n\tUser-Name = \"a\n\n", "2/1", 4, kUnclosedQuote),
    damaged("QuoteEscaped", kDate + "\n\tUser-Name = \"a\\\"\n\n", "2/1", 4, kUnclosedQuote),
    damaged("TextBehindTheQuote", kDate + "\n\tClass = \"a\"b\n\n", "2/1", 4, kUnclosedQuote),
    damaged("StrayLine", kDate + "\n\tClass = 1\nstray\n\tClass = 2\n\n", "3/1", 6, kNotIndented),
    damaged("HeaderMissing", "\tNAS-Port = 1\n\tNAS-Port = 2\n\n", "1/1", 4, kNoHeader),
    damaged("HeaderAlone", kDate + "\n\n", "1/1", 3, kNoPairs),
    damaged("HeaderAloneBeforeAHeader", kOtherDate + "\n", "1/1", 2, kNoPairs),
    damaged("NulInAValue", kDate + "\n\tClass = \"a\0b\"\n\tNAS-Port = 1\n\n"s, "2/1", 5, kNulByte),
    damaged("NulsBeforeADate", std::string(5000, '\0'), "1/1", 1, kNulByte),
    damaged("NulsBeyondTheLineBoundBeforeADate",
            kDate + "\n\tUser-Name = \"a" + std::string(100000, '\0'), "2/1", 2, kLineTooLong),
    damaged("CutInAString", kDate + "\n\tUser-Name = \"ali", "2/1", 2, kRunsIntoNext),
    damaged("CutInANumber", kDate + "\n\tNAS-Port = 1", "2/1", 2, kRunsIntoNext),
    cut_short("EndsInAString", kDate + "\n\tUser-Name = \"al", 5),
    cut_short("EndsInANumberThatReadsWell", kDate + "\n\tNAS-Port = 12", 5),
    cut_short("EndsInAnIndentation", kDate + "\n\tNAS-Port = 12\n\t", 6),
    cut_short("EndsInAHeader", "Tue No", 4),
};

INSTANTIATE_TEST_SUITE_P(Damaged, DetailLog, testing::ValuesIn(kDamagedLogs), name_of);

// Lines, pairs and bytes: at the bound a record is whole, one beyond it is dropped.
TEST(DetailBounds, HoldToTheByte) {
  const std::string begin = kDate + "\n\tClass = ";
  const size_t fill = kivod::kDetailLineMax - std::string("\tClass = ").size();
  EXPECT_EQ(2u, read_log(begin + std::string(fill, 'x') + "\n\n" + kWhole).pair_counts.size());
  const Notebook beyond = read_log(begin + std::string(fill + 1, 'x') + "\n\n" + kWhole);
  EXPECT_EQ((std::vector<std::string>{"fault 2/1", whole_at(4)}), beyond.entries);
  EXPECT_EQ(std::vector{kLineTooLong}, beyond.kinds);
}

std::string record_of(size_t n_pairs, const std::string &pair) {
  std::string log = kDate + "\n";
  for (size_t i = 0; i < n_pairs; ++i) log += pair;
  return log + "\n";
}

TEST(DetailBounds, HoldForPairsAndBytesOfARecord) {
  const Notebook most = read_log(record_of(kivod::kDetailPairsMax, "\tA = b\n"));
  EXPECT_EQ(std::vector{kivod::kDetailPairsMax}, most.pair_counts);

  const Notebook too_many = read_log(record_of(kivod::kDetailPairsMax + 1, "\tA = b\n") + kWhole);
  EXPECT_EQ(std::vector{kTooManyPairs}, too_many.kinds);
  EXPECT_EQ(std::vector{size_t{1}}, too_many.pair_counts);

  const std::string long_pair = "\tA = " + std::string(kivod::kDetailLineMax - 5, 'x') + "\n";
  const Notebook too_long =
      read_log(record_of(kivod::kDetailRecordMax / kivod::kDetailLineMax + 1, long_pair) + kWhole);
  EXPECT_EQ(std::vector{kRecordTooLong}, too_long.kinds);
  EXPECT_EQ(std::vector{size_t{1}}, too_long.pair_counts);
}

TEST(DetailReader, CountsAndBeginsAgainAfterTheEnd) {
  Notebook notebook;
  kivod::DetailReader reader("name of the log", notebook);
  reader.feed(kWhole + kDate + "\n\tcut");
  reader.finish();
  reader.feed(kWhole);
  reader.finish();
  EXPECT_EQ((std::vector<std::string>{whole_at(1), "fault 5/4", whole_at(1)}), notebook.entries);
  EXPECT_EQ(2u, reader.records());
  EXPECT_EQ(1u, reader.faults());
  EXPECT_EQ(std::vector<std::string>(3, "name of the log"), notebook.files);
  EXPECT_STREQ("the file ends inside a line", describe(notebook.kinds.front()));
}

// The reading end in place of standard input until the end of the test.
class StandardInput {
 public:
  StandardInput() {
    EXPECT_EQ(0, pipe(ends_.data()));
    dup2(ends_[0], STDIN_FILENO);
    close(ends_[0]);
  }
  ~StandardInput() {
    dup2(saved_, STDIN_FILENO);
    close(saved_);
    close_writer();
  }
  void write_text(std::string_view text) const {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), write(ends_[1], text.data(), text.size()));
  }
  void close_writer() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  int saved_ = dup(STDIN_FILENO);
  std::array<int, 2> ends_{};
};

TEST(DetailFileTest, ReadsAPipeAsStandardInputAndWaitsWhenItIsEmpty) {
  StandardInput input;
  ASSERT_EQ(0, fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK));
  Notebook notebook;
  std::string error;
  const auto file = DetailFile::open("-", notebook, error);
  ASSERT_NE(nullptr, file) << error;
  EXPECT_EQ(DetailFile::Progress::kWait, file->read_piece());
  input.write_text(kWhole);
  EXPECT_EQ(DetailFile::Progress::kMore, file->read_piece());
  EXPECT_EQ(std::vector{whole_at(1)}, notebook.entries);
  input.close_writer();
  EXPECT_EQ(DetailFile::Progress::kEnd, file->read_piece());
  EXPECT_EQ(DetailFile::Progress::kEnd, file->read_piece());
  EXPECT_EQ(1u, notebook.entries.size());
}

TEST(DetailFileTest, SaysWhichPathCannotBeOpened) {
  Notebook notebook;
  std::string error;
  EXPECT_EQ(nullptr, DetailFile::open("/nonexistent/detail", notebook, error));
  EXPECT_EQ("cannot open /nonexistent/detail: No such file or directory", error);
  EXPECT_EQ(nullptr, DetailFile::open("/", notebook, error));
  EXPECT_EQ("cannot open /: Is a directory", error);
}

}  // namespace
