#pragma once

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_tree.h"

// Empties the registry's directory and unloads the tree of the process.
inline void ResetRegistry() {
  std::filesystem::remove_all(REGISTRY_DIRECTORY);
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  CRegistryTree::Get().Release();
}

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

// "(missing)" when the file cannot be read. Follows links.
inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "(missing)";
}

// True for a dangling link too.
inline bool Exists(const std::string& path) {
  return std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found;
}

// Things that are not files. The link dangles until LINK_TARGET exists.
constexpr char LINK_TARGET[] = "/etc/qamrel/target";
inline void MakePipe(const char* path) { EXPECT_EQ(mkfifo(path, 0600), 0); }
inline void MakeDirectory(const char* path) { std::filesystem::create_directory(path); }
inline void MakeDanglingLink(const char* path) {
  std::filesystem::create_symlink(LINK_TARGET, path);
}

// The name of a case is that of its parameter.
template <typename Parameter>
std::string NameOf(const testing::TestParamInfo<Parameter>& info) {
  return info.param.name;
}

inline std::string Repeated(const std::string& text, size_t count) {
  std::string repeated;
  for (size_t index = 0; index < count; ++index) {
    repeated += text;
  }
  return repeated;
}

// The content of a registry file whose only key with entries is HKEY_LOCAL_MACHINE; `machine` is
// what comes between its header and the empty line that ends it.
inline std::string TreeText(const std::string& machine) {
  return "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n"
         "[HKEY_LOCAL_MACHINE]\n" +
         machine + "\n[HKEY_USERS]\n\n\n";
}

// The base of tests of the registry, at its real paths, which are private to the sandbox.
class RegistryFilesTest : public ::testing::Test {
 protected:
  RegistryFilesTest() { ResetRegistry(); }

  // Writes the current registry file. Only before the first object: the tree is loaded once.
  static void WriteTree(const std::string& machine) { WriteFile(REGISTRY_FILE, TreeText(machine)); }

  // Whether `action` makes the loaded tree dirty, as the end of its objects shows.
  template <typename Action>
  static bool Saves(const Action& action) {
    CRegistry loader;
    std::filesystem::remove(REGISTRY_FILE);
    action();
    return Exists(REGISTRY_FILE);
  }
};
