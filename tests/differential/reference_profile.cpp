#include "tests/differential/reference_profile.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "tests/differential/reference_lines.h"

namespace {

bool IsHeaderOf(const std::string& line, const std::string& section) {
  return std::strncmp(line.c_str() + 1, section.c_str(), section.size()) == 0 &&
         line.c_str()[1 + section.size()] == ']';
}

void SkipSpace(std::string& text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0) {
    text.erase(0, 1);
  }
}

void CutSpace(std::string& text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0) {
    text.pop_back();
  }
}

ReferenceAnswer AnswerOf(std::string bytes, size_t result) {
  bytes.resize(result + 1, '\0');
  bytes[result] = '\0';
  return {static_cast<uint32_t>(result), bytes};
}

}  // namespace

ReferenceAnswer ReadReferenceProfile(const std::string& content, const char* section,
                                     const char* key, const char* defaultValue, uint32_t size) {
  std::string stored;
  bool isInSection = false;
  bool isFound = false;
  const auto append = [&](const std::string& text) {
    stored += text.substr(0, size - stored.size());
    isFound = true;
  };

  ReferenceLines lines(content);
  std::string line;
  while (stored.size() < size && lines.Next(line)) {
    SkipSpace(line);
    line = line.substr(0, line.find(';'));
    CutSpace(line);
    if (line.empty()) {
      continue;
    }
    if (line[0] == '[') {
      if (isInSection) {
        break;
      }
      if (section != nullptr) {
        isInSection = IsHeaderOf(line, section);
      } else if (line.find(']') != std::string::npos) {
        append(line.substr(1, line.find(']') - 1) + '\0');
      }
      continue;
    }
    if (!isInSection || line.find('=') == std::string::npos) {
      continue;
    }
    std::string name = line.substr(0, line.find('='));
    CutSpace(name);
    if (key == nullptr) {
      append(name + '\0');
    } else if (name == key) {
      std::string value = line.substr(line.find('=') + 1);
      SkipSpace(value);
      append(value);
      break;
    }
  }

  if (isFound) {
    const bool isList = section == nullptr || key == nullptr;
    const size_t cut = isList ? std::max(size, 2U) - 2 : size - 1;
    return AnswerOf(stored, stored.size() == size ? cut : stored.size());
  }
  if (section == nullptr || key == nullptr || defaultValue == nullptr) {
    return AnswerOf("", 0);
  }
  return AnswerOf(defaultValue, std::min<size_t>(std::strlen(defaultValue), size - 1));
}

ReferenceUpdate WriteReferenceProfile(const std::string& content, const char* section,
                                      const char* key, const char* value) {
  const std::string entry =
      key != nullptr && value != nullptr ? std::string(key) + "=" + value + "\n" : "";
  const auto replace = [&](size_t from, size_t to, const std::string& text) {
    return ReferenceUpdate{1, content.substr(0, from) + text + content.substr(to)};
  };

  bool isInSection = false;
  size_t sectionStart = 0;
  int entries = 0;
  size_t remembered = 0;  // the end of the last significant line
  ReferenceLines lines(content);
  std::string line;
  while (lines.Next(line)) {
    if (!line.empty()) {
      line.pop_back();
    }
    if (line.empty() || line[0] == ';') {
      continue;
    }
    const size_t from = remembered;
    remembered = lines.Offset();
    if (line[0] == '[') {
      if (isInSection && key == nullptr) {
        return replace(sectionStart, from, "");
      }
      if (isInSection) {
        return value != nullptr ? replace(from, from, entry) : ReferenceUpdate{0, content};
      }
      if (IsHeaderOf(line, section)) {
        isInSection = true;
        sectionStart = from;
      }
      continue;
    }
    if (!isInSection) {
      continue;
    }
    ++entries;
    if (key == nullptr || line.find('=') == std::string::npos) {
      continue;
    }
    std::string name = line.substr(0, line.find('='));
    while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) {
      name.pop_back();
    }
    if (name == key) {
      return replace(from, remembered, (entries < 2 ? "\n" : "") + entry);
    }
  }

  if (isInSection && key == nullptr) {
    return replace(sectionStart, content.size(), "");
  }
  if (key == nullptr || value == nullptr) {
    return {0, content};
  }
  const std::string header = isInSection ? "" : std::string("\n[") + section + "]\n\n";
  return {1, content + header + entry};
}
