// Frames: see message_codec.h and protobuf_objects.h.
#include "message_codec.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/text_format.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "internal.h"
#include "message_buffer.h"
#include "protobuf_objects.h"

namespace kivo_platform {
namespace {

constexpr std::uint32_t kDumpLevel = 7;
constexpr std::uint32_t kNumberDump = 30;

// What protobuf makes of the schema at its first use. In the middle of it memory must not run out:
// protobuf would be left with halves of it, and with its lock.
enum class SetUp { kToCome, kDone, kBroken };
constinit SetUp g_set_up = SetUp::kToCome;
constexpr std::size_t kSetUpRoom = 262144;  // six times what it takes

bool has_room_for_set_up() noexcept {
  void *const room = operator new(kSetUpRoom, std::nothrow);
  operator delete(room);
  return room != nullptr;
}

}  // namespace

std::uint32_t append_frame(const wire::frame &frame, message_buffer &out) {
  const std::size_t size = frame.ByteSizeLong();
  if (size > MESSAGE_FRAME_MAX) return MESSAGE_ERR_NO_ROOM;
  std::uint8_t *at = out.extend(kFrameHead + size);
  if (at == nullptr) return out.out_of_memory() ? MESSAGE_ERR_NO_MEMORY : CHANNEL_ERR_NO_ROOM;
  for (std::size_t i = 0; i < kFrameHead; ++i) {
    at[i] = static_cast<std::uint8_t>(size >> (8 * (kFrameHead - 1 - i)));
  }
  frame.SerializeWithCachedSizesToArray(at + kFrameHead);
  return PLATFORM_OK;
}

const Message *content_of(const Message &received) {
  if (received.GetDescriptor() != wire::frame::descriptor()) return &received;
  const auto &frame = static_cast<const wire::frame &>(received);
  const FieldDescriptor *field =
      wire::frame::descriptor()->FindFieldByNumber(static_cast<int>(frame.content_case()));
  return field == nullptr ? nullptr : &frame.GetReflection()->GetMessage(frame, field);
}

std::string text_of(const Message &received, bool on_one_line) {
  google::protobuf::TextFormat::Printer printer;
  printer.SetSingleLineMode(on_one_line);
  std::string text;
  const Message *content = content_of(received);
  if (content != nullptr) printer.PrintToString(*content, &text);
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

void DestroyMessage::operator()(received_message *received) const noexcept {
  if (received != nullptr) delete behind(received)->GetArena();
}

std::uint32_t prepare_messages() noexcept {
  if (g_set_up == SetUp::kToCome) {
    if (!has_room_for_set_up()) return CHANNEL_ERR_NO_MEMORY;
    const std::uint32_t status = guarded([] {
      wire::frame::default_instance().GetReflection();  // of all messages of the file
      return PLATFORM_OK;
    });
    g_set_up = status == PLATFORM_OK ? SetUp::kDone : SetUp::kBroken;
  }
  return g_set_up == SetUp::kDone ? PLATFORM_OK : CHANNEL_ERR_NO_MEMORY;
}

std::uint32_t message_count() noexcept {
  return static_cast<std::uint32_t>(wire::frame::descriptor()->field_count());
}

std::uint32_t read_message(const std::uint8_t *bytes, std::size_t size,
                           ReceivedMessage &received) noexcept {
  const std::uint32_t status = guarded([&]() -> std::uint32_t {
    // An arena of its own: a parser that runs out of memory drops what it has just made.
    auto arena = std::make_unique<google::protobuf::Arena>();
    auto *frame = google::protobuf::Arena::CreateMessage<wire::frame>(arena.get());
    if (!frame->ParseFromArray(bytes, static_cast<int>(size)) ||
        frame->content_case() == wire::frame::CONTENT_NOT_SET) {
      return CHANNEL_ERR_FRAME;
    }
    received.reset(handle_of<received_message>(frame));
    arena.release();
    return PLATFORM_OK;
  });
  return status == MESSAGE_ERR_NO_MEMORY ? CHANNEL_ERR_NO_MEMORY : status;
}

std::uint32_t kind_of(const received_message *received) noexcept {
  if (received == nullptr || behind(received)->GetDescriptor() != wire::frame::descriptor()) {
    return 0;
  }
  return static_cast<std::uint32_t>(
      static_cast<const wire::frame *>(behind(received))->content_case());
}

const char *name_of_kind(std::uint32_t kind) noexcept {
  const bool may_ask = kind != 0 && prepare_messages() == PLATFORM_OK;  // also without a channel
  const FieldDescriptor *field =
      may_ask ? wire::frame::descriptor()->FindFieldByNumber(static_cast<int>(kind)) : nullptr;
  return field != nullptr ? field->name().c_str() : "unknown message";
}

bool is_request(std::uint32_t kind) noexcept {
  return kind == MESSAGE_SHOW_KIVO_DATABASE_REQUEST || kind == MESSAGE_SHOW_KIVO_ATTRIBUTES_REQUEST;
}

const char *read_command(const received_message *request, channel_command &command) noexcept {
  command = channel_command{};
  command.request = kind_of(request);
  if (command.request != MESSAGE_SHOW_KIVO_DATABASE_REQUEST) return nullptr;
  const auto &from =
      static_cast<const wire::frame *>(behind(request))->show_kivo_database_request();
  show_kivo_database_request &to = command.show_kivo_database;
  if (from.sess_id().size() >= sizeof to.sess_id) return "The session id is too long.";
  if (from.sess_id().find('\0') != std::string::npos) return "The session id holds a zero byte.";
  std::memcpy(to.sess_id, from.sess_id().data(), from.sess_id().size());
  to.attr_info = from.attr_info();
  to.attr_info_blank = from.attr_info_blank();
  to.sess_id_present = from.sess_id_present();
  to.ipv4_present = from.ipv4_present();
  to.ipv4 = from.ipv4();
  to.mac_present = from.mac_present();
  to.mac = from.has_mac() ? reinterpret_cast<const message_mac *>(&from.mac()) : nullptr;
  return nullptr;
}

void trace_fields(const received_message *received) noexcept {
  if (received == nullptr) return;
  guarded([&] {
    const std::string text = text_of(*behind(received), false);
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = std::min(text.find('\n', begin), text.size());
      trace(TRACE_MODULE_HOST_APP, kDumpLevel, kNumberDump, "%.*s", static_cast<int>(end - begin),
            text.data() + begin);
      begin = end + 1;
    }
    return PLATFORM_OK;
  });
}

std::uint32_t marshal_nack(const char *text, message_buffer &out) noexcept {
  return guarded([&] {
    const std::size_t length = text != nullptr ? std::strlen(text) : 0;
    if (length > MESSAGE_FRAME_MAX) return MESSAGE_ERR_NO_ROOM;
    wire::frame frame;
    carry(frame, &wire::frame::set_allocated_negative_acknowledgement)
        .set_text(text != nullptr ? text : "", length);
    return append_frame(frame, out);
  });
}

}  // namespace kivo_platform
