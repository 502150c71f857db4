#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>

#include "frame/sip_json.h"

// A record with that document, given as JSON.
inline SipJson MakeRecord(const std::string& document, uint32_t cmdIndex = 0) {
  SipJson record;
  record.m_oDocument.Parse(document.c_str(), document.size());
  record.m_nCmdIndex = cmdIndex;
  return record;
}

// A record with those commands: zero or more JSON objects, separated by commas.
inline SipJson MakeCommands(const std::string& commands, uint32_t cmdIndex = 0) {
  return MakeRecord(R"({"SIP":{"CMD":[)" + commands + "]}}", cmdIndex);
}

// A record with one command and that JSON as its data.
inline SipJson MakeData(const std::string& data) { return MakeCommands(R"({"DA":)" + data + "}"); }

inline std::string TextOf(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

inline std::string TextOf(const SipJson& record) { return TextOf(record.m_oDocument); }

// The JSON of the commands of a record.
inline std::string CommandsOf(const SipJson& record) {
  return TextOf(record.m_oDocument["SIP"]["CMD"]);
}
