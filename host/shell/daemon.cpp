// See daemon.h.
#include "daemon.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "interruption.h"
#include "platform/error_text.h"

namespace kivosh {
namespace {

using Client = std::unique_ptr<channel_client, decltype(&channel_client_close)>;
using Message = std::unique_ptr<received_message, decltype(&message_destroy)>;
using Mac = std::unique_ptr<message_mac, decltype(&message_mac_destroy)>;

[[noreturn]] void fail_out_of_protocol() {
  throw DaemonFailure("the daemon's reply makes no sense");
}

[[noreturn]] void fail_with(uint32_t status) {
  switch (status) {
    case MESSAGE_ERR_NO_MEMORY:
    case CHANNEL_ERR_NO_MEMORY:
      throw std::bad_alloc();
    case CHANNEL_ERR_CLOSED:
      throw DaemonFailure("the daemon ended the connection before its reply was whole");
    case CHANNEL_ERR_TIMEOUT:
      throw DaemonFailure("the daemon does not answer");
    case CHANNEL_ERR_FRAME:
      fail_out_of_protocol();
    case CHANNEL_ERR_SYSTEM:
      throw DaemonFailure(std::strerror(errno));
    default:
      throw DaemonFailure(error_text(status));
  }
}

// A connection, and how long it is listened to.
struct Link {
  channel_client &client;
  const Patience &patience;
};

// What came in before the time of a slice was over is kept for the next.
Message receive(const Link &link) {
  for (;;) {
    received_message *message = nullptr;
    const uint32_t status = channel_client_receive(&link.client, &message);
    if (status == PLATFORM_OK) return {message, message_destroy};
    if (status != CHANNEL_ERR_TIMEOUT) fail_with(status);
    link.patience.go_on();
  }
}

// Reads the fields of a message; what is not there is out of protocol.
class Fields {
 public:
  explicit Fields(const received_message *message) : message_(message) {}

  uint32_t number(const char *name) { return checked(message_read_u32(message_, name, &err_)); }
  std::string text(const char *name) {
    size_t length = 0;
    const char *bytes = checked(message_read_text(message_, name, &length, &err_));
    return {bytes, length};
  }
  uint32_t size(const char *list) { return checked(message_list_size(message_, list, &err_)); }
  Fields entry(const char *list, uint32_t i) {
    return Fields(checked(message_list_entry(message_, list, i, &err_)));
  }

 private:
  template <typename Value>
  Value checked(Value value) const {
    if (err_ != 0) fail_out_of_protocol();
    return value;
  }

