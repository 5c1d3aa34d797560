// The messages as protobuf objects: only this folder sees them. A handle of platform/messages.h is
// the object itself under another name: a reply is a whole frame, and what it carries lies in it.
// protobuf throws when memory runs out; guarded() turns that into a status.
// Threads: none; the process serialises all calls.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "messages.pb.h"
#include "platform/messages.h"
#include "platform/status.h"

namespace kivo_platform {

namespace wire = kivo::wire;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// What is behind a handle.
// clang-format off
template <typename Handle> struct Behind;
template <> struct Behind<message_mac> { using Type = wire::mac_address; };
template <> struct Behind<zelui_kivo_db_common_msg> { using Type = wire::frame; };
template <> struct Behind<zelui_kivo_db_common> { using Type = wire::zelui_kivo_db_common; };
template <> struct Behind<zelui_kivo_db_filter_msg> { using Type = wire::frame; };
template <> struct Behind<zelui_kivo_db_filter> { using Type = wire::zelui_kivo_db_filter; };
template <> struct Behind<zelui_kivo_db_filter_data> { using Type = wire::zelui_kivo_db_filter_data; };
template <> struct Behind<zelui_kivo_db_msg> { using Type = wire::frame; };
template <> struct Behind<zelui_kivo_db> { using Type = wire::zelui_kivo_db; };
template <> struct Behind<zelui_kivo_db_data> { using Type = wire::zelui_kivo_db_data; };
template <> struct Behind<kivo_attributes_msg> { using Type = wire::frame; };
template <> struct Behind<received_message> { using Type = Message; };
// clang-format on

template <typename Handle>
auto *behind(Handle *handle) noexcept {
  return reinterpret_cast<typename Behind<Handle>::Type *>(handle);
}
template <typename Handle>
const auto *behind(const Handle *handle) noexcept {
  return reinterpret_cast<const typename Behind<Handle>::Type *>(handle);
}
template <typename Handle>
Handle *handle_of(typename Behind<Handle>::Type *object) noexcept {
  return reinterpret_cast<Handle *>(object);
}

template <typename Fn>
std::uint32_t guarded(Fn &&fn) noexcept {
  try {
    return fn();
  } catch (...) {
    return MESSAGE_ERR_NO_MEMORY;
  }
}

// Makes the message that a frame carries: carry(frame, &wire::frame::set_allocated_NAME). The
// generated mutable_NAME() notes that the frame has it before there is memory for it, and a frame
// left so must not even be destroyed; here it is made first.
template <typename Carried>
Carried &carry(wire::frame &frame, void (wire::frame::*set)(Carried *)) {
  auto made = std::make_unique<Carried>();
  Carried &carried = *made;
  (frame.*set)(made.release());
  return carried;
}

// Appends a frame to a connection's bytes.
std::uint32_t append_frame(const wire::frame &frame, message_buffer &out);

// The message within a frame, null in a frame without one; another message is itself.
const Message *content_of(const Message &received);

// A message as text, on one line or a field a line.
std::string text_of(const Message &received, bool on_one_line);

}  // namespace kivo_platform
