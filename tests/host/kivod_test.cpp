// The daemon as its user has it: the built program on the example logs and on harmed copies of
// them, with its exit statuses, its messages and the record that it prints.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kExamples = KIVO_EXAMPLES_DIR "/accounting/";
const std::string kDay = kExamples + "accounting.log";
const std::string kDamaged = kExamples + "damaged.log";

std::string text_of(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Ended {
  int status;  // -1 when a signal ended it
  std::string out;
  std::string err;
};

class Kivod : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(directory_); }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::string file(const std::string &name, const std::string &text) const {
    std::ofstream(directory_ / name, std::ios::binary) << text;
    return directory_ / name;
  }

  Ended run(std::vector<std::string> command, const std::string &input = "/dev/null",
            const std::string &output = "") const {
    const std::string out = output.empty() ? (directory_ / "out").string() : output;
    const std::string err = directory_ / "err";
    std::vector<char *> arguments;
    for (std::string &argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      const int files[] = {open(input.c_str(), O_RDONLY),
                           open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
                           open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)};
      for (int i = 0; i < 3; ++i) {
        if (dup2(files[i], i) < 0) _exit(126);
      }
      execv(arguments[0], arguments.data());
      _exit(127);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output.empty() ? text_of(out) : "",
            text_of(err)};
  }

  Ended kivod(std::vector<std::string> arguments, const std::string &input = "/dev/null") const {
    arguments.insert(arguments.begin(), KIVOD_PATH);
    return run(arguments, input);
  }

  // The number behind a text of the summary.
  static uint64_t number_after(const std::string &out, const std::string &text) {
    const size_t at = out.find(text);
    EXPECT_NE(std::string::npos, at) << text << "\n" << out;
    return at == std::string::npos ? ~0ull : std::stoull(out.substr(at + text.size()));
  }
  uint64_t live_after(const std::string &path) const {
    const Ended ended = kivod({"--replay", path});
    EXPECT_EQ(0, ended.status) << ended.err;
    return number_after(ended.out, "Live sessions: ");
  }
  // By the script that shares no code with the daemon.
  uint64_t independent_count(const std::string &path) const {
    const Ended ended = run({COUNT_SCRIPT, path});
    EXPECT_EQ(0, ended.status) << ended.err;
    return ended.out.empty() ? ~0ull : std::stoull(ended.out);
  }

  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("kivod." + std::to_string(getpid()));
};

TEST_F(Kivod, LeavesAsManySessionsLiveAsAnIndependentCount) {
  EXPECT_EQ(255u, independent_count(kDay));  // the number that the plan of the day has
  EXPECT_EQ(255u, live_after(kDay));
  EXPECT_EQ(3u, independent_count(kDamaged));
  EXPECT_EQ(3u, live_after(kDamaged));
}

TEST_F(Kivod, CountsWhatTheDayHolds) {
  const Ended ended = kivod({"--replay", kDay});
  EXPECT_EQ(548u, number_after(ended.out, "Replayed "));
  EXPECT_EQ(326u, number_after(ended.out, "sessions started "));
  EXPECT_EQ(1u, number_after(ended.out, "incomplete "));
  EXPECT_EQ(1u, number_after(ended.out, "other "));
  EXPECT_EQ(0u, number_after(ended.out, "failed "));
  EXPECT_EQ(0u, number_after(ended.out, "damaged records "));
  EXPECT_EQ(0u, number_after(ended.out, "bad values "));
}

TEST_F(Kivod, BeginsNoSessionAboveItsCeilings) {
  for (const char *option : {"--max-sessions", "--max-sessions-per-server"}) {
    const Ended ended = kivod({"--replay", kDamaged, option, "1"});
    EXPECT_EQ(0, ended.status) << ended.err;
    EXPECT_EQ(4u, number_after(ended.out, "refused ")) << option;  // three starts and an update
    EXPECT_EQ(1u, number_after(ended.out, "Live sessions: ")) << option;
  }
}

