#include "tests/support/registry_directory.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

void ResetRegistryDirectory() {
  fs::create_directory(DIRECTORY);
  for (const fs::directory_entry& entry : fs::directory_iterator(DIRECTORY)) {
    fs::remove_all(entry.path());
  }
}

bool Exists(const std::string& path) {
  return fs::symlink_status(path).type() != fs::file_type::not_found;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return file ? text.str() : "<missing>";
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}
