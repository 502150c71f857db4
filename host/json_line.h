#pragma once

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>

// A JSON object on one line, made member by member. Between BeginArray() and EndArray() each
// element is an object between BeginObject() and EndObject().
class CJsonLine {
 public:
  CJsonLine() { BeginObject(); }
  CJsonLine(const CJsonLine&) = delete;
  CJsonLine& operator=(const CJsonLine&) = delete;

  void AddText(const char* name, const std::string& text) {
    m_oWriter.Key(name);
    m_oWriter.String(text.c_str());
  }
  void AddNumber(const char* name, int64_t number) {
    m_oWriter.Key(name);
    m_oWriter.Int64(number);
  }
  void AddBool(const char* name, bool value) {
    m_oWriter.Key(name);
    m_oWriter.Bool(value);
  }
  void AddNull(const char* name) {
    m_oWriter.Key(name);
    m_oWriter.Null();
  }
  void AddValue(const char* name, const rapidjson::Value& value) {
    m_oWriter.Key(name);
    value.Accept(m_oWriter);
  }

  void BeginArray(const char* name) {
    m_oWriter.Key(name);
    m_oWriter.StartArray();
  }
  void EndArray() { m_oWriter.EndArray(); }
  void BeginObject() { m_oWriter.StartObject(); }
  void EndObject() { m_oWriter.EndObject(); }

  // Ends the object. Returns the line, without a line break.
  std::string Finish() {
    EndObject();
    return m_oBuffer.GetString();
  }

 private:
  rapidjson::StringBuffer m_oBuffer;
  rapidjson::Writer<rapidjson::StringBuffer> m_oWriter{m_oBuffer};
};