TEST_F(Kivod, LosesNothingToWhatLogsSufferOnTheirWay) {
  const std::string day = text_of(kDay);
  std::string dos;
  std::string odd;
  for (const char c : day) {
    dos.append(c == '\n' ? "\r\n" : std::string(1, c));
    odd.push_back(c);
    if (c == '\n' && odd.ends_with(" 2026\n")) odd.append("\tFrobnication-Level = \"7\"\n");
  }
  const struct {
    const char *name;
    std::string text;
  } table[] = {
      {"crlf", dos},
      {"no-last-blank-line", day.substr(0, day.size() - 1)},
      {"unknown-attribute", odd},
  };
  for (const auto &row : table) {
    const std::string path = file(row.name, row.text);
    ASSERT_NE(day, row.text);
    EXPECT_EQ(255u, independent_count(path)) << row.name;
    EXPECT_EQ(255u, live_after(path)) << row.name;
  }
}

TEST_F(Kivod, LosesOnlyTheLastRecordOfALogThatIsCutInIt) {
  const std::string day = text_of(kDay);
  // The last new session of the day: with its start one more is live.
  const size_t cut = day.rfind("\n\n", day.find("\"6917A1fa/02:00:5e:00:53:f3/89\"")) + 2;
  const std::string before = file("before", day.substr(0, cut));
  const size_t end = day.find("\n\n", cut);
  const std::string with = file("with", day.substr(0, end + 2));
  EXPECT_EQ(live_after(before) + 1, live_after(with));
  for (const size_t size : {cut + 3, cut + 40, (cut + end) / 2, end - 1, end}) {
    if (day[size - 1] == '\n') continue;
    EXPECT_EQ(independent_count(before), live_after(file("cut", day.substr(0, size)))) << size;
  }
}

TEST_F(Kivod, ReadsStandardInputAndSeveralFiles) {
  const std::string day = text_of(kDay);
  const size_t middle = day.find("\n\n", day.size() / 2) + 2;
  const std::string first = file("first", day.substr(0, middle));
  const std::string second = file("second", day.substr(middle));
  const Ended both = kivod({"--replay", first, second});
  EXPECT_EQ(255u, number_after(both.out, "Live sessions: "));
  const Ended piped = kivod({"--replay", first, "-"}, second);
  EXPECT_EQ(both.out, piped.out);
}

// Session 000001A4 of damaged.log: started at 07:25:56 by its MAC address; the interim update of
// 08:25:56 brought the IPv4 address and left out the IPv6 address. Its port was the fourth.
const std::string kRecord =
    "label             4\n"
    "user-name         00005e005303\n"
    "mac-address       0000.5e00.5303\n"
    "ipv4-address      198.51.100.4\n"
    "server-address    192.0.2.11\n"
    "port              50104\n"
    "interface-name    Gi1/0/4\n"
    "interface-id      4\n"
    "session-id        000001A4\n"
    "audit-session-id  000000016AFAB00400000003\n"
    "method            mac\n"
    "start-time        2026-11-16T07:25:56Z\n"
    "interface         4\n"
    "server-id         access-1.example.net\n"
    "called-station    02-00-5E-00-53-F0\n"
    "calling-station   00-00-5E-00-53-03\n"
    "port-type         15\n"  // Ethernet
    "update-time       2026-11-16T08:25:56Z\n"
    "external-class    0x00030003c1a55e00\n\n";

