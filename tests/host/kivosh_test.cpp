// kivosh as its user has it: the built program asks a kivod that has read the example log (k below),
// or a daemon of the test's (f) that says what no kivod would; once, from a script, at a terminal.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <fstream>
#include <regex>

#include "host/serving_kivod.h"

namespace {

using namespace std::string_literals;
using std::string;

// ---- Frames, byte by byte as generated/messages.proto has them

string varint(uint64_t n) {
  const string first(1, static_cast<char>(n < 128 ? n : n | 128));
  return n < 128 ? first : first + varint(n >> 7);
}
string number(uint64_t field, uint64_t n) { return varint(field << 3) + varint(n); }
string bytes(uint64_t field, const string &text) {
  return varint(field << 3 | 2) + varint(text.size()) + text;
}
string frame(uint64_t kind, const string &message = "") {
  const string content = bytes(kind, message);
  const size_t n = content.size();
  return "\0\0"s + static_cast<char>(n >> 8) + static_cast<char>(n) + content;
}
string common(uint32_t type, const string &database = "DB") {
  return frame(5, bytes(1, number(1, type) + number(2, 4000000000) + number(3, 21) +
                               bytes(4, database) + bytes(5, "\x1b[2J")));
}
string value(uint32_t at, const string &text) { return bytes(5, number(1, at) + bytes(2, text)); }
string session(const string &values, const string &mac = "\x00\x10\xa4\x23\x19\xc0"s) {
  return frame(6, bytes(1, bytes(1, "i\xff") + bytes(2, bytes(1, mac)) + number(3, 0x010200c0) +
                               number(4, 1) + values + value(0, "padding")));
}
string type(uint32_t at, uint32_t kind) { return bytes(1, number(1, at) + number(2, kind)); }
string attribute(uint32_t type, const string &name, const string &kind) {
  return bytes(1, number(1, type) + bytes(2, name) + bytes(3, kind));
}
string refusal(const string &text) { return frame(8, bytes(1, text)); }
const string kStart = frame(2), kCommit = frame(3), kAbort = frame(4), kAskNames = frame(9);
const string kTypes = frame(7, bytes(1, type(0, 0) + type(1, 8) + type(0, 9)));
const string kNames = frame(10, attribute(1, "na\x07me", "VAR STR"));

enum Then { kStays, kEnds, kPauses, kSilent };

class Kivosh : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    kivod_ = new kivo_test::ServingKivod(KIVO_EXAMPLES_DIR "/accounting/accounting.log");
    setenv("S", kivod_->socket().c_str(), 1);
    setenv("TERM", "xterm", 1);
  }
  static void TearDownTestSuite() {
    EXPECT_EQ(0, kivod_->stop(SIGTERM));
    delete kivod_;
  }
  Kivosh() {
    std::filesystem::create_directory(directory_);
    std::filesystem::current_path(directory_);
    const sockaddr_un address = {AF_UNIX, "fake"};
    EXPECT_EQ(0, bind(fake_, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    EXPECT_EQ(0, listen(fake_, 0));
  }
  ~Kivosh() override {
    close(fake_);
    std::filesystem::remove_all(directory_);
  }

  // What a command of sh prints, and how it ends unless well.
  string run(const string &command) {
    FILE *const stream = popen((kFunctions + command + "\n} 2>&1 || echo \"[$?]\"").c_str(), "r");
    string out;
    for (ssize_t n = 1; n > 0;) {
      pollfd ready[] = {{fileno(stream), POLLIN, 0}, {fake_, POLLIN, 0}};
      poll(ready, then_ == kSilent ? 1 : 2, -1);
      if (ready[1].revents != 0) answer();
      if (ready[0].revents == 0) continue;
      char piece[4096];
      n = read(ready[0].fd, piece, sizeof piece);
      out.append(piece, static_cast<size_t>(n));
    }
    pclose(stream);
    return out;
  }
  // Takes the request of the next connection and says what it is to.
  void answer() {
    close(peer_);
    peer_ = accept4(fake_, nullptr, nullptr, SOCK_CLOEXEC);
    char request[600];
    const ssize_t n = recv(peer_, request, sizeof request, 0);
    asked_.append(request, static_cast<size_t>(n));
    const string &says = asked_.ends_with(kAskNames) ? names_ : says_;
    const size_t half = says.size() / 2;
    send(peer_, says.data(), half, MSG_NOSIGNAL);
    if (then_ == kPauses) usleep(300000);
    send(peer_, says.data() + half, says.size() - half, MSG_NOSIGNAL);
    if (then_ == kEnds) shutdown(peer_, SHUT_RDWR);
  }

  // Runs a command of sh at a terminal of its own, unless there are none, as in some containers.
  bool start(const string &command) {
    const winsize size = {50, 200, 0, 0};
    child_ = forkpty(&main_, nullptr, nullptr, &size);
    if (child_ != 0) return child_ > 0;
    const string all = "export HOME=.; " + kFunctions + command + "\n}";
    execl("/bin/sh", "sh", "-c", all.c_str(), nullptr);
    _exit(127);
  }
  // Types keys, then reads up to a text, without escape sequences. Behind a line the prompt must come
  // before more is typed: meanwhile the keys are the terminal's.
  void keys(const string &typed, const string &text) {
    EXPECT_EQ(static_cast<ssize_t>(typed.size()), write(main_, typed.data(), typed.size()));
    size_t end = 0;
    while (!HasFailure() && (end = came_.find(text)) == came_.npos) {
      pollfd ready = {main_, POLLIN, 0};
      char piece[1024];
      const ssize_t n = poll(&ready, 1, 60000) == 1 ? read(main_, piece, sizeof piece) : -1;
      EXPECT_LT(0, n) << text << " did not come: " << testing::PrintToString(came_);
      came_.append(piece, static_cast<size_t>(std::max<ssize_t>(n, 0)));
      came_ = std::regex_replace(came_, std::regex("\x1b\\[[0-9;?]*[A-Za-z]|\r"), "");
    }
    came_.erase(0, end + text.size());
  }
  void end(const string &typed) {
    keys(typed, "");
    if (HasFailure()) kill(child_, SIGKILL);
    int status = -1;
    waitpid(child_, &status, 0);
    EXPECT_EQ(0, status);
    close(main_);
  }

  static inline kivo_test::ServingKivod *kivod_ = nullptr;
  const string kFunctions = "k() { '" KIVOSH_PATH
                            "' --socket \"$S\" \"$@\"; }; f() { S=fake k \"$@\"; }; "
                            "j() { k --json \"$@\" 2>/dev/null | tr -d '\"'; }; {\n";
  const std::filesystem::path directory_ =
      std::filesystem::path(testing::TempDir()) / ("kivosh." + std::to_string(getpid()));
  const int fake_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  string says_, names_ = kNames, asked_, came_;
  Then then_ = kStays;
  int peer_ = -1, main_ = -1;
  pid_t child_ = -1;
};

const string kShown = "Database  Owner  Sessions\nATTR_DB   kivod  255\n";
const string kHelp =
    "  show database                      name, owner and number of sessions\n"
    "  show database attributes           what a session has, and of which kind\n"
    "  show database audit-session-id ID  the session with this audit session id\n"
    "  show database mac MAC              the session of this MAC, however spelled\n"
    "  show database ipv4 ADDR            the session of this IPv4 address\n"
    "  help                               what can be typed\n"
    "  exit                               leave\n  quit                               leave\n";

TEST_F(Kivosh, AnswersACommand) {
  const std::pair<string, string> rows[] = {
      {"k show database", kShown},
      {"k show database attributes | sed -n '1p;22p'",
       "Position  Attribute         Type  Kind\n20        external-class    1124  VAR BIN\n"},
      {"k show database mac 00-00-5E-00-53-68 | grep -E 'r-n|ce-n|n-id|up'",
       "user-name         alice@example.net\ninterface-name    --- Data not found ---\n"
       "session-id        6917A1a1/02:00:5e:00:53:f (may be cut)\n"
       "audit-session-id  000000036AFAAA2F00000000\nupdate-time       2026-11-16T07:01:03Z\n"},
      {"for v in 'ip 198.51.100.105' 'au 000000036AFAAA2F00000000'; do k s d $v; done | grep -c "
       "ice@",
       "2\n"},
      {"k s d i 192.0.2.255; j sh da ip 192.0.2.255",
       "kivosh: no such session\n{cmdtype:4,records:255,attr_number:21,database:ATTR_DB,"
       "owner:kivod,ipv4:192.0.2.255,found:0,filter_info:[]}\n"},
      // Values as they were given.
      {"for v in '[a,b]' '[]' - ++ '-- -x' '-- --'; do j s d s $v; done | grep -o _id[^f]*",
       "_id:[a,b],\n_id:[],\n_id:-,\n_id:++,\n_id:-x,\n_id:--,\n"},
      {"j -- s d s 'x y' | cut -d, -f 6", "sess_id:x y\n"},
      {"k help | head -9", kHelp + "A session's audit-session-id is its Acct-Multi-Session-Id, or "
                                   "was made by kivod;\n"},
      {"k --help | grep -oE '^kivosh asks.*|^Usage.*|/run.*sock|SECONDS|^  quit|^Exit|.{81}'",
       "kivosh asks a running kivod who is on\nUsage: kivosh [OPTIONS] [--] [WORD]...\n"
       "/run/kivo/kivod.sock\nSECONDS\n  quit\nExit\n"},
      {"k --help | grep -cE 'SECONDS\\W*10\\b'; k --version | grep -cxE 'kivosh [0-9.]+'",
       "1\n1\n"},
      {"for t in 3600.5 nan 1,5; do k --timeout $t s d; echo $?; done 2>&1 | grep -c ^2", "3\n"},
      {"k --timeout 3600 s d; k --timeout=-1 s d",
       kShown + "kivosh: --timeout: '-1' is no number of seconds from 0 to 3600\n[2]\n"},
      {"k --esc\x1b[2J", "kivosh: '--esc\\x1b[2J' is no option\n[2]\n"},
      {"j s d -x", "{error:'-x' is no option,status:2}\n"},
      {"printf 'help\\n#\\n s d m f\\33\\n\\377\\nq\\nfoo' | j | cut -d} -f 1",
       "{commands:[{words:show database,help:name, owner and number of sessions\n"
       "{error:'f\\u001b' is no MAC address,status:2,line:3\n"
       "{error:'\\\\xff' is not known here; expected: show, help, exit, quit,status:2,line:4\n"},
      {"printf 's d\ns d i 192.0.2.255\ns d' | k",
       kShown + "kivosh: line 2: no such session\n" + kShown + "[1]\n"},
      {"S=none k s d", "kivosh: none: No such file or directory; is kivod running?\n[3]\n"},
      {"k < .", "kivosh: cannot read standard input: Is a directory\n[3]\n"},
      {"k s d > /dev/full", "kivosh: cannot write to standard output\n[3]\n"},
  };
  for (const auto &[command, prints] : rows) EXPECT_EQ(prints, run(command)) << command;
}

// Each line of a script, and what it prints or what is wrong with it.
TEST_F(Kivosh, ReadsAScriptLineByLine) {
  const string words = "' is not known here; expected: show, help, exit, quit";
  const string id = "an audit session id has 1 to 511 bytes";
  const std::pair<string, string> rows[] = {
      {"sh da", kShown},
      {"shows", "'shows" + words},
      {" \t s d\r", kShown},
      {"''", "'' is ambiguous: show, help, exit, quit"},
      {"show", "more is needed; expected: database"},
      {"\r", ""},
      {" # sh da", ""},
      {"s d x", "'x' is not known here; expected: attributes, audit-session-id, mac, ipv4"},
      {"s d a", "'a' is ambiguous: attributes, audit-session-id"},
      {"s d m", "more is needed; expected: MAC"},
      {"s d m 1 2", "nothing can follow here: '2'"},
      {"s d at 2", "nothing can follow here: '2'"},
      {"s d mac #1", "'#1' is no MAC address"},
      {"s d m \"a b\\\"\"", "'a b\"' is no MAC address"},
      {"s d i ::1", "'::1' is no IPv4 address"},
      {"s d s ''", id},
      {"s d s " + string(512, 'i'), id},
      {"s d session-id " + string(511, 'i'), "no such session"},
      {"\"x", "a quote has no end"},
      {"x\\", "the last backslash has nothing behind it"},
      {"sh da\0x"s, "a command holds no zero byte"},
      {"\x1b[2J", "'\\x1b[2J" + words},
      {"q", ""},
      {"sh da", ""},
  };
  string script, prints;
  for (int i = 1; const auto &[line, says] : rows) {
    script += line + "\n";
    const bool fails = !says.empty() && says != kShown;
    prints += fails ? "kivosh: line " + std::to_string(i) + ": " + says + "\n" : says;
    ++i;
  }
  std::ofstream("script") << script;
  EXPECT_EQ(prints + "[2]\n", run("k < script"));
}

// ---- What a daemon can say

TEST_F(Kivosh, AsksForWhatItWasToldAndForNamesAndShowsBoth) {
  const string name = "attr_type:1,name:na\\u0007me,kind:VAR STR}";
  const string table = "Attribute   Value\nna\\x07me    v\nposition 1  c\\xc3\n";
  const string list = ",found:1,filter_info:[{attr_names:0,attr_values:v," + name +
                      ",{attr_names:1,attr_values:{hex:63c3}}]";
  const string found = session(value(0, "v") + value(1, "c\xc3")), mac = "\0\x10\xa4\x23\x19\xc0"s;
  const struct {
    uint32_t type;
    string words, request, says, table, json;
  } rows[] = {
      {5, "da", "", "", "Database  Owner    Sessions\nDB        \\x1b[2J  4000000000\n", ""},
      {0, "da at", number(1, 1), kTypes,
       "Position  Attribute   Type  Kind\n0         na\\x07me    1     VAR STR\n"
       "1         position 1        8\n",
       ",db_info:[{attr_names:0,attr_types:0," + name + ",{attr_names:1,attr_types:8}]"},
      {2, "da au x", number(3, 1) + bytes(4, "x"), found, table, ",sess_id:{hex:69ff}" + list},
      {3, "da m 0010.A423.19C0", number(7, 1) + bytes(8, bytes(1, mac)), found, table,
       ",mac:00:10:a4:23:19:c0" + list},
      {4, "da i 192.0.2.1", number(5, 1) + number(6, 0x010200c0), found, table,
       ",ipv4:192.0.2.1" + list},
  };
  for (const auto &row : rows) {
    asked_.clear();
    says_ = kStart + common(row.type) + row.says + kCommit;
    EXPECT_EQ(row.table + "{cmdtype:" + std::to_string(row.type) +
                  ",records:4000000000,attr_number:21,database:DB,owner:\\u001b[2J" + row.json +
                  "}\n",
              run("f sh " + row.words + "; S=fake; j sh " + row.words));
    const string asked = frame(1, row.request) + (row.says.empty() ? "" : kAskNames);
    EXPECT_EQ(asked + asked, asked_) << row.words;
  }
}

TEST_F(Kivosh, TakesAReplyWholeOrNotAtAll) {
  const string nonsense = "the daemon's reply makes no sense", start = kStart + common(3);
  const string cut_off = "the daemon ended the connection before its reply was whole";
  const string lacks = "the daemon's reply lacks what was asked for", no = "the daemon refused";
  const string found = session(value(0, "v")), whole = start + found + kCommit;
  const string silence = "the daemon does not answer", head = "Attribute  Value\n";
  const struct {
    string says, prints, names = kNames;
    Then then = kStays;
  } rows[] = {
      {whole, head + "na\\x07me   v\n"},
      {whole, head + "na\\x07me   v\n", kNames, kPauses},
      {kStart + common(3, "") + found + kCommit, head},
      {whole, nonsense, kStart},
      {whole, cut_off, kNames.substr(0, 9), kEnds},
      {start + frame(6, bytes(1, "")) + kCommit, "no such session"},
      {refusal("Not \x1b[2J."), no + ": Not \\x1b[2J."},
      {refusal(""), no},
      {kStart + kAbort + refusal("no memory"), no + ": no memory"},
      {kAbort + refusal("no room"), no + ": no room"},
      {start + found + kAbort + refusal("late"), no + ": late"},
      {kStart + kAbort + kCommit, nonsense},
      {kAbort, cut_off, kNames, kEnds},
      {start + found, cut_off, kNames, kEnds},
      {"", cut_off, kNames, kEnds},
      {whole.substr(0, whole.size() - 1), silence},
      {common(3) + found + kCommit, nonsense},
      {kStart + kStart, nonsense},
      {kStart + found + kCommit, nonsense},
      {kStart + kTypes + kCommit, nonsense},
      {kStart + kCommit, nonsense},
      {start + common(3), nonsense},
      {start + found + found, nonsense},
      {start + kTypes + kTypes, nonsense},
      {start + session("", "12345") + kCommit, nonsense},
      {kStart + "\0\0\0\0"s, nonsense},
      {start + kCommit, lacks},
      {start + kTypes + kCommit, lacks},
  };
  for (const auto &row : rows) {
    says_ = row.says;
    names_ = row.names;
    then_ = row.then;
    const string status = row.prints == "no such session" ? "\n[1]\n" : "\n[3]\n";
    const string command = "f --timeout " + (row.prints == silence ? "0.2"s : "60"s) + " s d m ";
    EXPECT_EQ(row.prints.starts_with(head) ? row.prints : "kivosh: " + row.prints + status,
              run(command + "001122334455"))
        << testing::PrintToString(row.says);
  }
}

// Texts in a reply, which has 25 bytes for each: as the table shows them, and as JSON does (%: the
// same).
TEST_F(Kivosh, ReadsValuesByTheirKinds) {
  const string absent = "--- Data not found ---", b22(22, 'b'), cut = " (may be cut)";
  const string null = "null,\"no_value\":", none = "(not carried)",
               not_carried = null + "\"not carried\"";
  const string unreadable = null + "\"unreadable\",\"text\":\"%\"", may = ",\"may_be_cut\":true";
  const struct {
    uint32_t type;
    const char *kind;
    string text, cell, json = "%";
  } rows[] = {
      {1, "VAR STR", "", "", "\"\""},
      {1, "VAR STR", absent, absent, null + "\"absent\""},
      {1, "VAR STR", b22 + "cd", b22 + "cd", "\"%\""},
      {1, "VAR STR", b22 + "cde", b22 + "cde" + cut, "\"%\"" + may},
      // Ends within a character; ends in bytes that begin none.
      {1, "VAR STR", b22 + "\xf0\x9f\x98", b22 + cut, "\"%\"" + may},
      {1, "VAR STR", b22 + "\xed\xa0\x80", b22 + "\\xed\\xa0\\x80" + cut,
       R"({"hex":"62626262626262626262626262626262626262626262eda080"})" + may},
      {6, "INT 32", "0x0000000f", "15"},
      {221, "INT 32", "0xFFFFFFFF", "4294967295"},
      {6, "INT 32", "0x00000000f", "0x00000000f", unreadable},
      {18, "INT 64", "0x               7", "7"},
      {18, "INT 64", "0x18446744073709551615", "18446744073709551615"},
      {18, "INT 64", "7", "7", unreadable},
      {18, "INT 64", "0x7 7", "0x7 7", unreadable},
      {18, "INT 64", "0x" + string(23, '1'), "0x" + string(23, '1') + cut, unreadable + may},
      {13, "INT 64", "0x       951782399", "2000-02-28T23:59:59Z", "\"%\""},
      {12, "INT 64", "0x    253402300800", "253402300800"},
      {30, "POINTER", "0x              10", "10"},
      {10, "IPV6_ADDR", "", none, not_carried},
      {10, "IPV6_ADDR", absent, absent, null + "\"absent\""},
      {22, "VAR BIN", "", none, not_carried},
      // An external identity is kept where replies do not look.
      {1124, "VAR BIN", absent, none, not_carried},
      // Steers no terminal, and is what it was.
      {1, "VAR STR", "\x1b\u009b\U000e0041\\\u00e9",
       "\\x1b\\xc2\\x9b\\xf3\\xa0\\x81\\x81\\\\\u00e9", R"("\u001b\u009b\udb40\udc41\\\u00e9")"},
  };
  string names, table = "Attribute  Value\n", json, values;
  for (uint32_t i = 0; const auto &row : rows) {
    names += attribute(row.type, "a", row.kind);
    values += value(i++, row.text);
    table += "a" + (row.cell.empty() ? "" : "          " + row.cell) + "\n";
    const string same = row.cell.substr(0, row.cell.find(cut));
    json += "values\":" + std::regex_replace(row.json, std::regex("%"), same) +
            ",\"attr_type\":" + std::to_string(row.type) + "\n";
  }
  names_ = frame(10, names);
  says_ = kStart + common(3) + session(values) + kCommit;
  EXPECT_EQ(table, run("f s d m 001122334455"));
  EXPECT_EQ(
      json,
      run("f --json s d m 001122334455 | sed 's/},{/\\n/g' | grep -o 'values.*type.:[0-9]*'"));
  names_ = refusal("no such request");
  EXPECT_EQ("position 6   0x0000000f\n", run("f s d m 001122334455 | grep 'n 6 '"));
}

TEST_F(Kivosh, WaitsNoLongerThanItWasTold) {
  then_ = kSilent;
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ("kivosh: the daemon does not answer\n[3]\n", run("f --timeout 0.2 s d"));
  EXPECT_LE(std::chrono::milliseconds(200), std::chrono::steady_clock::now() - began);
  // The one that asked first still waits in the queue, where there is no more room.
  EXPECT_EQ("kivosh: fake: the daemon does not answer\n[3]\n", run("f --timeout 0.0001 s d"));
}

// ---- At a terminal

// The second time with the history of the first, and in an environment without UTF-8.
TEST_F(Kivosh, CompletesListsRemembersAndEditsAtATerminal) {
  const string no_mac = "' is no MAC address\nkivosh> ", mac = "show database mac ";
  const string ids =
      "  attributes           what a session has, and of which kind\n"
      "  audit-session-id ID  the session with this audit session id\n";
  const std::pair<string, string> rows[] = {
      {"?", "\n" + kHelp + "kivosh> "},
      {"sh\t", "ow "},
      {"d\t", "atabase "},
      {"?", "\n  (Enter)              name, owner and number of sessions\n" + ids},
      {"\t", "\n  attributes\n  audit-session-id\n  mac\n  ipv4\nkivosh> show database "},
      {"a?", "\n" + ids + "kivosh> show database a"},
      {"u\t", "dit-session-id "},
      {"?", "\n  ID       the session with this audit session id\nkivosh> "},
      {"\x03", "^C\nkivosh> "},
      {"x\t", "\a"},
      {" ?", "\n  nothing can follow here\n"},
      {"\x03s d m 1 ?", "\n  (Enter)  the session of this MAC, however spelled\nkivosh> s d m 1 "},
      {"\t", "\a"},
      {"\x03sh d\r", kShown + "kivosh> "},
      {"\x1b[A\r", kShown + "kivosh> "},
      {" \r", "\nkivosh> "},
      {"\x1b[A\x03", "sh d^C\nkivosh> "},
      {mac + "\"a?\tb\"\r", "'a?\\x09b" + no_mac},
      {mac + "'?'\r", "'?" + no_mac},
      {mac + "a\\ ?\r", "'a ?" + no_mac},
      {mac + "a\\?\r", "'a?" + no_mac},
      {mac + "caf\xc3\xa9\r", "kivosh: 'caf\xc3\xa9" + no_mac},
      {"\xc3\xa9\xc3\xa9 \xe2\x82\xac\x1b[D\x03", "^C\nkivosh> "},
      {"sh da s a?b\r", "kivosh: no such session\nkivosh> "},
  };
  for (const string locale : {"C.UTF-8", "C"}) {
    if (!start("export LC_ALL=" + locale + "; k")) GTEST_SKIP() << "no pseudo-terminals";
    keys("", "kivosh> ");
    if (locale == "C") keys("\x1b[A\x1b[A\r", "kivosh: 'caf\xc3\xa9" + no_mac);
    for (const auto &[typed, comes] : rows) keys(typed, comes);
    end(locale == "C" ? "q\r" : "x\x03\x04");
  }
}

TEST_F(Kivosh, GivesUpACommandThatWaits) {
  if (!start("trap : INT; f --timeout 0")) GTEST_SKIP() << "no pseudo-terminals";
  keys("", "kivosh> ");
  for (int round = 0; round < 2; ++round) {
    keys("show database\r", "\n");
    pollfd asks = {fake_, POLLIN, 0};
    EXPECT_EQ(1, poll(&asks, 1, 60000));
    answer();  // in no words
    keys("\x03", "kivosh: interrupted\nkivosh> ");
  }
  end("\x04");
}

// The shell around it goes on: it tells how kivosh ended, and the terminal's modes.
TEST_F(Kivosh, LeavesTerminalAndHistoryInOrderWhenASignalEndsIt) {
  for (const int signal : {SIGTERM, SIGHUP}) {
    const string modes = "stty -a | tr ' ;' '\\n\\n' | grep -xe isig -e icanon -e echo";
    if (!start("trap : HUP TERM; k; echo s$?; " + modes)) GTEST_SKIP() << "no pseudo-terminals";
    keys("", "kivosh> ");
    keys("show database\r", kShown + "kivosh> ");
    keys("sh", "sh");  // which the editor echoes: the modes are its own
    EXPECT_EQ(0, kill(-tcgetpgrp(main_), signal));
    keys("", "s" + std::to_string(128 + signal) + "\nisig\nicanon\necho\n");
    end("");
    EXPECT_EQ("show\\040database\\012\n", run("tail -n 1 .kivosh_history; rm .kivosh_history"));
  }
}

}  // namespace
