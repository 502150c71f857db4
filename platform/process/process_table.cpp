#include "platform/process/process_table.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <memory>

#include "base/white_space.h"
#include "platform/line_reader.h"

namespace {

// The kernel's TASK_COMM_LEN without the NUL. Its own threads may show longer names, which are not
// searched for.
constexpr size_t COMMAND_NAME_LENGTH = 15;

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

// "/proc/<pid>/<fileName>".
std::string ProcPath(int32_t pid, std::string_view fileName) {
  return std::string("/proc/").append(std::to_string(pid)).append("/").append(fileName);
}

// The pid that a directory is named after; 0 when it belongs to no process.
int32_t ParsePid(const char* name) {
  const int64_t number = strtol(name, nullptr, 10);
  return number >= 1 && number <= INT32_MAX ? static_cast<int32_t>(number) : 0;
}

}  // namespace

bool ReadProcFile(int32_t pid, std::string_view fileName, std::string& line) {
  return CLineReader(ProcPath(pid, fileName).c_str()).Read(line);
}

bool FindProcessByName(int32_t& pid, std::string_view name) {
  pid = -1;
  if (name.size() > COMMAND_NAME_LENGTH) {
    return false;
  }
  const Directory processes(opendir("/proc"));
  if (!processes) {
    return false;
  }
  // As ReadProcFile(), but relative to "/proc", which saves a path lookup for each process.
  std::string path;
  std::string commandName;
  while (const dirent* entry = readdir(processes.get())) {
    const int32_t candidate = ParsePid(entry->d_name);
    if (candidate == 0) {
      continue;
    }
    path.assign(entry->d_name).append("/comm");
    if (CLineReader(path.c_str(), dirfd(processes.get())).Read(commandName) &&
        commandName == name) {
      pid = candidate;
      return true;
    }
  }
  return false;
}

bool GetProcessName(std::string& name, int32_t pid) { return ReadProcFile(pid, "comm", name); }

bool GetProcessExecutable(std::string& executable, int32_t pid) {
  std::array<char, PATH_MAX> target;
  const ssize_t length = readlink(ProcPath(pid, "exe").c_str(), target.data(), target.size());
  const bool isWhole = length >= 0 && static_cast<size_t>(length) < target.size();
  executable.assign(target.data(), isWhole ? static_cast<size_t>(length) : 0);
  return isWhole;
}

bool GetProcessNameAndExecutable(int32_t pid, std::string& name, std::string& executable) {
  const bool hasName = GetProcessName(name, pid);
  const bool hasExecutable = GetProcessExecutable(executable, pid);
  return hasName && hasExecutable;
}

bool ReadProcStatusField(int32_t pid, std::string& text, std::string_view key) {
  CLineReader status(ProcPath(pid, "status").c_str());
  while (status.Read(text)) {
    if (text.starts_with(key)) {
      text.erase(0, key.size());
      return true;
    }
  }
  return false;
}

bool ReadProcStatusField(int32_t pid, uint64_t& number, std::string_view key) {
  number = 0;
  std::string text;
  if (!ReadProcStatusField(pid, text, key)) {
    return false;
  }
  text.erase(0, text.find_first_not_of(WHITE_SPACE));
  return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

bool GetProcessMemory(int32_t pid, uint64_t& size, uint64_t& peak, uint64_t& swap,
                      uint64_t& librarySize) {
  ReadProcStatusField(pid, peak, "VmPeak:");
  ReadProcStatusField(pid, size, "VmSize:");
  ReadProcStatusField(pid, swap, "VmSwap:");
  ReadProcStatusField(pid, librarySize, "VmLib:");
  if (peak != 0 && size != 0) {
    return true;
  }
  size = peak = swap = librarySize = 0;
  return false;
}
