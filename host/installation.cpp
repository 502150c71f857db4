#include "host/installation.h"

#include <filesystem>
#include <system_error>

#include "host/host_error.h"

namespace fs = std::filesystem;

std::string InstalledFile(const std::string& relativePath) {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  const fs::path file = program.parent_path().parent_path() / relativePath;
  if (!fs::exists(file, error)) {
    throw CHostError(EX_OSFILE, "The file " + file.string() +
                                    " is missing: install the package em-talvor again, or build "
                                    "the whole project.");
  }
  return file;
}
