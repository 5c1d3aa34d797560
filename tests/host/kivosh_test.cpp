// kivosh as its user has it: the built program asks the built kivod, once, from a script, and at a
// terminal; what it prints is compared with what kivod prints of the same sessions.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>

#include "host/serving_kivod.h"

namespace {

using kivo_test::ServingKivod;
using Arguments = std::vector<std::string>;

const std::string kDay = KIVO_EXAMPLES_DIR "/accounting/accounting.log";
const std::string kMac = "00:00:5e:00:53:68";
const std::string kAuditId = "000000036AFAAA2F00000000";
const std::string kIpv4 = "198.51.100.105";

struct Ended {
  int status;
  std::string out;
  std::string err;
};

std::string text_of(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Kivosh : public testing::Test {
 protected:
  static void SetUpTestSuite() { kivod_ = new ServingKivod(kDay); }
  static void TearDownTestSuite() {
    EXPECT_EQ(0, kivod_->stop(SIGTERM));
    delete std::exchange(kivod_, nullptr);
  }
  Kivosh() { std::filesystem::create_directory(directory_); }
  ~Kivosh() override { std::filesystem::remove_all(directory_); }

  Ended run(const char *program, Arguments arguments, const std::string &input = "") const {
    std::ofstream(directory_ / "in") << input;
    std::string command = program;
    for (const std::string &argument : arguments) command += " '" + argument + "'";
    for (const char *file : {" < in", " > out", " 2> err"}) {
      std::string path = file;
      path.insert(path.find_last_of(' ') + 1, directory_.string() + "/");
      command += path;
    }
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text_of(directory_ / "out"),
            text_of(directory_ / "err")};
  }
  Ended kivosh(Arguments arguments, const std::string &input = "") const {
    arguments.insert(arguments.begin(), {"--socket", kivod_->socket()});
    return run(KIVOSH_PATH, std::move(arguments), input);
  }

  static Arguments command(const std::string &socket) { return {KIVOSH_PATH, "--socket", socket}; }

  static inline ServingKivod *kivod_ = nullptr;
  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("kivosh." + std::to_string(getpid()));
};

using Values = std::map<std::string, std::string>;

// The last value of each name, in either program's output.
Values values_in(const std::string &text, const std::regex &line) {
  Values values;
  for (std::sregex_iterator i(text.begin(), text.end(), line), end; i != end; ++i) {
    values[(*i)[1]] = (*i)[2];
  }
  return values;
}

// The attributes of a session in kivosh's table.
Values values_in_table(const std::string &text) {
  Values values = values_in(text, std::regex("\n([a-z0-9-]+)  +([^\n]+)(?=\n)"));
  EXPECT_EQ(21u, values.size()) << text;
  return values;
}

// What a reply makes of what kivod prints, which is nothing of what a session lacks: it carries no
// external identities and no IPv6 addresses, and 25 bytes of a text.
std::string in_reply(const std::string &name, const std::string &value) {
  if (name == "external-class") return "(not carried)";
  if (value.empty()) return "--- Data not found ---";
  if (name.starts_with("ipv6-")) return "(not carried)";
  return value.size() < 25 ? value : value.substr(0, 25) + " (may be cut)";
}

TEST_F(Kivosh, FindsASessionHoweverItIsAskedFor) {
  const Ended shown = kivosh({"show", "database", "mac", kMac});
  EXPECT_EQ("alice@example.net", values_in_table(shown.out)["user-name"]);
  for (const Arguments &way : {Arguments{"mac", "0000.5e00.5368"},
                               {"m", "00-00-5E-00-53-68"},
                               {"ipv4", kIpv4},
                               {"audit-session-id", kAuditId},
                               {"session-id", kAuditId}}) {
    EXPECT_EQ(shown.out, kivosh({"show", "database", way[0], way[1]}).out) << way[0];
  }
}

TEST_F(Kivosh, PrintsOneJsonDocument) {
  using nlohmann::json;
  const auto found = json::parse(kivosh({"--json", "sh", "da", "ip", kIpv4}).out);
  EXPECT_EQ(4, found["cmdtype"]);
  EXPECT_EQ(255, found["records"]);
  EXPECT_EQ(21, found["attr_number"]);
  EXPECT_EQ("ATTR_DB", found["database"]);
  EXPECT_EQ(json(kIpv4), found["ipv4"]);
  EXPECT_EQ(1, found["found"]);
  ASSERT_EQ(21u, found["filter_info"].size());
  const json entry = {{"attr_names", 2},
                      {"attr_values", "0000.5e00.5368"},
                      {"attr_type", 42},
                      {"name", "mac-address"},
                      {"kind", "MAC_ADDR"}};
  EXPECT_EQ(entry, found["filter_info"][2]);
  EXPECT_EQ("2026-11-16T07:01:03Z", found["filter_info"][12]["attr_values"]);
  const auto types = json::parse(kivosh({"sh", "da", "at", "--json"}).out);
  EXPECT_EQ(0, types["cmdtype"]);
  const json type = {{"attr_names", 2},
                     {"attr_types", 4},
                     {"attr_type", 42},
                     {"name", "mac-address"},
                     {"kind", "MAC_ADDR"}};
  EXPECT_EQ(type, types["db_info"][2]);
  const Ended none = kivosh({"--json", "sh", "da", "ip", "192.0.2.255"});
  EXPECT_EQ(1, none.status);
  EXPECT_EQ("kivosh: no such session\n", none.err);
  EXPECT_EQ(0, json::parse(none.out)["found"]);
  EXPECT_EQ(json::array(), json::parse(none.out)["filter_info"]);
}

TEST_F(Kivosh, SaysByItsExitStatusWhatWentWrong) {
  const std::string nowhere = directory_ / "nowhere";
  const struct {
    int status;
    Arguments arguments;
    std::string message;
  } rows[] = {
      {0, {"--help"}, ""},
      {0, {"--version"}, ""},
      {0, {"help"}, ""},
      {1, {"show", "database", "mac", "00:00:00:00:00:01"}, "kivosh: no such session\n"},
      {2, {"show"}, "kivosh: more is needed; expected: database\n"},
      {2, {"show", "database", "mac", "00:01"}, "kivosh: '00:01' is no MAC address\n"},
      {2, {"show", "database", "ipv4", "::1"}, "kivosh: '::1' is no IPv4 address\n"},
      {2,
       {"show", "database", "audit-session-id", ""},
       "kivosh: an audit session id has 1 to 511 bytes\n"},
      {2,
       {"show", "database", "session-id", std::string(512, 'i')},
       "kivosh: an audit session id has 1 to 511 bytes\n"},
      {2,
       {"--timeout", "-1", "show", "database"},
       "kivosh: --timeout: '-1' is no number of seconds from 0 to 3600\n"},
      {2,
       {"--timeout", "3600.5", "show", "database"},
       "kivosh: --timeout: '3600.5' is no number of seconds from 0 to 3600\n"},
      {2,
       {"--timeout", "nan", "show", "database"},
       "kivosh: --timeout: 'nan' is no number of seconds from 0 to 3600\n"},
      {2,
       {"--timeout=inf", "show", "database"},
       "kivosh: --timeout: 'inf' is no number of seconds from 0 to 3600\n"},
      {2,
       {"--timeout", "1,5", "show", "database"},
       "kivosh: --timeout: '1,5' is no number of seconds from 0 to 3600\n"},
      {2, {"--frobnicate"}, "kivosh: '--frobnicate' is no option\n"},
      {2, {"show", "database", "-x"}, "kivosh: '-x' is no option\n"},
      {2, {"--esc\x1b[2J"}, "kivosh: '--esc\\x1b[2J' is no option\n"},
      {2,
       {"esc\x1b[2J\n"},
       "kivosh: 'esc\\x1b[2J\\x0a' is not known here; expected: show, help, exit, quit\n"},
      {3,
       {"--socket", nowhere, "show", "database"},
       "kivosh: " + nowhere + ": No such file or directory; is kivod running?\n"},
  };
  for (const auto &row : rows) {
    Arguments arguments = row.arguments;
    const bool elsewhere = arguments[0] == "--socket";
    const Ended ended = elsewhere ? run(KIVOSH_PATH, arguments) : kivosh(arguments);
    EXPECT_EQ(row.status, ended.status) << ended.err;
    EXPECT_EQ(row.message, ended.err);
    EXPECT_EQ(row.status == 0, !ended.out.empty()) << ended.out;
    EXPECT_FALSE(std::regex_search(ended.out, std::regex("[^\n]{81}"))) << ended.out;
  }
}

TEST_F(Kivosh, AsksForAValueAsItWasGiven) {
  const struct {
    Arguments arguments;
    std::string value;
  } rows[] = {
      {{"show", "database", "session-id", "[x]"}, "[x]"},
      {{"show", "database", "session-id", "[a,b]"}, "[a,b]"},
      {{"show", "database", "session-id", "[]"}, "[]"},
      {{"show", "database", "session-id", "-"}, "-"},
      {{"show", "database", "session-id", "++"}, "++"},
      {{"show", "database", "session-id", "--", "-x"}, "-x"},
      {{"show", "database", "session-id", "--", "--"}, "--"},
      {{"show", "database", "session-id", "--", "--json"}, "--json"},
      {{"--", "show", "database", "session-id", "x y"}, "x y"},
  };
  for (const auto &row : rows) {
    Arguments arguments = row.arguments;
    arguments.insert(arguments.begin(), "--json");
    const Ended ended = kivosh(arguments);
    EXPECT_EQ(1, ended.status) << ended.err;
    const auto reply = nlohmann::json::parse(ended.out, nullptr, false);
    ASSERT_TRUE(reply.is_object()) << row.value << ended.err;
    EXPECT_EQ(nlohmann::json(row.value), reply["sess_id"]);
  }
}

const char kShown[] = "Database  Owner  Sessions\nATTR_DB   kivod  255\n";

TEST_F(Kivosh, RunsAScriptAndKeepsItsWorstFailure) {
  const Ended ended = kivosh({}, "sh da\n\nfoo\n  sh da m 00:00:00:00:00:01\n\"x\nexit\nsh da\n");
  EXPECT_EQ(2, ended.status);
  EXPECT_EQ(kShown, ended.out);
  EXPECT_EQ(
      "kivosh: line 3: 'foo' is not known here; expected: show, help, exit, quit\n"
      "kivosh: line 4: no such session\n"
      "kivosh: line 5: a quote has no end\n",
      ended.err);
  EXPECT_EQ(0, kivosh({}, "sh da m '" + kMac + "'").status) << "no newline at the end";
  EXPECT_EQ(1, kivosh({}, "sh da\nsh da i 192.0.2.255\nsh da\n").status);
}

// With --json there is a document a command, whatever became of it.
TEST_F(Kivosh, PrintsADocumentALineForAScript) {
  const std::string help = kivosh({"--json", "help"}).out;
  EXPECT_EQ(0u, help.find(R"({"commands":[{"words":"show database",)")) << help;
  EXPECT_EQ(help + R"({"error":"'f\u001b' is not known here; expected: show, help, exit, quit",)" +
                R"("status":2,"line":3})" + "\n" +
                R"({"error":"'\\xff' is no MAC address","status":2,"line":4})" + "\n" + help,
            kivosh({"--json"}, "help\n#\nf\x1b\nsh da m \xff\nhelp\nexit\n").out);
  for (const auto &[option, error] :
       {std::pair{"-x", R"({"error":"'-x' is no option","status":2})"},
        {"--timeout=x",
         R"({"error":"--timeout: 'x' is no number of seconds from 0 to 3600","status":2})"}}) {
    EXPECT_EQ(std::string(error) + "\n", kivosh({option, "--json"}).out);
  }
}

TEST_F(Kivosh, TakesTheLinesOfAScriptWithEitherEndAndWithComments) {
  const struct {
    const char *name;
    std::string script;
    int status;
    std::string out;
    std::string err;
  } rows[] = {
      {"CarriageReturns", "sh da\r\n\r\nsh da\r\n", 0, std::string(kShown) + kShown, ""},
      {"Comments", "# sh da\n  #\n#'\nsh da\n", 0, kShown, ""},
      {"NumberSignInside", "sh da m #1\n", 2, "", "line 1: '#1' is no MAC address"},
      {"ZeroByte", std::string("sh da\0x\n", 8), 2, "", "line 1: a command holds no zero byte"},
      {"BackslashAtTheEnd", "sh da\\", 2, "", "line 1: the last backslash has nothing behind it"},
      {"BackslashBeforeALineEnd", "sh\\\nda\n", 2, "",
       "line 1: the last backslash has nothing behind it\n"
       "kivosh: line 2: 'da' is not known here; expected: show, help, exit, quit"},
      {"ControlCharacters", "sh\x1b[2J\n", 2, "",
       "line 1: 'sh\\x1b[2J' is not known here; expected: show, help, exit, quit"},
  };
  for (const auto &row : rows) {
    const Ended ended = kivosh({}, row.script);
    EXPECT_EQ(row.status, ended.status) << row.name;
    EXPECT_EQ(row.out, ended.out) << row.name;
    EXPECT_EQ(row.err.empty() ? "" : "kivosh: " + row.err + "\n", ended.err) << row.name;
  }
}

TEST_F(Kivosh, PrintsAnswersAndErrorsOfAScriptInTheirOrder) {
  const std::filesystem::path script = directory_ / "script";
  std::ofstream(script) << "foo\nsh da\nbar\nsh da\n";
  const std::string command = std::string(KIVOSH_PATH) + " --socket " + kivod_->socket() + " < " +
                              script.string() + " > " + (directory_ / "both").string() + " 2>&1";
  EXPECT_NE(0, std::system(command.c_str()));
  EXPECT_EQ("kivosh: line 1: 'foo' is not known here; expected: show, help, exit, quit\n" +
                std::string(kShown) +
                "kivosh: line 3: 'bar' is not known here; expected: show, help, exit, quit\n" +
                kShown,
            text_of(directory_ / "both"));
}

TEST_F(Kivosh, TellsThatItCannotReadAScript) {
  const std::string command = std::string(KIVOSH_PATH) + " < " + directory_.string() + " 2> " +
                              (directory_ / "err").string();
  const int status = std::system(command.c_str());
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(3, WEXITSTATUS(status));
  EXPECT_EQ("kivosh: cannot read standard input: Is a directory\n", text_of(directory_ / "err"));
}

// ---- At a terminal

class Terminal {
 public:
  // Runs a command at it.
  Terminal(const Arguments &command, const std::string &home, const char *locale = "C.UTF-8") {
    main_ = posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(0, grantpt(main_));
    EXPECT_EQ(0, unlockpt(main_));
    const std::string name = ptsname(main_);
    child_ = fork();
    if (child_ == 0) {
      setsid();
      const int side = open(name.c_str(), O_RDWR);
      const winsize size = {50, 200, 0, 0};
      ioctl(side, TIOCSCTTY, 0);
      ioctl(side, TIOCSWINSZ, &size);
      for (int fd = 0; fd < 3; ++fd) dup2(side, fd);
      setenv("HOME", home.c_str(), 1);
      setenv("TERM", "xterm", 1);
      setenv("LC_ALL", locale, 1);
      std::vector<char *> arguments;
      for (const std::string &word : command) arguments.push_back(const_cast<char *>(word.c_str()));
      arguments.push_back(nullptr);
      execv(arguments[0], arguments.data());
      _exit(127);
    }
  }
  ~Terminal() {
    close(main_);
    if (child_ > 0) waitpid(child_, nullptr, 0);
  }
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  void type(const std::string &keys) const {
    EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(main_, keys.data(), keys.size()));
  }

