#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// A new directory for the files of a test, removed with everything in it by the destructor.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = std::filesystem::temp_directory_path() / "em_talvor_test.XXXXXX";
    m_oPath = std::filesystem::canonical(mkdtemp(pattern.data()));
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_oPath, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  std::string Path() const { return m_oPath; }
  std::string Path(const std::string& name) const { return m_oPath / name; }

  // Writes a file, with the directories that it needs, and returns its path.
  std::string Write(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = m_oPath / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

  // Writes an executable for the shell and returns its path. It runs in the current directory; "$D"
  // is the scratch directory.
  std::string WriteScript(const std::string& name, const std::string& commands) const {
    std::string file = Write(name, "#!/bin/sh\nD='" + Path() + "'\n" + commands + "\n");
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return file;
  }

  std::string Read(const std::string& name) const {
    std::ifstream file(m_oPath / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::filesystem::path m_oPath;
};
