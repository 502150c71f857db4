#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>

#include "frame/sip_json.h"

// A record with that document.
inline SipJson MakeRecord(const std::string& document, uint32_t cmdIndex = 0) {
  SipJson record;
  record.m_oDocument.Parse(document.c_str(), document.size());
  record.m_nCmdIndex = cmdIndex;
  return record;
}

// A record with that text as its commands: zero or more objects.
inline SipJson MakeCommands(const std::string& commands, uint32_t cmdIndex = 0) {
  return MakeRecord(R"({"SIP":{"CMD":[)" + commands + "]}}", cmdIndex);
}

// A record with one command, which holds that text as its data.
inline SipJson MakeData(const std::string& data) { return MakeCommands(R"({"DA":)" + data + "}"); }

inline std::string TextOf(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

inline std::string TextOf(const SipJson& record) { return TextOf(record.m_oDocument); }

// The text of the commands of a record.
inline std::string CommandsOf(const SipJson& record) {
  return TextOf(record.m_oDocument["SIP"]["CMD"]);
}
