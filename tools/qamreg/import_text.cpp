#include "tools/qamreg/import_text.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/registry/registry.h"
#include "platform/registry/registry_path.h"
#include "tools/qamreg/failure.h"
#include "tools/qamreg/text_rules.h"

namespace {

class Importer {
 public:
  std::vector<KeyContent> Run(std::string_view text) {
    while (!text.empty()) {
      const std::string_view line = text.substr(0, text.find('\n'));
      text.remove_prefix(std::min(line.size() + 1, text.size()));
      ++m_nLine;
      if (line.empty()) {
        EndKey();
      } else {
        CheckLine(line);
        TakeLine(line);
      }
    }
    return std::move(m_oKeys);
  }

 private:
  [[noreturn]] void Refuse(const std::string& reason) const {
    throw CFailure(EXIT_FAILED, "Line " + std::to_string(m_nLine) + ": " + reason +
                                    " Nothing was imported: correct the line and try again.");
  }

  void CheckLine(std::string_view line) const {
    if (m_bEnded) {
      Refuse("nothing may follow the empty line that ends the file.");
    }
    if (line.find('\0') != std::string_view::npos) {
      Refuse("a zero byte; this is no text.");
    }
    if (line == "\r" || line.ends_with("]\r")) {
      Refuse(
          "the line ends as on Windows. Remove the carriage returns, for instance with "
          "\"tr -d '\\r'\".");
    }
    if (line.size() > REGISTRY_LINE_LENGTH) {
      Refuse("longer than " + std::to_string(REGISTRY_LINE_LENGTH) + " characters.");
    }
  }

  void TakeLine(std::string_view line) {
    const size_t nameEnd = line.find(']');
    if (line.front() != '[' || nameEnd == std::string_view::npos) {
      TakeValue(line);
    } else if (nameEnd + 1 != line.size()) {
      Refuse("nothing may follow the \"]\".");
    } else {
      BeginKey(std::string(line.substr(1, nameEnd - 1)));
    }
  }

  void BeginKey(const std::string& name) {
    if (name.empty() || FindRegistrySeparator(name) != std::string::npos) {
      Refuse("not the name of one key. A key stands within the key around it.");
    }
    if (m_oOpenKeys.empty() &&
        std::find(ROOT_KEY_NAMES.begin(), ROOT_KEY_NAMES.end(), name) == ROOT_KEY_NAMES.end()) {
      Refuse("\"" + name + "\" is no root key, and it stands within none.");
    }
    const std::string outer = m_oOpenKeys.empty() ? "" : m_oKeys[m_oOpenKeys.back()].path + '\\';
    m_oOpenKeys.push_back(m_oKeys.size());
    m_oKeys.push_back({outer + name, {}});
  }

  void EndKey() {
    if (m_oOpenKeys.empty()) {
      m_bEnded = true;
    } else {
      m_oOpenKeys.pop_back();
    }
  }

  void TakeValue(std::string_view line) {
    const size_t marker = line.find('=');
    if (marker == std::string_view::npos) {
      Refuse("neither a key, a value nor empty.");
    }
    if (m_oOpenKeys.empty()) {
      Refuse("a value stands outside of the root keys.");
    }
    m_oKeys[m_oOpenKeys.back()].values.push_back(
        {std::string(line.substr(0, marker)), ParseData(line.substr(marker))});
  }

  ValueData ParseData(std::string_view text) const {
    if (text.starts_with("=s=")) {
      return {REG_SZ, std::string(text.substr(3))};
    }
    if (text.starts_with("=es=")) {
      return {REG_EXPAND_SZ, std::string(text.substr(4))};
    }
    if (text.starts_with("=d=")) {
      return ParseInteger(text.substr(3));
    }
    if (text.starts_with("=b=")) {
      return {REG_BINARY, ParseBytes(text.substr(3))};
    }
    Refuse("the name of a value is followed by \"=s=\", \"=es=\", \"=d=\" or \"=b=\".");
  }

  ValueData ParseInteger(std::string_view text) const {
    int32_t number = 0;
    const char* end = text.data() + text.size();
    if (std::from_chars(text.data(), end, number) != std::from_chars_result{end, std::errc()}) {
      Refuse("after \"=d=\" stands an integer of 32 bits with a sign, in decimal.");
    }
    return MakeInteger(number);
  }

  std::string ParseBytes(std::string_view text) const {
    std::string bytes;
    for (size_t position = 0; position < text.size(); position += 3) {
      const bool isEnded = position + 2 >= text.size() || text[position + 2] == ' ';
      if (!isEnded || !AppendByte(text.substr(position, 2), bytes)) {
        Refuse("after \"=b=\" stand pairs of hexadecimal digits with one blank between them.");
      }
    }
    return bytes;
  }

  std::vector<KeyContent> m_oKeys;
  std::vector<size_t> m_oOpenKeys;  // their positions there, from the outermost to the innermost
  size_t m_nLine = 0;
  bool m_bEnded = false;
};

}  // namespace

std::vector<KeyContent> ParseImport(std::string_view text) { return Importer().Run(text); }
