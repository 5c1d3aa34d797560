// See commands.h.
#include "commands.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>

#include "showing.h"
#include "text/printable.h"

namespace kivosh {
namespace {

// ---- Values, as people type them. An empty text, or what is wrong.

std::string read_session_id(const std::string &text, Question &question) {
  question.about = ReplyTo::kSessionId;
  question.session_id = text;
  if (text.empty() || text.size() >= MESSAGE_SESS_ID_SIZE) {
    return "an audit session id has 1 to " + std::to_string(MESSAGE_SESS_ID_SIZE - 1) + " bytes";
  }
  return text.find('\0') == text.npos ? "" : "an audit session id holds no zero byte";
}

std::string read_mac(const std::string &text, Question &question) {
  question.about = ReplyTo::kMac;
  const auto mac = host_text::parse_mac_address(text);
  if (!mac) return "'" + text + "' is no MAC address";
  question.mac = *mac;
  return "";
}

std::string read_ipv4(const std::string &text, Question &question) {
  question.about = ReplyTo::kIpv4;
  return inet_pton(AF_INET, text.c_str(), &question.ipv4) == 1
             ? ""
             : "'" + text + "' is no IPv4 address";
}

// Fills the question that a command asks.
std::string read_question(const Command &command, Question &question) {
  switch (command.action) {
    case Action::kShowAttributes:
      question.about = ReplyTo::kTypes;
      return "";
    case Action::kShowByAuditId:
      return read_session_id(command.value, question);
    case Action::kShowByMac:
      return read_mac(command.value, question);
    case Action::kShowByIpv4:
      return read_ipv4(command.value, question);
    default:
      return "";
  }
}

bool print(const std::string &text) {
  return std::fputs(text.c_str(), stdout) >= 0 && std::fputc('\n', stdout) != EOF;
}

}  // namespace

Outcome Commands::run(const Words &words) {
  const auto parsed = parse(words);
  if (const auto *error = std::get_if<GrammarError>(&parsed)) {
    complain(error->text);
    return Outcome::kUsage;
  }
  return run(std::get<Command>(parsed));
}

Outcome Commands::run(const Command &command) {
  if (command.action == Action::kHelp) {
    print_continuations(continuations({}));
    return Outcome::kDone;
  }
  if (command.action == Action::kQuit) {
    ended_ = true;
    return Outcome::kDone;
  }
  Question question;
  if (const std::string wrong = read_question(command, question); !wrong.empty()) {
    complain(wrong);
    return Outcome::kUsage;
  }
  try {
    return show(question);
  } catch (const DaemonFailure &failure) {
    complain(failure.what());
    return Outcome::kDaemonFailed;
  } catch (const GivenUp &) {
    std::fputc('\n', stderr);  // behind the ^C that the terminal shows
    complain("interrupted");
    return Outcome::kDaemonFailed;
  }
}

Outcome Commands::show(const Question &question) {
  const Reply reply = daemon_.ask(question);
  const bool found = !reply.session || reply.session->found;
  const bool has_positions = reply.types || (reply.session && found);
  const Catalogue catalogue = has_positions ? daemon_.catalogue() : Catalogue();
  if (json_) {
    print(as_json(reply, catalogue));
  } else if (found) {
    show_as_table(reply, catalogue, stdout);
  }
  if (!found) complain("no such session");
  return found ? Outcome::kDone : Outcome::kNoMatch;
}

void Commands::complain(const std::string &text) const {
  print_error(line_ == 0 ? text : "line " + std::to_string(line_) + ": " + text);
}

void print_continuations(const std::vector<Continuation> &rows) {
  size_t width = 0;
  for (const Continuation &row : rows) width = std::max(width, row.words.size());
  for (const Continuation &row : rows) {
    const std::string &words = row.words.empty() ? "(Enter)" : row.words;
    std::printf("  %-*s  %s\n", static_cast<int>(std::max(width, sizeof "(Enter)" - 1)),
                words.c_str(), row.help.c_str());
  }
}

void print_error(const std::string &text) {
  std::fflush(stdout);
  std::fprintf(stderr, "kivosh: %s\n", host_text::printable(text).c_str());
}

}  // namespace kivosh
