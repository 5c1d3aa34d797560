// Making, rendering and marshaling messages: see platform/messages.h.
#include <cstring>
#include <memory>

#include "message_buffer.h"
#include "message_codec.h"
#include "protobuf_objects.h"

namespace kivo_platform {
namespace {

// One operation on an object under the error word: nothing happens once it is set.
template <typename Object, typename Fn>
void change(Object *object, std::uint32_t *err, Fn &&fn) noexcept {
  if (*err != 0) return;
  *err = object == nullptr ? MESSAGE_ERR_INVALID_ARG : guarded([&] { return fn(*behind(object)); });
}

template <typename Object>
void destroy(Object *object) noexcept {
  delete behind(object);
}

template <typename Handle>
Handle *create(const message_definitions *definitions, std::uint32_t *err) noexcept {
  typename Behind<Handle>::Type *made = nullptr;
  const std::uint32_t status = guarded([&] {
    if (definitions == nullptr) return MESSAGE_ERR_INVALID_ARG;
    made = new typename Behind<Handle>::Type;
    return PLATFORM_OK;
  });
  if (status != PLATFORM_OK && *err == 0) *err = status;
  return handle_of<Handle>(made);
}

// A frame that carries a message of this kind.
template <typename Handle, typename Carried>
Handle *create_frame(const message_definitions *definitions, void (wire::frame::*set)(Carried *),
                     std::uint32_t *err) noexcept {
  auto *made = create<Handle>(definitions, err);
  if (made == nullptr) return nullptr;
  const std::uint32_t status = guarded([&] {
    carry(*behind(made), set);
    return PLATFORM_OK;
  });
  if (status == PLATFORM_OK) return made;
  destroy(made);
  if (*err == 0) *err = status;
  return nullptr;
}

template <typename Handle, typename Inner, typename Fn>
Handle *carried_by(Inner *frame, std::uint32_t *err, Fn &&find) noexcept {
  Handle *found = nullptr;
  change(frame, err, [&](wire::frame &whole) {
    found = handle_of<Handle>(find(whole));
    return PLATFORM_OK;
  });
  return found;
}

template <typename Object>
void set_number(Object *object, void (Behind<Object>::Type::*set)(std::uint32_t),
                std::uint32_t value, std::uint32_t *err) noexcept {
  change(object, err, [&](auto &target) {
    (target.*set)(value);
    return PLATFORM_OK;
  });
}

std::uint32_t assign(std::string &field, const char *text, std::size_t length) {
  if (text == nullptr && length != 0) return MESSAGE_ERR_INVALID_ARG;
  if (length > MESSAGE_FRAME_MAX) return MESSAGE_ERR_NO_ROOM;
  field.assign(text != nullptr ? text : "", length);
  return PLATFORM_OK;
}

template <typename Object>
void set_text(Object *object, std::string *(Behind<Object>::Type::*field)(), const char *text,
              std::size_t length, std::uint32_t *err) noexcept {
  change(object, err, [&](auto &target) { return assign(*(target.*field)(), text, length); });
}

// Room is made first, so that the entry is taken or left, and never both.
template <typename Object, typename Entry, typename Field>
void append(Object *object, Entry *entry, Field &&field, std::uint32_t *err) noexcept {
  change(object, err, [&](auto &target) {
    if (entry == nullptr) return MESSAGE_ERR_INVALID_ARG;
    auto *list = field(target);
    list->Reserve(list->size() + 1);
    list->AddAllocated(behind(entry));
    return PLATFORM_OK;
  });
}

template <typename Fn>
std::uint32_t marshal_new(message_buffer *out, Fn &&fill) noexcept {
  return guarded([&] {
    if (out == nullptr) return MESSAGE_ERR_INVALID_ARG;
    wire::frame frame;
    const std::uint32_t status = fill(frame);
    return status == PLATFORM_OK ? append_frame(frame, *out) : status;
  });
}

std::uint32_t marshal_made(const void *message, message_buffer *out) noexcept {
  if (message == nullptr || out == nullptr) return MESSAGE_ERR_INVALID_ARG;
  return guarded([&] { return append_frame(*static_cast<const wire::frame *>(message), *out); });
}

template <typename Handle>
void render(const Handle *message, char *buffer, std::size_t size, std::uint32_t *err) noexcept {
  if (buffer != nullptr && size != 0) *buffer = '\0';
  if (*err != 0) return;
  *err = guarded([&] {
    if (message == nullptr || buffer == nullptr) return MESSAGE_ERR_INVALID_ARG;
    const std::string text = text_of(*behind(message), true);
    if (text.size() >= size) return MESSAGE_ERR_NO_ROOM;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return PLATFORM_OK;
  });
}

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

// ---- MAC addresses

message_mac *message_mac_create(const message_definitions *definitions, uint32_t *err) noexcept {
  return create<message_mac>(definitions, err);
}
void message_mac_destroy(message_mac *mac) noexcept { destroy(mac); }
void message_mac_set(message_mac *mac, const uint8_t bytes[MESSAGE_MAC_SIZE],
                     uint32_t *err) noexcept {
  set_text(mac, &wire::mac_address::mutable_address, reinterpret_cast<const char *>(bytes),
           MESSAGE_MAC_SIZE, err);
}
void message_mac_read(const message_mac *mac, uint8_t bytes[MESSAGE_MAC_SIZE],
                      uint32_t *err) noexcept {
  std::memset(bytes, 0, MESSAGE_MAC_SIZE);
  change(mac, err, [&](const wire::mac_address &from) {
    if (from.address().size() != MESSAGE_MAC_SIZE) return MESSAGE_ERR_INVALID_ARG;
    std::memcpy(bytes, from.address().data(), MESSAGE_MAC_SIZE);
    return PLATFORM_OK;
  });
}

// ---- Requests

uint32_t show_kivo_database_request_marshal(const void *message, message_buffer *out) noexcept {
  return marshal_new(out, [&](wire::frame &frame) {
    const auto *from = static_cast<const show_kivo_database_request *>(message);
    if (from == nullptr) return MESSAGE_ERR_INVALID_ARG;
    auto *to = &carry(frame, &wire::frame::set_allocated_show_kivo_database_request);
    to->set_attr_info(from->attr_info);
    to->set_attr_info_blank(from->attr_info_blank);
    to->set_sess_id_present(from->sess_id_present);
    to->set_sess_id(from->sess_id, strnlen(from->sess_id, sizeof from->sess_id));
    to->set_ipv4_present(from->ipv4_present);
    to->set_ipv4(from->ipv4);
    to->set_mac_present(from->mac_present);
    if (from->mac != nullptr) *to->mutable_mac() = *behind(from->mac);
    return PLATFORM_OK;
  });
}

uint32_t show_kivo_attributes_request_marshal(const void *, message_buffer *out) noexcept {
  return marshal_new(out, [](wire::frame &frame) {
    carry(frame, &wire::frame::set_allocated_show_kivo_attributes_request);
    return PLATFORM_OK;
  });
}

// ---- Reply: the database

zelui_kivo_db_common_msg *zelui_kivo_db_common_msg_create(const message_definitions *definitions,
                                                          uint32_t *err) noexcept {
  return create_frame<zelui_kivo_db_common_msg>(
      definitions, &wire::frame::set_allocated_zelui_kivo_db_common_msg, err);
}
void zelui_kivo_db_common_msg_destroy(zelui_kivo_db_common_msg *message) noexcept {
  destroy(message);
}
zelui_kivo_db_common *zelui_kivo_db_common_msg_carried(zelui_kivo_db_common_msg *message,
                                                       uint32_t *err) noexcept {
  return carried_by<zelui_kivo_db_common>(message, err, [](wire::frame &frame) {
    return frame.mutable_zelui_kivo_db_common_msg()->mutable_zelui_kivo_db_common();
  });
}
void zelui_kivo_db_common_set_cmdtype(zelui_kivo_db_common *common, uint32_t cmdtype,
                                      uint32_t *err) noexcept {
  set_number(common, &wire::zelui_kivo_db_common::set_cmdtype, cmdtype, err);
}
void zelui_kivo_db_common_set_records(zelui_kivo_db_common *common, uint32_t records,
                                      uint32_t *err) noexcept {
  set_number(common, &wire::zelui_kivo_db_common::set_records, records, err);
}
void zelui_kivo_db_common_set_attr_number(zelui_kivo_db_common *common, uint32_t attr_number,
                                          uint32_t *err) noexcept {
  set_number(common, &wire::zelui_kivo_db_common::set_attr_number, attr_number, err);
}
void zelui_kivo_db_common_set_database(zelui_kivo_db_common *common, const char *text,
                                       size_t length, uint32_t *err) noexcept {
  set_text(common, &wire::zelui_kivo_db_common::mutable_database, text, length, err);
}
void zelui_kivo_db_common_set_owner(zelui_kivo_db_common *common, const char *text, size_t length,
                                    uint32_t *err) noexcept {
  set_text(common, &wire::zelui_kivo_db_common::mutable_owner, text, length, err);
}
void zelui_kivo_db_common_msg_render(const zelui_kivo_db_common_msg *message, char *buffer,
                                     size_t size, uint32_t *err) noexcept {
  render(message, buffer, size, err);
}
uint32_t zelui_kivo_db_common_msg_marshal(const void *message, message_buffer *out) noexcept {
  return marshal_made(message, out);
}

// ---- Reply: one session

zelui_kivo_db_filter_msg *zelui_kivo_db_filter_msg_create(const message_definitions *definitions,
                                                          uint32_t *err) noexcept {
  return create_frame<zelui_kivo_db_filter_msg>(
      definitions, &wire::frame::set_allocated_zelui_kivo_db_filter_msg, err);
}
void zelui_kivo_db_filter_msg_destroy(zelui_kivo_db_filter_msg *message) noexcept {
  destroy(message);
}
zelui_kivo_db_filter *zelui_kivo_db_filter_msg_carried(zelui_kivo_db_filter_msg *message,
                                                       uint32_t *err) noexcept {
  return carried_by<zelui_kivo_db_filter>(message, err, [](wire::frame &frame) {
    return frame.mutable_zelui_kivo_db_filter_msg()->mutable_zelui_kivo_db_filter();
  });
}
void zelui_kivo_db_filter_set_sess_id(zelui_kivo_db_filter *filter, const char *text, size_t length,
                                      uint32_t *err) noexcept {
  set_text(filter, &wire::zelui_kivo_db_filter::mutable_sess_id, text, length, err);
}
void zelui_kivo_db_filter_set_mac(zelui_kivo_db_filter *filter, const message_mac *mac,
                                  uint32_t *err) noexcept {
  change(filter, err, [&](wire::zelui_kivo_db_filter &to) {
    if (mac == nullptr) return MESSAGE_ERR_INVALID_ARG;
    *to.mutable_mac() = *behind(mac);
    return PLATFORM_OK;
  });
}
void zelui_kivo_db_filter_set_ipv4(zelui_kivo_db_filter *filter, uint32_t ipv4,
                                   uint32_t *err) noexcept {
  set_number(filter, &wire::zelui_kivo_db_filter::set_ipv4, ipv4, err);
}
void zelui_kivo_db_filter_set_found(zelui_kivo_db_filter *filter, uint32_t found,
                                    uint32_t *err) noexcept {
  set_number(filter, &wire::zelui_kivo_db_filter::set_found, found, err);
}
void zelui_kivo_db_filter_append_filter_info(zelui_kivo_db_filter *filter,
                                             zelui_kivo_db_filter_data *entry,
                                             uint32_t *err) noexcept {
  append(
      filter, entry, [](auto &to) { return to.mutable_filter_info(); }, err);
}
void zelui_kivo_db_filter_msg_render(const zelui_kivo_db_filter_msg *message, char *buffer,
                                     size_t size, uint32_t *err) noexcept {
  render(message, buffer, size, err);
}
uint32_t zelui_kivo_db_filter_msg_marshal(const void *message, message_buffer *out) noexcept {
  return marshal_made(message, out);
}

zelui_kivo_db_filter_data *zelui_kivo_db_filter_data_create(const message_definitions *definitions,
                                                            uint32_t *err) noexcept {
  return create<zelui_kivo_db_filter_data>(definitions, err);
}
void zelui_kivo_db_filter_data_destroy(zelui_kivo_db_filter_data *entry) noexcept {
  destroy(entry);
}
void zelui_kivo_db_filter_data_set_attr_names(zelui_kivo_db_filter_data *entry, uint32_t attr_names,
                                              uint32_t *err) noexcept {
  set_number(entry, &wire::zelui_kivo_db_filter_data::set_attr_names, attr_names, err);
}
void zelui_kivo_db_filter_data_set_attr_values(zelui_kivo_db_filter_data *entry, const char *text,
                                               size_t length, uint32_t *err) noexcept {
  set_text(entry, &wire::zelui_kivo_db_filter_data::mutable_attr_values, text, length, err);
}

// ---- Reply: the attribute types

zelui_kivo_db_msg *zelui_kivo_db_msg_create(const message_definitions *definitions,
                                            uint32_t *err) noexcept {
  return create_frame<zelui_kivo_db_msg>(definitions, &wire::frame::set_allocated_zelui_kivo_db_msg,
                                         err);
}
void zelui_kivo_db_msg_destroy(zelui_kivo_db_msg *message) noexcept { destroy(message); }
zelui_kivo_db *zelui_kivo_db_msg_carried(zelui_kivo_db_msg *message, uint32_t *err) noexcept {
  return carried_by<zelui_kivo_db>(message, err, [](wire::frame &frame) {
    return frame.mutable_zelui_kivo_db_msg()->mutable_zelui_kivo_db();
  });
}
void zelui_kivo_db_append_db_info(zelui_kivo_db *db, zelui_kivo_db_data *entry,
                                  uint32_t *err) noexcept {
  append(
      db, entry, [](auto &to) { return to.mutable_db_info(); }, err);
}
void zelui_kivo_db_msg_render(const zelui_kivo_db_msg *message, char *buffer, size_t size,
                              uint32_t *err) noexcept {
  render(message, buffer, size, err);
}
uint32_t zelui_kivo_db_msg_marshal(const void *message, message_buffer *out) noexcept {
  return marshal_made(message, out);
}

zelui_kivo_db_data *zelui_kivo_db_data_create(const message_definitions *definitions,
                                              uint32_t *err) noexcept {
  return create<zelui_kivo_db_data>(definitions, err);
}
void zelui_kivo_db_data_destroy(zelui_kivo_db_data *entry) noexcept { destroy(entry); }
void zelui_kivo_db_data_set_attr_names(zelui_kivo_db_data *entry, uint32_t attr_names,
                                       uint32_t *err) noexcept {
  set_number(entry, &wire::zelui_kivo_db_data::set_attr_names, attr_names, err);
}
void zelui_kivo_db_data_set_attr_types(zelui_kivo_db_data *entry, uint32_t attr_types,
                                       uint32_t *err) noexcept {
  set_number(entry, &wire::zelui_kivo_db_data::set_attr_types, attr_types, err);
}

// ---- Reply: the names behind positions

kivo_attributes_msg *kivo_attributes_msg_create(const message_definitions *definitions,
                                                uint32_t *err) noexcept {
  return create_frame<kivo_attributes_msg>(definitions,
                                           &wire::frame::set_allocated_kivo_attributes_msg, err);
}
void kivo_attributes_msg_destroy(kivo_attributes_msg *message) noexcept { destroy(message); }
void kivo_attributes_msg_append(kivo_attributes_msg *message, uint32_t attr_type, const char *name,
                                const char *kind, uint32_t *err) noexcept {
  change(message, err, [&](wire::frame &frame) {
    if (name == nullptr || kind == nullptr) return MESSAGE_ERR_INVALID_ARG;
    auto entry = std::make_unique<wire::kivo_attribute>();
    entry->set_attr_type(attr_type);
    entry->set_name(name);
    entry->set_kind(kind);
    auto *list = frame.mutable_kivo_attributes_msg()->mutable_attributes();
    list->Reserve(list->size() + 1);
    list->AddAllocated(entry.release());
    return PLATFORM_OK;
  });
}
uint32_t kivo_attributes_msg_marshal(const void *message, message_buffer *out) noexcept {
  return marshal_made(message, out);
}

// ---- The bundle, and what is sent in place of one

uint32_t show_kivo_database_resp_bundle_start_marshal(const void *, message_buffer *out) noexcept {
  return marshal_new(out, [](wire::frame &frame) {
    carry(frame, &wire::frame::set_allocated_show_kivo_database_resp_bundle_start);
    return PLATFORM_OK;
  });
}
uint32_t show_kivo_database_resp_bundle_commit_marshal(const void *, message_buffer *out) noexcept {
  return marshal_new(out, [](wire::frame &frame) {
    carry(frame, &wire::frame::set_allocated_show_kivo_database_resp_bundle_commit);
    return PLATFORM_OK;
  });
}
uint32_t show_kivo_database_resp_bundle_abort_marshal(const void *, message_buffer *out) noexcept {
  return marshal_new(out, [](wire::frame &frame) {
    carry(frame, &wire::frame::set_allocated_show_kivo_database_resp_bundle_abort);
    return PLATFORM_OK;
  });
}
uint32_t negative_acknowledgement_marshal(const void *message, message_buffer *out) noexcept {
  if (out == nullptr) return MESSAGE_ERR_INVALID_ARG;
  return marshal_nack(static_cast<const char *>(message), *out);
}
