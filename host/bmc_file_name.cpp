#include "host/bmc_file_name.h"

#include <algorithm>

namespace {

constexpr unsigned char FIRST_PRINTABLE = 0x20;
constexpr unsigned char DELETE = 0x7F;

std::string LastPart(const std::string& path) { return path.substr(path.find_last_of("/\\") + 1); }

bool IsFileName(const std::string& name) { return !name.empty() && name != "." && name != ".."; }

bool IsControlCharacter(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < FIRST_PRINTABLE || byte == DELETE;
}

}  // namespace

std::string BmcFileName(const std::string& bmcPath, const std::string& localPath) {
  std::string name = LastPart(bmcPath);
  if (!IsFileName(name)) {
    name = LastPart(localPath);
  }
  if (!IsFileName(name)) {
    name = "file";
  }
  std::replace_if(name.begin(), name.end(), IsControlCharacter, '_');
  return name;
}
