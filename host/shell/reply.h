// What a daemon says of its database.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "text/mac_address.h"

namespace kivosh {

struct ReplyValue {
  uint32_t position;
  std::string text;
};

// The session that was asked for, and what it was asked by.
struct SessionReply {
  std::string session_id;
  host_text::MacAddress mac{};
  uint32_t ipv4 = 0;  // network order in memory
  bool found = false;
  std::vector<ReplyValue> values;  // none without a session
};

struct ReplyType {
  uint32_t position;
  uint32_t kind;  // kivo_data_type
};

// The command types of replies.
enum class ReplyTo : uint32_t { kTypes = 0, kSessionId = 2, kMac = 3, kIpv4 = 4, kDatabase = 5 };

struct Reply {
  uint32_t command_type = 0;  // ReplyTo, or what else the daemon says
  uint32_t records = 0;
  uint32_t attr_number = 0;
  std::string database;
  std::string owner;
  std::optional<SessionReply> session;
  std::optional<std::vector<ReplyType>> types;
};

// What is behind a position.
struct AttributeName {
  uint32_t type;
  std::string name;
  std::string kind;
};

// By position. Empty when the daemon does not tell.
using Catalogue = std::vector<AttributeName>;

}  // namespace kivosh
