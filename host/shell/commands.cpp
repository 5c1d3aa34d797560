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

void print(const std::string &line) { std::puts(line.c_str()); }

}  // namespace

Outcome Commands::run(const Words &words) {
  const auto parsed = parse(words);
  if (const auto *error = std::get_if<GrammarError>(&parsed)) {
    return fail(Outcome::kUsage, error->text);
  }
  return run(std::get<Command>(parsed));
}

Outcome Commands::run(const Command &command) {
  if (command.action == Action::kHelp) {
    help();
    return Outcome::kDone;
  }
  if (command.action == Action::kQuit) {
    ended_ = true;
    return Outcome::kDone;
  }
  Question question;
  if (const std::string wrong = read_question(command, question); !wrong.empty()) {
    return fail(Outcome::kUsage, wrong);
  }
  try {
    return show(question);
  } catch (const DaemonFailure &failure) {
    return fail(Outcome::kDaemonFailed, failure.what());
  } catch (const GivenUp &) {
    std::fputc('\n', stderr);  // behind the ^C that the terminal shows
    return fail(Outcome::kDaemonFailed, "interrupted");
  }
}

void Commands::help() const {
  const auto commands = continuations({});
  print(json_ ? as_json(commands) : lines_of(commands) + kTwoSessionIds);
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
  if (!found) print_error("no such session", line_);
  return found ? Outcome::kDone : Outcome::kNoMatch;
}

Outcome Commands::fail(Outcome outcome, const std::string &text) const {
  return tell_failure(outcome, text, json_, line_);
}

std::string lines_of(const std::vector<Continuation> &rows) {
  constexpr std::string_view kNothing = "(Enter)";
  size_t width = kNothing.size();
  for (const Continuation &row : rows) width = std::max(width, row.words.size());
  std::string text;
  for (const Continuation &row : rows) {
    const std::string_view words = row.words.empty() ? kNothing : row.words;
    text.append("  ").append(words).append(width - words.size() + 2, ' ');
    text.append(row.help).append("\n");
  }
  return text;
}

void print_error(const std::string &text, size_t line) {
  std::fflush(stdout);
  const std::string place = line == 0 ? "" : "line " + std::to_string(line) + ": ";
  std::fprintf(stderr, "kivosh: %s%s\n", place.c_str(), host_text::printable(text).c_str());
}

Outcome tell_failure(Outcome outcome, const std::string &text, bool json, size_t line) {
  print_error(text, line);
  if (json) print(error_as_json(text, static_cast<int>(outcome), line));
  return outcome;
}

}  // namespace kivosh
