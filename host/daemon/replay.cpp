// See replay.h.
#include "replay.h"

#include <poll.h>

#include <cinttypes>

#include "host_trace.h"

namespace kivod {

bool Replay::run(const std::string &path, std::string &error) {
  const auto file = DetailFile::open(path, *this, error);
  if (file == nullptr) return false;
  ++counts_.files;
  for (;;) {
    switch (file->read_piece()) {
      case DetailFile::Progress::kMore:
        break;
      case DetailFile::Progress::kWait: {
        pollfd wait = {file->fd(), POLLIN, 0};
        poll(&wait, 1, -1);
        break;
      }
      case DetailFile::Progress::kEnd:
        if (file->reader().records() != 0 || file->reader().faults() == 0) return true;
        error = path + ": nothing in it is a record of the detail format";
        return false;
      case DetailFile::Progress::kFailed:
        error = file->error();
        return false;
    }
  }
}

void Replay::on_record(const DetailRecord &record) {
  ++counts_.records;
  const auto report = [&](uint64_t line, const char *why) {
    host_trace(HostLevel::kWarning, HostMessage::kBadValue, "%.*s:%" PRIu64 ": %s; value left out",
               static_cast<int>(record.file.size()), record.file.data(), line, why);
  };
  read_event(record, decoder_, event_, counts_.pairs, report);
  const Outcome outcome = sessions_.apply(event_);
  ++counts_.outcomes[static_cast<size_t>(outcome)];
  if (outcome == Outcome::kIncomplete) {
    host_trace(HostLevel::kWarning, HostMessage::kSkippedRecord,
               "%.*s:%" PRIu64 ": no status, access server or session id; record skipped",
               static_cast<int>(record.file.size()), record.file.data(), record.line);
  }
}

void Replay::on_fault(const DetailFault &fault) {
  ++counts_.damaged;
  host_trace(HostLevel::kWarning, HostMessage::kDamagedRecord,
             "%.*s:%" PRIu64 ": %s; record of line %" PRIu64 " skipped",
             static_cast<int>(fault.file.size()), fault.file.data(), fault.line,
             describe(fault.kind), fault.record_line);
}

}  // namespace kivod
