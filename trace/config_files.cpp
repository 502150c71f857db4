#include "trace/config_files.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

std::vector<std::string> ListTraceConfigFiles() {
  std::vector<std::string> paths;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(TRACE_CONFIG_DIRECTORY, error), end;
       !error && entry != end; entry.increment(error)) {
    if (entry->path().filename().string().find(".ini") != std::string::npos) {
      paths.push_back(entry->path().string());
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}
