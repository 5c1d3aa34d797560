// See prompt.h. libedit splits lines into words and, at a terminal, edits them: TAB completes, ?
// lists what can follow, ^C drops the line, or gives up the command that waits. The history is kept
// in a file of the user's; whatever is wrong with that is no reason not to work.
#include "prompt.h"

#include <histedit.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "interruption.h"

namespace kivosh {
namespace {

constexpr int kHistoryLines = 500;

struct FreeTokenizer {
  void operator()(Tokenizer *tokenizer) const noexcept { tok_end(tokenizer); }
};
using Tokens = std::unique_ptr<Tokenizer, FreeTokenizer>;

// The words of a line in front of the cursor; the last is the one that the cursor is at, empty when
// it is between words. Within a quote without its end nothing is known of them.
struct Begun {
  Words words;
  std::string word;
  bool quoted = false;
};

class Splitter {
 public:
  Splitter() : tokenizer_(tok_init(nullptr)) {
    if (tokenizer_ == nullptr) throw std::bad_alloc();
  }

  // False for a quote without its end, and for a backslash there. No line ends in one itself: the
  // tokenizer would look behind it.
  bool split(const std::string &line, Words &words) {
    int n = 0;
    const char **found = nullptr;
    tok_reset(tokenizer_.get());
    const int result = tok_str(tokenizer_.get(), line.c_str(), &n, &found);
    if (result < 0) throw std::bad_alloc();
    if (result == 0) words.assign(found, found + n);
    return result == 0;
  }

  // The word at the cursor is the one that a further letter becomes part of.
  Begun split_begun(const LineInfo &line) {
    const std::string text(line.buffer, line.cursor);
    Begun begun;
    begun.quoted = text.ends_with('\\') || !split(text + "x", begun.words);
    if (!begun.quoted) {
      begun.word = std::move(begun.words.back());
      begun.word.pop_back();
      begun.words.pop_back();
    }
    return begun;
  }

 private:
  Tokens tokenizer_;
};

// ---- Keys

Splitter &splitter_of(EditLine *editor) {
  void *data = nullptr;
  el_get(editor, EL_CLIENTDATA, &data);
  return *static_cast<Splitter *>(data);
}

std::string common_start(const std::vector<std::string> &words) {
  std::string start = words.front();
  for (const std::string &word : words) {
    const auto differ = std::mismatch(start.begin(), start.end(), word.begin(), word.end());
    start.erase(differ.first, start.end());
  }
  return start;
}

unsigned char insert(EditLine *editor, const char *text) {
  return el_insertstr(editor, text) == 0 ? CC_REFRESH : CC_ERROR;
}

// Completes the word at the cursor as far as it is certain, else lists what it can become. Within
// quotes it is a character like others.
unsigned char on_tab(EditLine *editor, int) {
  const Begun begun = splitter_of(editor).split_begun(*el_line(editor));
  if (begun.quoted) return insert(editor, "\t");
  const auto found = completions(begun.words, begun.word);
  if (found.empty()) return CC_REFRESH_BEEP;
  std::string rest = common_start(found).substr(begun.word.size());
  if (found.size() == 1) rest.push_back(' ');
  if (!rest.empty()) return insert(editor, rest.c_str());
  std::putchar('\n');
  for (const std::string &word : found) std::printf("  %s\n", word.c_str());
  std::fflush(stdout);
  return CC_REDISPLAY;
}

// Lists what can follow. Within quotes or a value it is a character like others.
unsigned char on_question_mark(EditLine *editor, int) {
  Begun begun = splitter_of(editor).split_begun(*el_line(editor));
  if (begun.quoted || (!begun.word.empty() && value_is_next(begun.words))) {
    return insert(editor, "?");
  }
  std::vector<Continuation> rows;
  const auto like =
      begun.word.empty() ? std::vector<std::string>{""} : completions(begun.words, begun.word);
  for (const std::string &word : like) {
    Words words = begun.words;
    if (!word.empty()) words.push_back(word);
    for (Continuation &row : continuations(words)) {
      if (!word.empty()) row.words.insert(0, row.words.empty() ? word : word + " ");
      rows.push_back(std::move(row));
    }
  }
  std::putchar('\n');
  std::fputs(lines_of(rows).c_str(), stdout);
  if (rows.empty()) std::puts("  nothing can follow here");
  std::fflush(stdout);
  return CC_REDISPLAY;
}

// The editor moves and deletes by characters, so they are what is counted here.
unsigned char on_control_c(EditLine *editor, int) {
  const LineInfoW *line = el_wline(editor);
  el_cursor(editor, static_cast<int>(line->lastchar - line->cursor));
  line = el_wline(editor);
  el_deletestr(editor, static_cast<int>(line->lastchar - line->buffer));
  std::fputs("^C\n", stdout);
  std::fflush(stdout);
  return CC_REDISPLAY;
}

// ---- The terminal

char *prompt(EditLine *) {
  static char text[] = "kivosh> ";
  return text;
}

class Lines {
 public:
  explicit Lines(Splitter &splitter)
      : history_(history_init()), editor_(el_init("kivosh", stdin, stdout, stderr)) {
    if (history_ == nullptr || editor_ == nullptr) throw std::bad_alloc();
    HistEvent event;
    history(history_.get(), &event, H_SETSIZE, kHistoryLines);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    if (const char *home = std::getenv("HOME"); home != nullptr && *home != '\0') {
      history_file_ = std::string(home) + "/.kivosh_history";
      history(history_.get(), &event, H_LOAD, history_file_.c_str());
    }
    EditLine *const editor = editor_.get();
    el_set(editor, EL_CLIENTDATA, &splitter);
    el_set(editor, EL_PROMPT, prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_HIST, history, history_.get());
    bind_keys();
    el_source(editor, nullptr);  // what the user has in .editrc
  }
  Lines(const Lines &) = delete;
  Lines &operator=(const Lines &) = delete;

