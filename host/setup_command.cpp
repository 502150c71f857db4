#include "host/commands.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "host/collector_check.h"
#include "host/host_error.h"
#include "host/json_line.h"
#include "host/module_library.h"
#include "host/output.h"

namespace fs = std::filesystem;

namespace {

constexpr char CLEANUP[] = "cleanup";

uint32_t ActionCode(const std::string& action) {
  static const std::map<std::string, uint32_t> codes = {
      {"backup", 1}, {"restore", 2}, {"convert", 3}, {CLEANUP, 4}};
  return codes.at(action);
}

// The first link to a directory that the clean-up meets, where it ends; empty when there is none.
// Walks as the clean-up does: depth first, sorted by name, without names that begin with a dot.
fs::path FindDirectoryLink() {
  std::vector<fs::path> left = {COLLECTOR_DIRECTORY};
  while (!left.empty()) {
    fs::path path = left.back();
    left.pop_back();
    std::error_code error;
    if (!fs::is_directory(path, error)) {
      continue;
    }
    if (fs::is_symlink(path, error)) {
      return path;
    }
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
      if (entry->path().filename().native().front() != '.') {
        entries.push_back(entry->path());
      }
    }
    std::sort(entries.rbegin(), entries.rend());
    left.insert(left.end(), entries.begin(), entries.end());
  }
  return {};
}

// Why a clean-up failed, and what to do.
std::string ExplainFailure() {
  std::string directory;
  if (!GetDataDir(directory)) {
    return "Nothing was cleaned up: the data directory of Talvor is not known. " +
           ExplainUnavailability();
  }
  const std::string left =
      std::string("The directory ") + COLLECTOR_DIRECTORY + " could not be removed completely: ";
  if (geteuid() != 0) {
    return left + "run em_host as root.";
  }
  const fs::path link = FindDirectoryLink();
  if (!link.empty()) {
    std::error_code error;
    return left + link.string() + " is a link to the directory " +
           fs::read_symlink(link, error).string() +
           ". What that held is gone, and the clean-up ended there: remove the link, and try again.";
  }
  return left + "remove what is left in it, such as files whose names begin with a dot.";
}

}  // namespace

int RunSetupAction(const HostOptions& options) {
  const CModuleLibrary library(options.module);
  const uint32_t result = library.SetupAction(ActionCode(options.action));
  const bool isCleanup = options.action == CLEANUP;
  const std::string text = !isCleanup    ? "nothing to do for this module"
                           : result != 0 ? "archive and data directory are removed"
                                         : "failed";
  if (options.isJson) {
    CJsonLine line;
    line.AddText("action", options.action);
    line.AddNumber("result", result);
    line.AddText("text", text);
    WriteLine(line.Finish());
  } else {
    WriteLine(options.action + ": " + text + " (result " + std::to_string(result) + ")");
  }
  if (isCleanup && result == 0) {
    throw CHostError(EX_OSERR, ExplainFailure());
  }
  return EXIT_SUCCESS;
}
