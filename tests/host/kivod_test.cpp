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

const std::string kRule = "\n--------------------  ------------------------";
const std::string kLine = "\n" + std::string(44, '-');
const std::string kTitle = "\n\n        ATTRIBUTE     VALUE" + kRule;

std::string header(int n_records) {
  return "\n" + std::string(66, '-') + "\nDATABASE          : ATTR_DB\nOWNER             : kivod" +
         "\nNUMBER OF RECORDS : " + std::to_string(n_records);
}

// Session 000001A4 of damaged.log: started at 07:25:56 by its MAC address; the interim update of
// 08:25:56 brought the IPv4 address and left out the IPv6 address. Its port was the fourth.
const std::string kRecord = "\n\nSession Opaque Attributes" + kLine + kTitle +
                            "\nexternal-class                 : "
                            "01 00 00 03 00 03 c1 a5 5e 00 \n" +
                            kLine + kTitle +
                            "\nuser-name                      : 00005e005303"
                            "\ndomain                         : --- Data not found ---"
                            "\nmac-address                    : 00005e005303"
                            "\nipv4-address                   : 198.51.100.4"
                            "\nipv6-addresses                 : --- Data not found ---"
                            "\nserver-address                 : 192.0.2.11"
                            "\nport                           : 0x0000c3b8"  // 50104
                            "\ninterface-name                 : Gi1/0/4"
                            "\ninterface-id                   : 0x00000004"
                            "\nsession-id                     : 000001A4"
                            "\naudit-session-id               : 000000016AFAB00400000003"
                            "\nmethod                         : mac"
                            "\nstart-time                     : 0x      1794813956"
                            "\ninterface                      : 0x00000004"
                            "\nipv6-prefix                    : --- Data not found ---"
                            "\nserver-id                      : access-1.example.net"
                            "\ncalled-station                 : 02-00-5E-00-53-F0"
                            "\ncalling-station                : 00-00-5E-00-53-03"
                            "\nport-type                      : 0x0000000f"  // Ethernet, 15
                            "\nupdate-time                    : 0x      1794817556"
                            "\nexternal-class                 : --- Data not found ---";

TEST_F(Kivod, PrintsTheRecordThatWasAskedFor) {
  const struct {
    const char *option;
    const char *value;
    std::string expected;
  } table[] = {
      {"--mac", "00-00-5E-00-53-03", kRecord},
      {"--mac", "0000.5e00.5303", kRecord},
      {"--session-id", "000000016AFAB00400000003", kRecord},
      {"--ipv4", "198.51.100.4", "\n Num matches: 1\n\nIPV4 match# 1, and its data:\n" + kRecord},
      {"--mac", "00005e0053ff",
       "\n\nNo matching records found with supplied MAC Address: 0000.5e00.53ff\n"},
      {"--session-id", "000000016AFAB00400000009",
       "\n\nNo matching records found with supplied Audit Session ID: 000000016AFAB00400000009\n"},
      // 192.0.2.1 as a little-endian signed number: 0x010200c0.
      {"--ipv4", "192.0.2.1",
       "\n Num matches: 0\n\nNo matching records found with supplied IPV4 Address: 16908480"},
  };
  for (const auto &row : table) {
    const Ended ended = kivod({"--replay", kDamaged, "--quiet", row.option, row.value});
    EXPECT_EQ(0, ended.status);
    EXPECT_EQ(header(3) + row.expected + "\n", ended.out) << row.option << " " << row.value;
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
  const std::string id25 = "0123456789012345678901234";
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
      {1, {"--serve", "--socket", kDay}, "cannot listen on " + kDay + ": it is no socket"},
      {1, {"--serve", "--socket", "/nonexistent/s"}, "/nonexistent/s: No such file or directory"},
      {1, {"--serve", "--socket", kDay, "--group", "no such"}, "there is no such group"},
      {2, {"--replay"}, "--replay: 1 required FILE missing"},
      {2, {"--replay", kDay, "--frobnicate"}, "--frobnicate"},
      {2, {"--replay", kDay, "--mac", "00:00:5e"}, "'00:00:5e' is no MAC address"},
      {2, {"--replay", kDay, "--ipv4", "192.0.2"}, "'192.0.2' is no IPv4 address"},
      {2, {"--replay", kDay, "--session-id", id25}, "an audit session id has 24 characters"},
      {1,
       {"--replay", "/nonexistent/log"},
       "kivod: cannot open /nonexistent/log: No such file or directory"},
      {1, {"--replay", text}, "kivod: " + text + ": nothing in it is a record"},
      {0, {"--replay", file("empty", "\n")}, ""},
      {1, {"--replay", kDay, "--dictionaries", "/nonexistent"}, "/nonexistent"},
  };
  for (const auto &row : table) {
    const Ended ended = kivod(row.arguments);
    EXPECT_EQ(row.status, ended.status) << ended.err;
    EXPECT_NE(std::string::npos, ended.err.find(row.message)) << ended.err;
    EXPECT_EQ(row.status == 0, ended.err.empty()) << ended.err;
  }
}