  // The next line, null at the end of input, with errno 0, and when it cannot be read. Keys are
  // keys as soon as the prompt is seen; the editor alone would show it first.
  const char *next() {
    el_set(editor_.get(), EL_PREP_TERM, 1);
    int length = 0;
    errno = 0;
    const char *line = el_gets(editor_.get(), &length);
    if (line == nullptr && length >= 0) errno = 0;
    return line;
  }
  // In the file too: nobody knows how the shell will end.
  void remember(const char *line) {
    HistEvent event;
    history(history_.get(), &event, H_ENTER, line);
    if (history_file_.empty()) return;
    const SignalsHeld held;
    history(history_.get(), &event, H_SAVE, history_file_.c_str());
  }

 private:
  void bind_keys() {
    const struct {
      const char *name;
      const char *help;
      unsigned char (*on_key)(EditLine *, int);
      const char *key;
    } keys[] = {
        {"kivosh-complete", "Complete a word", on_tab, "^I"},
        {"kivosh-help", "List what can follow", on_question_mark, "?"},
        {"kivosh-drop-line", "Drop the line", on_control_c, "^C"},
    };
    for (const auto &key : keys) {
      el_set(editor_.get(), EL_ADDFN, key.name, key.help, key.on_key);
      el_set(editor_.get(), EL_BIND, key.key, key.name, nullptr);
    }
    // ^C comes as a key while a line is edited, and as a signal while a command runs.
    el_set(editor_.get(), EL_SETTY, "-d", "-isig", nullptr);
  }

  struct EndHistory {
    void operator()(History *history) const noexcept { history_end(history); }
  };
  struct EndEditor {
    void operator()(EditLine *editor) const noexcept { el_end(editor); }
  };
  std::unique_ptr<History, EndHistory> history_;
  std::unique_ptr<EditLine, EndEditor> editor_;
  std::string history_file_;
};

// The line as it came, with or without its end.
Outcome run_line(Commands &commands, Splitter &splitter, std::string line) {
  if (line.ends_with('\n')) line.pop_back();
  if (line.ends_with('\r')) line.pop_back();
  const size_t first = line.find_first_not_of(" \t");
  if (first == line.npos || line[first] == '#') return Outcome::kDone;
  Words words;
  if (line.find('\0') != line.npos) {
    return commands.fail(Outcome::kUsage, "a command holds no zero byte");
  }
  if (!splitter.split(line + "\n", words)) {
    return commands.fail(Outcome::kUsage, line.ends_with('\\')
                                              ? "the last backslash has nothing behind it"
                                              : "a quote has no end");
  }
  return commands.run(words);
}

Outcome fail_to_read(Commands &commands) {
  const std::string why = std::strerror(errno);
  commands.at_line(0);
  return commands.fail(Outcome::kDaemonFailed, "cannot read standard input: " + why);
}

Outcome run_terminal(Commands &commands) {
  Splitter splitter;
  const Interruption interruption;
  Lines lines(splitter);
  while (!commands.ended()) {
    const char *line = lines.next();
    Interruption::forget();
    if (line == nullptr) {
      if (errno != 0) return fail_to_read(commands);
      std::putchar('\n');
      break;
    }
    if (line[std::strspn(line, " \t\n")] != '\0') lines.remember(line);
    run_line(commands, splitter, line);
    std::fflush(stdout);
  }
  return Outcome::kDone;
}

// Each answer is out before the next line is read, in its place among the errors.
Outcome run_file(Commands &commands) {
  struct Line {
    char *text = nullptr;
    size_t room = 0;
    ~Line() { std::free(text); }
  } line;
  Splitter splitter;
  Outcome worst = Outcome::kDone;
  for (size_t number = 1; !commands.ended(); ++number) {
    const ssize_t size = getline(&line.text, &line.room, stdin);
    if (size < 0) return std::feof(stdin) != 0 ? worst : fail_to_read(commands);
    commands.at_line(number);
    const Outcome outcome =
        run_line(commands, splitter, std::string(line.text, static_cast<size_t>(size)));
    worst = std::max(worst, outcome);
    std::fflush(stdout);
  }
  return worst;
}

}  // namespace

Outcome run_lines(Commands &commands) {
  return isatty(STDIN_FILENO) == 0 ? run_file(commands) : run_terminal(commands);
}

}  // namespace kivosh