TEST_F(Kivod, PrintsTheSessionsThatWereAskedFor) {
  const struct {
    const char *option;
    const char *value;
    int status;
    std::string out;
  } table[] = {
      {"--mac", "00-00-5E-00-53-03", 0, kRecord + "1 session with mac-address 0000.5e00.5303"},
      {"--session-id", "000000016AFAB00400000003", 0,
       kRecord + "1 session with audit-session-id 000000016AFAB00400000003"},
      {"--session-id", "000001A4", 0, kRecord + "1 session with session-id 000001A4"},
      {"--ipv4", "198.51.100.4", 0, kRecord + "1 session with ipv4-address 198.51.100.4"},
      {"--mac", "00005e0053ff", 1, "0 sessions with mac-address 0000.5e00.53ff"},
      {"--session-id", "\x1b]0;x\a", 1,
       "0 sessions with audit-session-id or session-id \\x1b]0;x\\x07"},
      {"--ipv4", "192.0.2.1", 1, "0 sessions with ipv4-address 192.0.2.1"},
  };
  for (const auto &row : table) {
    const Ended ended = kivod({"--replay", kDamaged, "--quiet", row.option, row.value});
    EXPECT_EQ(row.status, ended.status) << row.value;
    EXPECT_EQ(row.out + "\n", ended.out) << row.option << " " << row.value;
  }
}

TEST_F(Kivod, TellsOnStandardErrorWhatTheLogHasWrong) {
  const Ended ended = kivod({"--replay", kDamaged, "--quiet"});
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ("", ended.out);
  EXPECT_NE(std::string::npos, ended.err.find(kDamaged + ":82: ")) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("record of line 62 skipped")) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find(kDamaged + ":170: ")) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("record of line 159 skipped")) << ended.err;
  EXPECT_EQ(2, std::count(ended.err.begin(), ended.err.end(), '\n')) << ended.err;
}

TEST_F(Kivod, SaysByItsExitStatusWhatWentWrong) {
  const std::string text = file("text", "no\nrecords\n");
  const struct {
    int status;
    std::vector<std::string> arguments;
    std::string message;
  } table[] = {
      {0, {"--help"}, ""},
      {0, {"--version"}, ""},
      {2, {}, "--replay or --serve is required"},
      {2, {"--replay", kDay, "--socket", "/tmp/s"}, "--socket requires --serve"},
      {1,
       {"--serve", "--socket", kDay, "--mac", "00005e0053ff"},
       "cannot listen on " + kDay + ": it is no socket"},  // a session that is not there is no end
      {1, {"--serve", "--socket", "/nonexistent/s"}, "/nonexistent/s: No such file or directory"},
      {1, {"--serve", "--socket", kDay, "--group", "no such"}, "there is no such group"},
      {2, {"--replay"}, "--replay: 1 required FILE missing"},
      {2, {"--serve", "--max-sessions", "0"}, "--max-sessions: "},
      {2, {"--serve", "--max-sessions-per-server", "1x"}, "--max-sessions-per-server: "},
      {2, {"--replay", kDay, "--frobnicate"}, "--frobnicate"},
      {2, {"--replay", kDay, "--mac", "00:00:5e"}, "'00:00:5e' is no MAC address"},
      {2, {"--replay", kDay, "--ipv4", "192.0.2"}, "'192.0.2' is no IPv4 address"},
      {2, {"--replay", kDay, "--mac", "\x1b[2J"}, "'\\x1b[2J' is no MAC address"},
      {2, {"--replay", kDay, "--session-id", ""}, "an id has characters"},
      {1, {"--replay", text}, "kivod: " + text + ": nothing in it is a record"},
      {0, {"--replay", file("empty", "\n")}, ""},
      {1,
       {"--replay", "/nonexistent/log"},
       "kivod: cannot open /nonexistent/log: No such file or directory"},
      {1, {"--replay", kDay, "--dictionaries", "/nonexistent"}, "/nonexistent"},
  };
  for (const auto &row : table) {
    const Ended ended = kivod(row.arguments);
    EXPECT_EQ(row.status, ended.status) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(row.message)) << ended.err;
    EXPECT_EQ(row.status == 0, ended.err.empty()) << ended.err;
  }
  std::istringstream help(kivod({"--help"}).out);
  for (std::string line; std::getline(help, line);) EXPECT_GE(80u, line.size()) << line;
}

TEST_F(Kivod, FailsWhenItsOutputCannotBeWritten) {
  EXPECT_EQ(1, run({KIVOD_PATH, "--replay", kDay}, "/dev/null", "/dev/full").status);
}

