#include "trace/config_files.h"

#include <dirent.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

#include "base/number_base.h"
#include "base/white_space.h"
#include "trace/trace_shield.h"

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

constexpr std::string_view END_OF_FILE = "EndOfFile";

// Cuts the first line off `text` and returns it without surrounding white space.
std::string_view TakeLine(std::string_view& text) {
  const size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  line.remove_prefix(std::min(line.find_first_not_of(WHITE_SPACE), line.size()));
  return line.substr(0, line.find_last_not_of(WHITE_SPACE) + 1);
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

bool IsHeaderOf(std::string_view line, std::string_view name) {
  const size_t end = line.find(']');
  return line.starts_with('[') && end != std::string_view::npos &&
         EqualsIgnoringCase(line.substr(1, end - 1), name);
}

// The text up to a line "EndOfFile" or, with `stopAtHeader`, up to a section header.
std::string_view LinesBeforeEnd(std::string_view text, bool stopAtHeader) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const size_t position = text.size() - rest.size();
    const std::string_view line = TakeLine(rest);
    if (EqualsIgnoringCase(line, END_OF_FILE) || (stopAtHeader && line.starts_with('['))) {
      return text.substr(0, position);
    }
  }
  return text;
}

}  // namespace

std::vector<std::string> ListTraceConfigFiles() {
  const CTraceShield shield;  // a cancelled closedir() would end the process
  std::vector<std::string> paths;
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(TRACE_CONFIG_DIRECTORY));
  if (directory == nullptr) {
    if (errno == ENOMEM) {
      throw std::bad_alloc();
    }
    return paths;
  }
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name.find(".ini") != std::string_view::npos) {
      paths.push_back(std::string(TRACE_CONFIG_DIRECTORY).append("/").append(name));
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

uint32_t ReadTraceNumber(const char* text, int base) {
  const int64_t number = std::strtoll(text, nullptr, base);
  return number < -int64_t{UINT32_MAX} || number > UINT32_MAX ? UINT32_MAX
                                                              : static_cast<uint32_t>(number);
}

std::optional<CConfigSection> CConfigSection::Find(std::string_view text, std::string_view name) {
  std::string_view rest = LinesBeforeEnd(text, false);
  while (!rest.empty()) {
    if (IsHeaderOf(TakeLine(rest), name)) {
      return CConfigSection(LinesBeforeEnd(rest, true));
    }
  }
  return std::nullopt;
}

std::optional<uint32_t> CConfigSection::ReadNumber(std::string_view key) const {
  std::string_view rest = m_strLines;
  while (!rest.empty()) {
    const std::string_view line = TakeLine(rest);
    const size_t equals = line.find('=');
    if (equals != std::string_view::npos && line.find(key) != std::string_view::npos) {
      const std::string value(line.substr(equals + 1));
      return ReadTraceNumber(value.c_str(), NumberBase(value));
    }
  }
  return std::nullopt;
}
