// See attributes_request.h.
#include "attributes_request.h"

#include <array>
#include <cstring>
#include <memory>

#include "../sessions/session_database.h"
#include "platform/aaa.h"
#include "platform/error_text.h"

namespace kivod {
namespace {

constexpr const char *kKindNames[] = {KIVO_DATA_TYPE_NAMES};
constexpr size_t kKindNameRoom = 16;

// Without the blanks that a column has.
std::array<char, kKindNameRoom> kind_name(kivo_data_type kind) noexcept {
  std::array<char, kKindNameRoom> name{};
  std::strncpy(name.data(), kKindNames[kind], name.size() - 1);
  for (size_t end = std::strlen(name.data()); end != 0 && name[end - 1] == ' ';) name[--end] = '\0';
  return name;
}

uint32_t write_attributes(channel_connection *connection) noexcept {
  uint32_t err = 0;
  const std::unique_ptr<kivo_attributes_msg, decltype(&kivo_attributes_msg_destroy)> reply(
      kivo_attributes_msg_create(channel_message_definitions(connection, nullptr), &err),
      kivo_attributes_msg_destroy);
  for (const kivo_attr_config &row : session_attributes()) {
    kivo_attributes_msg_append(reply.get(), row.aaa_type, aaa_dict_get_attr_name(row.aaa_type),
                               kind_name(row.data_type).data(), &err);
  }
  return err != 0 ? err : channel_marshal(connection, reply.get(), kivo_attributes_msg_marshal);
}

}  // namespace

void answer_attributes_request(void *, void *, const channel_command *,
                               channel_connection *connection, uint32_t) noexcept {
  const uint32_t status = write_attributes(connection);
  if (status != PLATFORM_OK) channel_nack(connection, error_text(status));
  channel_finished(connection);
}

}  // namespace kivod
