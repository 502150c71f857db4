// A profile file is read and written.
//
// Input: see text_input.h. Operations, a line each, up to a line "---"; then the content of the
// file. The letter of an operation is followed by its fields, separated by "|"; a "~" in a field
// stands for a line end.
//
//   r section|key|default|size   reads a value             w section|key|value   stores a value
//   k section|size               reads the keys            d section|key         removes a key
//   s size                       reads the sections        x section             removes a section
//   i section|key                reads a number            l section             reads both lists

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "fuzz/text_input.h"
#include "platform/profile/profile.h"
#include "platform/profile/profile_string.h"
#include "tests/support/memory_file.h"

namespace {

constexpr int MOST_OPERATIONS = 8;
constexpr uint32_t LARGEST_BUFFER = 4096;

const MemoryFile& TheFile() {
  static const MemoryFile file;
  return file;
}

using Fields = std::array<std::string, 4>;

Fields Split(std::string_view line) {
  Fields fields;
  for (std::string& field : fields) {
    field = TakePiece(line, "|");
    std::replace(field.begin(), field.end(), '~', '\n');
  }
  return fields;
}

// A null key asks for a list of keys, a null section for the list of sections.
void Read(const char* section, const char* key, const char* defaultValue,
          const std::string& sizeText) {
  const uint32_t size =
      static_cast<uint32_t>(std::strtoul(sizeText.c_str(), nullptr, 10)) % LARGEST_BUFFER;
  const std::unique_ptr<char[]> buffer(new char[size]);  // exact, so that a sanitizer sees overruns
  const uint32_t length =
      GetPrivateProfileString(section, key, defaultValue, buffer.get(), size, TheFile().GetPath());
  if (size == 0) {
    FUZZ_CHECK(length == 0);
    return;
  }
  FUZZ_CHECK(length < size);
  FUZZ_CHECK(buffer[length] == '\0');
  if (section != nullptr && key != nullptr) {
    FUZZ_CHECK(std::string_view(buffer.get()).size() == length);
  } else if (length > 0) {
    FUZZ_CHECK(buffer[length - 1] == '\0' || (length + 2 == size && buffer[length + 1] == '\0'));
  }
}

void Write(const char* section, const char* key, const char* value) {
  const std::string before = TheFile().Read();
  const uint32_t result = WritePrivateProfileString(section, key, value, TheFile().GetPath());
  const std::string after = TheFile().Read();
  if (result == 0) {
    FUZZ_CHECK(value == nullptr && before == after);
  } else if (value != nullptr) {
    FUZZ_CHECK(after.find(std::string(key) + '=' + value + '\n') != std::string::npos);
  } else {
    FUZZ_CHECK(after.size() <= before.size() + 1);  // an empty line may take the place of the first
  }
}

void ReadLists(const std::string& section) {
  const CProfile profile(TheFile().GetPath());
  const std::string list = profile.ReadKeyList(section);
  FUZZ_CHECK(profile.ReadKeys(section).size() ==
             static_cast<size_t>(std::count(list.begin(), list.end(), '\0')));
  for (const std::string& name : profile.ReadSections()) {
    FUZZ_CHECK(name.find('\0') == std::string::npos);
  }
}

void Run(std::string_view line) {
  const char letter = line.empty() ? '\0' : line.front();
  const Fields fields = Split(line.substr(std::min<size_t>(line.size(), 2)));
  const char* const first = fields[0].c_str();
  const char* const second = fields[1].c_str();
  switch (letter) {
    case 'r':
      Read(first, second, fields[2].c_str(), fields[3]);
      break;
    case 'k':
      Read(first, nullptr, "default", fields[1]);
      break;
    case 's':
      Read(nullptr, "key", "default", fields[0]);
      break;
    case 'i':
      CProfile(TheFile().GetPath()).ReadInteger(first, second, 7);
      break;
    case 'l':
      ReadLists(first);
      break;
    case 'w':
      Write(first, second, fields[2].c_str());
      break;
    case 'd':
      Write(first, second, nullptr);
      break;
    case 'x':
      Write(first, nullptr, nullptr);
      break;
    default:
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = ReadText(data, size);
  std::string_view content = text;
  std::string_view operations = TakePiece(content, "---\n");
  TheFile().Fill(content);
  for (int count = 0; count < MOST_OPERATIONS && !operations.empty(); ++count) {
    Run(TakePiece(operations, "\n"));
  }
  return 0;
}
