#include "host/commands.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/host_error.h"
#include "host/json_line.h"
#include "host/module_instance.h"
#include "host/output.h"

namespace {

// The identification record as a module fills it; the bytes between belong to the agent.
constexpr uint32_t RECORD_SIZE = 246;
constexpr size_t SET_FLAGS = 8;
constexpr size_t CLEARED_FLAGS = 21;
constexpr size_t TYPE = 42;
constexpr size_t NAME = 46;
constexpr size_t NAME_LENGTH = 96;
constexpr size_t NUMBERS = 142;  // 16 bits, 8 bits, 8 bits
constexpr size_t DESCRIPTION = 146;
constexpr size_t DESCRIPTION_LENGTH = 100;

using Record = std::array<uint8_t, RECORD_SIZE>;

template <typename Number>
Number NumberAt(const Record& record, size_t offset) {
  Number number = 0;
  std::memcpy(&number, record.data() + offset, sizeof(number));
  return number;
}

std::string TextAt(const Record& record, size_t offset, size_t length) {
  const char* text = reinterpret_cast<const char*>(record.data()) + offset;
  return {text, strnlen(text, length)};
}

struct ModuleInfo {
  std::string file;
  std::string name;  // from the entry point
  std::string recordName;
  std::string description;
  uint32_t type;
  uint32_t setFlags;
  uint32_t clearedFlags;
  std::string numbers;
};

ModuleInfo ReadInfo(const CModuleLibrary& library) {
  // All flags that a module may clear are set before, so that clearing shows.
  Record record = {};
  std::memcpy(record.data(), &RECORD_SIZE, sizeof(RECORD_SIZE));
  record[CLEARED_FLAGS] = UINT8_MAX;
  const CModuleInstance module(library);
  if (module->GetModuleInfo(record.data()) == 0) {
    throw CHostError(EX_SOFTWARE, "The module fills no identification record of " +
                                      std::to_string(RECORD_SIZE) +
                                      " bytes: name another module with --module FILE.");
  }
  return {library.GetPath(),
          library.GetModuleName(),
          TextAt(record, NAME, NAME_LENGTH),
          TextAt(record, DESCRIPTION, DESCRIPTION_LENGTH),
          NumberAt<uint32_t>(record, TYPE),
          record[SET_FLAGS],
          static_cast<uint8_t>(~record[CLEARED_FLAGS]),
          std::to_string(NumberAt<uint16_t>(record, NUMBERS)) + "." +
              std::to_string(record[NUMBERS + 2]) + "." + std::to_string(record[NUMBERS + 3])};
}

std::string Hexadecimal(uint32_t flags) {
  std::array<char, sizeof("0xFF")> text = {};
  snprintf(text.data(), text.size(), "0x%02X", flags & UINT8_MAX);
  return text.data();
}

void Print(const ModuleInfo& info) {
  WriteLine("module         " + info.file);
  WriteLine("name           " + info.name);
  WriteLine("record name    " + info.recordName);
  WriteLine("description    " + info.description);
  WriteLine("type           " + std::to_string(info.type));
  WriteLine("sets flags     " + Hexadecimal(info.setFlags) + " at byte 8");
  WriteLine("clears flags   " + Hexadecimal(info.clearedFlags) + " at byte 21");
  WriteLine("numbers        " + info.numbers + " at byte 142");
}

void PrintJson(const ModuleInfo& info) {
  CJsonLine line;
  line.AddText("module", info.file);
  line.AddText("name", info.name);
  line.AddText("recordName", info.recordName);
  line.AddText("description", info.description);
  line.AddNumber("type", info.type);
  line.AddNumber("setsFlags", info.setFlags);
  line.AddNumber("clearsFlags", info.clearedFlags);
  line.AddText("numbers", info.numbers);
  WriteLine(line.Finish());
}

}  // namespace

int ShowInfo(const HostOptions& options) {
  const CModuleLibrary library(options.module);
  const ModuleInfo info = ReadInfo(library);
  if (options.isJson) {
    PrintJson(info);
  } else {
    Print(info);
  }
  return EXIT_SUCCESS;
}
