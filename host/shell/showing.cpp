// See showing.h.
#include "showing.h"

#include <arpa/inet.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "text/printable.h"
#include "text/text_table.h"

namespace kivosh {
namespace {

using Json = nlohmann::ordered_json;

const AttributeName *find(const Catalogue &catalogue, uint32_t position) {
  return position < catalogue.size() ? &catalogue[position] : nullptr;
}

std::string name_of(const Catalogue &catalogue, uint32_t position) {
  const AttributeName *attribute = find(catalogue, position);
  return attribute != nullptr ? host_text::printable(attribute->name)
                              : "position " + std::to_string(position);
}

std::string text_of_mac(const host_text::MacAddress &mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

std::string text_of_ipv4(uint32_t ipv4) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &ipv4, text, sizeof text);
  return text;
}

// ---- What a reply can say of a value

// Replies have room for so many bytes of a text. One that fills it may have been longer.
constexpr size_t kTextRoom = 25;
// Kinds whose values replies have no text for.
constexpr std::string_view kKindsWithoutText[] = {"IPV6_ADDR", "VAR BIN"};

bool may_be_cut(const ReplyValue &value) { return value.text.size() == kTextRoom; }

// A value that is not there has a text that says so; none at all is one that was left out.
bool is_carried(const ReplyValue &value, const Catalogue &catalogue) {
  const AttributeName *attribute = find(catalogue, value.position);
  return !value.text.empty() || attribute == nullptr ||
         std::ranges::find(kKindsWithoutText, attribute->kind) == std::end(kKindsWithoutText);
}

// ---- Tables

std::string cell_of(const ReplyValue &value, const Catalogue &catalogue) {
  if (!is_carried(value, catalogue)) return "(not carried)";
  return host_text::printable(value.text) + (may_be_cut(value) ? " (may be cut)" : "");
}

void show_database(const Reply &reply, FILE *stream) {
  host_text::TextTable table({"Database", "Owner", "Sessions"});
  table.add({host_text::printable(reply.database), host_text::printable(reply.owner),
             std::to_string(reply.records)});
  table.print(stream);
}

void show_session(const SessionReply &session, const Catalogue &catalogue, FILE *stream) {
  host_text::TextTable table({"Attribute", "Value"});
  for (const ReplyValue &value : session.values) {
    table.add({name_of(catalogue, value.position), cell_of(value, catalogue)});
  }
  table.print(stream);
}

void show_types(const std::vector<ReplyType> &types, const Catalogue &catalogue, FILE *stream) {
  host_text::TextTable table({"Position", "Attribute", "Type", "Kind"});
  for (const ReplyType &type : types) {
    const AttributeName *attribute = find(catalogue, type.position);
    table.add(
        {std::to_string(type.position), name_of(catalogue, type.position),
         attribute != nullptr ? std::to_string(attribute->type) : "",
         attribute != nullptr ? host_text::printable(attribute->kind) : std::to_string(type.kind)});
  }
  table.print(stream);
}

// ---- JSON

void name_in(Json &entry, const Catalogue &catalogue, uint32_t position) {
  const AttributeName *attribute = find(catalogue, position);
  if (attribute == nullptr) return;
  entry["attr_type"] = attribute->type;
  entry["name"] = attribute->name;
  entry["kind"] = attribute->kind;
}

void add_session(Json &document, const Reply &reply, const Catalogue &catalogue) {
  const SessionReply &session = *reply.session;
  switch (static_cast<ReplyTo>(reply.command_type)) {
    case ReplyTo::kMac:
      document["mac"] = text_of_mac(session.mac);
      break;
    case ReplyTo::kIpv4:
      document["ipv4"] = text_of_ipv4(session.ipv4);
      break;
    default:
      document["sess_id"] = session.session_id;
  }
  document["found"] = session.found ? 1 : 0;
  document["filter_info"] = Json::array();
  for (const ReplyValue &value : session.values) {
    Json entry = {{"attr_names", value.position}, {"attr_values", value.text}};
    if (!is_carried(value, catalogue)) entry["attr_values"] = nullptr;
    if (may_be_cut(value)) entry["may_be_cut"] = true;
    name_in(entry, catalogue, value.position);
    document["filter_info"].push_back(std::move(entry));
  }
}

void add_types(Json &document, const std::vector<ReplyType> &types, const Catalogue &catalogue) {
  document["db_info"] = Json::array();
  for (const ReplyType &type : types) {
    Json entry = {{"attr_names", type.position}, {"attr_types", type.kind}};
    name_in(entry, catalogue, type.position);
    document["db_info"].push_back(std::move(entry));
  }
}

// JSON asks to escape the lower control characters only. The others, which stand in texts alone,
// reach a terminal just as well: DEL is one byte, U+0080 to U+009F are 0xc2 and one more.
std::string with_controls_escaped(const std::string &json) {
  std::string escaped;
  for (size_t i = 0; i < json.size(); ++i) {
    const auto byte = static_cast<uint8_t>(json[i]);
    const auto next = i + 1 < json.size() ? static_cast<uint8_t>(json[i + 1]) : uint8_t{0};
    const bool is_c1 = byte == 0xc2 && next >= 0x80 && next < 0xa0;
    if (byte != 0x7f && !is_c1) {
      escaped.push_back(json[i]);
      continue;
    }
    char text[7];
    std::snprintf(text, sizeof text, "\\u%04x", unsigned{is_c1 ? next : byte});
    escaped.append(text);
    if (is_c1) ++i;
  }
  return escaped;
}

}  // namespace

void show_as_table(const Reply &reply, const Catalogue &catalogue, FILE *stream) {
  if (reply.session) {
    show_session(*reply.session, catalogue, stream);
  } else if (reply.types) {
    show_types(*reply.types, catalogue, stream);
  } else {
    show_database(reply, stream);
  }
}

std::string as_json(const Reply &reply, const Catalogue &catalogue) {
  Json document = {{"cmdtype", reply.command_type},
                   {"records", reply.records},
                   {"attr_number", reply.attr_number},
                   {"database", reply.database},
                   {"owner", reply.owner}};
  if (reply.session) add_session(document, reply, catalogue);
  if (reply.types) add_types(document, *reply.types, catalogue);
  return with_controls_escaped(document.dump(2, ' ', false, Json::error_handler_t::replace));
}

}  // namespace kivosh
