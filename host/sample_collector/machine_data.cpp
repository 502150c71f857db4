#include "host/sample_collector/machine_data.h"

#include <sys/klog.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

#include "platform/process/process_table.h"

namespace {

// Actions of klogctl(), which has no names for them in a header.
constexpr int READ_ALL = 3;
constexpr int GET_BUFFER_SIZE = 10;

std::vector<int32_t> FindProcesses() {
  std::vector<int32_t> pids;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    int32_t pid = 0;
    if (std::from_chars(name.data(), name.data() + name.size(), pid).ptr ==
        name.data() + name.size()) {
      pids.push_back(pid);
    }
  }
  std::sort(pids.begin(), pids.end());
  return pids;
}

// A field of the status without the white space before it.
std::string StatusField(int32_t pid, std::string_view key) {
  std::string text;
  if (!ReadProcStatusField(pid, text, key)) {
    return "-";
  }
  text.erase(0, text.find_first_not_of(" \t"));
  return text;
}

}  // namespace

std::string ListProcesses() {
  std::string table = "pid\tparent\tstate\tthreads\tmemory\tname\n";
  for (const int32_t pid : FindProcesses()) {
    std::string name;
    if (!GetProcessName(name, pid)) {
      continue;  // it has ended meanwhile
    }
    table += std::to_string(pid);
    for (const char* key : {"PPid:", "State:", "Threads:", "VmRSS:"}) {
      table += '\t' + StatusField(pid, key);
    }
    table += '\t' + name + '\n';
  }
  return table;
}

bool ReadKernelLog(std::string& text) {
  const int size = klogctl(GET_BUFFER_SIZE, nullptr, 0);
  if (size < 0) {
    return false;
  }
  std::string messages(static_cast<size_t>(size), '\0');
  const int length = klogctl(READ_ALL, messages.data(), size);
  if (length < 0) {
    return false;
  }
  messages.resize(static_cast<size_t>(length));
  text = std::move(messages);
  return true;
}
