// The splitter of `detail` logs under any bytes. What it makes of a log must not depend on the
// pieces in which the log arrives, its records must keep to the header's promises, and its own
// counts must agree with what it delivered. The first two bytes of an input give the size of the
// pieces.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "detail_reader.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

// Writes everything down in one text and checks it on its way.
class Notebook final : public kivod::DetailSink {
 public:
  void on_record(const kivod::DetailRecord &record) override {
    ++n_records;
    require(record.file == "log" && record.line > last_line_);
    require(!record.pairs.empty() && record.pairs.size() <= kivod::kDetailPairsMax);
    note(record.line, record.header);
    size_t size = record.header.size();
    last_line_ = record.line;
    for (const kivod::DetailPair &pair : record.pairs) {
      require(pair.line > last_line_);
      require(!pair.name.empty() && pair.name.find_first_of(" \t\r\n") == pair.name.npos);
      require(!pair.value.empty() && pair.value.find('\n') == pair.value.npos);
      require(pair.name.size() + pair.value.size() <= kivod::kDetailLineMax);
      require(pair.value.find('\0') == pair.value.npos);
      size += pair.name.size() + pair.value.size();
      last_line_ = pair.line;
      note(pair.line, pair.name);
      note(pair.line, pair.value);
    }
    require(size <= kivod::kDetailRecordMax);
  }

  void on_fault(const kivod::DetailFault &fault) override {
    ++n_faults;
    require(fault.line >= fault.record_line && fault.record_line > 0);
    note(fault.line, kivod::describe(fault.kind));
    note(fault.record_line, "");
  }

  std::string text;
  uint64_t n_records = 0;
  uint64_t n_faults = 0;

 private:
  void note(uint64_t line, std::string_view what) {
    text.append(std::to_string(line)).append(":").append(what).append("\n");
  }

  uint64_t last_line_ = 0;
};

std::string read_in_pieces(std::string_view log, size_t piece_size) {
  Notebook notebook;
  kivod::DetailReader reader("log", notebook);
  for (; log.size() > piece_size; log.remove_prefix(piece_size)) {
    reader.feed(log.substr(0, piece_size));
  }
  reader.feed(log);
  reader.finish();
  require(reader.records() == notebook.n_records && reader.faults() == notebook.n_faults);
  return notebook.text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  const size_t piece_size = 1 + (data[0] | static_cast<size_t>(data[1]) << 8);
  const std::string_view log(reinterpret_cast<const char *>(data) + 2, size - 2);
  require(read_in_pieces(log, piece_size) == read_in_pieces(log, size));
  return 0;
}
