#include "host/installation.h"

#include <filesystem>
#include <system_error>

#include "host/host_error.h"

namespace fs = std::filesystem;

namespace {

fs::path BesideProgram(const std::string& relativePath) {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  return program.parent_path().parent_path() / relativePath;
}

}  // namespace

std::string InstalledFile(const std::string& relativePath) {
  const fs::path file = BesideProgram(relativePath);
  std::error_code error;
  if (!fs::exists(file, error)) {
    throw CHostError(EX_OSFILE, "The file " + file.string() +
                                    " is missing: install the package em-talvor again, or build "
                                    "the whole project.");
  }
  return file;
}

bool IsSampleCollector(const std::string& file) {
  std::error_code error;
  return fs::equivalent(file, BesideProgram("lib/em-talvor/Talvor"), error);
}

std::string InstalledModule() {
  const fs::path file = BesideProgram("lib/qamrel/em_talvor");
  std::error_code error;
  const bool isThere = fs::exists(fs::symlink_status(file, error));  // a link to nothing too
  return isThere ? file.string() : "/usr/lib/qamrel/em_talvor";
}
