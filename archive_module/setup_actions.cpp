#include "archive_module/setup_actions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <exception>
#include <string>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "platform/directory.h"
#include "trace/debug_client.h"

namespace {

constexpr uint32_t ACTION_CLEANUP = 4;
constexpr std::array<const char*, 5> ACTION_NAMES = {nullptr, "BACKUP", "RESTORE", "CONVERT",
                                                     "CLEANUP"};

bool IsDirectory(const char* path) {
  struct stat status = {};
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

uint32_t CleanupArchiveData() {
  DEBUG_TRACE(1, "\nEM_TALVOR (SetupAct): ## Cleanup existing Talvor archive file(s)");
  std::string directory;
  if (!GetDataDir(directory)) {
    DEBUG_TRACE(1, "\nEM_TALVOR (SetupAct): ## ERROR! Talvor path could not be evaluated!");
    return 0;
  }
  const std::string archive = directory + ARCHIVE_FILE;
  DEBUG_TRACE(3, "\nEM_TALVOR (SetupAct): Talvor archive path: \"%s\"\n", archive.c_str());
  unlink(archive.c_str());
  DEBUG_TRACE(2, "\nEM_TALVOR (SetupAct): Remove complete Talvor archive data dir \"%s\"...",
              COLLECTOR_DIRECTORY);
  if (!IsDirectory(COLLECTOR_DIRECTORY)) {
    return 1;
  }
  return CDirectory::RemoveDirectory(COLLECTOR_DIRECTORY, true) ? 1 : 0;
}

void TraceAction(uint32_t action) {
  if (action >= 1 && action < ACTION_NAMES.size()) {
    DEBUG_TRACE(1, "\n\n%-20s: ## Setup action \"%s\" - call module specific action function\n",
                MODULE_NAME, ACTION_NAMES[action]);
  } else {
    DEBUG_TRACE(
        1,
        "\n\n%-20s: ## ERROR! Setup action call with unknown action type (%d) - call module specific action!\n",
        MODULE_NAME, static_cast<int32_t>(action));
  }
}

}  // namespace

uint32_t SetupAction(uint32_t action) {
  const CTraceShield shield;
  TraceAction(action);
  DEBUG_TRACE(5, "\nEM_TALVOR           : -> SetupAction");
  uint32_t result = 0;
  try {
    result = action == ACTION_CLEANUP ? CleanupArchiveData() : 0;
  } catch (const std::exception&) {
    result = 0;  // out of memory
  }
  DEBUG_TRACE(5, "\nEM_TALVOR           : <- SetupAction");
  return result;
}