  const received_message *message_;
  uint32_t err_ = 0;
};

void refuse_if_refused(const Message &message) {
  if (message_kind(message.get()) != MESSAGE_NEGATIVE_ACKNOWLEDGEMENT) return;
  const std::string reason = Fields(message.get()).text("text");
  throw DaemonFailure(reason.empty() ? "the daemon refused" : "the daemon refused: " + reason);
}

// A peer that may not ask is told so and left, perhaps before it has asked.
void send(const Link &link, const void *message, message_marshal_fn marshal) {
  const uint32_t status = channel_client_send(&link.client, message, marshal);
  if (status == CHANNEL_ERR_CLOSED) refuse_if_refused(receive(link));
  if (status != PLATFORM_OK) fail_with(status);
}

// ---- The question

void send_question(const Link &link, const Question &question) {
  show_kivo_database_request request{};
  Mac mac(nullptr, message_mac_destroy);
  switch (question.about) {
    case ReplyTo::kTypes:
      request.attr_info = 1;
      break;
    case ReplyTo::kSessionId:
      request.sess_id_present = 1;
      question.session_id.copy(request.sess_id, sizeof request.sess_id - 1);
      break;
    case ReplyTo::kMac: {
      uint32_t err = 0;
      mac.reset(message_mac_create(channel_client_definitions(&link.client), &err));
      message_mac_set(mac.get(), question.mac.data(), &err);
      if (err != 0) fail_with(err);
      request.mac_present = 1;
      request.mac = mac.get();
      break;
    }
    case ReplyTo::kIpv4:
      request.ipv4_present = 1;
      request.ipv4 = question.ipv4;
      break;
    case ReplyTo::kDatabase:
      break;
  }
  send(link, &request, show_kivo_database_request_marshal);
}

// ---- The reply

void read_common(Fields fields, Reply &reply) {
  reply.command_type = fields.number("cmdtype");
  reply.records = fields.number("records");
  reply.attr_number = fields.number("attr_number");
  reply.database = fields.text("database");
  reply.owner = fields.text("owner");
}

// How many entries of a list can be about attributes: none without a database.
uint32_t n_entries(Fields &fields, const char *list, const Reply &reply) {
  return reply.database.empty() ? 0 : fields.size(list);
}

// An entry is about the position that it stands at; one that says otherwise is padding.
SessionReply read_session(Fields fields, const Reply &reply) {
  SessionReply session;
  session.session_id = fields.text("sess_id");
  session.ipv4 = fields.number("ipv4");
  const std::string mac = fields.text("mac");
  if (!mac.empty() && mac.size() != session.mac.size()) fail_out_of_protocol();
  std::memcpy(session.mac.data(), mac.data(), mac.size());
  session.found = fields.number("found") != 0;
  const uint32_t n = session.found ? n_entries(fields, "filter_info", reply) : 0;
  for (uint32_t i = 0; i < n; ++i) {
    Fields entry = fields.entry("filter_info", i);
    if (entry.number("attr_names") == i) session.values.push_back({i, entry.text("attr_values")});
  }
  return session;
}

std::vector<ReplyType> read_types(Fields fields, const Reply &reply) {
  std::vector<ReplyType> types;
  const uint32_t n = n_entries(fields, "db_info", reply);
  for (uint32_t i = 0; i < n; ++i) {
    Fields entry = fields.entry("db_info", i);
    if (entry.number("attr_names") == i) types.push_back({i, entry.number("attr_types")});
  }
  return types;
}

// What was aborted is refused next, with the reason.
[[noreturn]] void fail_after_abort(const Link &link) {
  refuse_if_refused(receive(link));
  fail_out_of_protocol();
}

// Takes the messages between start and commit.
Reply read_bundle(const Link &link) {
  Reply reply;
  bool begun = false;
  for (;;) {
    const Message message = receive(link);
    const Fields fields(message.get());
    const uint32_t kind = message_kind(message.get());
    if (kind == MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_COMMIT && begun) return reply;
    if (kind == MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_ABORT) fail_after_abort(link);
    if (kind == MESSAGE_ZELUI_KIVO_DB_COMMON_MSG && !begun) {
      read_common(fields, reply);
      begun = true;
    } else if (kind == MESSAGE_ZELUI_KIVO_DB_FILTER_MSG && begun && !reply.session) {
      reply.session = read_session(fields, reply);
    } else if (kind == MESSAGE_ZELUI_KIVO_DB_MSG && begun && !reply.types) {
      reply.types = read_types(fields, reply);
    } else {
      fail_out_of_protocol();
    }
  }
}

bool has_what_was_asked(const Reply &reply, ReplyTo about) {
  switch (about) {
    case ReplyTo::kTypes:
      return reply.types.has_value();
    case ReplyTo::kDatabase:
      return true;
    default:
      return reply.session.has_value();
  }
}

Client connect(const std::string &socket, const Patience &patience) {
  for (;;) {
    channel_client *made = nullptr;
    const uint32_t status = channel_client_connect(socket.c_str(), patience.slice_ms(), &made);
    if (status == PLATFORM_OK) return {made, channel_client_close};
    const bool nobody_listens =
        status == CHANNEL_ERR_SYSTEM && (errno == ENOENT || errno == ECONNREFUSED);
    try {
      if (status != CHANNEL_ERR_TIMEOUT) fail_with(status);
      patience.go_on();
    } catch (const DaemonFailure &failure) {
      throw DaemonFailure(socket + ": " + failure.what() +
                          (nobody_listens ? "; is kivod running?" : ""));
    }
  }
}

}  // namespace

Patience::Patience(uint32_t timeout_ms)
    : timeout_ms_(timeout_ms),
      end_(std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms)) {}

uint32_t Patience::slice_ms() const noexcept {
  constexpr uint32_t kSliceMs = 100;
  return timeout_ms_ == 0 ? kSliceMs : std::min(timeout_ms_, kSliceMs);
}

void Patience::go_on() const {
  if (interrupted()) throw GivenUp();
  if (timeout_ms_ != 0 && std::chrono::steady_clock::now() >= end_) fail_with(CHANNEL_ERR_TIMEOUT);
}

Reply exchange(channel_client &client, const Question &question, const Patience &patience) {
  const Link link{client, patience};
  send_question(link, question);
  const Message first = receive(link);
  refuse_if_refused(first);
  const uint32_t kind = message_kind(first.get());
  // Also when the bundle could not even be started.
  if (kind == MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_ABORT) fail_after_abort(link);
  if (kind != MESSAGE_SHOW_KIVO_DATABASE_RESP_BUNDLE_START) fail_out_of_protocol();
  Reply reply = read_bundle(link);
  if (!has_what_was_asked(reply, question.about)) {
    throw DaemonFailure("the daemon's reply lacks what was asked for");
  }
  return reply;
}

Reply Daemon::ask(const Question &question) const {
  const Patience patience(timeout_ms_);
  return exchange(*connect(socket_, patience), question, patience);
}

Catalogue Daemon::catalogue() const {
  const Patience patience(timeout_ms_);
  const Client client = connect(socket_, patience);
  const Link link{*client, patience};
  send(link, nullptr, show_kivo_attributes_request_marshal);
  const Message reply = receive(link);
  Catalogue catalogue;
  // Another daemon around the library need not know this request.
  if (message_kind(reply.get()) == MESSAGE_NEGATIVE_ACKNOWLEDGEMENT) return catalogue;
  if (message_kind(reply.get()) != MESSAGE_KIVO_ATTRIBUTES_MSG) fail_out_of_protocol();
  Fields fields(reply.get());
  const uint32_t n = fields.size("attributes");
  for (uint32_t i = 0; i < n; ++i) {
    Fields entry = fields.entry("attributes", i);
    catalogue.push_back({entry.number("attr_type"), entry.text("name"), entry.text("kind")});
  }
  return catalogue;
}

}  // namespace kivosh
