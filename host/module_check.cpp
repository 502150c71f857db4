#include <string>

#include "archive_module/names.h"
#include "host/doctor_checks.h"
#include "host/host_error.h"
#include "host/module_library.h"

namespace {

constexpr char MODULE_SUBJECT[] = "module";

Finding CheckName(const CModuleLibrary& library) {
  const std::string name = library.GetModuleName();
  if (name != MODULE_NAME) {
    return {Finding::Verdict::WRONG, MODULE_SUBJECT,
            library.GetPath() + " is the module " + name + ", not " + MODULE_NAME +
                ": install the package em-talvor again, or name another file with --module FILE."};
  }
  return {Finding::Verdict::RIGHT, MODULE_SUBJECT,
          library.GetPath() + " can be loaded and is " + name + "."};
}

}  // namespace

Findings CheckModule(const HostOptions& options) {
  try {
    return {CheckName(CModuleLibrary(options.module))};
  } catch (const CHostError& error) {
    return {{Finding::Verdict::WRONG, MODULE_SUBJECT, error.what()}};
  }
}
