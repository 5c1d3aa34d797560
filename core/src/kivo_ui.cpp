// The callback of the show-database request: what the fetches gather goes out as one message for
// the database and, by the request, one for a session or for the attribute types.
// Invariants: (1) one error word runs through a call and stays set, so that a message whose making
// failed is not sent, and none after it; (2) every list has KIVO_REPLY_SLOTS entries; (3) what a
// fetch leaves alone is zero or empty.
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "kivo/fetch.h"
#include "kivo/show_request.h"
#include "platform/error_text.h"
#include "reply_messages.h"

using namespace kivo;

namespace {

using Indexes = std::array<uint32_t, KIVO_REPLY_SLOTS>;
using Types = std::array<kivo_data_type, KIVO_REPLY_SLOTS>;
struct Slots {
  kivo_value_slot texts[KIVO_REPLY_SLOTS];
};

// ---- A reply: its type, its numbered traces, and how it is sent

// What was asked for, as the database's message tells it.
enum CommandType : uint32_t {
  kListTypes = 0,
  kListBlank = 1,
  kFilterSessionId = 2,
  kFilterMac = 3,
  kFilterIpv4 = 4,
  kDatabaseOnly = 5,
};

template <typename Message>
struct ReplyKind {
  const char *name;
  message_marshal_fn marshal;
  void (*render)(const Message *message, char *buffer, size_t size, uint32_t *err);
  ReplyMessage marshaled, no_scratch, rendered, render_failed, marshal_failed;
};

constexpr ReplyKind<zelui_kivo_db_common_msg> kCommonReply = {
    "zelui_kivo_db_common_msg",      zelui_kivo_db_common_msg_marshal,
    zelui_kivo_db_common_msg_render, msg::kCommonMarshaled,
    msg::kCommonNoScratch,           msg::kCommonRendered,
    msg::kCommonRenderFailed,        msg::kCommonMarshalFailed};
constexpr ReplyKind<zelui_kivo_db_filter_msg> kFilterReply = {
    "zelui_kivo_db_filter_msg",      zelui_kivo_db_filter_msg_marshal,
    zelui_kivo_db_filter_msg_render, msg::kFilterMarshaled,
    msg::kFilterNoScratch,           msg::kFilterRendered,
    msg::kFilterRenderFailed,        msg::kFilterMarshalFailed};
constexpr ReplyKind<zelui_kivo_db_msg> kListReply = {
    "zelui_kivo_db_msg",    zelui_kivo_db_msg_marshal, zelui_kivo_db_msg_render,
    msg::kListMarshaled,    msg::kListNoScratch,       msg::kListRendered,
    msg::kListRenderFailed, msg::kListMarshalFailed};

// A message or an entry, given back with its type's destroy.
template <auto destroy>
struct Destroy {
  template <typename Object>
  void operator()(Object *object) const noexcept {
    destroy(object);
  }
};
template <typename Object, auto destroy>
using Owned = std::unique_ptr<Object, Destroy<destroy>>;

using CommonMessage = Owned<zelui_kivo_db_common_msg, zelui_kivo_db_common_msg_destroy>;
using FilterMessage = Owned<zelui_kivo_db_filter_msg, zelui_kivo_db_filter_msg_destroy>;
using ListMessage = Owned<zelui_kivo_db_msg, zelui_kivo_db_msg_destroy>;
using FilterEntry = Owned<zelui_kivo_db_filter_data, zelui_kivo_db_filter_data_destroy>;
using ListEntry = Owned<zelui_kivo_db_data, zelui_kivo_db_data_destroy>;

// What one call works with.
struct Call {
  channel_connection *connection;
  const show_kivo_database_request &request;
  char *error_text;
  uint32_t size;
  uint32_t err = 0;

