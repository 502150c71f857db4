#include "platform/profile/profile.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "base/number_base.h"
#include "platform/profile/profile_string.h"

namespace {

constexpr uint32_t LONGEST_VALUE = 1024;     // bytes; lines are cut there
constexpr uint32_t LARGEST_LIST = 1U << 30;  // bytes
constexpr size_t INTEGER_SIZE = 32;          // bytes, with the NUL

std::vector<std::string> SplitList(const std::string& list) {
  std::vector<std::string> names;
  for (size_t begin = 0; begin < list.size(); begin += names.back().size() + 1) {
    names.emplace_back(list.c_str() + begin);
  }
  return names;
}

}  // namespace

std::string CProfile::ReadString(const std::string& section, const std::string& key,
                                 const std::string& defaultValue) const {
  std::string value(std::max<size_t>(LONGEST_VALUE, defaultValue.size() + 1), '\0');
  value.resize(GetPrivateProfileString(section.c_str(), key.c_str(), defaultValue.c_str(),
                                       value.data(), static_cast<uint32_t>(value.size()),
                                       m_strFileName.c_str()));
  return value;
}

int32_t CProfile::ReadInteger(const std::string& section, const std::string& key,
                              int32_t defaultValue) const {
  std::array<char, INTEGER_SIZE> text;
  GetPrivateProfileString(section.c_str(), key.c_str(), "", text.data(), text.size(),
                          m_strFileName.c_str());
  char* end = nullptr;
  const int64_t number = std::strtoll(text.data(), &end, NumberBase(text.data()));
  return end != text.data() ? static_cast<int32_t>(number) : defaultValue;
}

// Asks again with twice the room while the list may have been cut.
std::string CProfile::ReadList(const char* section) const {
  std::string list;
  uint32_t length = 0;
  uint32_t size = LONGEST_VALUE;
  do {
    size *= 2;
    list.resize(size);
    length = GetPrivateProfileString(section, nullptr, nullptr, list.data(), size,
                                     m_strFileName.c_str());
  } while (length >= size - 2 && size < LARGEST_LIST);
  list.resize(length);
  return list;
}

std::string CProfile::ReadSectionList() const { return ReadList(nullptr); }

std::vector<std::string> CProfile::ReadSections() const { return SplitList(ReadSectionList()); }

std::string CProfile::ReadKeyList(const std::string& section) const {
  return ReadList(section.c_str());
}

std::vector<std::string> CProfile::ReadKeys(const std::string& section) const {
  return SplitList(ReadKeyList(section));
}

bool CProfile::WriteString(const std::string& section, const std::string& key,
                           const std::string& value) const {
  return WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(),
                                   m_strFileName.c_str()) != 0;
}

bool CProfile::WriteInteger(const std::string& section, const std::string& key,
                            int32_t value) const {
  return WriteString(section, key, std::to_string(value));
}

bool CProfile::WriteUnsigned(const std::string& section, const std::string& key,
                             uint32_t value) const {
  return WriteString(section, key, std::to_string(value));
}

bool CProfile::DeleteKey(const std::string& section, const std::string& key) const {
  return WritePrivateProfileString(section.c_str(), key.c_str(), nullptr, m_strFileName.c_str()) !=
         0;
}

bool CProfile::DeleteSection(const std::string& section) const {
  return WritePrivateProfileString(section.c_str(), nullptr, nullptr, m_strFileName.c_str()) != 0;
}
