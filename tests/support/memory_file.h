#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>

// A file in memory that has a path, for the life of the object.
class MemoryFile {
 public:
  MemoryFile()
      : m_nDescriptor(memfd_create("em_talvor_test", MFD_CLOEXEC)),
        m_strPath("/proc/self/fd/" + std::to_string(m_nDescriptor)) {
    Require(m_nDescriptor >= 0);
  }
  ~MemoryFile() { close(m_nDescriptor); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const char* GetPath() const { return m_strPath.c_str(); }

  // Replaces the content of the file.
  void Fill(std::string_view content) const {
    Require(ftruncate(m_nDescriptor, 0) == 0);
    Require(pwrite(m_nDescriptor, content.data(), content.size(), 0) ==
            static_cast<ssize_t>(content.size()));
  }

  std::string Read() const {
    std::string content(static_cast<size_t>(lseek(m_nDescriptor, 0, SEEK_END)), '\0');
    Require(pread(m_nDescriptor, content.data(), content.size(), 0) ==
            static_cast<ssize_t>(content.size()));
    return content;
  }

 private:
  static void Require(bool isDone) {
    if (!isDone) {
      throw std::runtime_error("a file in memory cannot be made, written or read");
    }
  }

  const int m_nDescriptor;
  const std::string m_strPath;
};
