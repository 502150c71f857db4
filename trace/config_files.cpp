#include "trace/config_files.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string_view>

#include "trace/trace_shield.h"

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

std::vector<std::string> ListTraceConfigFiles() {
  const CTraceShield noCancellation;  // a cancelled closedir() would end the process
  std::vector<std::string> paths;
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(TRACE_CONFIG_DIRECTORY));
  if (directory == nullptr) {
    if (errno == ENOMEM) {
      throw std::bad_alloc();
    }
    return paths;
  }
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name.find(".ini") != std::string_view::npos) {
      paths.push_back(std::string(TRACE_CONFIG_DIRECTORY).append("/").append(name));
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}
