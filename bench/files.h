#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

// Files of the benchmarks. A failure ends the program: nothing would be measured.

inline void Require(bool isFine, const char* what) {
  if (!isFine) {
    perror(what);
    std::exit(1);
  }
}

inline void WriteWhole(const char* path, std::string_view text, bool flush) {
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  Require(file >= 0, path);
  Require(write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()), path);
  Require(!flush || fsync(file) == 0, path);
  close(file);
}

// Replaces a file by way of a temporary one that is flushed first.
inline void WriteAndFlush(const std::string& path, std::string_view text) {
  const std::string temporary = path + ".tmp";
  WriteWhole(temporary.c_str(), text, true);
  Require(rename(temporary.c_str(), path.c_str()) == 0, path.c_str());
}

inline std::string ReadWhole(const char* path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  Require(file >= 0 && fstat(file, &status) == 0, path);
  std::string text(static_cast<size_t>(status.st_size), '\0');
  Require(read(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()), path);
  close(file);
  return text;
}

// A file that is removed with the object; in memory, so that no disk is measured.
class BenchFile {
 public:
  explicit BenchFile(std::string_view text) {
    char path[] = "/dev/shm/em_talvor_bench.XXXXXX";
    const int file = mkstemp(path);
    Require(file >= 0, path);
    close(file);
    m_strPath = path;
    WriteWhole(path, text, false);
  }
  ~BenchFile() { unlink(m_strPath.c_str()); }
  BenchFile(const BenchFile&) = delete;
  BenchFile& operator=(const BenchFile&) = delete;

  const std::string& GetPath() const { return m_strPath; }
  std::string Read() const { return ReadWhole(m_strPath.c_str()); }

 private:
  std::string m_strPath;
};