  [[gnu::format(printf, 2, 3)]] void fail(const char *format, ...) const noexcept {
    va_list args;
    va_start(args, format);
    std::vsnprintf(error_text, size, format, args);
    va_end(args);
  }
  void fail_field() const noexcept {
    fail("Error %d occured: %s", static_cast<int>(err), ::error_text(err));
  }
};

// The kind is known to the compiler, so that it checks the arguments of the traces.
template <const auto &kind, typename Message>
void trace_content(Call &call, const Message *message) noexcept {
  kivo_trace_reply(kind.marshaled, kind.name);
  size_t size = 0;
  char *const text = channel_scratch(call.connection, &size);
  if (text == nullptr) {
    kivo_trace_reply(kind.no_scratch);
    return;
  }
  kind.render(message, text, size, &call.err);
  if (call.err != 0) {
    kivo_trace_reply(kind.render_failed, error_text(call.err));
    return;
  }
  trace_indent_push();
  kivo_trace_reply(kind.rendered, text);
  trace_indent_pop();
}

template <const auto &kind, typename Message>
void send_reply(Call &call, const Message *message) noexcept {
  const uint32_t status = channel_marshal(call.connection, message, kind.marshal);
  if (status != PLATFORM_OK) {
    kivo_trace_reply(kind.marshal_failed, kind.name, error_text(status));
  } else if (trace_enabled(TRACE_MODULE_HOST_APP, kReplyDetail)) {
    trace_content<kind>(call, message);
  }
}

// ---- The database

CommandType command_type(const show_kivo_database_request &request) noexcept {
  if (request.sess_id_present != 0) return kFilterSessionId;
  if (request.mac_present != 0) return kFilterMac;
  if (request.ipv4_present != 0) return kFilterIpv4;
  if (request.attr_info_blank != 0) return kListBlank;
  return request.attr_info != 0 ? kListTypes : kDatabaseOnly;
}

void reply_common(Call &call) noexcept {
  const auto *definitions = channel_message_definitions(call.connection, nullptr);
  if (definitions == nullptr) {
    kivo_trace_reply(msg::kCommonNoDefinitions);
    return;
  }
  std::array<char, KIVO_NAME_SIZE> name{};
  std::array<char, KIVO_NAME_SIZE> owner{};
  uint32_t records = 0;
  kivo_fetch_common_header(name.data(), owner.data(), &records);
  uint32_t *const err = &call.err;
  const CommonMessage message(zelui_kivo_db_common_msg_create(definitions, err));
  if (message == nullptr) {
    call.fail("Failed to create common messageMemory allocation error");
    return;
  }
  auto *const common = zelui_kivo_db_common_msg_carried(message.get(), err);
  zelui_kivo_db_common_set_cmdtype(common, command_type(call.request), err);
  zelui_kivo_db_common_set_records(common, records, err);
  zelui_kivo_db_common_set_attr_number(common, KIVO_REPLY_SLOTS, err);
  zelui_kivo_db_common_set_database(common, name.data(), std::strlen(name.data()), err);
  zelui_kivo_db_common_set_owner(common, owner.data(), std::strlen(owner.data()), err);
  if (call.err != 0) {
    call.fail_field();
    kivo_trace_reply(msg::kCommonErrorSet, error_text(call.err));
    return;
  }
  send_reply<kCommonReply>(call, message.get());
}

// ---- One session

// Finds the session by the first filter that is present, and repeats that filter in the reply.
void apply_filter(Call &call, zelui_kivo_db_filter *filter, Indexes &indexes,
                  Slots &slots) noexcept {
  const show_kivo_database_request &request = call.request;
  uint32_t *const err = &call.err;
  uint32_t found = 1;
  if (request.sess_id_present != 0) {
    kivo_fetch_show_records_filter_by_session_id(request.sess_id, &found, indexes.data(),
                                                 slots.texts);
    zelui_kivo_db_filter_set_sess_id(filter, request.sess_id,
                                     strnlen(request.sess_id, sizeof request.sess_id), err);
  } else if (request.mac_present != 0) {
    std::array<uint8_t, MESSAGE_MAC_SIZE> mac{};
    message_mac_read(request.mac, mac.data(), err);
    kivo_fetch_show_records_filter_by_mac_addr(mac.data(), &found, indexes.data(), slots.texts);
    zelui_kivo_db_filter_set_mac(filter, request.mac, err);
  } else {
    kivo_fetch_show_records_filter_by_ipv4_addr(&request.ipv4, &found, indexes.data(), slots.texts);
    zelui_kivo_db_filter_set_ipv4(filter, request.ipv4, err);
  }
  zelui_kivo_db_filter_set_found(filter, found, err);
}

// False when an entry could not be made; one that could not be filled is left out.
bool append_values(Call &call, const message_definitions *definitions, zelui_kivo_db_filter *filter,
                   const Indexes &indexes, const Slots &slots) noexcept {
  uint32_t *const err = &call.err;
  for (size_t i = 0; i < indexes.size(); ++i) {
    FilterEntry entry(zelui_kivo_db_filter_data_create(definitions, err));
    if (entry == nullptr) {
      call.fail("Failed to create fil data messageMemory allocation error");
      return false;
    }
    const char *const text = slots.texts[i];
    zelui_kivo_db_filter_data_set_attr_names(entry.get(), indexes[i], err);
    zelui_kivo_db_filter_data_set_attr_values(entry.get(), text, std::strlen(text), err);
    zelui_kivo_db_filter_append_filter_info(filter, entry.get(), err);
    if (call.err != 0) {
      call.fail_field();
    } else {
      entry.release();  // the list's now
    }
  }
  return true;
}

void reply_filter(Call &call) noexcept {
  Indexes indexes{};
  Slots slots{};
  const auto *definitions = channel_message_definitions(call.connection, nullptr);
  if (definitions == nullptr) {
    kivo_trace_reply(msg::kFilterNoDefinitions);
    return;
  }
  const FilterMessage message(zelui_kivo_db_filter_msg_create(definitions, &call.err));
  if (message == nullptr) {
    call.fail("Failed to create db filter messageMemory allocation error");
    return;
  }
  auto *const filter = zelui_kivo_db_filter_msg_carried(message.get(), &call.err);
  apply_filter(call, filter, indexes, slots);
  if (!append_values(call, definitions, filter, indexes, slots)) return;
  if (call.err != 0) {
    kivo_trace_reply(msg::kFilterErrorSet, error_text(call.err));
    return;
  }
  send_reply<kFilterReply>(call, message.get());
}

// ---- The attribute types

bool append_types(Call &call, const message_definitions *definitions, zelui_kivo_db *list,
                  const Indexes &indexes, const Types &types) noexcept {
  uint32_t *const err = &call.err;
  for (size_t i = 0; i < indexes.size(); ++i) {
    ListEntry entry(zelui_kivo_db_data_create(definitions, err));
    if (entry == nullptr) {
      call.fail("Failed to create db data messageMemory allocation error");
      return false;
    }
    zelui_kivo_db_data_set_attr_names(entry.get(), indexes[i], err);
    zelui_kivo_db_data_set_attr_types(entry.get(), types[i], err);
    zelui_kivo_db_append_db_info(list, entry.get(), err);
    if (call.err != 0) {
      call.fail_field();
    } else {
      entry.release();  // the list's now
    }
  }
  return true;
}

void reply_list(Call &call) noexcept {
  Indexes indexes{};
  Types types{};
  const auto *definitions = channel_message_definitions(call.connection, nullptr);
  if (definitions == nullptr) {
    kivo_trace_reply(msg::kListNoDefinitions);
    return;
  }
  // A request for a blank list that asks for the types too gets them.
  if (call.request.attr_info != 0) {
    kivo_fetch_attr_name_type_data(indexes.data(), types.data());
  }
  const ListMessage message(zelui_kivo_db_msg_create(definitions, &call.err));
  if (message == nullptr) {
    call.fail("Failed to create db messageMemory allocation error");
    return;
  }
  auto *const list = zelui_kivo_db_msg_carried(message.get(), &call.err);
  if (!append_types(call, definitions, list, indexes, types)) return;
  if (call.err != 0) {
    kivo_trace_reply(msg::kListErrorSet, error_text(call.err));
    return;
  }
  send_reply<kListReply>(call, message.get());
}

}  // namespace

int zelui_show_kivo_database_cb(channel_connection *connection, const channel_command *command,
                                char *error_text, uint32_t size) noexcept {
  if (connection == nullptr || error_text == nullptr) {
    kivo_trace_reply(msg::kCallbackBadArgument);
    return KIVO_RESPONSE_SYNCHRONOUS;
  }
  if (command == nullptr) {
    std::snprintf(error_text, size, "Invalid command structure.");
    return KIVO_RESPONSE_SYNCHRONOUS;
  }
  Call call{connection, command->show_kivo_database, error_text, size};
  reply_common(call);
  const CommandType wanted = command_type(call.request);
  if (wanted == kFilterSessionId || wanted == kFilterMac || wanted == kFilterIpv4) {
    reply_filter(call);
  } else if (wanted != kDatabaseOnly) {
    reply_list(call);
  }
  return KIVO_RESPONSE_SYNCHRONOUS;
}