  // Reads until a text has come, without escape sequences. All up to it, from the last call on.
  std::string expect(const std::string &text) {
    // Once something did not come, nothing else is waited for.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(lost_ ? 1 : 60);
    while (came_.find(text) == came_.npos) {
      pollfd ready = {main_, POLLIN, 0};
      poll(&ready, 1, 1000);
      char piece[1024];
      const ssize_t n = ready.revents != 0 ? read(main_, piece, sizeof piece) : 0;
      if (n < 0 || std::chrono::steady_clock::now() > deadline) {
        ADD_FAILURE() << "'" << text << "' did not come: " << came_;
        lost_ = true;
        return came_;
      }
      came_.append(piece, static_cast<size_t>(n));
      came_ = std::regex_replace(came_, std::regex("\x1b\\[[0-9;?]*[A-Za-z]"), "");
    }
    const size_t end = came_.find(text) + text.size();
    const std::string taken = came_.substr(0, end);
    came_.erase(0, end);
    return taken;
  }

  // Sends a signal to whoever works at the terminal.
  void send(int signal) const { EXPECT_EQ(0, kill(-tcgetpgrp(main_), signal)); }

  // The exit status.
  int wait() {
    int status = -1;
    waitpid(std::exchange(child_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int main_;
  pid_t child_;
  std::string came_;
  bool lost_ = false;
};

// Some build machines, containers above all, have none.
bool has_terminals() {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  const bool usable = terminal >= 0 && grantpt(terminal) == 0;
  if (terminal >= 0) close(terminal);
  return usable;
}

class KivoshAtATerminal : public Kivosh {
 protected:
  void SetUp() override {
    if (!has_terminals()) GTEST_SKIP() << "there are no pseudo-terminals here";
  }
};

// ---- Compared with kivod

// What kivosh prints: once by a command of its own, once at its prompt.
class Compared : public Kivosh, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    if (GetParam() && !has_terminals()) GTEST_SKIP() << "there are no pseudo-terminals here";
  }
  std::string shown(const Arguments &words) const {
    if (!GetParam()) return kivosh(words).out;
    Terminal terminal(command(kivod_->socket()), directory_);
    terminal.expect("kivosh> ");
    for (const std::string &word : words) terminal.type(word + " ");
    terminal.type("\r");
    terminal.expect("\n");  // behind the command as it was typed
    std::string text = terminal.expect("kivosh> ");
    terminal.type("exit\r");
    EXPECT_EQ(0, terminal.wait());
    text.resize(text.size() - std::strlen("kivosh> "));
    std::erase(text, '\r');
    return text;
  }
  // What kivod prints of the same log.
  std::string own(Arguments arguments) const {
    arguments.insert(arguments.begin(), {"--replay", kDay, "--quiet"});
    const Ended ended = run(KIVOD_PATH, arguments);
    EXPECT_EQ(0, ended.status) << ended.err;
    return ended.out;
  }
};
INSTANTIATE_TEST_SUITE_P(Kivosh, Compared, testing::Bool(),
                         [](const auto &way) { return way.param ? "Prompt" : "Once"; });

TEST_P(Compared, ShowsTheDatabaseAsKivodDoes) {
  Values header = values_in(own({"--show"}), std::regex("\n([A-Z ]+[A-Z]) +: ([^\n]+)(?=\n)"));
  const std::string text = shown({"show", "database"});
  std::smatch row;
  ASSERT_TRUE(std::regex_match(
      text, row, std::regex("Database +Owner +Sessions\n([^ \n]+) +([^ \n]+) +([^ \n]+)\n")))
      << text;
  EXPECT_EQ(header["DATABASE"], row[1]);
  EXPECT_EQ(header["OWNER"], row[2]);
  EXPECT_EQ(header["NUMBER OF RECORDS"], row[3]);
  EXPECT_EQ("255", row[3]);
}

// But for numbers, which replies have in hexadecimal, and what they do not carry: identities, which
// they say are not there, among it.
TEST_P(Compared, ShowsASessionAsKivodDoes) {
  for (const std::string mac : {"00:00:5e:00:53:68", "0000.5e00.5347", "0000.5e00.53c1"}) {
    Values expected = values_in(own({"--mac", mac}), std::regex("([a-z0-9-]+)  +([^\n]*)\n"));
    for (const auto &[name, value] : values_in_table(shown({"show", "database", "mac", mac}))) {
      EXPECT_EQ(in_reply(name, expected[name]), value) << name;
    }
  }
}

// By position, with name, type and kind.
TEST_P(Compared, ListsTheAttributesAsKivodDoes) {
  const auto rows = [](const std::string &text, const std::string &line) {
    const std::regex row(line);
    std::vector<std::string> found;
    for (std::sregex_iterator i(text.begin(), text.end(), row), end; i != end; ++i) {
      found.push_back((*i)[1].str() + " " + (*i)[2].str() + " " + (*i)[3].str());
    }
    return found;
  };
  const std::string name_and_type = "([a-z0-9-]+) +([0-9]+) +";
  const std::string kind = "([A-Z0-9_]+(?: [A-Z0-9]+)?)";
  const auto expected = rows(own({"--attributes"}), "\n" + name_and_type + kind + " *(?=\n)");
  ASSERT_EQ(21u, expected.size());
  EXPECT_EQ("mac-address 42 MAC_ADDR", expected[2]);
  const std::string text = shown({"show", "database", "attributes"});
  EXPECT_EQ(expected, rows(text, "\n[0-9]+ +" + name_and_type + kind + "(?=\n)"));
  EXPECT_NE(std::string::npos, text.find("\n20        external-class")) << text;
}

// ---- What keys do

TEST_F(KivoshAtATerminal, TalksAtATerminal) {
  {
    Terminal terminal(command(kivod_->socket()), directory_);
    terminal.expect("kivosh> ");
    terminal.type("sh\t");
    terminal.expect("ow ");
    terminal.type("d\t");
    terminal.expect("atabase ");
    terminal.type("?");
    const std::string ways = terminal.expect("kivosh> show database ");
    EXPECT_NE(std::string::npos, ways.find("mac MAC")) << ways;
    EXPECT_NE(std::string::npos, ways.find("the session of this IPv4 address")) << ways;
    terminal.type("\t");
    terminal.expect("attributes");
    terminal.type("m\t0000.5e00.5368\r");
    terminal.expect("update-time");
    terminal.expect("kivosh> ");
    terminal.type("\x1b[A");  // up
    terminal.expect("show database mac 0000.5e00.5368");
    terminal.type("\x03");  // drops the line
    terminal.expect("kivosh> ");
    terminal.type("show da session-id a?b\r");  // no help within a value
    terminal.expect("kivosh: no such session");
    terminal.expect("kivosh> ");
    terminal.type("e\r");
    EXPECT_EQ(0, terminal.wait());
  }
  // The next one remembers.
  Terminal terminal(command(kivod_->socket()), directory_);
  terminal.expect("kivosh> ");
  terminal.type("\x1b[A\x1b[A");
  terminal.expect("show da session-id a?b");
  terminal.type("\x03\x04");  // and the end of input
  EXPECT_EQ(0, terminal.wait());
}

TEST_F(KivoshAtATerminal, TakesHelpAndCompletionKeysAsTheyAreWithinQuotes) {
  Terminal terminal(command(kivod_->socket()), directory_);
  const struct {
    std::string keys;
    std::string value;
  } rows[] = {
      {"\"a?\tb\"", "a?\\x09b"}, {"'?'", "?"},     {"\"\t\"", "\\x09"},
      {"x\"y z\"?", "xy z?"},    {"a\\ ?", "a ?"}, {"a\\?", "a?"},
  };
  for (const auto &row : rows) {
    terminal.expect("kivosh> ");
    terminal.type("show database mac " + row.keys + "\r");
    terminal.expect("kivosh: '" + row.value + "' is no MAC address");
  }
  terminal.expect("kivosh> ");
  terminal.type("show database mac \"a b\" ?");  // behind a quoted value
  const std::string ways = terminal.expect("kivosh> ");
  EXPECT_NE(std::string::npos, ways.find("(Enter)")) << ways;
  terminal.type("\x03\x04");
  EXPECT_EQ(0, terminal.wait());
}

// In an environment without UTF-8 too.
TEST_F(KivoshAtATerminal, EditsCharactersOfSeveralBytes) {
  for (const char *locale : {"C.UTF-8", "C"}) {
    Terminal terminal(command(kivod_->socket()), directory_, locale);
    terminal.expect("kivosh> ");
    terminal.type("sh d m caf\xc3\xa9\r");
    terminal.expect("kivosh: 'caf\xc3\xa9' is no MAC address");
    terminal.expect("kivosh> ");
    terminal.type("\xc3\xa9\xc3\xa9 \xe2\x82\xac\x1b[D\x03");  // dropped, also from within
    terminal.expect("^C");
    terminal.expect("kivosh> ");
    terminal.type("sh d\r");
    terminal.expect("ATTR_DB   kivod  255");
    terminal.type("exit\r");
    EXPECT_EQ(0, terminal.wait()) << locale;
  }
}

// A daemon that takes connections and says nothing.
class SilentDaemon {
 public:
  SilentDaemon(const std::string &path, int n_waiting) : path_(path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = address_of(path);
    EXPECT_EQ(0, bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    EXPECT_EQ(0, listen(fd_, n_waiting));
  }
  ~SilentDaemon() {
    for (const int fd : {fd_, peer_}) {
      if (fd >= 0) close(fd);
    }
    for (const int fd : waiting_) close(fd);
  }
  SilentDaemon(const SilentDaemon &) = delete;
  SilentDaemon &operator=(const SilentDaemon &) = delete;

  // Whether somebody asks something.
  bool hears() {
    if (!becomes_readable(fd_)) return false;
    peer_ = accept(fd_, nullptr, nullptr);
    return becomes_readable(peer_);
  }
  // Nobody else can connect.
  void fill() {
    const sockaddr_un address = address_of(path_);
    for (int result = 0; result == 0;) {
      waiting_.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
      result =
          connect(waiting_.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    EXPECT_EQ(EAGAIN, errno);
  }

 private:
  static bool becomes_readable(int fd) {
    pollfd ready = {fd, POLLIN, 0};
    return poll(&ready, 1, 60000) == 1;
  }
  static sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
  }

  const std::string path_;
  int fd_ = -1;
  int peer_ = -1;
  std::vector<int> waiting_;
};

TEST_F(Kivosh, WaitsNoLongerThanItWasTold) {
  const std::string path = directory_ / "silent";
  SilentDaemon daemon(path, 0);
  const Arguments arguments = {"--socket", path, "--timeout", "0.2", "show", "database"};
  const Ended unanswered = run(KIVOSH_PATH, arguments);
  EXPECT_EQ(3, unanswered.status);
  EXPECT_EQ("kivosh: the daemon does not answer\n", unanswered.err);
  daemon.fill();
  const Ended unconnected = run(KIVOSH_PATH, arguments);
  EXPECT_EQ(3, unconnected.status);
  EXPECT_EQ("kivosh: " + path + ": the daemon does not answer\n", unconnected.err);
}

TEST_F(KivoshAtATerminal, GivesUpACommandThatWaits) {
  const std::string path = directory_ / "silent";
  Arguments patient = command(path);
  patient.insert(patient.end(), {"--timeout", "0"});
  Terminal terminal(patient, directory_);
  for (int round = 0; round < 2; ++round) {
    SilentDaemon daemon(path, 1);
    terminal.expect("kivosh> ");
    terminal.type("show database\r");
    ASSERT_TRUE(daemon.hears());
    terminal.type("\x03");
    terminal.expect("kivosh: interrupted");
    std::filesystem::remove(path);
  }
  terminal.expect("kivosh> ");
  terminal.type("show database\r");  // to nobody: the interruption is over
  terminal.expect("silent: No such file or directory; is kivod running?");
  terminal.expect("kivosh> ");
  terminal.type("\x04");
  EXPECT_EQ(0, terminal.wait());
}

// The shell around it goes on: it tells how kivosh ended, and the terminal's modes.
TEST_F(KivoshAtATerminal, LeavesTerminalAndHistoryInOrderWhenASignalEndsIt) {
  for (const int signal : {SIGTERM, SIGHUP}) {
    const std::string script = "trap : HUP TERM; '" KIVOSH_PATH "' --socket '" + kivod_->socket() +
                               "'; echo status $?; stty -a; exit 0";
    Terminal terminal({"/bin/sh", "-c", script}, directory_);
    terminal.expect("kivosh> ");
    terminal.type("show database\r");
    terminal.expect("ATTR_DB");
    terminal.expect("kivosh> ");
    terminal.type("sh");  // which the editor echoes: the modes are its own
    terminal.expect("sh");
    terminal.send(signal);
    terminal.expect("status " + std::to_string(128 + signal));
    const std::string modes = terminal.expect("echoke");
    for (const std::string mode : {"isig", "icanon", "echo"}) {
      EXPECT_TRUE(std::regex_search(modes, std::regex("\\s" + mode + "\\s"))) << mode << modes;
    }
    EXPECT_EQ(0, terminal.wait());
    EXPECT_NE(std::string::npos, text_of(directory_ / ".kivosh_history").find("show\\040database"));
    std::filesystem::remove(directory_ / ".kivosh_history");
  }
}

}  // namespace
