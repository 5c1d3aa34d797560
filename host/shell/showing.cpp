// See showing.h.
#include "showing.h"

#include <arpa/inet.h>

#include <nlohmann/json.hpp>

#include "reply_value.h"
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

// ---- Tables

std::string cell_of(const ReadValue &value) {
  if (value.state == ReadValue::State::kNotCarried) return "(not carried)";
  if (value.state == ReadValue::State::kNumber) return std::to_string(value.number);
  return host_text::printable(value.text) + (value.may_be_cut ? " (may be cut)" : "");
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
    table.add({name_of(catalogue, value.position),
               cell_of(read_value(value.text, find(catalogue, value.position)))});
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

// Bytes that are no UTF-8 are no string of JSON.
Json text_in_json(const std::string &text) {
  if (host_text::utf8_size(text) == text.size()) return text;
  std::string digits;
  for (const char byte : text) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", static_cast<uint8_t>(byte));
    digits.append(pair);
  }
  return {{"hex", digits}};
}

// On one line and in ASCII: what steers a terminal is escaped with the rest.
std::string line_of(const Json &document) { return document.dump(-1, ' ', true); }

void name_in(Json &entry, const Catalogue &catalogue, uint32_t position) {
  const AttributeName *attribute = find(catalogue, position);
  if (attribute == nullptr) return;
  entry["attr_type"] = attribute->type;
  entry["name"] = text_in_json(attribute->name);
  entry["kind"] = text_in_json(attribute->kind);
}

// What stands there instead of a value is never taken for one.
void value_in(Json &entry, const ReadValue &value) {
  using State = ReadValue::State;
  entry["attr_values"] = nullptr;
  switch (value.state) {
    case State::kText:
    case State::kTime:
      entry["attr_values"] = text_in_json(value.text);
      break;
    case State::kNumber:
      entry["attr_values"] = value.number;
      break;
    case State::kAbsent:
      entry["no_value"] = "absent";
      break;
    case State::kNotCarried:
      entry["no_value"] = "not carried";
      break;
    case State::kUnreadable:
      entry["no_value"] = "unreadable";
      entry["text"] = text_in_json(value.text);
      break;
  }
  if (value.may_be_cut) entry["may_be_cut"] = true;
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
      document["sess_id"] = text_in_json(session.session_id);
  }
  document["found"] = session.found ? 1 : 0;
  document["filter_info"] = Json::array();
  for (const ReplyValue &value : session.values) {
    Json entry = {{"attr_names", value.position}};
    value_in(entry, read_value(value.text, find(catalogue, value.position)));
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
                   {"database", text_in_json(reply.database)},
                   {"owner", text_in_json(reply.owner)}};
  if (reply.session) add_session(document, reply, catalogue);
  if (reply.types) add_types(document, *reply.types, catalogue);
  return line_of(document);
}

std::string as_json(const std::vector<Continuation> &commands) {
  Json rows = Json::array();
  for (const Continuation &row : commands) {
    rows.push_back({{"words", row.words}, {"help", row.help}});
  }
  return line_of({{"commands", std::move(rows)}});
}

std::string error_as_json(const std::string &text, int status, size_t line) {
  // For people: always a string.
  const bool is_utf8 = host_text::utf8_size(text) == text.size();
  Json document = {{"error", is_utf8 ? text : host_text::printable(text)}, {"status", status}};
  if (line != 0) document["line"] = line;
  return line_of(document);
}

}  // namespace kivosh
