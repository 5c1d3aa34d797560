// Replay of logs: records are applied in their order over files, what a log has wrong costs no
// other record and is reported with file and line.
#include "replay.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sessions/session_database.h"
#include "support/process.h"
#include "support/trace_log.h"

namespace {

using kivod::Outcome;

const std::string kHeader = "Tue Nov 14 22:13:20 2023\n";

std::string record(const std::string &status, const std::string &id, const std::string &more = "") {
  return kHeader + "\tAcct-Status-Type = " + status + "\n\tAcct-Session-Id = \"" + id + "\"\n" +
         more + "\tNAS-IP-Address = 192.0.2.11\n\n";
}

class ReplayOfLogs : public testing::Test {
 protected:
  void SetUp() override {
    kivo_test::start_process();
    static kivo_db *const db = kivod::open_session_database();
    ASSERT_NE(nullptr, db);
    kivo_test::reset_process();
    ASSERT_TRUE(decoder_) << error_;
    sessions_.emplace(db);
    replay_.emplace(*decoder_, *sessions_);
    std::filesystem::create_directory(directory_);
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::string file(const std::string &name, const std::string &text) const {
    std::ofstream(directory_ / name, std::ios::binary) << text;
    return directory_ / name;
  }
  // Replays a log into an empty store.
  const kivod::ReplayCounts &replay(const std::string &text) {
    kivo_test::reset_process();
    replay_.emplace(*decoder_, *sessions_);
    EXPECT_TRUE(replay_->run(file("log", text), error_)) << error_;
    return replay_->counts();
  }
  uint64_t count(Outcome outcome) const {
    return replay_->counts().outcomes[static_cast<size_t>(outcome)];
  }
  // The host's traces, without their file's directory.
  std::vector<std::string> reports() {
    std::vector<std::string> texts;
    for (const kivo_test::TraceLine &line : trace_.take()) {
      if (line.module != TRACE_MODULE_HOST_APP || line.level > TRACE_LEVEL_DEFAULT) continue;
      const std::string prefix = directory_.string() + "/";
      texts.push_back(line.text.find(prefix) == 0 ? line.text.substr(prefix.size()) : line.text);
    }
    return texts;
  }

  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("replay." + std::to_string(getpid()));
  std::string error_;
  std::optional<kivod::PairDecoder> decoder_ = kivod::PairDecoder::open("", error_);
  std::optional<kivod::SessionTable> sessions_;
  std::optional<kivod::Replay> replay_;
  kivo_test::TraceLog trace_;
};

TEST_F(ReplayOfLogs, AppliesTheRecordsOfSeveralFilesInOrder) {
  const std::string first = file("1", record("Start", "a") + record("Start", "b"));
  const std::string second = file("2", record("Interim-Update", "b") + record("Stop", "a") +
                                           record("Stop", "z") + record("Failed", "b"));
  const std::string third = file("3", record("Accounting-On", "-") + record("Start", ""));
  EXPECT_TRUE(replay_->run(first, error_) && replay_->run(second, error_)) << error_;
  EXPECT_EQ(1u, attrdb_get_total_sessions());
  EXPECT_TRUE(replay_->run(third, error_)) << error_;
  EXPECT_EQ(0u, attrdb_get_total_sessions());
  EXPECT_EQ(3u, replay_->counts().files);
  EXPECT_EQ(8u, replay_->counts().records);
  EXPECT_EQ(2u, count(Outcome::kStarted));
  EXPECT_EQ(1u, count(Outcome::kUpdated));
  EXPECT_EQ(1u, count(Outcome::kStopped));
  EXPECT_EQ(1u, count(Outcome::kUnknown));
  EXPECT_EQ(1u, count(Outcome::kIgnored));
  EXPECT_EQ(1u, count(Outcome::kServerEnded));
  EXPECT_EQ(1u, count(Outcome::kIncomplete));
  EXPECT_EQ(0u, count(Outcome::kFailed));
}

// The third record is whole when the cut is at its end of a line or later, but only with its access
// server, its last line, does it name a session.
TEST_F(ReplayOfLogs, LosesNoOtherRecordWhereverTheLastIsCut) {
  const std::string whole = record("Start", "a") + record("Start", "b");
  const std::string last = record("Start", "c");
  for (size_t size = 0; size <= last.size(); ++size) {
    const kivod::ReplayCounts &counts = replay(whole + last.substr(0, size));
    const uint32_t n_live = size >= last.size() - 1 ? 3 : 2;
    EXPECT_EQ(n_live, attrdb_get_total_sessions()) << size;
    const bool at_line_end = size == 0 || last[size - 1] == '\n';
    const uint64_t damaged = size != 0 && (!at_line_end || size == kHeader.size()) ? 1 : 0;
    EXPECT_EQ(damaged, counts.damaged) << size;
  }
}

TEST_F(ReplayOfLogs, ReportsWithFileAndLine) {
  replay(kHeader + "\tgarbled\n\n" + record("Start", "a", "\tNAS-Port = many\n") +
         record("Start", ""));
  const std::vector<std::string> texts = reports();
  ASSERT_EQ(3u, texts.size());
  EXPECT_EQ("log:2: an indented line that is not \"Name = value\"; record of line 1 skipped",
            texts[0]);
  EXPECT_EQ(0u, texts[1].find("log:7: NAS-Port: ")) << texts[1];
  EXPECT_TRUE(texts[1].ends_with("; value left out")) << texts[1];
  EXPECT_EQ("log:10: no status, access server or session id; record skipped", texts[2]);
}

TEST_F(ReplayOfLogs, NamesTheFileThatItCannotRead) {
  const std::string missing = directory_ / "missing";
  EXPECT_FALSE(replay_->run(missing, error_));
  EXPECT_EQ("cannot open " + missing + ": No such file or directory", error_);
  EXPECT_FALSE(replay_->run(directory_, error_));
  EXPECT_EQ("cannot open " + directory_.string() + ": Is a directory", error_);
  EXPECT_TRUE(replay_->run(file("log", record("Start", "a")), error_));
  EXPECT_EQ(1u, replay_->counts().files);
  EXPECT_EQ(1u, attrdb_get_total_sessions());
}

}  // namespace
