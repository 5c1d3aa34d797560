// Reading received messages by the names of their fields: see platform/messages.h.
#include "message_codec.h"
#include "protobuf_objects.h"

namespace kivo_platform {
namespace {

// A field of a message, or of the one structure that it carries.
struct Field {
  const Message *owner = nullptr;
  const FieldDescriptor *descriptor = nullptr;
};

Field find_field(const received_message *received, const char *name) {
  const Message *content = received != nullptr ? content_of(*behind(received)) : nullptr;
  if (content == nullptr || name == nullptr) return {};
  const auto *type = content->GetDescriptor();
  if (const auto *field = type->FindFieldByName(name); field != nullptr) return {content, field};
  if (type->field_count() != 1 || type->field(0)->is_repeated() ||
      type->field(0)->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
    return {};
  }
  const Message &carried = content->GetReflection()->GetMessage(*content, type->field(0));
  return {&carried, carried.GetDescriptor()->FindFieldByName(name)};
}

// Reads a field of the wanted kind; anything else sets the error word.
template <typename Wanted, typename Read>
void read(const received_message *received, const char *name, std::uint32_t *err, Wanted &&wanted,
          Read &&take) noexcept {
  if (*err != 0) return;
  *err = guarded([&] {
    const Field field = find_field(received, name);
    if (field.descriptor == nullptr || !wanted(*field.descriptor)) return MESSAGE_ERR_INVALID_ARG;
    take(*field.owner, field.descriptor);
    return PLATFORM_OK;
  });
}

bool is_number(const FieldDescriptor &field) {
  return !field.is_repeated() && field.cpp_type() == FieldDescriptor::CPPTYPE_UINT32;
}
bool is_address(const FieldDescriptor &field) {
  return !field.is_repeated() && field.message_type() == wire::mac_address::descriptor();
}
bool is_text(const FieldDescriptor &field) {
  return is_address(field) ||
         (!field.is_repeated() && field.cpp_type() == FieldDescriptor::CPPTYPE_STRING);
}
bool is_list(const FieldDescriptor &field) { return field.is_repeated(); }

}  // namespace
}  // namespace kivo_platform

using namespace kivo_platform;

void message_destroy(received_message *received) noexcept { DestroyMessage()(received); }
uint32_t message_kind(const received_message *received) noexcept { return kind_of(received); }
const char *message_kind_name(uint32_t kind) noexcept { return name_of_kind(kind); }

uint32_t message_read_u32(const received_message *received, const char *field,
                          uint32_t *err) noexcept {
  uint32_t value = 0;
  read(received, field, err, is_number, [&](const Message &owner, const FieldDescriptor *number) {
    value = owner.GetReflection()->GetUInt32(owner, number);
  });
  return value;
}

const char *message_read_text(const received_message *received, const char *field, size_t *length,
                              uint32_t *err) noexcept {
  const std::string *text = nullptr;
  read(received, field, err, is_text, [&](const Message &owner, const FieldDescriptor *found) {
    const auto *reflection = owner.GetReflection();
    if (is_address(*found)) {
      text =
          &static_cast<const wire::mac_address &>(reflection->GetMessage(owner, found)).address();
    } else {
      text = &reflection->GetStringReference(owner, found, nullptr);
    }
  });
  if (length != nullptr) *length = text != nullptr ? text->size() : 0;
  return text != nullptr ? text->c_str() : "";
}

uint32_t message_list_size(const received_message *received, const char *list,
                           uint32_t *err) noexcept {
  uint32_t size = 0;
  read(received, list, err, is_list, [&](const Message &owner, const FieldDescriptor *found) {
    size = static_cast<uint32_t>(owner.GetReflection()->FieldSize(owner, found));
  });
  return size;
}

const received_message *message_list_entry(const received_message *received, const char *list,
                                           uint32_t position, uint32_t *err) noexcept {
  const Message *entry = nullptr;
  read(received, list, err, is_list, [&](const Message &owner, const FieldDescriptor *found) {
    const auto *reflection = owner.GetReflection();
    if (position >= static_cast<uint32_t>(reflection->FieldSize(owner, found))) return;
    entry = &reflection->GetRepeatedMessage(owner, found, static_cast<int>(position));
  });
  if (entry == nullptr && *err == 0) *err = MESSAGE_ERR_INVALID_ARG;
  return reinterpret_cast<const received_message *>(entry);
}