// Two sessions, and one that stopped, whose place one of them took: what each listing says of them.
// One user's name is out for the operator's terminal.
TEST_F(Kivod, ListsAndMatchesWhatIsLive) {
  const auto record = [](const char *status, const char *id, const char *user) {
    return std::string("Mon Nov 16 07:00:00 2026\n\tAcct-Status-Type = ") + status +
           "\n\tNAS-IPv6-Address = 2001:db8::b\n\tAcct-Session-Id = \"" + id +
           "\"\n\tUser-Name = \"" + user + "\"\n\tClass = 0x6162\n\tClass = 0x0102" +
           "\n\tAcct-Multi-Session-Id = \"0A0000010000002A5F3C9B7E\"" +
           "\n\tNAS-Port = 3\n\tEvent-Timestamp = \"Nov 16 2026 07:00:00 UTC\"\n\n";
  };
  const std::string log = file(
      "log", record("Start", "c", "eve@example.org") + record("Start", "a", "ann@example.net") +
                 record("Stop", "c", "") + record("Start", "b", R"(\033]0;b\007\n@Example.net)"));
  EXPECT_EQ("\n" + std::string(66, '-') +
                "\nDATABASE          : ATTR_DB\nOWNER             : kivod" +
                "\nTotal Sessions    : 2\nMAC Sessions      : 0\nSwidb Sessions    : 2"
                "\nIIF-ID Sessions    : 2\nDomain Sessions   : 2\nMethod Sessions   : 0"
                "\nAudit Sessions    : 2\nSess-id Sessions  : 2\n",
            kivod({"--quiet", "--replay", log, "--counts"}).out);
  const auto block = [](const std::string &label, const std::string &user, const char *id) {
    return "label             " + label + "\nuser-name         " + user +
           "\ndomain            example.net\nserver-address    2001:db8::b"
           "\nport              3\ninterface-id      1\nsession-id        " +
           id +
           "\naudit-session-id  0A0000010000002A5F3C9B7E\nstart-time        2026-11-16T07:00:00Z"
           "\ninterface         1\nupdate-time       2026-11-16T07:00:00Z"
           "\nexternal-class    ab\n                  0x0102\n\n";
  };
  const std::string blocks = block("2", "ann@example.net", "a") +
                             block("3", R"(\x1b]0;b\x07\x0a@Example.net)", "b") + "2 sessions";
  EXPECT_EQ(blocks + "\n", kivod({"--quiet", "--replay", log, "--records"}).out);
  const std::string audit = "0A0000010000002A5F3C9B7E";
  EXPECT_EQ(blocks + " with audit-session-id " + audit + "\n",
            kivod({"--quiet", "--replay", log, "--session-id", audit}).out);
  const Ended match = kivod({"--quiet", "--replay", log, "--match",
                             "domain=EXAMPLE.net, port=0x3, external-class=0x0102, session-id=b"});
  EXPECT_EQ(0, match.status);
  EXPECT_EQ(
      "LABEL  USER                          MAC  IPV4  IPV6  SERVER       INTERFACE  SESSION-ID  "
      "METHOD  START\n"
      R"(3      \x1b]0;b\x07\x0a@Example.net                   2001:db8::b             b           )"
      "        2026-11-16T07:00:00Z\n"
      "1 session\n",
      match.out);
  const Ended none = kivod({"--quiet", "--replay", log, "--match", "domain=example.org"});
  EXPECT_EQ("0 sessions\n", none.out);
  EXPECT_EQ(1, none.status);
  const std::string attributes = kivod({"--quiet", "--replay", log, "--attributes"}).out;
  EXPECT_NE(std::string::npos, attributes.find("\ninterface                      221        VAR"));
  for (const char *bad : {"port=3", "colour=red"}) {
    EXPECT_EQ(2, kivod({"--quiet", "--replay", log, "--match", bad}).status) << bad;
  }
}

}  // namespace
