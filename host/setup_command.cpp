#include "host/commands.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "archive_module/collector_paths.h"
#include "host/collector_check.h"
#include "host/host_error.h"
#include "host/module_library.h"
#include "host/output.h"

namespace {

constexpr char CLEANUP[] = "cleanup";

uint32_t ActionCode(const std::string& action) {
  static const std::map<std::string, uint32_t> codes = {
      {"backup", 1}, {"restore", 2}, {"convert", 3}, {CLEANUP, 4}};
  return codes.at(action);
}

// Why a clean-up failed, and what to do.
std::string ExplainFailure() {
  std::string directory;
  if (!GetDataDir(directory)) {
    return "Nothing was cleaned up: the data directory of Talvor is not known. " +
           ExplainUnavailability();
  }
  return std::string("The directory /var/log/Talvor could not be removed completely: ") +
         (geteuid() != 0
              ? "run em_host as root."
              : "remove what is left in it, such as files whose names begin with a dot.");
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
    WriteLine(R"({"action":")" + options.action + R"(","result":)" + std::to_string(result) +
              R"(,"text":")" + text + R"("})");
  } else {
    WriteLine(options.action + ": " + text + " (result " + std::to_string(result) + ")");
  }
  if (isCleanup && result == 0) {
    throw CHostError(EX_OSERR, ExplainFailure());
  }
  return EXIT_SUCCESS;
}
