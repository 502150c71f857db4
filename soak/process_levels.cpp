#include "soak/process_levels.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace {

// The allocator keeps some of what is freed, and how much varies from round to round.
constexpr size_t BYTES_OF_PLAY = 262'144;
constexpr size_t RESIDENT_KB_OF_PLAY = 16'384;

// A sanitizer holds back freed memory, and reports leaks itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool MEASURES_MEMORY = false;
#else
constexpr bool MEASURES_MEMORY = true;
#endif

size_t CountEntries(const std::string& directory) {
  std::error_code ignored;
  const std::filesystem::recursive_directory_iterator entries(directory, ignored);
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t CountOpen(const char* directory) {
  const std::filesystem::directory_iterator entries(directory);
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t ResidentKilobytes() {
  size_t total = 0;
  size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

bool HasChildren() { return waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD; }

}  // namespace

ProcessLevels MeasureProcess(const std::string& directory) {
  return {mallinfo2().uordblks,         ResidentKilobytes(),
          CountOpen("/proc/self/task"), CountOpen("/proc/self/fd"),
          HasChildren() ? 1U : 0U,      CountEntries(directory) + CountEntries("/etc/qamrel")};
}

std::vector<std::string> CompareLevels(const ProcessLevels& before, const ProcessLevels& after) {
  std::vector<std::string> risen;
  const auto compare = [&](const char* name, size_t from, size_t to, size_t play) {
    if (to > from + play) {
      risen.push_back(std::string("The ") + name + " have risen from " + std::to_string(from) +
                      " to " + std::to_string(to) + ".");
    }
  };
  if (MEASURES_MEMORY) {
    compare("allocated bytes", before.bytes, after.bytes, BYTES_OF_PLAY);
    compare("kilobytes in use", before.residentKb, after.residentKb, RESIDENT_KB_OF_PLAY);
  }
  compare("threads", before.threads, after.threads, 0);
  compare("descriptors", before.descriptors, after.descriptors, 0);
  compare("children", before.children, after.children, 0);
  compare("files", before.files, after.files, 0);
  return risen;
}

std::string Describe(const ProcessLevels& levels) {
  return std::to_string(levels.bytes) + " bytes allocated, " + std::to_string(levels.residentKb) +
         " kB in use, " + std::to_string(levels.threads) + " threads, " +
         std::to_string(levels.descriptors) + " descriptors, " +
         (levels.children != 0 ? "children" : "no children") + ", " + std::to_string(levels.files) +
         " files";
}