TEST_F(Kivod, FailsWhenItsOutputCannotBeWritten) {
  EXPECT_EQ(1, run({KIVOD_PATH, "--replay", kDay}, "/dev/null", "/dev/full").status);
}

// Two sessions, and one that stopped: what each listing says of them.
TEST_F(Kivod, ListsAndMatchesWhatIsLive) {
  const auto record = [](const char *status, const char *id, const char *user) {
    return std::string("Mon Nov 16 07:00:00 2026\n\tAcct-Status-Type = ") + status +
           "\n\tNAS-IP-Address = 192.0.2.11\n\tAcct-Session-Id = \"" + id + "\"\n\tUser-Name = \"" +
           user + "\"\n\tAcct-Multi-Session-Id = \"0A0000010000002A5F3C9B7E\"" +
           "\n\tNAS-Port = 3\n\tEvent-Timestamp = \"Nov 16 2026 07:00:00 UTC\"\n\n";
  };
  const std::string log = file(
      "log", record("Start", "a", "ann@example.net") + record("Start", "b", "bob@example.net") +
                 record("Start", "c", "eve@example.org") + record("Stop", "c", "eve@example.org"));
  const std::string header =
      "\n" + std::string(66, '-') + "\nDATABASE          : ATTR_DB\nOWNER             : kivod";
  EXPECT_EQ(header +
                "\nTotal Sessions    : 2\nMAC Sessions      : 0\nSwidb Sessions    : 2"
                "\nIIF-ID Sessions    : 2\nDomain Sessions   : 2\nMethod Sessions   : 0"
                "\nAudit Sessions    : 2\nSess-id Sessions  : 2\n",
            kivod({"--quiet", "--replay", log, "--counts"}).out);
  const Ended match = kivod({"--quiet", "--replay", log, "--match",
                             "domain=example.net, port=3, user-name=bob@example.net"});
  EXPECT_EQ(0, match.status);
  EXPECT_EQ(
      "LABEL  USER             MAC  IPV4  IPV6  SERVER      INTERFACE  SESSION  METHOD  START\n"
      "2      bob@example.net                   192.0.2.11             b                "
      "2026-11-16T07:00:00Z\n"
      "1 sessions\n",
      match.out);
  EXPECT_EQ("0 sessions\n",
            kivod({"--quiet", "--replay", log, "--match", "domain=example.org"}).out);
  const std::string records = kivod({"--quiet", "--replay", log, "--records"}).out;
  EXPECT_EQ(0u, records.find(header + "\n\nDisplaying Record: [0/2]\nUnique Label: 0x1\n"));
  EXPECT_NE(std::string::npos, records.find("\nuser-name                     : bob@example.net"));
  const std::string attributes = kivod({"--quiet", "--replay", log, "--attributes"}).out;
  EXPECT_NE(std::string::npos,
            attributes.find("\naudit-session-id               819        SESN_GUID "));
  for (const char *bad : {"port=3", "colour=red"}) {
    EXPECT_EQ(2, kivod({"--quiet", "--replay", log, "--match", bad}).status) << bad;
  }
}

}  // namespace
