#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/registry.h"
#include "platform/registry_paths.h"
#include "platform/registry_tree.h"

// The base of tests on the registry: its directory is there, with no file in it, and the tree of the
// process has not been loaded.
class RegistryFilesTest : public ::testing::Test {
 protected:
  RegistryFilesTest() {
    std::filesystem::remove_all(REGISTRY_DIRECTORY);
    std::filesystem::create_directories(REGISTRY_DIRECTORY);
    CRegistryTree::Get().Release();
  }

  static void WriteFile(const char* path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
  }

  // "(missing)" when the file cannot be read.
  static std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "(missing)";
  }

  // The registry text of a tree that holds nothing but `machine`, what stands between the header of
  // HKEY_LOCAL_MACHINE and the empty line that ends it.
  static std::string TreeText(const std::string& machine) {
    return "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n"
           "[HKEY_LOCAL_MACHINE]\n" +
           machine + "\n[HKEY_USERS]\n\n\n";
  }

  // Writes the current registry file. Before the first object only: the tree is loaded once.
  static void WriteTree(const std::string& machine) { WriteFile(REGISTRY_FILE, TreeText(machine)); }

  // Whether `action` makes the loaded tree dirty, as the end of its objects shows.
  template <typename Action>
  static bool Saves(const Action& action) {
    CRegistry loader;
    std::filesystem::remove(REGISTRY_FILE);
    action();
    return std::filesystem::exists(REGISTRY_FILE);
  }
};
